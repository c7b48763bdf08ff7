#include "ExtendedJpegCodec.h"

#include "ExtendedJpegDecoder.h"
#if defined(CODECS_JPEG)
#include "JpegCodec.h"
#endif

void ExtendedJpegCodec::Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream,
                               std::span<std::uint8_t> pixels) {
#if defined(CODECS_JPEG)
    if (ExtendedJpegDecoder::PrecisionOf(stream) != 12) return JpegCodec().Decode(format, stream, pixels);
#endif
    ExtendedJpegDecoder decoder(format, stream, pixels);
    decoder.Run();
    FinishSamples(format, decoder.Precision(), pixels);
    format.lossy = 1;
}
