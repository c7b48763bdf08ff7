// The form of a data set's pixels (PS3.3 C.7.6.3), as codecs are told of it.
#pragma once

#include "../dataset/DICOMObject.h"
#include "CodecModule.h"

#include <cstdint>
#include <string>
#include <string_view>

struct ImageFormat {
    DcmFrameFormat frame{};
    std::uint32_t frames = 1;
    std::uint64_t frameBytes = 0;

    /// Without the pad of an odd one; below 2^63.
    std::uint64_t TotalBytes() const { return frameBytes * frames; }
};

/// Reads what a data set, or an item with pixel data, says. "", or why no codec is to be asked: something missing, or
/// beyond the limits of `DcmFrameFormat`, or a native value beyond its 4-byte length.
std::string ReadImageFormat(const DICOMObject& dataSet, ImageFormat& format);

/// Whether a codec's answer changes only what it may change, and to values that there are.
bool IsAllowedChange(const DcmFrameFormat& before, const DcmFrameFormat& after);

/// Writes into the data set what differs. 1, or 0 when memory runs out.
int WriteChanges(DICOMObject& dataSet, const DcmFrameFormat& before, const DcmFrameFormat& after);

/// Says that the pixels have been compressed with loss (PS3.3 C.7.6.1.1.5): (0028,2110), and where they are missing the
/// ratio (0028,2112) and the method (0028,2114) of the transfer syntax. 1, or 0 when memory runs out.
int MarkAsLossy(DICOMObject& dataSet, double ratio, std::string_view syntax);
