// libFuzzer: one codec decodes frames of all formats. Nine bytes in front of the stream say which. An empty corpus
// folder is seeded with what the codec encodes.
#include "../FuzzCorpus.h"

#include <codecs/ExtendedJpegCodec.h>
#include <codecs/LosslessJpegCodec.h>
#include <codecs/RleCodec.h>

#include <fstream>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::size_t kPrefix = 9;

DcmFrameFormat FormatOf(const std::uint8_t* p) {
    const std::uint32_t columns = p[0] + (p[1] & 15u) * 256 + 1, rows = p[2] + 1u, samples = p[3] % 4 + 1u;
    const std::uint32_t bits = 8u << p[4] % 3, stored = p[5] % bits + 1, isSigned = p[6] & 1u, planes = p[7] & 1u;
    return {sizeof(DcmFrameFormat), columns, rows, samples, bits, stored, stored - 1, isSigned, planes, 0, ""};
}

std::size_t SizeOf(const DcmFrameFormat& format) {
    return std::size_t{format.columns} * format.rows * format.samplesPerPixel * (format.bitsAllocated / 8);
}

int Append(void* context, const void* bytes, std::size_t count) {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    static_cast<Bytes*>(context)->insert(static_cast<Bytes*>(context)->end(), first, first + count);
    return 1;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments) {
    const std::string corpus = EmptyCorpus(*argumentCount, *arguments);
    if (corpus.empty()) return 0;
    for (std::uint8_t i = 0; i < 24; ++i) {
        Bytes input = {static_cast<std::uint8_t>(20 + i), 0, 9, static_cast<std::uint8_t>(i / 3), i, 200, i, i, 0};
        DcmFrameFormat format = FormatOf(input.data());
        Bytes pixels(SizeOf(format));
        for (std::size_t k = 0; k < pixels.size(); ++k) pixels[k] = static_cast<std::uint8_t>(k * k / 7 >> k % 5);
        try {
            FUZZED_CODEC().Encode(format, pixels, FrameWriter(Append, &input));
        } catch (const CodecFailure&) {
            continue;
        }
        std::ofstream(corpus + "/" + std::to_string(i), std::ios::binary)
            .write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
    if (count < kPrefix) return -1;
    DcmFrameFormat format = FormatOf(bytes);
    Bytes pixels(SizeOf(format));
    try {
        FUZZED_CODEC().Decode(format, {bytes + kPrefix, count - kPrefix}, pixels);
    } catch (const CodecFailure&) {
    }
    return 0;
}
