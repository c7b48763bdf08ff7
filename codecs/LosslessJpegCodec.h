// Lossless JPEG, process 14, transfer syntaxes 1.2.840.10008.1.2.4.57 (any predictor) and .70 (predictor 1; PS3.5
// A.4.1).
#pragma once

#include "Codec.h"

/// Decodes both syntaxes alike, as LosslessJpegDecoder says: 2 to 16 bits a sample, and 8 or 16 bits allocated. Colour
/// is not transformed. Damaged and truncated streams fail. Encodes for syntax .70, as LosslessJpegEncoder says; the
/// samples of a pixel lie together in the stream, so Planar Configuration becomes 0 (PS3.5 8.2.1). The result is never
/// lossy.
class LosslessJpegCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
    void Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels, const FrameWriter& writer) override;
};
