// Conversion of 16-bit voxels by a table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane_detail {

/// The stored value for each of the 65,536 values of a 16-bit voxel. A look-up is faster than the arithmetic with its
/// tests of range. Empty until Fill.
class SampleTable {
public:
    /// `map` is called for each value of Sample (std::int16_t or std::uint16_t) and returns an integer, of which the
    /// low 16 bits are stored.
    template <class Sample, class Map>
    void Fill(Map map) {
        m_Stored.resize(65536);
        for (std::size_t value = 0; value < m_Stored.size(); ++value) {
            m_Stored[value] = static_cast<std::uint16_t>(map(static_cast<Sample>(value)));
        }
    }

    bool IsEmpty() const { return m_Stored.empty(); }

    /// Converts as many samples as `row` has elements; signed samples are passed by their bits.
    void Convert(const std::uint16_t* samples, std::vector<std::uint16_t>& row) const {
        const std::uint16_t* const stored = m_Stored.data();
        std::uint16_t* const out = row.data();
        const std::size_t width = row.size();
        for (std::size_t i = 0; i < width; ++i) {
            out[i] = stored[samples[i]];
        }
    }

private:
    std::vector<std::uint16_t> m_Stored;
};

}  // namespace korvane_detail
