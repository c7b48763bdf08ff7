// Dates and times between the texts of elements (DA, DT, TM: PS3.5 6.2) and automation values. All return false for what is
// none.
#pragma once

#include "values/Automation.h"

#include <string>
#include <string_view>

namespace korvane_detail {

/// "YYYYMMDD".
bool ReadDate(std::string_view text, DATE& date);

/// "YYYYMMDDHHMMSS.FFF"; the time as far as it is there.
bool ReadDateTime(std::string_view text, DATE& date);

/// "HHMMSS.F" as "h:m:s.f", plain numbers; the hour must be there.
bool ShowTime(std::string_view text, std::string& shown);

/// What the value is as a date, as such a text; the fraction of DT is milliseconds and three zeros.
bool WriteDate(VARIANT& value, std::string& text);
bool WriteDateTime(VARIANT& value, std::string& text);

/// A VT_DATE, or a VT_BSTR "h:m:s.f", as "HHMMSS.F".
bool WriteTime(VARIANT& value, std::string& text);

}  // namespace korvane_detail
