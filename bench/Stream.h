// Part 10 streams in memory with many small elements.
#pragma once

#include <cstddef>
#include <string>

/// Explicit or implicit VR little endian. A sequence at the top whose items hold 200 elements each, nested three deep,
/// ten elements to an item: the texts and numbers of a treatment plan. `elements`: a multiple of 200.
std::string MakeNestedStream(std::size_t elements, bool explicitVR);

/// Explicit VR little endian. The same with three elements to an item: the measurements of a structured report.
std::string MakeReportStream(std::size_t elements);

/// Implicit VR little endian: private elements side by side in one data set, by ascending or descending tag.
std::string MakePrivateStream(std::size_t elements, bool descending);
