#include <Korvane/volume/CVolume.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <locale>
#include <regex>
#include <sstream>
#include <vector>

namespace {

using Range = std::pair<long long, long long>;

// Touches every byte of every plane. Who frees what, and what is not there, is seen by the sanitizers.
void AllocAndTouch(CVolume& volume, bool contig) {
    volume.Alloc(contig);
    int d[4];
    volume.GetDimensions(d);
    const int bytes = d[0] * d[1] * d[3] * volume.GetTypeSize();
    for (int k = 0; k < d[2]; ++k) std::memset(volume.GetPlane(k)->m_pData, 1, static_cast<std::size_t>(bytes));
}

// Minimum and maximum after `Update` on one plane that lies one byte off any alignment.
template <typename T>
Range RangeOf(CVolume::PixelType type, const std::vector<T>& voxels, long long min = 0, long long max = 0) {
    std::vector<unsigned char> bytes(voxels.size() * sizeof(T) + 1);
    std::memcpy(bytes.data() + 1, voxels.data(), voxels.size() * sizeof(T));
    CVolume volume;
    volume.Init(type, static_cast<int>(voxels.size()), 1, 1, 1);
    volume.GetPlane(0)->Alloc(bytes.data() + 1);
    volume.SetMin(min);
    volume.SetMax(max);
    volume.Update();
    return {volume.GetMin(), volume.GetMax()};
}

// The type's own extremes, in every lane and in the rest behind the last whole block.
template <typename T>
void ExpectExtremesFound(CVolume::PixelType type) {
    using Limits = std::numeric_limits<T>;
    for (std::size_t at = 0; at + 1 < 67; ++at) {
        std::vector<T> voxels(67, 5);
        voxels[at] = Limits::max();
        voxels[at + 1] = Limits::min();
        ASSERT_EQ(RangeOf(type, voxels, 9, 9), (Range{Limits::min(), Limits::max()})) << type << " " << at;
    }
}

struct CommaNumbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

// A dump made under a locale of its own, with "<twice>" for two equal lines of addresses.
std::string DumpOf(const CVolume& volume) {
    const std::string path = testing::TempDir() + "korvane_volume_dump.txt";
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
    volume.Dump(path.c_str());
    std::locale::global(before);
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    std::remove(path.c_str());
    return std::regex_replace(text.str(), std::regex("(\t0x[0-9a-f]+,0x[0-9a-f]+,0x[0-9a-f]+\n)\\1"), "<twice>");
}

}  // namespace

TEST(CVolume, TheLastReferenceDestroys) {
    static int destroyed = 0;
    struct Witness : CVolume {
        ~Witness() override { ++destroyed; }
    };
    CVolume* const volume = new Witness;
    volume->AddRef();
    for (const int expected : {0, 1}) {
        volume->Delete();
        EXPECT_EQ(destroyed, expected);
    }
}

TEST(CVolume, SeparatePlanesBecomeContiguousAndStaySo) {
    CVolume volume;
    volume.Init(CVolume::PT_SHORT, 3, 5, 4, 3);
    volume.GetPlane(2)->m_Org[2] = 7.5F;
    AllocAndTouch(volume, false);
    EXPECT_FALSE(volume.GetContig());
    std::array<int, 4> inc;
    volume.GetIncrements(inc.data());
    EXPECT_EQ(inc, (std::array{2, 6, -1, 30}));
    volume.UpdateZInterpArray();
    AllocAndTouch(volume, true);
    void* const block = volume.GetVolumePt();
    volume.Alloc(false);
    volume.Alloc(true);
    EXPECT_EQ(volume.GetVolumePt(), block);
    EXPECT_FALSE(volume.GetPlane(3)->m_bOwner);
    EXPECT_EQ(volume.GetPlane(3)->m_pData, static_cast<char*>(block) + 270);  // three components
    volume.GetIncrements(inc.data());
    EXPECT_EQ(inc, (std::array{2, 6, 30, 120}));  // one
    EXPECT_EQ(volume.GetPlane(2)->m_Org[2], 7.5F);
    EXPECT_EQ(volume.GetPlane(0), volume.MapVoxToZInterp(0)->m_pLow);
    constexpr std::array<int, 6> kViews[] = {{3, 5, 4, 2, 6, 30}, {5, 4, 3, 6, 30, 2}, {5, 3, 4, 6, 2, 30}, {}};
    for (int view = 0; view < 4; ++view) {  // the fourth is none
        std::array<int, 6> result{};
        volume.GetPlaneDimensions(static_cast<VolumePlane>(view), result.data());
        volume.GetPlaneIncrements(static_cast<VolumePlane>(view), result.data() + 3);
        EXPECT_EQ(result, kViews[view]) << view;
    }
}

TEST(CVolume, AllocRefusesBeforeInitAndWhatCannotBe) {
    CVolume volume;
    EXPECT_THROW(volume.Alloc(true), int);
    volume.Init(CVolume::PT_LONG, INT_MAX, INT_MAX, 2, INT_MAX);
    EXPECT_THROW(volume.Alloc(true), std::bad_alloc);
    EXPECT_THROW(volume.Alloc(false), std::bad_alloc);
    volume.Init(CVolume::PT_BYTE, 0, 1, -1, 1);
    EXPECT_THROW(volume.Alloc(true), std::bad_alloc);
    for (const bool contig : {false, true}) {
        volume.Init(CVolume::PT_BYTE, 4, 4, 5, 1);
        volume.Alloc(contig);
        volume.Free();
        AllocAndTouch(volume, !contig);  // still initialised: the planes come back
    }
    volume.UpdateZInterpArray();
    int d[4] = {4, 4, 2, 1};
    volume.SetDimensions(d);
    EXPECT_EQ(volume.MapVoxToZInterp(0), nullptr);
    volume.Update();  // dimensions without planes
    EXPECT_THROW(volume.Alloc(true), int);
}

