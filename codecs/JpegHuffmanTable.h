// Huffman tables of lossless JPEG (ITU-T T.81 annexes C, F.2.2.3, H.1.2.2): codes of the categories 0 to 16.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

class JpegHuffmanTable {
public:
    static constexpr unsigned kLookahead = 12;
    static constexpr unsigned kCategories = 17;  // 0 to 16

    /// What the next kLookahead bits mean. `total` 0: they do not hold all of the difference, or its category is 16, which
    /// has no bits; `code` 0: the code is longer than they are, or there is none.
    struct Entry {
        std::int16_t value = 0;  // the difference where `total` is not 0, else its category
        std::uint8_t total = 0;  // bits of the code and of the difference behind it
        std::uint8_t code = 0;   // bits of the code
    };

    JpegHuffmanTable() = default;
    /// `counts` codes of 1 to 16 bits, then their values. Throws CodecFailure when there are more codes than bits make,
    /// or a value is no category.
    JpegHuffmanTable(std::span<const std::uint8_t, 16> counts, std::span<const std::uint8_t> values);
    /// The best table for categories that come so often (annex K.2).
    static JpegHuffmanTable ForFrequencies(const std::array<std::uint64_t, kCategories>& frequencies);

    bool IsDefined() const { return !m_values.empty(); }
    const Entry& Lookup(std::uint64_t bits) const {
        return m_lookup[static_cast<std::size_t>(bits >> (64 - kLookahead))];
    }
    /// Length and category, as an entry with `total` 0, for bits that Lookup has no code for; `code` 0 when there is none.
    Entry Search(std::uint64_t bits) const;
    /// The difference of a category from 1 to 15 whose bits stand at the top of `bits`. A first bit of 0 means a negative
    /// one.
    static int Difference(std::uint64_t bits, unsigned category) {
        const int value = static_cast<int>(bits >> (64 - category));
        return bits >> 63 != 0 ? value : value - (1 << category) + 1;
    }

    std::span<const std::uint8_t, 16> Counts() const { return m_counts; }
    std::span<const std::uint8_t> Values() const { return m_values; }
    struct Code {
        std::uint16_t bits = 0;
        std::uint8_t length = 0;
    };
    /// For encoders: the code of each category.
    std::array<Code, kCategories> Codes() const;

private:
    std::array<std::uint8_t, 16> m_counts{};
    std::vector<std::uint8_t> m_values;
    std::array<std::uint32_t, 17> m_limit{};  // of the codes of each length, in the top of 16 bits: the first beyond
    std::array<int, 17> m_firstIndex{};       // into the values, less the first code of that length
    std::vector<Entry> m_lookup;              // by the next kLookahead bits
};
