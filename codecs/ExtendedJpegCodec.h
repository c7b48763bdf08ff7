// JPEG extended, processes 2 and 4 (PS3.5 A.4.1).
#pragma once

#include "Codec.h"

/// Grey samples of 12 bits are decoded here. Samples of 8 bits are JpegCodec's, grey and colour; in a build without its
/// library grey ones are decoded here, and colour is a failure. Damaged and cut streams are failures.
class ExtendedJpegCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
