#include "LosslessJpegCodec.h"

#include "LosslessJpegDecoder.h"
#include "LosslessJpegEncoder.h"

void LosslessJpegCodec::Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                               std::span<std::uint8_t> pixels) {
    LosslessJpegDecoder decoder(format, stream, pixels);
    decoder.Run();
    FinishSamples(format, decoder.Precision(), pixels);
    if (IsPhotometric(format, "YBR_FULL_422")) SetPhotometric(format, "YBR_FULL");  // the components are whole
    format.lossy = 0;
}

// What is encoded has the samples of a pixel together (PS3.5 8.2.1).
void LosslessJpegCodec::Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels,
                               const FrameWriter& writer) {
    LosslessJpegEncoder(format, pixels).Run(writer);
    format.planarConfiguration = 0;
    format.lossy = 0;
}
