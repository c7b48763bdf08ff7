// Huffman tables of lossless JPEG (ITU-T T.81 annexes C, F.2.2.3, H.1.2.2).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

/// A table of codes of 1 to 16 bits. Each code stands for a category from 0 to 16: the number of bits that the
/// difference behind the code has. A default-constructed table is undefined (IsDefined) and must not be used for
/// look-ups.
class JpegHuffmanTable {
public:
    static constexpr unsigned kLookahead = 12;   ///< bits that one look-up examines
    static constexpr unsigned kCategories = 17;  ///< 0 to 16

    /// What the next kLookahead bits of a stream mean. Three cases:
    /// - `total` is not 0: code and difference both lie within these bits, and `value` is the difference.
    /// - `total` is 0, `code` is not: only the code does (or the category is 16, a difference of 32768 without bits of
    ///   its own); `value` is the category.
    /// - both are 0: the code is longer than these bits, or there is none; ask Search.
    struct Entry {
        std::int16_t value = 0;
        std::uint8_t total = 0;  ///< bits of the code and of the difference behind it
        std::uint8_t code = 0;   ///< bits of the code alone
    };

    JpegHuffmanTable() = default;
    /// From a stream's DHT segment: how many codes of each length from 1 to 16 there are, and their categories,
    /// shortest codes first. `values` must be as many as `counts` add up to. Throws CodecFailure when there are more
    /// codes of a length than its bits allow, or a value is no category.
    JpegHuffmanTable(std::span<const std::uint8_t, 16> counts, std::span<const std::uint8_t> values);
    /// The table that makes the shortest stream when each category occurs as often as `frequencies` says (T.81 K.2).
    static JpegHuffmanTable ForFrequencies(const std::array<std::uint64_t, kCategories>& frequencies);

    bool IsDefined() const { return !m_values.empty(); }
    /// The entry for the bits that begin at the top of `bits`.
    const Entry& Lookup(std::uint64_t bits) const {
        return m_lookup[static_cast<std::size_t>(bits >> (64 - kLookahead))];
    }
    /// For bits of which Lookup gave no code: an entry with the length of the code in `code` and the category in
    /// `value`, `total` being 0. `code` is 0 where no code of the table matches.
    Entry Search(std::uint64_t bits) const;
    /// The difference that the top `category` bits of `bits` stand for, category 1 to 15: a first bit of 0 marks a
    /// negative one, which is stored less 1 (T.81 F.1.2.1).
    static int Difference(std::uint64_t bits, unsigned category) {
        const int value = static_cast<int>(bits >> (64 - category));
        return bits >> 63 != 0 ? value : value - (1 << category) + 1;
    }

    /// The table as a DHT segment has it: see the constructor.
    std::span<const std::uint8_t, 16> Counts() const { return m_counts; }
    std::span<const std::uint8_t> Values() const { return m_values; }
    struct Code {
        std::uint16_t bits = 0;   ///< in the low `length` bits
        std::uint8_t length = 0;  ///< 0: the category has no code
    };
    /// For encoders: the code of each category, by category.
    std::array<Code, kCategories> Codes() const;

private:
    std::array<std::uint8_t, 16> m_counts{};
    std::vector<std::uint8_t> m_values;
    std::array<std::uint32_t, 17> m_limit{};  ///< by length: the first 16-bit value beyond its codes, left-aligned
    std::array<int, 17> m_firstIndex{};       ///< by length: index of its first value, less its first code
    std::vector<Entry> m_lookup;              ///< by the next kLookahead bits
};
