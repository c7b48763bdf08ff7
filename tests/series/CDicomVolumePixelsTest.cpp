#include "SeriesFixture.h"

namespace {

using Words = std::vector<std::uint16_t>;
using Bytes = std::vector<std::uint8_t>;

// Counts what it is told and stops at three quarters.
struct Recorder : CPercent {
    bool OnProgress(short percent) override { return ++m_nCalls, percent >= 75; }
    int m_nCalls = 0;
};

}  // namespace

class CDicomVolumePixels : public SeriesTest {};

TEST_F(CDicomVolumePixels, VoxelsAreRawValuesOfTheFormsOwnType) {
    const auto typeOf = [this](int bits, bool isSigned, const std::vector<std::uint32_t>& words) {
        Assemble({Image().Matrix(2, 1).Form(bits, bits, bits - 1, isSigned).Pixels(words)}).Alloc(true);
        EXPECT_EQ(Dimensions(), (std::vector{1, 2, 1, 1}));
        return Volume().GetType();
    };
    EXPECT_EQ(typeOf(8, true, {0xFF07}), CVolume::PT_BYTE);
    EXPECT_EQ(Voxels<std::uint8_t>(0), (Bytes{7, 255}));
    EXPECT_EQ(typeOf(16, true, {0xFFFF0007}), CVolume::PT_SHORT);
    EXPECT_EQ(Voxels<std::int16_t>(0), (std::vector<std::int16_t>{7, -1}));
    EXPECT_EQ(typeOf(16, false, {0xFFFF0007}), CVolume::PT_USHORT);
    EXPECT_EQ(typeOf(32, true, {7, 0x80000000}), CVolume::PT_LONG);
    EXPECT_EQ(Voxels<std::uint32_t>(0), (std::vector<std::uint32_t>{0x80000007, 0})) << "less 2^31, wrapped around";
    EXPECT_EQ(typeOf(32, false, {7, 0x80000000}), CVolume::PT_ULONG);
}

TEST_F(CDicomVolumePixels, RangeStartsHighAndIsLoweredByWhatWasReadAndScanned) {
    const auto range = [this](const std::vector<DataSet>& slices) {
        Assemble(slices);
        EXPECT_EQ(Volume().GetMin(), 4294967295LL);
        m_Series.Alloc(true);
        EXPECT_EQ(Volume().GetMax(), 4026531839LL) << "as it started: ordinary images do not reach it";
        return Volume().GetMin();
    };
    EXPECT_EQ(range({SliceAt(0, 500), SliceAt(1, 300), SliceAt(2, 400)}), 300);
    // Two words more than the image: the scan sees the 7, the plane does not.
    EXPECT_EQ(range({SliceAt(0, 500).Matrix(1, 2).Pixels(Words{500, 400, 300, 7})}), 7);
    // The scan's 1000 is the modality value 500 - 24 and the raw one 1000; each taken as v / 0.5 + 24.
    EXPECT_EQ(range({SliceAt(0, 1000).Rescale("-24", "0.5")}), 476 * 2 + 24);
    // Frames know raw values only.
    DataSet frames = Frames(3).Pixels(Words{90, 80, 60, 5});
    EXPECT_EQ(range({frames.Rescale("-24", "0.5")}), 60 * 2 + 24);
    EXPECT_EQ(range({frames.Rescale("0", "-1")}), -90) << "each frame on its own";
}

TEST_F(CDicomVolumePixels, ColourBecomesHue) {
    // Red, green, blue, grey; interleaved, then the same in planes, as two frames in reverse order.
    const Bytes interleaved = {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 9, 9};
    const Bytes planes = {255, 0, 0, 9, 0, 255, 0, 9, 0, 0, 255, 9};
    const Bytes hues = {0, 85, 170, 0};
    DataSet image = Image().Matrix(2, 2).Colour(3);
    Assemble({image.Pixels(interleaved)}).Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), hues);
    Assemble({image.Pixels(planes).US(0x00280006, 1)}).Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), hues);
    EXPECT_EQ(std::pair(Volume().GetMin(), Volume().GetMax()), std::pair(0LL, 255LL));
    const auto shrunk = DataSet(image).Pixels(Bytes{0, 0, 255, 9}).Make();
    m_Series.GetDDOList()[0] = shrunk.get();
    m_Series.Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), Bytes(4)) << "not beyond the end of the samples";

    Bytes twice(24, 0);
    std::copy(planes.begin(), planes.end(), twice.begin() + 12);
    Assemble({image.Pixels(twice).Text(0x00280008, "2")}).Alloc(false);
    EXPECT_EQ(Voxels<std::uint8_t>(PlaneOrder()[0] == 1 ? 0 : 1), hues);

    // RGB by name, one sample by number: bytes, as they are.
    Assemble({image.Drop(0x00280008).US(0x00280002, 1).Pixels(planes)}).Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), (Bytes{255, 0, 0, 9}));
}

TEST_F(CDicomVolumePixels, ProgressGoesBySliceAndStopsAtOnce) {
    Recorder recorder;
    recorder.SetTotElab(4);
    m_Series.SetCallback(&recorder);
    Assemble({SliceAt(0, 10), SliceAt(1, 20), SliceAt(2, 30), SliceAt(3, 40)}).Alloc(true);
    EXPECT_EQ(recorder.m_nCalls, 3);
    EXPECT_EQ(Volume().GetMin(), 30) << "slices run from 40 down; the third was not read";
    EXPECT_EQ(Voxels(1)[0], 30);
}

TEST_F(CDicomVolumePixels, CopiesHoldAReferenceEachAndSetIODListLetsGo) {
    CDicomVolume other;
    other.Alloc(true);  // no volume: nothing happens
    CVolume* volume = Assemble({SliceAt(0, 7)}).GetVolume();
    m_Series.Alloc(true);
    other = CDicomVolume(m_Series);
    other = *&other;
    EXPECT_EQ(volume->GetNRefs(), 2);
    Assemble({SliceAt(0, 8)});
    EXPECT_EQ(volume->GetNRefs(), 1);
    EXPECT_NE(m_Series.GetVolume(), volume);
    EXPECT_EQ(*static_cast<std::uint16_t*>(other.GetVolume()->GetPlane(0)->m_pData), 7);
}

TEST_F(CDicomVolumePixels, PixelsThatChangedBehindAssemblyStayWithinTheirPlanes) {
    const Words two = {9, 8};
    const auto larger = SliceAt(0).Matrix(500, 500).Pixels(two).Make(), none = DataSet().Make();
    const auto bytes = SliceAt(0).Form(8, 8, 7, false).Pixels(two).Make(), colour = Image().Colour(3).Make();
    Assemble({SliceAt(0, 1), SliceAt(1, 2), SliceAt(2, 3), SliceAt(3, 4)});
    m_Series.GetDDOList() = {larger.get(), none.get(), bytes.get(), colour.get()};
    m_Series.Alloc(true);
    EXPECT_EQ(Voxels(0), (Words{9, 8, 0, 0}));
    EXPECT_EQ(Voxels(1), (Words{0, 0, 0, 0}));
    EXPECT_EQ(Voxels(2), (Words{9, 0, 8, 0}));
}
