#include "SeriesFixture.h"

namespace {

/// Counts what it is told and stops at a percentage.
struct Recorder : CPercent {
    bool OnProgress(short percent) override {
        ++m_nCalls;
        return percent >= m_StopAt;
    }
    int m_nCalls = 0;
    int m_StopAt = 101;
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
    EXPECT_EQ(Voxels<std::uint8_t>(0), (std::vector<std::uint8_t>{7, 255}));
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
        EXPECT_EQ(Volume().GetMax(), 4026531839LL);
        m_Series.Alloc(true);
        EXPECT_EQ(Volume().GetMax(), 4026531839LL) << "ordinary images do not reach it";
        return Volume().GetMin();
    };
    EXPECT_EQ(range({SliceAt(0, 500), SliceAt(1, 300), SliceAt(2, 400)}), 300);
    // Two words more than the image: the scan sees the 7, the plane does not.
    EXPECT_EQ(range({SliceAt(0, 500).Matrix(1, 2).Pixels(std::vector<std::uint16_t>{500, 400, 300, 7})}), 7);
    // The scan's 1000 is the modality value 500 - 24 and the raw one 1000; each taken as v / 0.5 + 24.
    const DataSet rescaled = SliceAt(0, 1000).Text(0x00281052, "-24").Text(0x00281053, "0.5");
    EXPECT_EQ(range({rescaled}), 476 * 2 + 24);
    // Frames know raw values only.
    const DataSet frames = Frames(3).Pixels(std::vector<std::uint16_t>{90, 80, 60, 5});
    EXPECT_EQ(range({DataSet(frames).Text(0x00281052, "-24").Text(0x00281053, "0.5")}), 60 * 2 + 24);
    EXPECT_EQ(range({DataSet(frames).Text(0x00281052, "0").Text(0x00281053, "-1")}), -90) << "each frame on its own";
}

TEST_F(CDicomVolumePixels, ColourBecomesHue) {
    // Red, green, blue, grey; interleaved, then the same in planes, as two frames in reverse order.
    const std::vector<std::uint8_t> interleaved = {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 9, 9};
    const std::vector<std::uint8_t> planes = {255, 0, 0, 9, 0, 255, 0, 9, 0, 0, 255, 9};
    const std::vector<std::uint8_t> hues = {0, 85, 170, 0};
    DataSet image = Image().Matrix(2, 2).Form(8, 8, 7, false).Text(0x00280004, "RGB").US(0x00280002, 3);
    Assemble({image.Pixels(interleaved)}).Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), hues);
    Assemble({image.Pixels(planes).US(0x00280006, 1)}).Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), hues);
    EXPECT_EQ(Volume().GetMin(), 0);
    EXPECT_EQ(Volume().GetMax(), 255);
    const auto shrunk = DataSet(image).Pixels(std::vector<std::uint8_t>{0, 0, 255, 9}).Make();
    m_Series.GetDDOList()[0] = shrunk.get();
    m_Series.Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), std::vector<std::uint8_t>(4)) << "not beyond the end of the samples";

    std::vector<std::uint8_t> twice(24, 0);
    std::copy(planes.begin(), planes.end(), twice.begin() + 12);
    Assemble({image.Pixels(twice).Text(0x00280008, "2")}).Alloc(false);
    EXPECT_EQ(Voxels<std::uint8_t>(PlaneOrder()[0] == 1 ? 0 : 1), hues);

    // RGB by name, one sample by number: bytes, as they are.
    Assemble({image.Drop(0x00280008).US(0x00280002, 1).Pixels(planes)}).Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), (std::vector<std::uint8_t>{255, 0, 0, 9}));
}

TEST_F(CDicomVolumePixels, ProgressGoesBySliceAndStopsAtOnce) {
    Recorder recorder;
    recorder.SetTotElab(4);
    m_Series.SetCallback(&recorder);
    Assemble({SliceAt(0, 10), SliceAt(1, 20), SliceAt(2, 30), SliceAt(3, 40)}).Alloc(true);
    EXPECT_EQ(recorder.m_nCalls, 4);
    EXPECT_EQ(Volume().GetMin(), 10);
    recorder.StartProgress();
    recorder.m_StopAt = 75;
    m_Series.SetIODList(m_List, nullptr);
    m_Series.Alloc(true);
    EXPECT_EQ(recorder.m_nCalls, 4 + 3);
    EXPECT_EQ(Volume().GetMin(), 30) << "slices run from 40 down; the third was not read";
    EXPECT_EQ(Voxels<std::uint16_t>(1)[0], 30);
}

TEST_F(CDicomVolumePixels, CopiesHoldAReferenceEachAndSetIODListLetsGo) {
    CDicomVolume none;
    EXPECT_EQ(none.GetVolume(), nullptr);
    none.Alloc(true);
    Assemble({SliceAt(0, 7)}).Alloc(true);
    CVolume* volume = m_Series.GetVolume();
    {
        CDicomVolume copy(m_Series);
        none = copy;
        none = *&none;
        EXPECT_EQ(volume->GetNRefs(), 3);
    }
    EXPECT_EQ(volume->GetNRefs(), 2);
    Assemble({SliceAt(0, 8)});
    EXPECT_EQ(volume->GetNRefs(), 1);
    EXPECT_NE(m_Series.GetVolume(), volume);
    EXPECT_EQ(*static_cast<std::uint16_t*>(none.GetVolume()->GetPlane(0)->m_pData), 7);
}

TEST_F(CDicomVolumePixels, PixelsThatChangedBehindAssemblyStayWithinTheirPlanes) {
    const std::vector<std::uint16_t> two = {9, 8};
    const std::unique_ptr<DICOMDataObject> others[] = {SliceAt(0).Matrix(500, 500).Pixels(two).Make(), DataSet().Make(),
                                                       SliceAt(0).Form(8, 8, 7, false).Pixels(two).Make(),
                                                       SliceAt(0).US(0x00280002, 3).Text(0x00280004, "RGB").Make()};
    Assemble({SliceAt(0, 1), SliceAt(1, 2), SliceAt(2, 3), SliceAt(3, 4)});
    for (std::size_t k = 0; k < 4; ++k) m_Series.GetDDOList()[k] = others[k].get();
    m_Series.Alloc(true);
    EXPECT_EQ(Voxels<std::uint16_t>(0), (std::vector<std::uint16_t>{9, 8, 0, 0}));
    EXPECT_EQ(Voxels<std::uint16_t>(1), (std::vector<std::uint16_t>{0, 0, 0, 0}));
    EXPECT_EQ(Voxels<std::uint16_t>(2), (std::vector<std::uint16_t>{9, 0, 8, 0}));
}
