// How often values occur.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane {

/// Counts whole numbers in bins of a power of two each.
class Histogram {
public:
    Histogram(long long lowest, long long highest) : m_Lowest(lowest), m_Counts(kBins) {
        while (((highest - lowest) >> m_Shift) >= static_cast<long long>(kBins)) ++m_Shift;
    }

    template <typename T>
    void Add(const T* values, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) AddOne(values[i]);
        m_Total += count;
    }

    /// Those outside of a range, ends included.
    template <typename T>
    void AddOutside(const T* values, std::size_t count, double from, double to) {
        for (std::size_t i = 0; i < count; ++i) {
            const auto value = static_cast<double>(values[i]);
            if (value >= from && value <= to) continue;
            AddOne(values[i]);
            ++m_Total;
        }
    }

    bool IsEmpty() const { return m_Total == 0; }

    /// The lowest value that is not below this part of all.
    double Percentile(double part) const;

private:
    static constexpr std::size_t kBins = 65536;  // one for each value of 16 bits

    template <typename T>
    void AddOne(T value) {
        ++m_Counts[static_cast<std::size_t>((static_cast<long long>(value) - m_Lowest) >> m_Shift)];
    }

    long long m_Lowest;
    int m_Shift = 0;
    std::uint64_t m_Total = 0;
    std::vector<std::uint64_t> m_Counts;
};

}  // namespace korvane
