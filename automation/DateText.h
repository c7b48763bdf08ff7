// Converts dates and times between the text of elements (DA, DT, TM: PS3.5 6.2) and automation values. All functions
// return false, and leave the result as it was, for a text or value that is not a date or time.
#pragma once

#include "values/Automation.h"

#include <string>
#include <string_view>

namespace korvane_detail {

/// Reads "YYYYMMDD" (DA).
bool ReadDate(std::string_view text, DATE& date);

/// Reads "YYYYMMDDHHMMSS.FFF" (DT). The date must be complete; of the time, what is missing counts as 0.
bool ReadDateTime(std::string_view text, DATE& date);

/// Turns "HHMMSS.F" (TM) into "h:m:s.f", numbers without leading zeros; at least the hour must be there.
bool ShowTime(std::string_view text, std::string& shown);

/// Converts the value to a date, and that to the text of a DA or a DT. The fraction of DT is milliseconds and three
/// zeros.
bool WriteDate(VARIANT& value, std::string& text);
bool WriteDateTime(VARIANT& value, std::string& text);

/// Converts a VT_DATE, or a VT_BSTR "h:m:s.f", to "HHMMSS.F" (TM).
bool WriteTime(VARIANT& value, std::string& text);

}  // namespace korvane_detail
