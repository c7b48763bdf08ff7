// What a user should know about a series before trusting what is made of it.
#pragma once

#include <string>
#include <vector>

namespace korvane {

struct FoundFiles;
struct FoundSeries;

/// One line each; none for a series in which everything is as it should be.
std::vector<std::string> WarnAbout(const FoundFiles& found, const FoundSeries& series);

/// A length, an angle: at most four decimals, no trailing zeros.
std::string ShortNumber(double value);

}  // namespace korvane
