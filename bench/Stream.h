// Part 10 streams in memory with many small elements.
#pragma once

#include <cstddef>
#include <string>

/// Explicit or implicit VR little endian. A sequence at the top whose items hold 200 elements each, nested three deep:
/// the texts, codes and numbers of a structured report or a treatment plan. `elements`: a multiple of 200.
std::string MakeNestedStream(std::size_t elements, bool explicitVR);

/// Implicit VR little endian: private elements side by side in one data set, by ascending or descending tag.
std::string MakePrivateStream(std::size_t elements, bool descending);
