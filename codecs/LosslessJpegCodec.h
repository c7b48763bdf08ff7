// Lossless JPEG (process 14 and its selection value 1; PS3.5 A.4.2).
#pragma once

#include "Codec.h"

class LosslessJpegCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
    void Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels, const FrameWriter& writer) override;
};
