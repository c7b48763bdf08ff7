#include "export/ExportFixture.h"

namespace {

constexpr int kFields = 43;

/// A text that may hold zero bytes, from numbers.
std::string Bytes(std::initializer_list<int> values) {
    std::string bytes;
    for (const int value : values) {
        bytes.push_back(static_cast<char>(value));
    }
    return bytes;
}

/// 348 zero bytes but for the given ones.
std::string Header348(const std::vector<std::pair<std::size_t, std::string>>& fields) {
    std::string header(348, '\0');
    for (const auto& [offset, value] : fields) {
        header.replace(offset, value.size(), value);
    }
    return header;
}

/// A header with a matrix, a data type and pixdim[1] = 0.5; a little-endian one has sizeof_hdr 0.
std::string Header(bool big, int nx, int ny, int nz, int datatype) {
    const auto word = [big](int v) { return big ? Bytes({v >> 8, v}) : Bytes({v, v >> 8}); };
    return Header348({{0, big ? Bytes({0, 0, 1, 0x5C}) : ""},
                      {42, word(nx) + word(ny) + word(nz)},
                      {70, word(datatype)},
                      {80, big ? Bytes({0x3F, 0, 0, 0}) : Bytes({0, 0, 0, 0x3F})}});
}

/// Writes to disk, refuses the given one of its opens and writes, and notes the counts it was asked to write.
struct StubbornWriter : CFileWriter {
    explicit StubbornWriter(int refused) : m_nRefused(refused) {}
    bool Open(const char* path, const char* mode) override {
        return --m_nRefused != 0 && CFileWriter::Open(path, mode);
    }
    int Close() override { return CFileWriter::Close() - ++m_nCloses; }  // a failure that nobody looks at
    unsigned Write(void* buf, unsigned size, unsigned count) override {
        m_Counts.push_back(size * 1000 + count);
        return CFileWriter::Write(buf, 1, --m_nRefused == 0 ? count - 1 : count);
    }
    int m_nRefused, m_nCloses = 0;
    std::vector<unsigned> m_Counts;
};

/// Asks to stop at the given call.
struct Stopper : CPercent {
    Stopper(int total, std::size_t calls) : m_nCalls(calls) { SetTotElab(total); }
    bool OnProgress(short percent) override {
        m_Percents.push_back(percent);
        return m_Percents.size() == m_nCalls;
    }
    std::size_t m_nCalls;
    std::vector<int> m_Percents;
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
    /// The bytes in memory of both planes of a loaded pair.
    std::string Loaded(const std::string& header, const std::string& voxels) {
        EXPECT_EQ(LoadError(header, voxels), "nothing thrown");
        std::string bytes;
        for (int plane = 0; plane < 2; ++plane) {
            bytes.append(static_cast<char*>(m_Exporter.GetVolume()->GetPlane(plane)->m_pData), voxels.size() / 2);
        }
        return bytes;
    }
    TestSeries m_Series{TestSeries::Form{}};
    CVolume* m_pVolume = m_Series.m_Series.GetVolume();
    CAnalyzeVolume m_Exporter;
};

TEST_F(CAnalyzeVolumeTest, WritesTheHeaderByteForByte) {
    TestSeries series({.slices = 4, .stored = 12});
    Voxels(series);
    EXPECT_EQ(ReadBack("vol.hdr"),
              Header348({{0, Bytes({0, 0, 1, 0x5C})},
                         {38, "r"},
                         {40, Bytes({0, 4, 0, 3, 0, 2, 0, 4, 0, 1})},
                         {56, "mm"},
                         {70, Bytes({0, 4, 0, 12})},
                         {80, Bytes({0x3F, 0, 0, 0, 0x3F, 0x40, 0, 0, 0x40, 0, 0, 0})},  // 0.5, 0.75, 2 mm
                         {112, Bytes({0x3F, 0x80, 0, 0})},
                         {140, Bytes({0xEF, 0xFF, 0xFF, 0xFF})},  // the maximum that assembly leaves
                         {148, "Converted from dicom"},
                         {253, Bytes({0, 1, 0, 1, 0, 2})}}));
}

TEST_F(CAnalyzeVolumeTest, StoresLastSliceFirstHighByteFirst) {
    TestSeries words({.slices = 2, .first = -2});
    EXPECT_EQ(Voxels(words), Bytes({0, 4, 0, 5, 0, 6, 0, 7, 0, 8, 0, 9, 255, 254, 255, 255, 0, 0, 0, 1, 0, 2, 0, 3}));
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
    CAnalyzeVolume exporter;
    exporter = angiography;
    EXPECT_EQ(Voxels(words, exporter), Bytes({255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 0, 1}));  // toward zero
    exporter = tomography;
    EXPECT_EQ(Voxels(angiography, exporter).substr(0, 2), Bytes({0xFF, 0xFE}));  // halved, then shifted
}

TEST_F(CAnalyzeVolumeTest, WritesARowACallAndFailsWhereTheWriterDoes) {
    EXPECT_FALSE(Save(m_Exporter));  // no volume yet
    m_Exporter = m_Series;
    const int events = 2 + kFields + 3 * 2;  // two files, the fields, the rows
    for (int refused = 1; refused <= events + 1; ++refused) {
        auto* const writer = new StubbornWriter(refused);
        m_Exporter.SetFileWriter(writer);
        EXPECT_EQ(Save(m_Exporter), refused > events) << refused;
        const int opened = refused == 1 ? 0 : refused <= kFields + 2 ? 1 : 2;
        EXPECT_EQ(writer->m_nCloses, opened) << refused;
        EXPECT_EQ(std::filesystem::exists(Path("vol.hdr")), opened > 0);  // what was written stays
        if (opened == 2) {
            EXPECT_EQ(writer->m_Counts.back(), 1006u);  // one item of size 1 for each byte of a row
        }
    }
    EXPECT_STREQ(m_Exporter.GetError(), "");
    m_pVolume->Init(CVolume::PT_SHORT, 3, 2, 3, 1);  // planes without pixels
    EXPECT_FALSE(Save(m_Exporter));
    m_pVolume->Init(CVolume::PT_SHORT, 4, 2, 3, 1);  // the header is of another matrix
    EXPECT_FALSE(Save(m_Exporter));
}

TEST_F(CAnalyzeVolumeTest, StopsBeforeASliceAndCallsThatDone) {
    Stopper stopper(3, 2);
    m_Exporter.SetCallback(&stopper);
    EXPECT_EQ(Voxels(m_Series, m_Exporter).size(), 12u);  // one slice of three
    EXPECT_EQ(stopper.m_Percents, (std::vector<int>{33, 66}));
}

TEST_F(CAnalyzeVolumeTest, LoadsBothByteOrdersFirstSliceFirst) {
    const std::string little = Bytes({1, 0, 254, 255, 0, 1, 9, 0});
    const std::string big = Bytes({0, 1, 255, 254, 1, 0, 0, 9});
    Stopper calls(2, 1);  // asks to stop, in vain
    m_Exporter.SetCallback(&calls);
    EXPECT_EQ(Loaded(Header(false, 2, 1, 2, 4), little), little);
    EXPECT_EQ(calls.m_Percents, (std::vector<int>{50, 100}));
    EXPECT_EQ(m_Exporter.GetVolume()->GetMin(), -2);
    EXPECT_EQ(m_Exporter.GetVolume()->GetMax(), 256);
    float spacing[4];
    m_Exporter.GetVolume()->GetSpacing(spacing);
    EXPECT_EQ((std::vector<float>(spacing, spacing + 4)), (std::vector<float>{0.5f, 0, 0, 1}));
    m_Exporter.SetCallback(nullptr);
    ASSERT_TRUE(Save(m_Exporter));
    EXPECT_EQ(ReadBack("vol.img"), std::string(8, '\0'));  // the voxels are lost, not so the header
    EXPECT_EQ(ReadBack("vol.hdr"), Header(true, 2, 1, 2, 4));

    EXPECT_EQ(Loaded(Header(true, 2, 1, 2, 4), big), little);
    ASSERT_TRUE(Save(m_Exporter));
    EXPECT_EQ(ReadBack("vol.img"), big.substr(4) + big.substr(0, 4));  // the slices change places
    EXPECT_EQ(Loaded(Header(true, 2, 1, 2, 2), "abcd"), "abcd");
    EXPECT_EQ(Loaded(Header(false, 1, 1, 2, 16), "abcdefgh"), "abcdefgh");
    EXPECT_EQ(Loaded(Header(true, 1, 1, 2, 16), "abcdefgh"), "badcfehg");  // floats too: only pairs are exchanged
}

TEST_F(CAnalyzeVolumeTest, RefusesOtherDataTypesByName) {
    const std::pair<int, std::string> cases[] = {{0, "BIT"},       {8, "I32"},       {32, "COMPLEX"},  {64, "DOUBLE"},
                                                 {1, "0 Unknown"}, {3, "0 Unknown"}, {-2, "0 Unknown"}};
    for (const auto& [code, name] : cases) {
        EXPECT_EQ(LoadError(Header(true, 1, 1, 1, code), ""), name + " data type not supported");
        EXPECT_NE(m_Exporter.GetVolume(), nullptr);  // a new one, without dimensions
    }
}

TEST_F(CAnalyzeVolumeTest, RefusesDamagedPairsInBoundedMemory) {
    const std::string good = Header(true, 2, 1, 2, 4);
    std::string marked = good;
    marked[252] = static_cast<char>(0xFF);                     // orient
    const std::pair<std::string, int> cases[] = {{good, EIO},  // the voxels are one byte short
                                                 {good.substr(0, 347), EIO},
                                                 {marked, EIO},
                                                 {Header(true, -1, -1, 2, 4), EINVAL},
                                                 {Header(true, 32767, 32767, 32767, 16), EIO}};
    for (const auto& [header, error] : cases) {
        EXPECT_EQ(LoadError(header, "1234567"), std::strerror(error)) << &header - &cases[0].first;
        EXPECT_EQ(m_Exporter.GetVolume(), nullptr);
    }
    EXPECT_EQ(ThrownText([this] { m_Exporter.Load(Path("none").c_str()); }), std::strerror(ENOENT));
    EXPECT_THROW(m_Exporter.ReadHeader(Path("none").c_str()), int);
    EXPECT_EQ(m_Exporter.GetHeader().dim[1], 32767);  // a failure leaves the header
}

TEST_F(CAnalyzeVolumeTest, LoadLetsGoOfASharedVolumeWithoutDestroyingIt) {
    m_Exporter = m_Series;
    CAnalyzeVolume copy(m_Exporter);
    Loaded(Header(true, 1, 1, 2, 2), "ab");
    EXPECT_EQ(m_pVolume->GetNRefs(), 1);
    EXPECT_NE(m_Exporter.GetVolume(), m_pVolume);
    EXPECT_TRUE(copy.Load(Path("vol").c_str()));  // a borrower: nothing of its source's to drop
    EXPECT_EQ(m_pVolume->GetNRefs(), 1);
}

}  // namespace
