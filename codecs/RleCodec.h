// RLE lossless (PS3.5 annex G), 8, 16 and 32 bits allocated, up to 15 bytes a pixel, decoding and encoding.
#pragma once

#include "Codec.h"

/// Streams of which a segment ends before its last pixel are failures; runs that go on behind it are cut.
class RleCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
    void Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels, const FrameWriter& writer) override;
};
