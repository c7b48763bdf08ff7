// The text of data elements: its values between backslashes, numbers in fixed columns, and conversion to UTF-16 and
// back.
#pragma once

#include "values/Automation.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane_detail {

/// The number of values: backslashes plus one; 0 for an empty text.
std::size_t CountValues(std::string_view text);

/// Finds value i, counted from 0: the index of its first byte and of the one behind its last, trailing blanks included.
/// False when it does not exist.
bool FindValue(std::string_view text, int i, std::size_t& begin, std::size_t& end);

/// Makes a BSTR from bytes, which are taken for ISO 8859-1; the caller frees it. Null when memory runs out.
BSTR MakeText(std::string_view bytes);

/// The reverse; characters that ISO 8859-1 does not have become "?".
std::string BytesOf(BSTR text);

/// Reads whole numbers from a text, one after another, as `sscanf` does with "%d" and "%4d".
class FieldReader {
public:
    explicit FieldReader(std::string_view text) : m_Rest(text) {}

    /// Skips blanks, then reads a sign and digits, at most `width` characters together (0: no limit). False, and
    /// nothing is consumed, where no digit is found. Numbers beyond the range of int give its largest value.
    bool Read(int& value, std::size_t width = 0);
    /// Skips `c` where it is the next character; false where it is not.
    bool Skip(char c);

private:
    std::string_view m_Rest;
};

}  // namespace korvane_detail
