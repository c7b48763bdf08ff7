// The file of a slice, with its pixels.
#pragma once

#include "../core/Error.h"
#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "ImageHeader.h"

#include <string>

namespace korvane {

/// Throws an `Error` that names the file.
[[noreturn]] void RefuseFile(const ImageHeader& header, ErrorKind kind, const std::string& why);

/// Throws `Error` where a file is no more the one that was found: its place and form are known from then, and pixels of
/// another image would be taken for its own.
void CheckUnchanged(const ImageHeader& header, const DICOMDataObject& dataSet);

/// Decodes the pixels of a slice. Throws `Error` that names its file.
void DecodeSlice(const ImageHeader& header, DICOMDataObject& dataSet, CodecManager& codecs, const Watch& watch);

/// Reads a file whole, and decodes its pixels. `header`: what it said when it was found. Throws `Error` where it has not all
/// the pixels that it promised.
DataSetFile ReadSliceFile(const ImageHeader& header, CodecManager& codecs, const Watch& watch);

/// Whether there are bits above the stored ones (see `HasBitsAbove`) in the pixels of a file that was read.
bool HasFileBitsAbove(const ImageHeader& header, const DICOMDataObject& dataSet, const Watch& watch);

}  // namespace korvane
