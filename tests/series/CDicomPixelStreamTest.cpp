#include "SeriesFixture.h"

#include <algorithm>
#include <limits>
#include <random>

namespace {

// What the stream must make of words, worked out one at a time from the meaning of the attributes: bits `high` down to
// `high - stored + 1` of a word are a number, in two's complement when signed.
struct Meaning {
    int allocated, stored, high;
    bool isSigned, inverted;

    long long Highest() const { return (1LL << (isSigned ? stored - 1 : stored)) - 1; }
    long long Raw(std::uint32_t word) const {
        const int shift = high - stored + 1;
        const long long number = shift < 0 || shift > 31 ? 0 : (word >> shift) % (1LL << stored);
        return isSigned && number >= (1LL << (stored - 1)) ? number - (1LL << stored) : number;
    }
    long long Pixel(std::uint32_t word, bool overlay) const {
        if (overlay && word >> stored != 0) return -1;
        const long long offsetBinary = Raw(word) + (isSigned ? 1LL << (stored - 1) : 0);
        const long long pixel = allocated == 8 ? word : offsetBinary;
        return inverted ? (allocated == 8 ? 255 : Highest()) - pixel : pixel;
    }
};

// A stream that keeps what it reads.
struct Stream : CDicomPixelStream {
    explicit Stream(const DataSet& source) : m_DataSet(source.Make()) { SetDDO(m_DataSet.get()); }
    std::unique_ptr<DICOMDataObject> m_DataSet;
};

template <class Word>
void CheckStream(const Meaning& meaning, std::mt19937& random) {
    // An odd number of columns, and three words more than the image: they count for the range only.
    const int rows = 3, columns = 37;
    std::vector<Word> words(rows * columns + 3);
    std::generate(words.begin(), words.end(), [&random] { return static_cast<Word>(random()); });
    DataSet image = Image().Form(meaning.allocated, meaning.stored, meaning.high, meaning.isSigned);
    image.Text(0x00280004, meaning.inverted ? "MONOCHROME1" : "MONOCHROME2");
    Stream stream(image.Matrix(rows, columns).Pixels(words));
    std::vector<long long> raws(words.size());
    std::transform(words.begin(), words.end(), raws.begin(), [&](Word word) { return meaning.Raw(word); });
    const auto [lowest, highest] = std::minmax_element(raws.begin(), raws.end());
    EXPECT_EQ(std::pair(stream.GetMin(), stream.GetMax()), (std::pair<int, int>(*lowest, *highest)));
    EXPECT_EQ(stream.GetOverlayMask(), static_cast<Word>(-(1 << meaning.stored)));
    std::vector<Word> read(words.size() + 1);
    stream.Reset();
    stream.ReadPixels(read.data(), read.size());
    EXPECT_EQ(stream.GetMax(), std::max(0LL, *highest));
    stream.SetImg(0, 0);
    for (std::size_t i = 0; i < words.size(); ++i) {
        const int row = static_cast<int>(i) / columns, column = static_cast<int>(i) % columns;
        ASSERT_EQ(stream.GetNextPixel(), raws[i]);
        ASSERT_EQ(read[i], static_cast<Word>(raws[i]));
        ASSERT_EQ(stream.GetRawValue(row, column, 0, 0), row < rows ? raws[i] : 0);
        for (const bool overlay : {false, true}) {
            stream.SetOverlay(overlay);
            ASSERT_EQ(stream.GetPixelValue(row, column, 0, 0), row < rows ? meaning.Pixel(words[i], overlay) : -1);
        }
    }
    EXPECT_EQ(stream.GetNextPixel(), 0) << "behind the end the word is 0";
    EXPECT_EQ(read.back(), 0);
}

}  // namespace

