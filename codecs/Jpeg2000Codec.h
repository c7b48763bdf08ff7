// JPEG 2000, lossless and lossy (PS3.5 A.4.4), decoded by OpenJPEG.
#pragma once

#include "Codec.h"

/// Colour components that the stream keeps transformed come out as RGB. Of a stream within a JP2 file the code stream
/// alone is read. Components that are smaller than the image are failures.
class Jpeg2000Codec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
