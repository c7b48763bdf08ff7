// Numbers in text, independent of the program's locale: the decimal separator is always a point.
//
// Leading white space is skipped, a leading plus sign is allowed, and reading ends at the first character that does not
// belong to the number, as `atoi` and `atof` do. What does not begin with a number reads as 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// `atoi` of a text; what lies outside 32 bits gives the nearest end of the range.
std::int32_t ParseInteger(std::string_view text);

/// `atof` of a text.
double ParseReal(std::string_view text);

/// Reads `count` reals with one `separator` between them, as `sscanf` reads "%lf\\%lf": stops at the first that is
/// missing. Returns how many were read; the values behind them stay as they are.
std::size_t ScanReals(std::string_view text, double* values, std::size_t count, char separator = '\\');

/// The same in single precision ("%f\\%f": each number is rounded once, from its text).
std::size_t ScanReals(std::string_view text, float* values, std::size_t count, char separator = '\\');

/// The shortest text that reads back as the same number.
std::string FormatReal(double value);
std::string FormatReal(float value);

/// What `printf` makes of "%f" in the C locale: six decimals, -0.000000 included; "inf", "nan" with their sign.
std::string FormatFixed(double value);

}  // namespace platform
