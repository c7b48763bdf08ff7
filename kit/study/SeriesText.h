// Series in words, for people.
#pragma once

#include <string>

namespace korvane {

struct FoundFiles;
struct PixelForm;
struct FoundSeries;

/// Such as "unsigned, 12 of 16 bits, MONOCHROME2".
std::string DescribePixels(const PixelForm& form);

/// How many images a series has: files, or frames of them.
std::size_t CountImages(const FoundFiles& found, const FoundSeries& series);

/// "rows to L, columns to P, slices to H"; the order of slices is that along the normal.
std::string DescribeOrientation(const FoundFiles& found, const FoundSeries& series);

}  // namespace korvane
