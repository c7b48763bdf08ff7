#include "SeriesFixture.h"

namespace {

/// Notes what it is told and stops when `stopAt` is reached.
class Recorder : public CPercent {
public:
    explicit Recorder(short stopAt = 101) : m_StopAt(stopAt) {}
    bool OnProgress(short percent) override {
        m_Seen.push_back(percent);
        return percent >= m_StopAt;
    }
    std::vector<short> m_Seen;

private:
    short m_StopAt;
};

}  // namespace

class CDicomVolumePixels : public SeriesTest {};

TEST_F(CDicomVolumePixels, VoxelsAreRawValuesOfTheFormsOwnType) {
    const std::vector<std::uint16_t> words = {0x7FFF, 0x0800, 0xF001, 0x0000};
    const auto shorts = [&](const DataSet& image) { return Assemble({image}).Alloc(true), Voxels<std::int16_t>(0); };
    EXPECT_EQ(shorts(Image(words).Form(16, 16, 15, true)), (std::vector<std::int16_t>{0x7FFF, 0x800, -4095, 0}));
    EXPECT_EQ(Volume().GetType(), CVolume::PT_SHORT);
    EXPECT_EQ(shorts(Image(words).Form(16, 12, 11, true)), (std::vector<std::int16_t>{-1, -2048, 1, 0}));
    EXPECT_EQ(shorts(Image(words).Form(16, 12, 15, false)), (std::vector<std::int16_t>{0x7FF, 0x80, 0xF00, 0}));
    EXPECT_EQ(Volume().GetType(), CVolume::PT_USHORT);

    const std::vector<std::uint32_t> wide = {1, 0x80000000, 70000};
    Assemble({Image().Matrix(1, 3).Form(32, 32, 31, false).Pixels(wide)}).Alloc(false);
    EXPECT_EQ(Volume().GetType(), CVolume::PT_ULONG);
    EXPECT_EQ(Voxels<std::uint32_t>(0), wide);
    Assemble({Image().Matrix(1, 3).Form(32, 32, 31, true).Pixels(wide)});
    EXPECT_EQ(Volume().GetType(), CVolume::PT_LONG);

    const std::vector<std::uint8_t> bytes = {1, 200, 255, 0};
    Assemble({Image().Matrix(3, 1).Form(8, 8, 7, false).Pixels(bytes)}).Alloc(true);
    EXPECT_EQ(Volume().GetType(), CVolume::PT_BYTE);
    EXPECT_EQ(Voxels<std::uint8_t>(0), (std::vector<std::uint8_t>{1, 200, 255}));
    EXPECT_EQ(Dimension(0), 1);
    EXPECT_EQ(Dimension(1), 3);
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
    EXPECT_EQ(range({Frames(4)
                         .Pixels(std::vector<std::uint16_t>{90, 80, 70, 60})
                         .Text(0x00281052, "-24")
                         .Text(0x00281053, "0.5")}),
              60 * 2 + 24);
    EXPECT_EQ(range({Frames(2).Pixels(std::vector<std::uint16_t>{90, 80, 5})}), 80);
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

    std::vector<std::uint8_t> twice(24, 0);
    std::copy(planes.begin(), planes.end(), twice.begin() + 12);
    Assemble({image.Pixels(twice).Text(0x00280008, "2")}).Alloc(false);
    EXPECT_EQ(Voxels<std::uint8_t>(PlaneOrder()[0] == 1 ? 0 : 1), hues);

    // RGB by name, one sample by number: bytes, as they are.
    Assemble({image.Drop(0x00280008).US(0x00280002, 1).Pixels(planes)}).Alloc(true);
    EXPECT_EQ(Voxels<std::uint8_t>(0), (std::vector<std::uint8_t>{255, 0, 0, 9}));
}

TEST_F(CDicomVolumePixels, ProgressGoesBySliceAndStopsAtOnce) {
    const std::vector<DataSet> slices = {SliceAt(0, 10), SliceAt(1, 20), SliceAt(2, 30), SliceAt(3, 40)};
    Recorder all;
    all.SetTotElab(4);
    m_Series.SetCallback(&all);
    Assemble(slices).Alloc(true);
    EXPECT_EQ(all.m_Seen, (std::vector<short>{25, 50, 75, 100}));
    EXPECT_EQ(Volume().GetMin(), 10);

    Recorder stopping(75);
    stopping.SetTotElab(4);
    m_Series.SetCallback(&stopping);
    Assemble(slices).Alloc(true);
    EXPECT_EQ(stopping.m_Seen, (std::vector<short>{25, 50, 75}));
    EXPECT_EQ(Voxels<std::uint16_t>(1)[0], 30);
    EXPECT_EQ(Volume().GetMin(), 30) << "two slices were read, the third was not";
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
    Assemble({SliceAt(0, 1), SliceAt(1, 2), SliceAt(2, 3), SliceAt(3, 4)});
    const std::unique_ptr<DICOMDataObject> others[] = {
        SliceAt(0).Matrix(500, 500).Pixels(std::vector<std::uint16_t>{9, 9}).Make(), DataSet().Make(),
        SliceAt(0).Form(8, 8, 7, false).Pixels(std::vector<std::uint8_t>{5, 6, 7, 8}).Make(),
        SliceAt(0).US(0x00280002, 3).Text(0x00280004, "RGB").Make()};
    for (std::size_t k = 0; k < 4; ++k) {
        m_Series.GetDDOList()[k] = others[k].get();
    }
    m_Series.Alloc(true);
    EXPECT_EQ(Voxels<std::uint16_t>(0), (std::vector<std::uint16_t>{9, 9, 0, 0}));
    EXPECT_EQ(Voxels<std::uint16_t>(1), (std::vector<std::uint16_t>{0, 0, 0, 0}));
    EXPECT_EQ(Voxels<std::uint16_t>(2), (std::vector<std::uint16_t>{5, 6, 7, 8}));
}
