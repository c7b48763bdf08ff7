// JPEG-LS, lossless and near-lossless (PS3.5 A.4.3), decoded by CharLS.
#pragma once

#include "Codec.h"

class JpegLsCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
