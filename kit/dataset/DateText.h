// Dates and times as data sets have them: texts (PS3.5 6.2).
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace korvane {

/// YYYYMMDD; nothing for what is no date of the calendar.
std::optional<std::chrono::year_month_day> ReadDate(std::string_view text);

/// The time since midnight of HHMMSS.FFFFFF, where minutes and what follows may be left out; nothing for what is no such
/// time. Colons between the parts are those of files before the standard.
std::optional<std::chrono::microseconds> ReadClock(std::string_view text);

/// How far the clocks of a place are ahead of UTC, of "+0130"; nothing for what is no such offset.
std::optional<std::chrono::minutes> ReadZone(std::string_view text);

}  // namespace korvane
