#include "JpegHuffmanTable.h"

#include "Codec.h"

#include <algorithm>

namespace {

// The entry for bits that begin with a code of `length` bits; only the first kLookahead of `bits` are meaningful.
JpegHuffmanTable::Entry MakeEntry(std::uint64_t bits, unsigned length, std::uint8_t category) {
    JpegHuffmanTable::Entry entry{category, 0, static_cast<std::uint8_t>(length)};
    if (length + category > JpegHuffmanTable::kLookahead) return entry;
    entry.total = static_cast<std::uint8_t>(length + category);
    if (category != 0) entry.value = static_cast<std::int16_t>(JpegHuffmanTable::Difference(bits << length, category));
    return entry;
}

}  // namespace

JpegHuffmanTable::JpegHuffmanTable(std::span<const std::uint8_t, 16> counts, std::span<const std::uint8_t> values)
    : m_values(values.begin(), values.end()), m_lookup(std::size_t{1} << kLookahead) {
    std::copy(counts.begin(), counts.end(), m_counts.begin());
    for (const std::uint8_t category : m_values) {
        if (category >= kCategories) Fail("a Huffman table has a difference of ", category, " bits");
    }
    std::uint32_t code = 0;
    int index = 0;
    for (unsigned length = 1; length <= 16; ++length) {
        m_firstIndex[length] = index - static_cast<int>(code);
        for (unsigned i = 0; i < m_counts[length - 1]; ++i, ++code, ++index) {
            if (code >= 1u << length) Fail("a Huffman table has more codes than there are");
            if (length > kLookahead) continue;
            const std::uint32_t end = (code + 1) << (kLookahead - length);
            for (std::uint32_t next = code << (kLookahead - length); next < end; ++next) {
                m_lookup[next] = MakeEntry(std::uint64_t{next} << (64 - kLookahead), length,
                                           m_values[static_cast<std::size_t>(index)]);
            }
        }
        m_limit[length] = code << (16 - length);
        code <<= 1;
    }
}

JpegHuffmanTable::Entry JpegHuffmanTable::Search(std::uint64_t bits) const {
    const auto top = static_cast<std::uint32_t>(bits >> 48);
    for (unsigned length = kLookahead + 1; length <= 16; ++length) {
        if (top >= m_limit[length]) continue;
        const int index = m_firstIndex[length] + static_cast<int>(top >> (16 - length));
        return {m_values[static_cast<std::size_t>(index)], 0, static_cast<std::uint8_t>(length)};
    }
    return {};
}

namespace {

// The length of each symbol's Huffman code (T.81 figure K.1); with uneven frequencies lengths may exceed 16. The
// caller adds a last symbol, which takes up the code of nothing but ones: JPEG reserves that code.
template <std::size_t n>
std::array<unsigned, n> CodeLengths(std::array<std::uint64_t, n> frequencies) {
    std::array<unsigned, n> lengths{};
    std::array<std::size_t, n> group{};  // symbols of one tree share a number
    for (std::size_t i = 0; i < n; ++i) group[i] = i;
    while (true) {
        std::size_t least = n, next = n;
        for (std::size_t i = 0; i < n; ++i) {
            if (frequencies[i] == 0) continue;
            if (least == n || frequencies[i] <= frequencies[least]) {
                next = least;
                least = i;
            } else if (next == n || frequencies[i] <= frequencies[next]) {
                next = i;
            }
        }
        if (next == n) return lengths;
        frequencies[next] += frequencies[least];
        frequencies[least] = 0;
        const std::size_t joined = group[least];
        for (std::size_t i = 0; i < n; ++i) {
            if (group[i] == joined || group[i] == group[next]) {
                ++lengths[i];
                group[i] = group[next];
            }
        }
    }
}

}  // namespace

JpegHuffmanTable JpegHuffmanTable::ForFrequencies(const std::array<std::uint64_t, kCategories>& frequencies) {
    std::array<std::uint64_t, kCategories + 1> all{};
    std::copy(frequencies.begin(), frequencies.end(), all.begin());
    all[kCategories] = 1;
    const std::array<unsigned, kCategories + 1> lengths = CodeLengths(all);

    std::array<unsigned, kCategories + 1> counts{};
    for (const unsigned length : lengths) ++counts[length];
    // Codes of 17 bits are not allowed (T.81 figure K.3): of each pair of them one takes their common prefix of 16
    // bits, and the other shares a shorter code's place, both then being one bit longer than that code.
    while (counts[17] > 0) {
        unsigned length = 15;
        while (counts[length] == 0) --length;
        counts[17] -= 2;
        counts[16] += 1;
        counts[length + 1] += 2;
        counts[length] -= 1;
    }
    unsigned longest = 16;
    while (counts[longest] == 0) --longest;
    --counts[longest];

    std::array<std::uint8_t, 16> lengthCounts{};
    for (std::size_t i = 0; i < 16; ++i) lengthCounts[i] = static_cast<std::uint8_t>(counts[i + 1]);
    std::vector<std::uint8_t> values;
    for (unsigned length = 1; length <= kCategories; ++length) {
        for (std::uint8_t category = 0; category < kCategories; ++category) {
            if (lengths[category] == length) values.push_back(category);
        }
    }
    return {lengthCounts, values};
}

std::array<JpegHuffmanTable::Code, JpegHuffmanTable::kCategories> JpegHuffmanTable::Codes() const {
    std::array<Code, kCategories> codes{};
    std::size_t index = 0;
    unsigned code = 0;
    for (std::uint8_t length = 1; length <= 16; ++length, code <<= 1) {
        for (unsigned i = 0; i < m_counts[length - 1]; ++i, ++code, ++index) {
            codes[m_values[index]] = {static_cast<std::uint16_t>(code), length};
        }
    }
    return codes;
}
