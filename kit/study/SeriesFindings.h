// What a user should know about a series before trusting what is made of it.
#pragma once

#include "../core/Finding.h"

#include <string>
#include <vector>

namespace korvane {

struct FoundFiles;
struct FoundSeries;

/// None for a series in which everything is as it should be. Geometry and volumes must have been studied.
std::vector<Finding> StudyFindings(const FoundFiles& found, const FoundSeries& series);

/// A length, an angle: at most four decimals, no trailing zeros.
std::string ShortNumber(double value);

}  // namespace korvane