TEST(CDicomPixelStream, EveryBitDepthShiftAndSignReadsAsTheAttributesMean) {
    std::mt19937 random(1);
    for (int round = 0; round < 400; ++round) {
        const auto below = [&random](int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); };
        const int allocated = 8 + 8 * below(2), stored = 1 + below(allocated);
        const int shift = below(4) == 0 ? -1 + below(40) : below(allocated - stored + 1);
        const Meaning meaning = {allocated, stored, stored - 1 + shift, below(2) != 0, below(2) != 0};
        SCOPED_TRACE(::testing::Message() << meaning.allocated << "/" << meaning.stored << "/" << meaning.high);
        (meaning.allocated == 8 ? CheckStream<std::uint8_t> : CheckStream<std::uint16_t>)(meaning, random);
    }
}

TEST(CDicomPixelStream, FourByteWordsHaveNoMaskAndHalfTheRange) {
    const std::vector<std::uint32_t> words = {70000, 0x80000003, 0xFFFFFFFF};
    DataSet image = Image().Matrix(1, 3).Form(32, 32, 31, false).Text(0x00280004, "MONOCHROME1").Pixels(words);
    const Stream plain(image);
    EXPECT_EQ(plain.GetPhotometricInterpretation(), CDicomPixelStream::PI_MONO32);
    EXPECT_EQ(plain.GetMaxPossibleValue(), 65535);
    EXPECT_EQ(std::pair(plain.GetMin(), plain.GetMax()), std::pair(static_cast<std::int32_t>(0x80000003), 70000));
    EXPECT_EQ(plain.GetPixelValue(0, 0, 0, 0), 65535 - 70000);
    const Stream offset(image.US(0x00280103, 1));
    EXPECT_EQ(offset.GetMaxPossibleValue(), 32767);
    EXPECT_EQ(offset.GetRawValue(0, 0, 0, 0), 70000 - 2147483648LL);
    EXPECT_EQ(offset.GetPixelValue(0, 0, 0, 0), 32767 - 70000 % 65536);
    EXPECT_EQ(Stream(image.Bytes(0x7FE00010, words.data(), 6)).GetPixelPt(0, 1, 0, 0), nullptr) << "half a word";
}

TEST(CDicomPixelStream, WindowAndRangeAreInModalityUnits) {
    const DataSet image = Image({100, 200}).Rescale("-24", "0.5");
    const auto window = [&image](const char* center, const char* width, bool isSigned) {
        DataSet windowed = DataSet(image).Form(16, 16, 15, isSigned);
        const Stream stream(windowed.Text(0x00281050, center).Text(0x00281051, width));
        return std::pair(stream.GetVOIWinMin(), stream.GetVOIWinMax());
    };
    EXPECT_EQ(window("40", "400", true), std::pair(-159, 240));
    EXPECT_EQ(window("40", "401", true), std::pair(-160, 240));
    EXPECT_EQ(window("10", "100", false), std::pair(0, 60));
    EXPECT_EQ(window("-90", "100", false), std::pair(0, 0));
    EXPECT_EQ(window("", "100", false), std::pair(26, 76));
    const Stream stream(image);
    EXPECT_EQ(std::pair(stream.GetMin(), stream.GetMax()), std::pair(26, 76));
    EXPECT_EQ(stream.GetModalityValue(0, 1, 0, 0), 76);
    EXPECT_EQ(stream.ModalityToRaw(76), 176) << "v / slope - intercept";
}

TEST(CDicomPixelStream, SpacingComesFromTheFirstElementThatIsThere) {
    DataSet image = Image();
    const Tag inOrder[] = {0x00181164, 0x30061164, 0x30020011, 0x00280030, 0x00182010};
    for (int i = 0; i < 5; ++i) image.Text(inOrder[i], Numbers({i + 0.25, i + 0.5}));
    for (int i = 0; i <= 5; ++i) {
        const Stream stream(image);
        EXPECT_EQ(stream.GetXSpacing(), i < 5 ? i + 0.25 : 1.0);
        EXPECT_EQ(stream.GetYSpacing(), i < 5 ? i + 0.5 : 1.0);
        image.Drop(inOrder[std::min(i, 4)]);
    }
}

