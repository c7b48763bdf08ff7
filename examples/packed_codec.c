/* A codec module to copy: pixels of up to 12 bits, two of them in three bytes. Built as a dynamic library, named in
 * "DcmCodecMgr.ini" beside "DcmCodec", it serves its transfer syntax to whoever reads or converts data sets. The header is
 * all that it needs. */
#include <Korvane/Dicom/Lib/pixels/CodecModule.h>

#include <string.h>

/* A UID of one's own: 2.25. and a random number of 128 bits. */
static const char kSyntax[] = "2.25.183403914637194011423021459364862417715";

static int Fail(char* error, size_t errorCapacity, const char* reason) {
    strncpy(error, reason, errorCapacity - 1);
    error[errorCapacity - 1] = 0;
    return 0;
}

static size_t SampleCount(const DcmFrameFormat* format) {
    return (size_t)format->columns * format->rows * format->samplesPerPixel;
}

static size_t PackedSize(size_t count) {
    return count / 2 * 3 + count % 2 * 2;
}

static int DecodePacked(DcmCodec* codec, DcmFrameFormat* format, const void* stream, size_t streamSize, void* pixels,
                        size_t capacity, char* error, size_t errorCapacity) {
    const unsigned char* from = (const unsigned char*)stream;
    unsigned char* to = (unsigned char*)pixels;
    const size_t count = SampleCount(format);
    size_t i;
    (void)codec;
    /* The stream is whatever a file holds: nothing is read or written before the sizes are known to fit. */
    if (format->bitsAllocated != 16 || capacity != count * 2)
        return Fail(error, errorCapacity, "not pixels of 16 bits");
    if (streamSize < PackedSize(count)) return Fail(error, errorCapacity, "the frame ends early");
    for (i = 0; i < count; ++i) {
        const unsigned char* const pair = from + i / 2 * 3;
        const unsigned value = i % 2 == 0 ? pair[0] | (pair[1] & 15u) << 8 : pair[1] >> 4 | (unsigned)pair[2] << 4;
        to[2 * i] = (unsigned char)value;
        to[2 * i + 1] = (unsigned char)(value >> 8);
    }
    format->lossy = 0;
    return 1;
}

static int EncodePacked(DcmCodec* codec, DcmFrameFormat* format, const void* pixels, size_t pixelSize,
                        DcmCodecWrite write, void* context, char* error, size_t errorCapacity) {
    const unsigned char* const from = (const unsigned char*)pixels;
    const size_t count = SampleCount(format);
    size_t i;
    (void)codec;
    if (format->bitsAllocated != 16 || pixelSize != count * 2)
        return Fail(error, errorCapacity, "not pixels of 16 bits");
    for (i = 0; i < count; i += 2) {
        const unsigned first = from[2 * i] | (unsigned)from[2 * i + 1] << 8;
        const unsigned second = i + 1 < count ? from[2 * i + 2] | (unsigned)from[2 * i + 3] << 8 : 0;
        unsigned char pair[3];
        if (first > 4095 || second > 4095) return Fail(error, errorCapacity, "a pixel of more than 12 bits");
        pair[0] = (unsigned char)first;
        pair[1] = (unsigned char)(first >> 8 | second << 4);
        pair[2] = (unsigned char)(second >> 4);
        if (!write(context, pair, i + 1 < count ? 3 : 2)) return 0; /* no room: the manager says so */
    }
    format->lossy = 0;
    return 1;
}

/* It has no memory of its own, so that one object serves all. */
static DcmCodec s_codec;

#ifdef __cplusplus
extern "C" {
#endif

DCM_CODEC_EXPORT int DcmGetCodecCount(void) {
    return 1;
}

DCM_CODEC_EXPORT int DcmGetCodecProps(int index, DcmCodecProps* props) {
    if (index != 0) return 0;
    memset(props, 0, sizeof *props);
    memcpy(props->transferSyntax, kSyntax, sizeof kSyntax);
    props->version = DCM_CODEC_VERSION;
    props->abilities = DCM_CODEC_DECODES | DCM_CODEC_ENCODES;
    props->flags = DCM_CODEC_CONVERTS;
    return 1;
}

DCM_CODEC_EXPORT DcmCodec* DcmGetCodec(int index) {
    if (index != 0) return NULL;
    s_codec.size = sizeof s_codec;
    s_codec.DecodeFrame = DecodePacked;
    s_codec.EncodeFrame = EncodePacked;
    return &s_codec;
}

DCM_CODEC_EXPORT void DcmFreeCodec(DcmCodec* codec) {
    (void)codec;
}

#ifdef __cplusplus
}
#endif
