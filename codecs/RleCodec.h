// RLE lossless, transfer syntax 1.2.840.10008.1.2.5 (PS3.5 A.4.2 and annex G).
#pragma once

#include "Codec.h"

/// Decodes and encodes 8, 16 and 32 bits allocated, up to 15 bytes a pixel (a stream has at most 15 segments). Each
/// byte of a sample is a segment of its own, most significant byte first, component by component. Pixels come out in,
/// and are taken from, the planar configuration of the data set.
///
/// Decoding fails when the number of segments is not what the format needs, and when a segment ends before its last
/// pixel. A run that goes on behind the last pixel is cut off, and bytes behind it are ignored.
class RleCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
    void Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels, const FrameWriter& writer) override;
};
