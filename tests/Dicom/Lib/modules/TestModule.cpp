// A module of well-behaved and of hostile codecs. The first byte of a stream says how the codec is to misbehave; the
// frame follows.
#include <Korvane/Dicom/Lib/pixels/CodecModule.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

int s_alive = 0;

int Decode(DcmCodec*, DcmFrameFormat* format, const void* stream, size_t size, void* pixels, size_t capacity,
           char* error, size_t errorCapacity) {
    const auto* const from = static_cast<const unsigned char*>(stream);
    auto* const to = static_cast<unsigned char*>(pixels);
    switch (from[0]) {
    case 'L':  // with loss, in colours of another kind
        std::strcpy(format->photometric, "RGB");
        format->planarConfiguration = 0;
        [[fallthrough]];
    case 'M': format->lossy = 1; break;
    case 'r': format->rows += 1; break;
    case 'p': std::memset(format->photometric, 'P', sizeof format->photometric); break;
    case 'b': format->bitsStored = 99; break;
    case 'e': std::memset(error, 'e', errorCapacity); return 0;
    case 't': throw 1;
    default: break;
    }
    if (size < capacity + 1) return 0;
    std::transform(from + 1, from + 1 + capacity, to, [](unsigned char byte) { return byte ^ 0x5A; });
    return 1;
}

int Encode(DcmCodec*, DcmFrameFormat*, const void* pixels, size_t size, DcmCodecWrite write, void* context, char*,
           size_t) {
    const auto* const from = static_cast<const unsigned char*>(pixels);
    if (from[0] == 'x') {  // never ends
        while (write(context, pixels, size) != 0) continue;
        return 0;
    }
    int done = write(context, "N", 1);
    for (size_t i = 0; i < size; ++i) {
        const unsigned char byte = from[i] ^ 0x5A;
        done &= write(context, &byte, 1);
    }
    return done;
}

const char* const kUids[] = {"1.2.3.1", "1.2.3.1", "", "1.2.3.x", "1.2.3.4", "1.2.3.5", "1.2.3.6", "1.2.3.7"};

}  // namespace

extern "C" {
DCM_CODEC_EXPORT int DcmGetCodecCount() {
    return -1;
}
DCM_CODEC_EXPORT int DcmGetCodecProps(int index, DcmCodecProps* props) {
    std::memset(props, 0, sizeof *props);
    if (index < 8) {
        std::strcpy(props->transferSyntax, kUids[index]);
    } else if (index == 8) {
        std::memset(props->transferSyntax, '1', sizeof props->transferSyntax);  // without an end
    } else {
        std::snprintf(props->transferSyntax, sizeof props->transferSyntax, "1.2.4.%d", index);  // as the list itself
    }
    props->version = index == 4 ? 2 : DCM_CODEC_VERSION;
    props->abilities = index == 1 ? 0 : DCM_CODEC_DECODES | DCM_CODEC_ENCODES;
    props->flags = index == 5 ? 0 : DCM_CODEC_CONVERTS;
    return 1;
}
DCM_CODEC_EXPORT DcmCodec* DcmGetCodec(int index) {
    static DcmCodec s_codec;
    if (index == 6) return nullptr;
    s_codec = {index == 7 ? 8U : static_cast<uint32_t>(sizeof s_codec), 0, Decode, Encode};
    ++s_alive;
    return &s_codec;
}
DCM_CODEC_EXPORT void DcmFreeCodec(DcmCodec*) {
    --s_alive;
}
DCM_CODEC_EXPORT int CodecsAlive() {
    return s_alive;
}
}
