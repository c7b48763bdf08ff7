// JPEG-LS, transfer syntaxes 1.2.840.10008.1.2.4.80 (lossless) and .81 (near-lossless; PS3.5 A.4.3), decoded by CharLS.
#pragma once

#include "Codec.h"

/// Decodes only. Samples of 2 to 16 bits that fit into the bits allocated, grey or colour, in any interleave mode; the
/// pixels come out in the planar configuration of the data set. No colour transformation is applied. A stream whose
/// size is not the data set's fails, and so does everything that CharLS finds damaged. The result is marked lossy where
/// the stream is near-lossless (NEAR is not 0).
class JpegLsCodec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
