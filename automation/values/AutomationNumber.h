// Numbers of automation values and their text (US English), for systems other than Windows.
#pragma once

#include "Automation.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// The exact number that a text states: `m_Digits` times 10 to the power of `m_Exponent`. For "&H1F" and "&O17"
/// (hexadecimal and octal digits) `m_bBits` is set and `m_Bits` is the number.
struct NumberText {
    bool m_bNegative = false;
    std::string m_Digits;  ///< without zeros in front; empty for 0
    std::int32_t m_Exponent = 0;
    bool m_bBits = false;
    std::uint64_t m_Bits = 0;
};

/// Reads a number in any of the forms that Automation.h lists. DISP_E_TYPEMISMATCH for other texts, DISP_E_OVERFLOW for
/// more than 64 bits.
HRESULT ReadNumber(std::u16string_view text, NumberText& number);

/// The nearest double. DISP_E_OVERFLOW beyond its range; a number too small for it becomes 0. Hexadecimal and octal
/// digits are taken for a 32-bit signed number.
HRESULT ToReal(const NumberText& number, double& value);

/// The number without its sign, rounded to an integer, halves to even. DISP_E_OVERFLOW beyond 64 bits. Only for decimal
/// numbers.
HRESULT ToMagnitude(const NumberText& number, std::uint64_t& magnitude);

/// The text of a number with at most `digits` significant digits. It has an exponent ("1E+20", "1E-05") from 10 to the
/// power of `digits` on, and below 0.0001.
std::string RealText(double value, int digits);

}  // namespace platform
