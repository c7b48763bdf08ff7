// A data set on its way out: a Part 10 stream in any uncompressed or compressed transfer syntax.
#pragma once

#include "../core/Watch.h"
#include "Toolkit.h"

#include <string>
#include <string_view>

namespace korvane {

/// The UID of a word of `GetSyntaxWords`; any other text as it is.
std::string SyntaxUid(const std::string& syntax);

/// Whether a data set is a directory of media: its records hold offsets into the file as it is.
bool IsMediaDirectory(const DICOMObject& dataSet);

/// Preamble, meta information and the data set, elements in the standard's order; the data set is empty afterwards.
/// `syntax` holds where the data set's pixels are as they are in it; what has no compressed pixels cannot be in a
/// compressed syntax and is written in explicit VR little endian. `codecs` gives the frames that it left to be written.
/// Values that were left in a file come from there; throws `Error` when they cannot. False when a write failed, or a frame,
/// about which `codecs` then says more.
bool WriteDataSet(Buffer& buffer, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs,
                  const Watch& watch);

/// The same into a file that gets its name when it is whole, and is removed when it does not get there; it may be the one
/// that values were left in. A link stays one to the file that it leads to. Devices and pipes have no other name: they take
/// what comes. Throws `Error` when it cannot be written. False when a frame cannot be, about which `codecs` says more.
bool SaveDataSet(const std::string& path, DICOMDataObject& dataSet, std::string_view syntax, CodecManager& codecs,
                 const Watch& watch);

}  // namespace korvane
