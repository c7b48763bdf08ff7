#include "export/ExportFixture.h"

namespace {

// A header with a matrix, a data type and pixdim[1] = 0.5; a little-endian one has sizeof_hdr 0.
std::string Header(bool big, int nx, int ny, int nz, int datatype) {
    const auto word = [big](int v) { return big ? Bytes({v >> 8, v}) : Bytes({v, v >> 8}); };
    std::string header(348, '\0');
    header.replace(0, 4, big ? Bytes({0, 0, 1, 0x5C}) : std::string(4, '\0'));
    header.replace(42, 6, word(nx) + word(ny) + word(nz));
    header.replace(70, 2, word(datatype));
    return header.replace(80, 4, big ? Bytes({0x3F, 0, 0, 0}) : Bytes({0, 0, 0, 0x3F}));
}

// Writes to disk, but refuses the given one of its opens and writes.
struct StubbornWriter : CFileWriter {
    explicit StubbornWriter(int refused) : m_nRefused(refused) {}
    bool Open(const char* path, const char* mode) override {
        return --m_nRefused != 0 && CFileWriter::Open(path, mode);
    }
    int Close() override { return CFileWriter::Close() - ++m_nCloses; }  // a failure that nobody looks at
    unsigned Write(void* buf, unsigned size, unsigned count) override {
        m_bRow = size == 1 && count == 6;
        return CFileWriter::Write(buf, 1, --m_nRefused == 0 ? count - 1 : count);
    }
    int m_nRefused, m_nCloses = 0;
    bool m_bRow = false;  // the last request
};

class CAnalyzeVolumeTest : public ExportTest {
protected:
    bool Save(CAnalyzeVolume& exporter) { return exporter.Save(m_Folder.string().c_str(), "vol"); }
    std::string Voxels(CDicomVolume& series, CAnalyzeVolume exporter = {}) {
        exporter = series;
        EXPECT_TRUE(Save(exporter));
        return ReadBack("vol.img");
    }
    std::string LoadError(const std::string& header, const std::string& voxels) {
        MakeFile("vol.hdr", header);
        MakeFile("vol.img", voxels);
        return ThrownText([this] { m_Exporter.Load(Path("vol").c_str()); });
    }
    // The bytes in memory of both planes of a loaded pair.
    std::string Loaded(const std::string& header, const std::string& voxels) {
        EXPECT_EQ(LoadError(header, voxels), "nothing thrown");
        const auto plane = [&](int k) { return static_cast<char*>(m_Exporter.GetVolume()->GetPlane(k)->m_pData); };
        return std::string(plane(0), voxels.size() / 2).append(plane(1), voxels.size() / 2);
    }
    TestSeries m_Series{TestSeries::Form{}};
    CVolume* m_pVolume = m_Series.m_Series.GetVolume();
    CAnalyzeVolume m_Exporter;
};

TEST_F(CAnalyzeVolumeTest, WritesTheHeaderByteForByte) {
    TestSeries series({.slices = 4, .stored = 12});
    Voxels(series);
    std::string expected = Header(true, 3, 2, 4, 4);
    expected.replace(38, 1, "r").replace(40, 2, Bytes({0, 4})).replace(48, 2, Bytes({0, 1}));
    expected.replace(56, 2, "mm").replace(72, 2, Bytes({0, 12}));
    expected.replace(84, 8, Bytes({0x3F, 0x40, 0, 0, 0x40, 0, 0, 0}));  // 0.75 mm, 2 mm
    expected.replace(112, 2, Bytes({0x3F, 0x80}));
    expected.replace(140, 4, Bytes({0xEF, 0xFF, 0xFF, 0xFF}));  // the maximum that assembly leaves
    expected.replace(148, 20, "Converted from dicom").replace(253, 6, Bytes({0, 1, 0, 1, 0, 2}));
    EXPECT_EQ(ReadBack("vol.hdr"), expected);
}

TEST_F(CAnalyzeVolumeTest, StoresBytesAsTheyAreAndNothingOfWiderTypes) {
    TestSeries bytes({.bits = 8, .isSigned = 0});
    EXPECT_EQ(Voxels(bytes), Bytes({12, 13, 14, 15, 16, 17, 6, 7, 8, 9, 10, 11, 0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(ReadBack("vol.hdr").substr(70, 4), Bytes({0, 2, 0, 8}));
    TestSeries longs({.bits = 32});
    EXPECT_EQ(Voxels(longs), "");
    EXPECT_EQ(ReadBack("vol.hdr").substr(70, 2), Bytes({0, 2}));
}

TEST_F(CAnalyzeVolumeTest, HalvesOrShiftsUnsignedVoxelsAndGoesOnDoingSo) {
    TestSeries angiography({.slices = 1, .isSigned = 0, .first = 65530, .modality = "Xa"});
    TestSeries tomography({.slices = 1, .isSigned = 0, .first = 65530, .modality = "CT"});
    TestSeries words({.slices = 1, .first = -3});
    EXPECT_EQ(Voxels(angiography), Bytes({127, 253, 127, 253, 127, 254, 127, 254, 127, 255, 127, 255}));
    EXPECT_EQ(Voxels(tomography).substr(8), Bytes({0x7F, 0xFF, 0x80, 0x00}));
    m_Exporter = angiography;
    EXPECT_EQ(Voxels(words, m_Exporter), Bytes({255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 1}));  // toward zero
    m_Exporter = tomography;
    EXPECT_EQ(Voxels(angiography, m_Exporter).substr(0, 2), Bytes({0xFF, 0xFE}));  // halved, then shifted
}

TEST_F(CAnalyzeVolumeTest, WritesARowACallAndFailsWhereTheWriterDoes) {
    m_Exporter = m_Series;
    const int header = 1 + 43, events = header + 1 + 3 * 2;  // opening, fields; opening, rows
    for (int refused = 1; refused <= events + 1; ++refused) {
        auto* const writer = new StubbornWriter(refused);
        m_Exporter.SetFileWriter(writer);
        EXPECT_EQ(Save(m_Exporter), refused > events) << refused;
        EXPECT_EQ(writer->m_nCloses, refused == 1 ? 0 : refused <= header + 1 ? 1 : 2) << refused;
        EXPECT_EQ(std::filesystem::exists(Path("vol.hdr")), refused > 1);  // what was written stays
        EXPECT_EQ(writer->m_bRow, refused > header + 1);
    }
    EXPECT_STREQ(m_Exporter.GetError(), "");
    m_pVolume->Init(CVolume::PT_SHORT, 2, 2, 3, 1);  // the header is of another matrix
    m_pVolume->Alloc(true);
    m_Exporter.SetFileWriter(new CFileWriter);
    EXPECT_FALSE(Save(m_Exporter));
}

TEST_F(CAnalyzeVolumeTest, LoadsBothByteOrdersFirstSliceFirst) {
    const std::string little = Bytes({1, 0, 254, 255, 0, 1, 9, 0}), big = Bytes({0, 1, 255, 254, 1, 0, 0, 9});
    Stopper calls(2, 50);  // in vain
    m_Exporter.SetCallback(&calls);
    EXPECT_EQ(Loaded(Header(false, 2, 1, 2, 4), little), little);
    EXPECT_EQ(calls.m_Percents, "50 100 ");
    const CVolume& volume = *m_Exporter.GetVolume();
    EXPECT_EQ(std::pair(volume.GetMin(), volume.GetMax()), std::pair(-2LL, 256LL));
    float spacing[4];
    volume.GetSpacing(spacing);
    EXPECT_EQ((std::vector<float>(spacing, spacing + 4)), (std::vector<float>{0.5f, 0, 0, 1}));
    m_Exporter.SetCallback(nullptr);
    ASSERT_TRUE(Save(m_Exporter));
    EXPECT_EQ(ReadBack("vol.img"), std::string(8, '\0'));  // the voxels are lost, not so the header
    EXPECT_EQ(m_Exporter.GetMapping().reasons, ExportMapping::Cleared);
    EXPECT_EQ(ReadBack("vol.hdr"), Header(true, 2, 1, 2, 4));

    EXPECT_EQ(Loaded(Header(true, 2, 1, 2, 4), big), little);
    ASSERT_TRUE(Save(m_Exporter));
    EXPECT_EQ(ReadBack("vol.img"), big.substr(4) + big.substr(0, 4));  // the slices change places
    EXPECT_EQ(Loaded(Header(true, 2, 1, 2, 2), "abcd"), "abcd");
    EXPECT_EQ(Loaded(Header(false, 1, 1, 2, 16), "abcdefgh"), "abcdefgh");
    EXPECT_EQ(Loaded(Header(true, 1, 1, 2, 16), "abcdefgh"), "badcfehg");  // floats too: only pairs are exchanged
}

TEST_F(CAnalyzeVolumeTest, RefusesDamagedPairsAndOtherDataTypes) {
    Stopper calls(2, 0);
    m_Exporter.SetCallback(&calls);
    const std::string good = Header(true, 2, 1, 2, 4);
    const std::map<std::string, std::string> damaged = {
        {good, "1234567"},
        {good.substr(0, 347), "12345678"},
        {std::string(good).replace(252, 1, "\xFF"), "12345678"},  // orient
        {Header(true, 32767, 32767, 32767, 16), "1"}};
    for (const auto& [header, voxels] : damaged) EXPECT_EQ(LoadError(header, voxels), std::strerror(EIO));
    EXPECT_EQ(LoadError(Header(true, 32767, -1, 2, 4), "12345678"), std::strerror(EINVAL));
    EXPECT_EQ(ThrownText([this] { m_Exporter.Load(Path("none").c_str()); }), std::strerror(ENOENT));
    EXPECT_EQ(m_Exporter.GetVolume(), nullptr);
    EXPECT_EQ(calls.m_Percents, "");  // a data file too short is refused before any memory is taken
    EXPECT_THROW(m_Exporter.ReadHeader(Path("none").c_str()), int);
    EXPECT_EQ(m_Exporter.GetHeader().dim[1], 32767);  // a failure leaves the header

    const std::map<int, std::string> cases = {{0, "BIT"},     {8, "I32"},       {32, "COMPLEX"},
                                              {64, "DOUBLE"}, {3, "0 Unknown"}, {-2, "0 Unknown"}};
    for (const auto& [code, name] : cases) {
        EXPECT_EQ(LoadError(Header(true, 1, 1, 1, code), ""), name + " data type not supported");
        EXPECT_NE(m_Exporter.GetVolume(), nullptr);  // a new one, without dimensions
    }
}

TEST_F(CAnalyzeVolumeTest, LoadLetsGoOfASharedVolumeWithoutDestroyingIt) {
    m_Exporter = m_Series;
    CAnalyzeVolume copy(m_Exporter);
    Loaded(Header(true, 1, 1, 2, 2), "ab");
    EXPECT_EQ(m_pVolume->GetNRefs(), 1);
    EXPECT_TRUE(copy.Load(Path("vol").c_str()));  // a borrower: nothing of its source's to drop
    EXPECT_EQ(m_pVolume->GetNRefs(), 1);
}

}  // namespace
