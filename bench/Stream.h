// Makes DICOM files (PS3.10) in memory that consist of many small elements.
#pragma once

#include <cstddef>
#include <string>

/// A sequence whose items hold 200 elements each, nested three deep with about ten elements to an item, like the texts
/// and numbers of a treatment plan. Little endian, explicit or implicit VR. `elements` must be a multiple of 200.
std::string MakeNestedStream(std::size_t elements, bool explicitVR);

/// The same with three elements to an item, like the measurements of a structured report. Explicit VR little endian.
std::string MakeReportStream(std::size_t elements);

/// A whole file as MR scanners write them: 350 elements, many of them private or in items, and 64 x 64 16-bit pixels behind
/// them. Explicit VR little endian.
std::string MakeSmallFile();

/// Private elements without nesting, by ascending or descending tag. Implicit VR little endian.
std::string MakePrivateStream(std::size_t elements, bool descending);
