// JPEG 2000, transfer syntaxes 1.2.840.10008.1.2.4.90 (lossless) and .91 (PS3.5 A.4.4), decoded by OpenJPEG.
#pragma once

#include "Codec.h"

/// Decodes only. Where the stream uses the multiple component transformation (YBR_RCT, YBR_ICT), the pixels come out as
/// RGB. A stream may be wrapped in a JP2 file, of which only the code stream is read. Subsampled components fail, as
/// does everything that Jpeg2000Header refuses. The result is marked lossy when the irreversible wavelet was used.
class Jpeg2000Codec : public Codec {
public:
    void Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) override;
};
