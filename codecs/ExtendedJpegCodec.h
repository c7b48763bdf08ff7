// JPEG extended, processes 2 and 4, transfer syntax 1.2.840.10008.1.2.4.51 (PS3.5 A.4.1).
#pragma once

#include "Codec.h"

/// Decodes only. Grey frames with 12-bit samples go to ExtendedJpegDecoder. Frames with 8-bit samples, grey or colour,
/// go to JpegCodec; in a build without libjpeg-turbo, grey ones go to ExtendedJpegDecoder too, and colour ones fail.
/// Damaged and truncated streams fail. The result is always marked lossy.
class ExtendedJpegCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
