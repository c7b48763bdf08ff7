// A data set on its way out: a Part 10 stream in any uncompressed or compressed transfer syntax.
#pragma once

#include "Toolkit.h"

#include <string_view>

namespace korvane {

/// Whether a data set is a directory of media: its records hold offsets into the file as it is.
bool IsMediaDirectory(const DICOMObject& dataSet);

/// Preamble, meta information and the data set, elements in the standard's order; the data set is empty afterwards.
/// `syntax` holds where the data set's pixels are as they are in it; what has no compressed pixels cannot be in a
/// compressed syntax and is written in explicit VR little endian. `codecs` gives the frames that it left to be written.
/// False when a write failed or a frame, about which `codecs` then says more.
bool WriteDataSet(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs);

}  // namespace korvane
