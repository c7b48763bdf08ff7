#include "export/ExportFixture.h"

namespace {

constexpr std::size_t kFields = 43;

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

/// Writes to disk, refuses where it is told to, and notes the counts that it was asked for.
struct StubbornWriter : CFileWriter {
    bool Open(const char* path, const char* mode) override {
        return ++m_nOpens != m_nFailingOpen && CFileWriter::Open(path, mode);
    }
    int Close() override {
        ++m_nCloses;
        CFileWriter::Close();
        return EOF;  // which nobody looks at
    }
    unsigned Write(void* buf, unsigned size, unsigned count) override {
        EXPECT_EQ(size, 1u);
        m_Counts.push_back(count);
        return CFileWriter::Write(buf, 1, m_Counts.size() == m_nFailingWrite ? count - 1 : count);
    }
    std::vector<unsigned> m_Counts;
    std::size_t m_nFailingWrite = 0;
    int m_nOpens = 0, m_nFailingOpen = 0, m_nCloses = 0;
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
    StubbornWriter* Stub(CAnalyzeVolume& exporter) {
        auto* const writer = new StubbornWriter;
        exporter.SetFileWriter(writer);
        return writer;
    }
    void MakePair(const std::string& header, const std::string& voxels) {
        MakeFile("vol.hdr", header);
        MakeFile("vol.img", voxels);
    }
    std::string LoadError(CAnalyzeVolume& exporter) {
        return ThrownText([&] { exporter.Load(Path("vol").c_str()); });
    }
    template <class Voxel>
    std::vector<Voxel> Loaded(CAnalyzeVolume& exporter, int plane, int count) {
        EXPECT_EQ(LoadError(exporter), "nothing thrown");
        const auto* const voxels = static_cast<const Voxel*>(exporter.GetVolume()->GetPlane(plane)->m_pData);
        return {voxels, voxels + count};
    }
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
    TestSeries series(SeriesForm{});
    CAnalyzeVolume exporter;
    EXPECT_FALSE(Save(exporter));  // no volume yet
    exporter = series;
    for (const int open : {1, 2}) {
        Stub(exporter)->m_nFailingOpen = open;
        EXPECT_FALSE(Save(exporter));
        EXPECT_EQ(Exists("vol.hdr"), open == 2);  // the header stays when the data file fails
        EXPECT_FALSE(Exists("vol.img"));
    }
    const std::size_t writes = kFields + 3 * 2;
    for (std::size_t failing = 1; failing <= writes + 1; ++failing) {
        auto* const writer = Stub(exporter);
        writer->m_nFailingWrite = failing;
        EXPECT_EQ(Save(exporter), failing > writes) << failing;
        EXPECT_EQ(writer->m_nCloses, writer->m_nOpens);
        EXPECT_EQ(writer->m_Counts.size(), std::min(failing, writes));
        EXPECT_EQ(writer->m_Counts.back(), failing > kFields ? 6u : writer->m_Counts.back());
    }
    EXPECT_STREQ(exporter.GetError(), "");
    series.Volume()->Init(CVolume::PT_SHORT, 3, 2, 3, 1);  // planes without pixels
    EXPECT_FALSE(Save(exporter));
    series.Volume()->Init(CVolume::PT_SHORT, 4, 2, 3, 1);  // the header is of another matrix
    EXPECT_FALSE(Save(exporter));
}

TEST_F(CAnalyzeVolumeTest, StopsBeforeASliceAndCallsThatDone) {
    TestSeries series(SeriesForm{});
    CAnalyzeVolume exporter;
    Stopper stopper(3, 2);
    exporter.SetCallback(&stopper);
    EXPECT_EQ(Voxels(series, exporter).size(), 12u);  // one slice of three
    EXPECT_EQ(stopper.m_Percents, (std::vector<int>{33, 66}));
}

TEST_F(CAnalyzeVolumeTest, LoadsBothByteOrdersFirstSliceFirst) {
    for (const bool big : {false, true}) {
        MakePair(Header(big, 2, 1, 2, 4),
                 big ? Bytes({0, 1, 255, 254, 1, 0, 0, 9}) : Bytes({1, 0, 254, 255, 0, 1, 9, 0}));
        CAnalyzeVolume exporter;
        EXPECT_EQ(Loaded<std::int16_t>(exporter, 0, 2), (std::vector<std::int16_t>{1, -2}));
        Stopper calls(2, 1);  // asks to stop, in vain
        exporter.SetCallback(&calls);
        EXPECT_EQ(Loaded<std::int16_t>(exporter, 1, 2), (std::vector<std::int16_t>{256, 9}));
        EXPECT_EQ(calls.m_Percents, (std::vector<int>{50, 100}));
        EXPECT_EQ(exporter.GetVolume()->GetMin(), -2);
        EXPECT_EQ(exporter.GetVolume()->GetMax(), 256);
        float spacing[4];
        exporter.GetVolume()->GetSpacing(spacing);
        EXPECT_EQ((std::vector<float>(spacing, spacing + 4)), (std::vector<float>{0.5f, 0, 0, 1}));

        // Saved again the slices change places, and those of a little-endian pair lose their voxels.
        exporter.SetCallback(nullptr);
        ASSERT_TRUE(Save(exporter));
        EXPECT_EQ(ReadBack("vol.img"), big ? Bytes({1, 0, 0, 9, 0, 1, 255, 254}) : std::string(8, '\0'));
        EXPECT_EQ(ReadBack("vol.hdr"), Header(true, 2, 1, 2, 4));
    }
    CAnalyzeVolume exporter;
    MakePair(Header(true, 2, 1, 1, 2), "ab");
    EXPECT_EQ(Loaded<char>(exporter, 0, 2), (std::vector<char>{'a', 'b'}));
    MakePair(Header(false, 1, 1, 1, 16), Bytes({0, 0, 0xC0, 0x3F}));
    EXPECT_EQ(Loaded<float>(exporter, 0, 1), std::vector<float>{1.5f});
    MakePair(Header(true, 1, 1, 1, 16), "abcd");  // big-endian floats come out with their halves in place
    EXPECT_EQ(Loaded<char>(exporter, 0, 4), (std::vector<char>{'b', 'a', 'd', 'c'}));
}

TEST_F(CAnalyzeVolumeTest, RefusesOtherDataTypesByName) {
    const std::pair<int, std::string> cases[] = {{0, "BIT"},     {8, "I32"},     {32, "COMPLEX"}, {64, "DOUBLE"},
                                                 {1, "Unknown"}, {3, "Unknown"}, {65, "Unknown"}, {-2, "Unknown"}};
    for (const auto& [code, name] : cases) {
        MakePair(Header(true, 1, 1, 1, code), "");
        CAnalyzeVolume exporter;
        const std::string error = LoadError(exporter);
        EXPECT_EQ(name == "Unknown" ? error.substr(error.find(' ') + 1) : error, name + " data type not supported");
        EXPECT_NE(exporter.GetVolume(), nullptr);  // a new one, without dimensions
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
    CAnalyzeVolume exporter;
    for (const auto& [header, error] : cases) {
        MakePair(header, "1234567");
        EXPECT_EQ(LoadError(exporter), std::strerror(error)) << &header - &cases[0].first;
        EXPECT_EQ(exporter.GetVolume(), nullptr);
    }
    std::filesystem::remove(Path("vol.img"));
    MakeFile("vol.hdr", good);
    EXPECT_EQ(LoadError(exporter), std::strerror(ENOENT));
    EXPECT_THROW(exporter.ReadHeader(Path("none").c_str()), int);
    EXPECT_EQ(exporter.GetHeader().dim[1], 2);  // a failure leaves the header
}

TEST_F(CAnalyzeVolumeTest, LoadLetsGoOfASharedVolumeWithoutDestroyingIt) {
    TestSeries series(SeriesForm{});
    CAnalyzeVolume exporter;
    exporter = series;
    ASSERT_TRUE(Save(exporter));
    CAnalyzeVolume copy(exporter);  // a borrower: nothing of its source's to drop
    EXPECT_EQ(Loaded<std::int16_t>(copy, 2, 1)[0], 0);
    EXPECT_EQ(series.Volume()->GetNRefs(), 2);
    EXPECT_EQ(Loaded<std::int16_t>(exporter, 2, 1)[0], 0);  // reversed
    EXPECT_EQ(series.Volume()->GetNRefs(), 1);
}

}  // namespace
