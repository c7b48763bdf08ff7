#include "LosslessJpegCodec.h"

#include "LosslessJpegDecoder.h"
#include "LosslessJpegEncoder.h"

void LosslessJpegCodec::Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                               std::span<std::uint8_t> pixels) {
    LosslessJpegDecoder decoder(format, stream, pixels);
    decoder.Run();
    FinishSamples(format, decoder.Precision(), pixels);
    if (IsPhotometric(format, "YBR_FULL_422")) SetPhotometric(format, "YBR_FULL");  // no longer subsampled
    format.lossy = 0;
}

void LosslessJpegCodec::Encode(DcmFrameFormat& format, std::span<const std::uint8_t> pixels,
                               const FrameWriter& writer) {
    LosslessJpegEncoder(format, pixels).Run(writer);
    format.planarConfiguration = 0;
    format.lossy = 0;
}
