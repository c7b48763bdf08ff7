// Texts inside elements: the values between backslashes, numbers in fixed columns, and the way to UTF-16 and back.
#pragma once

#include "values/Automation.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane_detail {

/// Backslashes plus one; 0 for an empty text.
std::size_t CountValues(std::string_view text);

/// Where value i begins and ends, trailing blanks included; false when it does not exist.
bool FindValue(std::string_view text, int i, std::size_t& begin, std::size_t& end);

/// Bytes as characters of ISO 8859-1. Null without memory.
BSTR MakeText(std::string_view bytes);

/// The way back; what ISO 8859-1 does not have becomes "?".
std::string BytesOf(BSTR text);

/// Reads numbers one after another as `sscanf` does.
class FieldReader {
public:
    explicit FieldReader(std::string_view text) : m_Rest(text) {}

    /// Blanks, then a sign and digits, together at most `width` characters (0: any number of them). False, and nothing
    /// read, without a digit; numbers that 31 bits do not hold give the largest.
    bool Read(int& value, std::size_t width = 0);
    bool Skip(char c);

private:
    std::string_view m_Rest;
};

}  // namespace korvane_detail
