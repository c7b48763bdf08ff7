// The codecs that need no library, and the module's edge. Peers read and write the same streams in test_peers.py.
#include <Korvane/Dicom/Lib/pixels/CodecManager.h>
#include <Korvane/Dicom/Lib/syntax/TransferSyntaxRow.h>
#include <codecs/ExtendedJpegCodec.h>
#include <codecs/Jpeg2000Header.h>
#include <codecs/LosslessJpegCodec.h>
#include <codecs/RleCodec.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

using Bytes = std::vector<std::uint8_t>;

DcmFrameFormat Format(std::uint32_t columns, std::uint32_t rows, std::uint32_t samples, std::uint32_t bits,
                      std::uint32_t stored, bool isSigned = false, bool planes = false) {
    return {sizeof(DcmFrameFormat), columns,     rows,          samples, bits, stored, stored - 1, isSigned,
            planes ? 1u : 0u,       /*lossy*/ 7, "YBR_FULL_422"};
}

std::size_t SizeOf(const DcmFrameFormat& format) {
    return std::size_t{format.columns} * format.rows * format.samplesPerPixel * format.bitsAllocated / 8;
}

int Append(void* context, const void* bytes, std::size_t count) {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    static_cast<Bytes*>(context)->insert(static_cast<Bytes*>(context)->end(), first, first + count);
    return 1;
}

template <class AnyCodec>
Bytes Encoded(DcmFrameFormat& format, const Bytes& pixels) {
    Bytes stream;
    AnyCodec().Encode(format, pixels, FrameWriter(Append, &stream));
    return stream;
}

// Why a codec refuses a stream; "" when it does not.
template <class AnyCodec>
std::string Refusal(DcmFrameFormat format, const Bytes& stream, Bytes* result = nullptr) {
    Bytes pixels(SizeOf(format));
    try {
        AnyCodec().Decode(format, Bytes(stream), pixels);  // a copy without slack behind it
    } catch (const CodecFailure& failure) {
        return *failure.what() != '\0' ? failure.what() : "no reason";
    }
    if (result != nullptr) *result = pixels;
    return "";
}

// Kinds: noise, steps, flat, the extremes by turns, `stored` bits of noise, the same with their sign above.
Bytes MakePixels(const DcmFrameFormat& format, int kind) {
    Bytes pixels(SizeOf(format));
    const std::size_t width = format.bitsAllocated / 8;
    std::uint32_t noise = 1;
    for (std::size_t i = 0; i < pixels.size() / width; ++i) {
        noise = noise * 1664525 + 1013904223;
        const unsigned unused = 32 - format.bitsStored, extreme = (noise >> 9) % 2 << (format.bitsAllocated - 1);
        const auto ramp = static_cast<std::uint32_t>(i / 7 * 3);
        const auto extended = static_cast<std::uint32_t>(static_cast<std::int32_t>(noise) >> unused);
        const std::uint32_t values[] = {noise >> 3, ramp, 42, extreme, noise >> unused, extended};
        std::memcpy(&pixels[i * width], &values[kind], width);
    }
    return pixels;
}

template <class AnyCodec>
void ExpectRoundTrips(std::uint32_t mostBits, std::uint32_t mostBytes) {
    const std::pair<std::uint32_t, std::uint32_t> sizes[] = {{1, 1}, {1, 300}, {33, 29}, {129, 3}, {300, 40}};
    for (std::uint32_t bits = 8; bits <= mostBits; bits *= 2) {
        for (int i = 0; i < 480; ++i) {
            const auto [columns, rows] = sizes[i % 5];
            const std::uint32_t samples = static_cast<std::uint32_t>(i / 5 % 4) + 1;
            if (samples * bits / 8 > mostBytes) continue;
            DcmFrameFormat format =
                Format(columns, rows, samples, bits, i / 240 != 0 ? bits : bits - 3, i / 120 % 2 != 0, i / 20 % 2 != 0);
            const Bytes pixels = MakePixels(format, i / 40 % 3 + (i % 2 != 0 ? 3 : 0));
            const DcmFrameFormat original = format;
            const Bytes stream = Encoded<AnyCodec>(format, pixels);
            EXPECT_EQ(format.lossy, 0u);
            Bytes decoded;
            ASSERT_EQ(Refusal<AnyCodec>(original, stream, &decoded), "") << i;
            ASSERT_EQ(decoded, pixels) << "case " << i << ", bits " << bits;
        }
    }
}

