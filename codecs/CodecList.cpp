#include "CodecList.h"

#include "ExtendedJpegCodec.h"
#include "LosslessJpegCodec.h"
#include "RleCodec.h"

#if defined(CODECS_JPEG)
#include "JpegCodec.h"
#endif
#if defined(CODECS_JPEGLS)
#include "JpegLsCodec.h"
#endif
#if defined(CODECS_JPEG2000)
#include "Jpeg2000Codec.h"
#endif

namespace {

constexpr std::uint8_t kDecodes = DCM_CODEC_DECODES;
constexpr std::uint8_t kBoth = DCM_CODEC_DECODES | DCM_CODEC_ENCODES;

template <class Made>
std::unique_ptr<Codec> Make() {
    return std::make_unique<Made>();
}

constexpr CodecOffer kOffers[] = {
    {"1.2.840.10008.1.2.5", kBoth, Make<RleCodec>},
    {"1.2.840.10008.1.2.4.57", kDecodes, Make<LosslessJpegCodec>},
    {"1.2.840.10008.1.2.4.70", kBoth, Make<LosslessJpegCodec>},
    {"1.2.840.10008.1.2.4.51", kDecodes | DCM_CODEC_LOSSY, Make<ExtendedJpegCodec>},
#if defined(CODECS_JPEG)
    {"1.2.840.10008.1.2.4.50", kDecodes | DCM_CODEC_LOSSY, Make<JpegCodec>},
#endif
#if defined(CODECS_JPEGLS)
    {"1.2.840.10008.1.2.4.80", kDecodes, Make<JpegLsCodec>},
    {"1.2.840.10008.1.2.4.81", kDecodes | DCM_CODEC_LOSSY, Make<JpegLsCodec>},
#endif
#if defined(CODECS_JPEG2000)
    {"1.2.840.10008.1.2.4.90", kDecodes, Make<Jpeg2000Codec>},
    {"1.2.840.10008.1.2.4.91", kDecodes | DCM_CODEC_LOSSY, Make<Jpeg2000Codec>},
#endif
};

}  // namespace

std::span<const CodecOffer> CodecOffers() {
    return kOffers;
}
