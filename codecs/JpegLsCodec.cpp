#include "JpegLsCodec.h"

#include "FrameLayout.h"

#include <memory>
#include <vector>

#include <charls/charls_jpegls_decoder.h>

namespace {

using Decoder = std::unique_ptr<charls_jpegls_decoder, decltype(&charls_jpegls_decoder_destroy)>;

void Check(charls_jpegls_errc result) {
    if (result != charls_jpegls_errc{}) Fail("JPEG-LS: ", charls_get_error_message(result));
}

// The format in which CharLS delivers the frame: 8 or 16 bits a sample, and plane by plane or pixel by pixel as the
// stream's interleave mode is.
DcmFrameFormat StreamFormat(const charls_jpegls_decoder* decoder, const DcmFrameFormat& format,
                            const charls_frame_info& info) {
    charls_interleave_mode mode{};
    Check(charls_jpegls_decoder_get_interleave_mode(decoder, &mode));
    DcmFrameFormat result = format;
    result.bitsAllocated = info.bits_per_sample > 8 ? 16 : 8;
    result.planarConfiguration = mode == charls_interleave_mode::none ? 1 : 0;
    return result;
}

void CheckHeader(const charls_frame_info& info, const DcmFrameFormat& format) {
    CheckDimensions(format, info.width, info.height, static_cast<std::uint64_t>(info.component_count));
    if (info.bits_per_sample < 2 || info.bits_per_sample > 16 ||
        static_cast<std::uint32_t>(info.bits_per_sample) > format.bitsAllocated) {
        Fail("JPEG-LS: samples of ", info.bits_per_sample, " bits do not go with ", format.bitsAllocated,
             " bits allocated");
    }
}

template <class Sample>
void CopyFrame(const FrameLayout& from, const std::vector<std::uint8_t>& samples, const FrameLayout& to,
               std::uint8_t* pixels) {
    std::vector<Sample> line(from.Columns());
    for (std::size_t row = 0; row < from.Rows(); ++row) {
        for (std::size_t c = 0; c < from.Samples(); ++c) {
            from.LoadLine(samples.data(), row, c, 1, line.data());
            to.StoreLine(pixels, row, c, 1, line.data());
        }
    }
}

}  // namespace

void JpegLsCodec::Decode(DcmFrameFormat& format, std::span<const std::uint8_t> stream, std::span<std::uint8_t> pixels) {
    const Decoder decoder(charls_jpegls_decoder_create(), charls_jpegls_decoder_destroy);
    if (decoder == nullptr) throw std::bad_alloc();
    charls_frame_info info{};
    Check(charls_jpegls_decoder_set_source_buffer(decoder.get(), stream.data(), stream.size()));
    Check(charls_jpegls_decoder_read_header(decoder.get()));
    Check(charls_jpegls_decoder_get_frame_info(decoder.get(), &info));
    CheckHeader(info, format);

    const FrameLayout from(StreamFormat(decoder.get(), format, info)), to(format);
    const bool isSame = from.SampleBytes() == to.SampleBytes() && from.PixelStep() == to.PixelStep();
    std::vector<std::uint8_t> own(isSame ? 0 : from.FrameBytes());
    const std::span<std::uint8_t> samples = isSame ? pixels : own;
    Check(charls_jpegls_decoder_decode_to_buffer(decoder.get(), samples.data(), samples.size(), 0));
    if (!isSame && from.SampleBytes() == 1) {
        CopyFrame<std::uint8_t>(from, own, to, pixels.data());
    } else if (!isSame) {
        CopyFrame<std::uint16_t>(from, own, to, pixels.data());
    }

    std::int32_t near = 0;
    Check(charls_jpegls_decoder_get_near_lossless(decoder.get(), 0, &near));
    FinishSamples(format, static_cast<unsigned>(info.bits_per_sample), pixels);
    if (IsPhotometric(format, "YBR_FULL_422")) SetPhotometric(format, "YBR_FULL");  // no longer subsampled
    format.lossy = near != 0 ? 1 : 0;
}