TEST(Codecs, WhatIsEncodedComesBackBitForBit) {
    ExpectRoundTrips<RleCodec>(32, 15);
    ExpectRoundTrips<LosslessJpegCodec>(16, 8);
    DcmFrameFormat wide = Format(4, 4, 4, 32, 32);
    EXPECT_THROW(Encoded<RleCodec>(wide, Bytes(256)), CodecFailure);
    EXPECT_THROW(Encoded<LosslessJpegCodec>(wide, Bytes(256)), CodecFailure);
}

// An RLE stream: the header says `count` and `offsets`, `body` follows it.
Bytes Rle(std::uint32_t count, std::vector<std::uint32_t> offsets, const Bytes& body) {
    offsets.insert(offsets.begin(), count);
    offsets.resize(16);
    Bytes stream(64);
    std::memcpy(stream.data(), offsets.data(), 64);
    stream.insert(stream.end(), body.begin(), body.end());
    return stream;
}

TEST(RleCodec, RunsAndOffsetsAreTakenAsTheyAre) {
    const DcmFrameFormat format = Format(3, 2, 1, 8, 8);
    const struct {
        Bytes stream;
        Bytes pixels;
        const char* refusal;
    } cases[] = {
        {Rle(1, {64}, {128, 254, 9, 128, 2, 1, 2, 3}), {9, 9, 9, 1, 2, 3}, ""},
        {Rle(1, {64}, {252, 9, 0, 4, 77}), {9, 9, 9, 9, 9, 4}, ""},       // a run goes on in the next row
        {Rle(1, {66}, {7, 7, 129, 5}), {5, 5, 5, 5, 5, 5}, ""},           // one goes on behind the last pixel
        {Rle(1, {64}, {127, 1, 2, 3, 4, 5, 6}), {1, 2, 3, 4, 5, 6}, ""},  // and so does a literal one
        {Rle(1, {64}, {255, 1, 255, 2}), {}, "ends before the last pixel"},
        {Rle(1, {64}, {5, 1, 2, 3, 4, 5}), {}, "ends within a run"},
        {Rle(1, {64}, {251}), {}, "ends within a run"},
        {Rle(1, {64}, {}), {}, "ends before the last pixel"},
        {Rle(1, {63}, {251, 1}), {}, "segment 1 lies outside"},
        {Rle(1, {0xFFFFFFFF}, {251, 1}), {}, "segment 1 lies outside"},
        {Rle(2, {64, 64}, {251, 1}), {}, "2 RLE segments, not 1"},
        {Bytes(63), {}, "header is not whole"},
        {{}, {}, "header is not whole"},
    };
    for (const auto& c : cases) {
        Bytes pixels;
        const std::string refusal = Refusal<RleCodec>(format, c.stream, &pixels);
        EXPECT_EQ(pixels, c.pixels) << refusal;
        EXPECT_NE(refusal.find(c.refusal), std::string::npos) << refusal;
    }
    // Each segment ends where the next one starts, even if there would be bytes for it.
    EXPECT_NE(Refusal<RleCodec>(Format(3, 1, 1, 16, 16), Rle(2, {64, 66}, {255, 1, 254, 2})), "");
    EXPECT_NE(Refusal<RleCodec>(Format(3, 1, 1, 16, 16), Rle(2, {66, 64}, {254, 1, 254, 2})), "");
    EXPECT_EQ(Refusal<RleCodec>(Format(3, 1, 1, 16, 16), Rle(2, {64, 66}, {254, 1, 254, 2})), "");
}