TEST(CDicomPixelStream, ColourSamplesLieInterleavedOrInPlanes) {
    std::vector<std::uint8_t> bytes(2 * 3 * 3 * 2);  // two frames of 3 rows, 2 columns, 3 samples
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    DataSet image = Image().Matrix(3, 2).Colour(3).Pixels(bytes).Text(0x00280008, "2");
    for (const bool planar : {false, true}) {
        Stream stream(image.US(0x00280006, planar));
        std::vector<int> inc(4);
        stream.GetIncrements(inc.data());
        EXPECT_EQ(inc, planar ? (std::vector{1, 2, 18, 6}) : (std::vector{3, 6, 18, 1}));
        EXPECT_EQ(stream.GetPixelValue(2, 1, 1, 2), planar ? 18 + 12 + 5 : 18 + 15 + 2);
        EXPECT_EQ(stream.GetPixelValue(2, 1, 2, 0), -1);
        EXPECT_EQ(stream.GetPixelPt(0, 0, 2, 0), nullptr) << "behind the end";
        stream.SetImg(1, 1);
        EXPECT_EQ(stream.GetNextPixel(), planar ? 24 : 19);
    }
    EXPECT_EQ(Stream(image.Text(0x00280004, "PALETTE COLOR").US(0x00280002, 1)).GetNSamples(), 3);
}

TEST(CDicomPixelStream, KeywordsMatchAsFarAsTheShorterGoes) {
    const std::map<std::string, int> meant = {{"RGBA", Stream::PI_RGB},
                                              {"MONO ", Stream::PI_MONO16},
                                              {"PAL", Stream::PI_PALETTE},
                                              {"YBR", Stream::PI_MONO16}};
    for (const auto& [keyword, expected] : meant) {
        const Stream stream(Image().Text(0x00280004, keyword));
        EXPECT_EQ(stream.GetPhotometricInterpretation(), expected) << keyword;
        EXPECT_EQ(stream.GetInvert(), keyword[0] == 'M') << "a beginning matches MONOCHROME1 first";
    }
}

TEST(CDicomPixelStream, RefusesWhatLacksARequiredElementAndSurvivesTheRest) {
    for (const Tag tag :
         {0x00280010, 0x00280011, 0x00280100, 0x00280101, 0x00280102, 0x00280004, 0x00280002, 0x7FE00010}) {
        EXPECT_FALSE(Stream(Image().Drop(tag)).IsValid()) << std::hex << tag;
    }
    EXPECT_FALSE(Stream(Image().US(0x00280002, 0)).IsValid());
    EXPECT_FALSE(CDicomPixelStream(nullptr).IsValid());

    for (const int stored : {9, 16, 17, 33}) {  // more than the word has: rows read as single pixels do
        Stream rows(Image().Form(8, stored, stored - 1, true));
        CDicomPixelStream singles(rows);
        std::uint8_t read[4];
        rows.Reset();
        rows.ReadPixels(read, 4);
        singles.Reset();
        for (int i = 0; i < 4; ++i) singles.GetNextPixel();
        EXPECT_EQ(std::pair(rows.GetMin(), rows.GetMax()), std::pair(singles.GetMin(), singles.GetMax())) << stored;
    }

    constexpr int kMost = std::numeric_limits<int>::max();
    for (const int bits : {0, 7, 24, 32, 33, 65535}) {
        for (const int samples : {1, 2, 3, 4, 65535}) {
            Stream stream(Image().Matrix(65535, 65535).Form(bits, bits, bits, true).US(0x00280002, samples));
            for (const int index : {-1, 0, 1, 65534, kMost}) {
                stream.GetRawValue(index, index, index, index);
                stream.SetImg(index, index);
                stream.GetNextPixel();
            }
            EXPECT_EQ(stream.GetRawValue(65534, 65534, kMost, 0), stream.InterpretRawValue(nullptr));
        }
    }
}
