// Numbers of automation values and their texts (US English), away from Windows.
#pragma once

#include "Automation.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// A number as a text gives it, exactly: `m_Digits` times 10 to the power of `m_Exponent`; or, for a text in hexadecimal or
/// octal digits, bits.
struct NumberText {
    bool m_bNegative = false;
    std::string m_Digits;  ///< without zeros in front; empty for 0
    std::int32_t m_Exponent = 0;
    bool m_bBits = false;
    std::uint64_t m_Bits = 0;
};

/// DISP_E_TYPEMISMATCH for what is no number, DISP_E_OVERFLOW for more than 64 bits.
HRESULT ReadNumber(std::u16string_view text, NumberText& number);

/// DISP_E_OVERFLOW beyond the range of a double; what is too small is 0. Bits are a 32-bit signed number.
HRESULT ToReal(const NumberText& number, double& value);

/// Rounded to an integer, halves to even. DISP_E_OVERFLOW beyond 64 bits. Not for bits.
HRESULT ToMagnitude(const NumberText& number, std::uint64_t& magnitude);

/// `digits` significant digits at most; an exponent ("1E+20", "1E-05") from 10 to the power of `digits` on, and below
/// 0.0001.
std::string RealText(double value, int digits);

}  // namespace platform