TEST(LosslessJpegCodec, DamagedStreamsAreRefusedWithAReason) {
    DcmFrameFormat format = Format(17, 5, 3, 8, 8);
    const Bytes good = Encoded<LosslessJpegCodec>(format, MakePixels(format, 0));
    ASSERT_EQ(Refusal<LosslessJpegCodec>(format, good), "");
    for (std::size_t length = 0; length + 2 < good.size(); ++length) {  // the end-of-image marker alone may be missing
        ASSERT_NE(Refusal<LosslessJpegCodec>(format, Bytes(good.begin(), good.begin() + static_cast<long>(length))), "")
            << length;
    }
    // Behind SOI come SOF3 from byte 2 (19 bytes), DHT from 21; SOS is searched for.
    const Bytes scanStart = {0xFF, 0xDA};
    const auto sos = static_cast<std::size_t>(
        std::search(good.begin(), good.end(), scanStart.begin(), scanStart.end()) - good.begin());
    Bytes allOfOneBit(16);
    allOfOneBit[0] = static_cast<std::uint8_t>(good[24] - 19);  // the codes of the table
    const struct {
        std::size_t at;
        Bytes bytes;
        const char* refusal;
    } cases[] = {
        {0, {0}, "not JPEG"},
        {3, {0xC0}, "SOF0, not lossless"},
        {3, {0xC7}, "SOF7, not lossless"},
        {6, {1}, "samples of 1 bits"},
        {6, {9}, "samples of 9 bits"},
        {7, {0, 0}, "height"},
        {7, {0xFF, 0xFF, 0xFF, 0xFF}, "65535 x 65535"},
        {11, {1}, "of 1 samples"},
        {13, {0x21}, "different sizes"},
        {13, {0x22, 0, 2, 0x22, 0, 3, 0x22}, "unknown way"},
        {3, {0xFE}, "before its frame header"},
        {22, {0xFE}, "Huffman table is missing"},
        {23, {0xFF, 0xFF}, "ends within a marker's segment"},
        {26, allOfOneBit, "more codes than there are"},
        {26, Bytes(16, 255), "table is not whole"},
        {sos + 5, {9}, "unknown components"},
        {sos + 6, {0x50}, "Huffman table is missing"},
        {sos + 7, {1}, "unknown components"},
        {sos + 11, {0}, "predictor 0"},
        {sos + 11, {8}, "predictor 8"},
        {sos + 13, {8}, "leaves no bits"},
        {sos + 14, {0xFF, 0xD9}, "ends in row 1"},
    };
    for (const auto& c : cases) {
        Bytes stream = good;
        std::copy(c.bytes.begin(), c.bytes.end(), stream.begin() + static_cast<long>(c.at));
        const std::string refusal = Refusal<LosslessJpegCodec>(format, stream);
        EXPECT_NE(refusal.find(c.refusal), std::string::npos) << c.at << ": " << refusal;
    }
    for (const Bytes& between : {Bytes{0xFF, 0xDD, 0, 4, 0, 16}, Bytes{0xFF, 0xDD, 0, 4, 0, 17}}) {
        Bytes stream = good;  // the first restart interval is no whole row; the second has no restart markers
        stream.insert(stream.begin() + static_cast<long>(sos), between.begin(), between.end());
        EXPECT_NE(Refusal<LosslessJpegCodec>(format, stream).find("restart"), std::string::npos);
    }
}

