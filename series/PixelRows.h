// Stored words to raw values, whole rows at a time: the only loops over pixels that run for every slice of a series.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korvane_detail {

/// How a stored word becomes a raw value: ((word >> m_Shift) & m_Mask ^ m_Flip) + m_Offset in 32 bits, a shift outside
/// 0 to 31 giving 0. Words of four bytes take m_Offset only.
struct WordForm {
    int m_Size;  ///< bytes of a word: 1, 2 or 4
    int m_Shift;
    std::uint32_t m_Mask;
    std::uint32_t m_Flip;  ///< within 16 bits
    std::int32_t m_Offset;
};

/// Smallest and largest raw value; none yet as long as m_Min > m_Max.
struct PixelRange {
    std::int32_t m_Min = INT32_MAX;
    std::int32_t m_Max = INT32_MIN;

    void Widen(const PixelRange& other) {
        m_Min = other.m_Min < m_Min ? other.m_Min : m_Min;
        m_Max = other.m_Max > m_Max ? other.m_Max : m_Max;
    }
};

/// The raw value of one word.
std::int32_t DecodeWord(const WordForm& form, std::uint32_t word);

/// The range of `count` words, at any alignment.
PixelRange ScanWords(const WordForm& form, const void* words, std::size_t count);

/// The same, and stores the low bits of the raw values as words of the same size. `out` must not overlap `words`.
PixelRange DecodeWords(const WordForm& form, const void* words, void* out, std::size_t count);

}  // namespace korvane_detail
