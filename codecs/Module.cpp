// The module's four exported functions (CodecModule.h) and the C object around a codec. No exception leaves this file.
#include "CodecList.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <new>

namespace {

struct CodecObject : DcmCodec {
    std::unique_ptr<Codec> codec;
};

void Explain(const char* reason, char* error, size_t capacity) {
    if (error == nullptr || capacity == 0) return;
    const size_t length = std::min(capacity - 1, std::strlen(reason));
    std::memcpy(error, reason, length);
    error[length] = '\0';
}

// The manager promises all of this (CodecModule.h). It is checked again because codecs write as many bytes as the
// format says, and another host may promise less.
void CheckFormat(const DcmFrameFormat& format, size_t frameBytes) {
    const auto within = [](uint32_t value, uint32_t most) { return value >= 1 && value <= most; };
    if (format.size < sizeof format || !within(format.columns, 65535) || !within(format.rows, 65535) ||
        !within(format.samplesPerPixel, 4) || !within(format.bitsStored, format.bitsAllocated) ||
        (format.bitsAllocated != 8 && format.bitsAllocated != 16 && format.bitsAllocated != 32)) {
        Fail("no frame has the format that the codec was given");
    }
    const uint64_t bytes = uint64_t{format.columns} * format.rows * format.samplesPerPixel * (format.bitsAllocated / 8);
    if (bytes != frameBytes) Fail("the frame takes ", bytes, " bytes, the buffer has ", frameBytes);
}

template <class Work>
int Guarded(char* error, size_t capacity, Work work) {
    try {
        work();
        return 1;
    } catch (const std::bad_alloc&) {
        Explain("out of memory", error, capacity);
    } catch (const std::exception& failure) {
        Explain(failure.what(), error, capacity);
    } catch (...) {
        Explain("unknown failure", error, capacity);
    }
    return 0;
}

int DecodeFrame(DcmCodec* codec, DcmFrameFormat* format, const void* stream, size_t streamSize, void* pixels,
                size_t capacity, char* error, size_t errorCapacity) {
    return Guarded(error, errorCapacity, [&] {
        CheckFormat(*format, capacity);
        DcmFrameFormat result = *format;
        static_cast<CodecObject*>(codec)->codec->Decode(result, {static_cast<const uint8_t*>(stream), streamSize},
                                                        {static_cast<uint8_t*>(pixels), capacity});
        *format = result;
    });
}

int EncodeFrame(DcmCodec* codec, DcmFrameFormat* format, const void* pixels, size_t pixelSize, DcmCodecWrite write,
                void* context, char* error, size_t errorCapacity) {
    return Guarded(error, errorCapacity, [&] {
        CheckFormat(*format, pixelSize);
        DcmFrameFormat result = *format;
        static_cast<CodecObject*>(codec)->codec->Encode(result, {static_cast<const uint8_t*>(pixels), pixelSize},
                                                        FrameWriter(write, context));
        *format = result;
    });
}

const CodecOffer* FindOffer(int index) {
    const auto offers = CodecOffers();
    return index >= 0 && static_cast<size_t>(index) < offers.size() ? &offers[static_cast<size_t>(index)] : nullptr;
}

}  // namespace

extern "C" {

DCM_CODEC_EXPORT int DcmGetCodecCount(void);
DCM_CODEC_EXPORT int DcmGetCodecProps(int index, DcmCodecProps* props);
DCM_CODEC_EXPORT DcmCodec* DcmGetCodec(int index);
DCM_CODEC_EXPORT void DcmFreeCodec(DcmCodec* codec);

int DcmGetCodecCount(void) {
    return static_cast<int>(CodecOffers().size());
}

int DcmGetCodecProps(int index, DcmCodecProps* props) {
    const CodecOffer* offer = FindOffer(index);
    if (offer == nullptr || props == nullptr) return 0;
    *props = {};
    std::memcpy(props->transferSyntax, offer->transferSyntax, std::strlen(offer->transferSyntax));
    props->version = DCM_CODEC_VERSION;
    props->abilities = offer->abilities;
    props->flags = DCM_CODEC_CONVERTS;
    return 1;
}

DcmCodec* DcmGetCodec(int index) {
    const CodecOffer* offer = FindOffer(index);
    if (offer == nullptr) return nullptr;
    std::unique_ptr<CodecObject> object;
    const int made = Guarded(nullptr, 0, [&] {
        object = std::make_unique<CodecObject>();
        object->codec = offer->make();
        object->size = sizeof(DcmCodec);
        object->DecodeFrame = DecodeFrame;
        object->EncodeFrame = (offer->abilities & DCM_CODEC_ENCODES) != 0 ? EncodeFrame : nullptr;
    });
    return made != 0 ? object.release() : nullptr;
}

void DcmFreeCodec(DcmCodec* codec) {
    delete static_cast<CodecObject*>(codec);
}

}  // extern "C"