// 12 bits, two blocks of one value each, 1500 above and below the middle, a restart marker between them. Each table has
// one code, a single 0: for DC differences of 11 bits, and for the end of a block.
Bytes TwoBlocks() {
    Bytes stream = {0xFF, 0xD8, 0xFF, 0xDB, 0, 67, 0};
    stream.insert(stream.end(), 64, 8);
    for (const std::uint8_t part : Bytes{0x00, 0x10}) {
        stream.insert(stream.end(), {0xFF, 0xC4, 0, 20, part, 1});
        stream.insert(stream.end(), 15, 0);
        stream.push_back(part == 0 ? 11 : 0);
    }
    const Bytes rest = {0xFF, 0xC1, 0, 11, 12, 0, 8, 0, 16, 1, 1,    0x11, 0,    0xFF, 0xDD, 0,    4,    0,   1,
                        0xFF, 0xDA, 0, 8,  1,  1, 0, 0, 63, 0, 0x5D, 0xC7, 0xFF, 0xD0, 0x22, 0x37, 0xFF, 0xD9};
    stream.insert(stream.end(), rest.begin(), rest.end());
    return stream;
}

TEST(ExtendedJpegCodec, TwelveBitsWithRestartsAndDamagedStreams) {
    const Bytes good = TwoBlocks();
    const DcmFrameFormat format = Format(16, 8, 1, 16, 12);
    Bytes pixels;
    ASSERT_EQ(Refusal<ExtendedJpegCodec>(format, good, &pixels), "");
    for (std::size_t i = 0; i < pixels.size() / 2; ++i) {
        ASSERT_EQ(pixels[2 * i] + 256 * pixels[2 * i + 1], i % 16 < 8 ? 2048 + 1500 : 2048 - 1500) << i;
    }
    const std::size_t frame = 7 + 64 + 2 * 22 + 4;  // the frame header's values, behind marker and length
    const struct {
        std::size_t at;
        std::uint8_t value;
        const char* reason;
    } damages[] = {{5, 66, "quantisation table is not whole"},
                   {6, 1, "quantisation table is missing"},
                   {76, 200, "Huffman table is not whole"},
                   {92, 16, "difference of 16 bits"},
                   {frame - 3, 0xC2, "process SOF2"},
                   {frame, 10, "samples of 10 bits"},
                   {frame + 4, 17, "not 16 x 8"},
                   {frame + 8, 4, "names no quantisation table"},
                   {good.size() - 8, 0x80, "code that its Huffman table lacks"},
                   {good.size() - 5, 0xD1, "restart marker is missing"},
                   {good.size() - 3, 0xFF, "ends in row 1 of 8"}};
    for (const auto& [at, value, reason] : damages) {
        Bytes damaged = good;
        damaged[at] = value;
        EXPECT_NE(Refusal<ExtendedJpegCodec>(format, damaged).find(reason), std::string::npos) << at;
    }
    Bytes stream = good;
    stream[114] = 0xF0;              // the AC code now stands for 16 zeros,
    stream[good.size() - 7] = 0xC0;  // and comes four times
    EXPECT_NE(Refusal<ExtendedJpegCodec>(format, stream).find("more than 64 coefficients"), std::string::npos);
    for (std::size_t length = 0; length + 3 < good.size(); ++length) {  // reads nothing behind the end
        EXPECT_NE(Refusal<ExtendedJpegCodec>(format, Bytes(good.begin(), good.begin() + static_cast<long>(length))),
                  "");
    }
}

