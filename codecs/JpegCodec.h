// JPEG baseline, transfer syntax 1.2.840.10008.1.2.4.50, and extended with 8-bit samples (processes 1 and 2; PS3.5
// A.4.1), decoded by libjpeg-turbo.
#pragma once

#include "Codec.h"

/// Decodes only. Colour comes out as RGB. Whether the stream's components are YCbCr is taken from its Adobe marker.
/// Without one they are YCbCr, unless they are named R, G and B, or the data set says RGB and none of them is
/// subsampled.
///
/// Damaged and truncated streams fail, and so do 12-bit samples, which the library does not decode (see
/// ExtendedJpegCodec). The result is always marked lossy.
class JpegCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
