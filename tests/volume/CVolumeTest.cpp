#include <Korvane/volume/CVolume.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using Range = std::pair<long long, long long>;

void ExpectIncrements(const CVolume& volume, const std::array<int, 4>& expected) {
    std::array<int, 4> inc{};
    volume.GetIncrements(inc.data());
    EXPECT_EQ(inc, expected);
}

// Touches every byte of every plane. Who frees what, and what is not there, is seen by the sanitizers.
void Touch(CVolume& volume) {
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

}  // namespace

TEST(CVolume, ReferencesAreCountedAndTheLastOneDestroys) {
    struct Witness : CVolume {
        explicit Witness(bool& gone) : m_Gone(gone) {}
        ~Witness() override { m_Gone = true; }
        bool& m_Gone;
    };
    bool gone = false;
    CVolume* const volume = new Witness(gone);
    volume->AddRef();
    volume->Delete();
    EXPECT_FALSE(gone);
    volume->Delete();
    EXPECT_TRUE(gone);
}

TEST(CVolume, SeparatePlanesBecomeContiguousAndStaySo) {
    CVolume volume;
    volume.Init(CVolume::PT_SHORT, 3, 5, 4, 3);
    volume.GetPlane(2)->m_Org[2] = 7.5F;
    volume.Alloc(false);
    Touch(volume);
    EXPECT_FALSE(volume.GetContig());
    EXPECT_TRUE(volume.GetPlane(3)->m_bOwner);
    ExpectIncrements(volume, {2, 6, -1, 30});
    volume.UpdateZInterpArray();
    volume.Alloc(true);
    Touch(volume);
    void* const block = volume.GetVolumePt();
    volume.Alloc(false);
    volume.Alloc(true);
    EXPECT_EQ(volume.GetVolumePt(), block);
    EXPECT_FALSE(volume.GetPlane(3)->m_bOwner);
    EXPECT_EQ(volume.GetPlane(3)->m_pData, static_cast<char*>(block) + 270);  // three components
    ExpectIncrements(volume, {2, 6, 30, 120});                                // one
    EXPECT_EQ(volume.GetPlane(2)->m_Org[2], 7.5F);
    EXPECT_EQ(volume.GetPlane(0), volume.MapVoxToZInterp(0)->m_pLow);
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
        volume.Alloc(!contig);  // still initialised: the planes come back
        Touch(volume);
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
        source.Alloc(contig);
        source.UpdateZInterpArray();
        source.AddRef();
        void* const pixels = source.GetPlane(2)->m_pData;
        {
            CVolume copy(source);
            EXPECT_EQ(copy.GetNRefs(), 2);
            EXPECT_EQ(copy.GetPlane(2)->m_bOwner, !contig);
            EXPECT_EQ(copy.MapVoxToZInterp(0)->m_pLow, source.GetPlane(0));
            CVolume reused(copy);
            reused.Init(CVolume::PT_BYTE, 2, 2, 2, 1);
            reused.Alloc(contig);
            Touch(reused);
            reused = source;  // what it had is freed
            EXPECT_EQ(reused.GetPlane(2)->m_pData, pixels);
            reused.Alloc(true);
            Touch(reused);
            source = copy;  // its own pixels come back and stay its own
        }
        EXPECT_EQ(source.GetPlane(2)->m_pData, pixels);
        EXPECT_EQ(source.MapVoxToZInterp(0)->m_pLow, source.GetPlane(0));
        Touch(source);
    }
}

TEST(CVolume, UpdateWidensTheStoredRange) {
    ExpectExtremesFound<std::int16_t>(CVolume::PT_SHORT);
    ExpectExtremesFound<std::uint16_t>(CVolume::PT_USHORT);
    ExpectExtremesFound<std::uint8_t>(CVolume::PT_BYTE);
    ExpectExtremesFound<std::int32_t>(CVolume::PT_LONG);
    ExpectExtremesFound<std::uint32_t>(CVolume::PT_ULONG);
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (std::size_t at = 0; at < 19; ++at) {
        std::vector<float> floats(19, kNan);
        floats[at] = -7.9F;
        ASSERT_EQ(RangeOf(CVolume::PT_FLOAT, floats, 0, -100), (Range{-7, -7}));
    }
    EXPECT_EQ(RangeOf<float>(CVolume::PT_FLOAT, {kNan}, 5, -5), (Range{5, -5}));
    EXPECT_EQ(RangeOf<float>(CVolume::PT_FLOAT, {kInfinity, -kInfinity}), (Range{LLONG_MIN, LLONG_MAX}));
    EXPECT_EQ(RangeOf<std::int16_t>(CVolume::PT_SHORT, {12, 30}, 4294967295, 4026531839), (Range{12, 4026531839}));

    CVolume volume;
    volume.Init(CVolume::PT_USHORT, 5, 3, 3, 1);
    volume.Alloc(false);
    Touch(volume);
    static_cast<std::uint16_t*>(volume.GetPlane(2)->m_pData)[14] = 777;
    volume.GetPlane(1)->Alloc(nullptr);  // passed over
    volume.Update();
    EXPECT_EQ((Range{volume.GetMin(), volume.GetMax()}), (Range{0, 777}));
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

TEST(CVolume, PlaneQueriesReorderForThreeViewsOnly) {
    CVolume volume;
    volume.Init(CVolume::PT_SHORT, 3, 5, 7, 1);
    volume.Alloc(true);
    constexpr std::array<int, 6> kExpected[] = {{3, 5, 7, 2, 6, 30}, {5, 7, 3, 6, 30, 2}, {5, 3, 7, 6, 2, 30}, {}};
    for (int plane = 0; plane < 4; ++plane) {
        std::array<int, 6> result{};
        volume.GetPlaneDimensions(static_cast<VolumePlane>(plane), result.data());
        volume.GetPlaneIncrements(static_cast<VolumePlane>(plane), result.data() + 3);
        EXPECT_EQ(result, kExpected[plane]) << plane;
    }
}