TEST(Jpeg2000Header, WhatWouldTakeMemoryBeyondTheImageIsRefused) {
    // SOC; SIZ from byte 2; COD from 45: two decompositions, the precincts of three resolutions from 59; SOT, SOD, EOC.
    const Bytes good = {0xFF, 0x4F, 0xFF, 0x51, 0, 41,   0,    0, 0,  0, 2, 0,  0, 0, 1,    0,    0,    0,   0, 0,
                        0,    0,    0,    0,    0, 0,    2,    0, 0,  0, 1, 0,  0, 0, 0,    0,    0,    0,   0, 0,
                        0,    1,    7,    1,    1, 0xFF, 0x52, 0, 15, 1, 0, 0,  1, 0, 2,    4,    4,    0,   1, 0x77,
                        0x77, 0x88, 0xFF, 0x90, 0, 10,   0,    0, 0,  0, 0, 14, 0, 1, 0xFF, 0x93, 0xFF, 0xD9};
    const struct {
        std::size_t at;
        Bytes bytes;
        const char* refusal;
    } cases[] = {
        {2, {0}, "not JPEG 2000"},
        {8, {0, 0, 2, 1}, "513 x 256"},
        {8, {0, 0, 0, 0}, "empty"},
        {8, {0, 0, 0x80, 0, 0, 0, 0x80, 0}, "bytes are too few"},
        {24, {0, 0, 0, 0}, "do not cover"},
        {24, {0, 0, 0, 1, 0, 0, 0, 1}, "131072 tiles"},
        {24, {0, 0, 0, 8, 0, 0, 0, 8}, "2048 tiles"},
        {32, {0, 0, 0, 1}, "do not cover"},
        {40, {0, 3}, "of 3 samples"},
        {42, {8}, "9 bits do not go with 8"},
        {43, {2}, "smaller than the image"},
        {54, {33}, "damaged"},
        {54, {3}, "damaged"},
        {61, {0x11}, "precincts are too many"},
        {48, {80}, "not whole"},
        {65, {9}, "tile is damaged"},
    };
    const auto refusal = [](const Bytes& stream) -> std::string {
        const bool isLarge = stream.size() > 10 && stream[10] == 0x80;
        const DcmFrameFormat format = isLarge ? Format(32768, 32768, 1, 8, 8) : Format(512, 256, 1, 8, 8);
        try {
            return Jpeg2000Header(stream, format).precision == 8 ? "" : "wrong precision";
        } catch (const CodecFailure& failure) {
            return failure.what();
        }
    };
    EXPECT_EQ(refusal(good), "");
    for (const auto& c : cases) {
        Bytes stream = good;
        std::copy(c.bytes.begin(), c.bytes.end(), stream.begin() + static_cast<long>(c.at));
        EXPECT_NE(refusal(stream).find(c.refusal), std::string::npos) << c.at << ": " << refusal(stream);
    }
    for (std::size_t length = 0; length < good.size(); ++length) {  // reads nothing behind the end
        refusal(Bytes(good.begin(), good.begin() + static_cast<long>(length)));
    }
}

TEST(Module, FailsByResultAndReason) {
    CodecManager manager;
    for (const std::string_view uid : {kRleUid, std::string_view("1.2.840.10008.1.2.4.57"), kLosslessJpegUid}) {
        DcmCodec* const codec = manager.GetCodec(uid);
        ASSERT_NE(codec, nullptr) << uid;
        DcmFrameFormat format = Format(3, 2, 1, 8, 8);
        Bytes pixels(6, 1), stream;
        std::string reason(80, '?');
        EXPECT_EQ(codec->DecodeFrame(codec, &format, "", 0, pixels.data(), 6, reason.data(), 8), 0);
        EXPECT_EQ(reason.substr(7, 2), std::string("\0?", 2));
        EXPECT_EQ(codec->DecodeFrame(codec, &format, "", 0, pixels.data(), 7, reason.data(), reason.size()), 0);
        EXPECT_NE(reason.find("takes 6 bytes, the buffer has 7"), std::string::npos);
        EXPECT_EQ(codec->DecodeFrame(codec, &format, nullptr, 0, pixels.data(), 6, nullptr, 0), 0);
        if (codec->EncodeFrame == nullptr) continue;
        const auto refuse = [](void*, const void*, std::size_t) { return 0; };
        EXPECT_EQ(codec->EncodeFrame(codec, &format, pixels.data(), 6, refuse, nullptr, reason.data(), 80), 0);
        EXPECT_EQ(format.lossy, 7u);  // a failure leaves the format as it was
        EXPECT_EQ(codec->EncodeFrame(codec, &format, pixels.data(), 6, Append, &stream, reason.data(), 80), 1);
        EXPECT_EQ(codec->DecodeFrame(codec, &format, stream.data(), stream.size(), pixels.data(), 6, nullptr, 0), 1);
        EXPECT_STREQ(format.photometric, "YBR_FULL");  // no plane of the stream is halved
    }
}

}  // namespace