TEST(CVolume, CopiesShareAndFreeNothingOfTheSource) {
    for (const bool contig : {false, true}) {
        CVolume source;
        source.Init(CVolume::PT_SHORT, 8, 8, 3, 1);
        AllocAndTouch(source, contig);
        source.UpdateZInterpArray();
        source.AddRef();
        void* const pixels = source.GetPlane(2)->m_pData;
        {
            CVolume copy(source), reused(copy);
            EXPECT_EQ(copy.GetNRefs(), 2);
            EXPECT_EQ(copy.GetPlane(2)->m_bOwner, !contig);
            reused.Init(CVolume::PT_BYTE, 2, 2, 2, 1);
            AllocAndTouch(reused, contig);
            reused = source;  // what it had is freed
            EXPECT_EQ(reused.GetPlane(2)->m_pData, pixels);
            AllocAndTouch(reused, true);
            source = copy;  // its own pixels come back and stay its own
        }
        EXPECT_EQ(source.GetPlane(2)->m_pData, pixels);
        EXPECT_EQ(source.MapVoxToZInterp(0)->m_pLow, source.GetPlane(0));
        source.Alloc(contig);
        std::memset(pixels, 1, 128);
    }
}

TEST(CVolume, UpdateWidensTheStoredRange) {
    ExpectExtremesFound<std::int16_t>(CVolume::PT_SHORT);
    ExpectExtremesFound<std::uint16_t>(CVolume::PT_USHORT);
    ExpectExtremesFound<std::uint8_t>(CVolume::PT_BYTE);
    ExpectExtremesFound<std::int32_t>(CVolume::PT_LONG);
    ExpectExtremesFound<std::uint32_t>(CVolume::PT_ULONG);
    for (std::size_t at = 0; at < 19; ++at) {
        std::vector<float> floats(19, NAN);
        floats[at] = -7.9F;
        ASSERT_EQ(RangeOf(CVolume::PT_FLOAT, floats, 0, -100), (Range{-7, -7}));
    }
    EXPECT_EQ(RangeOf<float>(CVolume::PT_FLOAT, {NAN}, 5, -5), (Range{5, -5}));
    EXPECT_EQ(RangeOf<float>(CVolume::PT_FLOAT, {INFINITY, -INFINITY}), (Range{LLONG_MIN, LLONG_MAX}));
    EXPECT_EQ(RangeOf<std::int16_t>(CVolume::PT_SHORT, {12, 30}, 4294967295, 4026531839), (Range{12, 4026531839}));

    CVolume volume;
    volume.Init(CVolume::PT_USHORT, 5, 3, 3, 1);
    AllocAndTouch(volume, false);
    static_cast<std::uint16_t*>(volume.GetPlane(2)->m_pData)[14] = 777;
    volume.GetPlane(1)->Alloc(nullptr);  // passed over
    volume.Update();
    EXPECT_EQ((Range{volume.GetMin(), volume.GetMax()}), (Range{0, 777}));
}

TEST(CVolume, DumpsTheSameInEveryLocale) {
    constexpr const char* kNames[] = {"short", "unsigned short", "byte", "byte", "long", "unsigned long", ""};
    CVolume volume;
    volume.Init(CVolume::PT_SHORT, 512, 1024, 2, 1);
    float spacing[4] = {0.5F, 0.123456789F, 2.5F, 0};
    float origin[4] = {-250.25F, 1e7F, 0, 4};
    volume.SetSpacing(spacing);
    volume.SetOrigin(origin);
    volume.SetMin(-1);
    volume.SetMax((1LL << 32) + 4026531839);
    volume.GetPlane(1)->m_Org[2] = 1234.5F;
    for (int type = 0; type < 7; ++type) {
        volume.SetType(static_cast<CVolume::PixelType>(type));
        EXPECT_EQ(DumpOf(volume),
                  "Dim[4]=512,1024,2,1\nSpace[4]=0.5,0.123457,2.5,0\nOrg[4]=-250.25,1e+07,0,4\nOrientation\n<twice>" +
                      std::string(type == 5 ? "Min=4294967295\nMax=4026531839\n" : "Min=-1\nMax=-268435457\n") +
                      "Pixel type=" + kNames[type] + "\nnRefs=1\nPlane[0] Org[3]=0,0,0\nPlane[1] Org[3]=0,0,1234.5\n");
    }
    volume.Dump(testing::TempDir().c_str());  // a directory: nothing happens
}

TEST(CImagePlane, FreesItsOwnBuffersOnlyAndRefusesImpossibleSizes) {
    unsigned char adopted[8] = {};
    CImagePlane plane;
    plane.Alloc(4, 2, 1, 1);
    plane.Alloc(adopted);
    plane.Alloc(3, 1, 1, 4);
    CImagePlane(plane).Alloc(2, 2, 1, 1);
    EXPECT_THROW(plane.Alloc(-2, -2, 1, 1), std::bad_alloc);
    EXPECT_THROW(plane.Alloc(65536, 65536, 65536, 65536), std::bad_alloc);  // 2^64
    EXPECT_THROW(plane = CImagePlane(), std::logic_error);
    std::memset(plane.m_pData, 1, 12);
}
