// JPEG baseline and extended with 8-bit samples (processes 1 and 2; PS3.5 A.4.1), decoded by libjpeg-turbo.
#pragma once

#include "Codec.h"

/// Colour comes out as RGB: components are transformed where an Adobe marker says so; without one, unless the data set
/// says RGB or the components are called R, G and B. Damaged and cut streams are failures, and so are samples of 12
/// bits, which the library does not decode (see ExtendedJpegCodec).
class JpegCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
