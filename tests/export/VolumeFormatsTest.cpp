// Tests that all export formats share.
#include "export/ExportFixture.h"

#include <algorithm>
#include <cmath>

namespace {

// The differences of the formats: their files, that of the voxels last; the order of the voxels; when the callback is
// called.
template <class Exporter>
struct Format;
template <>
struct Format<CAnalyzeVolume> {
    static constexpr const char* files[] = {"vol.hdr", "vol.img"};
    static constexpr bool lowByteFirst = false, lastSliceFirst = true, asksBefore = true, staysOpen = false;
};
template <>
struct Format<CCBobVolume> {
    static constexpr const char* files[] = {"vol.header", "vol.ImageInfo", "vol.img"};
    static constexpr bool lowByteFirst = false, lastSliceFirst = false, asksBefore = true, staysOpen = false;
};
template <>
struct Format<CRTVizVolume> {
    static constexpr const char* files[] = {"vol.vox"};
    static constexpr bool lowByteFirst = true, lastSliceFirst = false, asksBefore = false, staysOpen = true;
};

// A writer that counts its objects and its files, and fails to open one of the files.
struct Gate : CFileWriter {
    explicit Gate(int refused = 0) : m_nRefused(refused) {}
    ~Gate() override { ++s_nDeaths; }
    bool Open(const char* path, const char* mode) override {
        m_bOpen = --m_nRefused != 0 && CFileWriter::Open(path, mode);
        return m_bOpen;
    }
    int Close() override { return m_bOpen = false, CFileWriter::Close(); }
    int m_nRefused;
    bool m_bOpen = false;
    static inline int s_nDeaths = 0;
};

template <class Exporter>
class VolumeFormatsTest : public ExportTest {
protected:
    VolumeFormatsTest() { m_Series.Range(300, 317); }
    bool Save() { return m_Exporter.Save(m_Folder.string().c_str(), "vol"); }
    // The voxels in the file: 36 bytes at its end, unless the save was stopped.
    std::string Voxels(std::size_t count = 36) {
        const std::string file = ReadBack(*std::rbegin(Format<Exporter>::files));
        return file.size() < count ? file : file.substr(file.size() - count);
    }
    TestSeries m_Series{TestSeries::Form{.first = 300}};
    CVolume& m_Volume = *m_Series.m_Series.GetVolume();
    Exporter m_Exporter;
};
using Formats = ::testing::Types<CAnalyzeVolume, CCBobVolume, CRTVizVolume>;
TYPED_TEST_SUITE(VolumeFormatsTest, Formats, );

TYPED_TEST(VolumeFormatsTest, SizeByteOrderSliceOrder) {
    this->m_Exporter = this->m_Series;
    ASSERT_TRUE(this->Save());
    std::string expected;
    for (int i = 0; i < 18; ++i) {
        const int value = std::is_same_v<TypeParam, CRTVizVolume> ? i : 300 + i;
        expected += Format<TypeParam>::lowByteFirst ? Bytes({value, value >> 8}) : Bytes({value >> 8, value});
    }
    if (Format<TypeParam>::lastSliceFirst) {
        expected = expected.substr(24) + expected.substr(12, 12) + expected.substr(0, 12);
    }
    EXPECT_EQ(this->Voxels(), expected);
    for (const char* file : Format<TypeParam>::files) std::filesystem::remove(this->Path(file));
    EXPECT_TRUE(this->m_Exporter.SaveUrl(("file:" + this->m_Folder.string() + "\\vol").c_str()));
    EXPECT_EQ(this->Voxels(), expected);
}

TYPED_TEST(VolumeFormatsTest, ProgressAndStop) {
    Stopper go(3, -1), stop(3, 66);
    auto* const gate = new Gate;
    this->m_Exporter = this->m_Series;
    this->m_Exporter.SetFileWriter(gate);
    this->m_Exporter.SetCallback(&go);
    EXPECT_TRUE(this->Save());
    EXPECT_EQ(go.m_Percents, "33 66 100 ");
    const std::size_t whole = this->ReadBack(*std::rbegin(Format<TypeParam>::files)).size();
    for (const char* file : Format<TypeParam>::files) std::filesystem::remove(this->Path(file));
    this->m_Exporter.SetCallback(&stop);
    EXPECT_TRUE(this->Save());  // stopping is done, not failed
    EXPECT_EQ(stop.m_Percents, "33 66 ");
    EXPECT_EQ(gate->m_bOpen, Format<TypeParam>::staysOpen);
    this->m_Exporter.SetFileWriter(nullptr);
    const std::size_t missing = 12 * (Format<TypeParam>::asksBefore ? 2 : 1);
    EXPECT_EQ(this->ReadBack(*std::rbegin(Format<TypeParam>::files)).size(), whole - missing);
}

TYPED_TEST(VolumeFormatsTest, FailsWithoutATargetAWriterAVolumePixels) {
    EXPECT_FALSE(this->Save());  // no volume yet
    this->m_Exporter = this->m_Series;
    int refused = 0;
    for (const char* file : Format<TypeParam>::files) {
        auto* const gate = new Gate(++refused);
        this->m_Exporter.SetFileWriter(gate);
        EXPECT_FALSE(this->Save()) << file;
        EXPECT_FALSE(gate->m_bOpen || std::filesystem::exists(this->Path(file)));
    }
    this->m_Exporter.SetFileWriter(new CFileWriter);
    EXPECT_FALSE(this->m_Exporter.SaveUrl(("file:" + this->Path("missing") + "\\vol").c_str()));
    this->m_Volume.Init(CVolume::PT_SHORT, 3, 2, 3, 1);  // planes without pixels
    this->m_Volume.SetMax(17);
    EXPECT_FALSE(this->Save());
    EXPECT_STREQ(this->m_Exporter.GetError(), "");
    this->m_Exporter.SetFileWriter(nullptr);
    EXPECT_FALSE(this->Save());
}

TYPED_TEST(VolumeFormatsTest, OwnsWriterAndReferenceAndACopyOwnsNothing) {
    Gate::s_nDeaths = 0;
    {
        TypeParam source;
        source = this->m_Series;
        source = this->m_Series;
        source.SetFileWriter(new Gate);
        EXPECT_EQ(this->m_Volume.GetNRefs(), 2);
        {
            TypeParam copy(source);
            EXPECT_TRUE(copy.Save(this->m_Folder.string().c_str(), "vol"));
            source = copy;  // what they share stays the source's
            TypeParam other;
            other = this->m_Series;
            other = copy;           // drops nothing that is shared
            copy = this->m_Series;  // a reference of its own
            EXPECT_EQ(this->m_Volume.GetNRefs(), 4);
            copy.SetFileWriter(new CFileWriter);
        }
        EXPECT_EQ(Gate::s_nDeaths, 0);
        EXPECT_EQ(this->m_Volume.GetNRefs(), 2);
        source.SetFileWriter(new Gate);
        EXPECT_EQ(Gate::s_nDeaths, 1);
    }
    EXPECT_EQ(Gate::s_nDeaths, 2);
    EXPECT_EQ(this->m_Volume.GetNRefs(), 1);
}

// The number that the mapping's formula gives, in the bits of the file.
int Mapped(const ExportMapping& mapping, int voxel) {
    const double number = std::trunc(voxel * mapping.scale + mapping.shift) + mapping.offset;
    const auto limited = static_cast<long long>(
        std::clamp(number, static_cast<double>(mapping.lowest), static_cast<double>(mapping.highest)));
    return static_cast<int>(limited & ((1 << mapping.bits) - 1));
}

TYPED_TEST(VolumeFormatsTest, TellsWhatItDoesToVoxels) {
    EXPECT_EQ(this->m_Exporter.GetMapping().bits, 0);  // no volume
    const std::map<Tag, std::string> rescale{{0x00281052, "-999.5"}, {0x00281053, "1.5"}};
    const TestSeries::Form forms[] = {
        {.first = -5},
        {.slices = 1, .bits = 8, .isSigned = 0, .first = 250, .texts = rescale},
        {.isSigned = 0, .first = 65500, .modality = "xa"},  // XA to one format, not to another
        {.isSigned = 0, .first = 32760, .modality = "XA", .texts = rescale},
        {.isSigned = 0, .first = 32760, .modality = "CT", .texts = rescale},
        {.first = -20, .modality = "CT", .texts = rescale},
        {.first = 21836, .texts = rescale},  // beyond signed numbers
        {.slices = 400, .first = -1200, .modality = "XA"}};
    for (const TestSeries::Form& form : forms) {
        const int voxels = form.slices * 6;
        TestSeries series(form);
        this->m_Exporter =
            series.Range(form.first, form.first + voxels - 1);  // never a new one: what stays is told too
        ASSERT_TRUE(this->Save());
        const ExportMapping mapping = this->m_Exporter.GetMapping();
        std::string expected;
        for (int i = 0; i < voxels; ++i) {
            const int slice = i / 6;
            const int place = Format<TypeParam>::lastSliceFirst ? i - 6 * slice + 6 * (form.slices - 1 - slice) : i;
            const int number = Mapped(mapping, form.first + place);
            if (mapping.bits == 8) {
                expected += Bytes({number});
            } else {
                expected +=
                    Format<TypeParam>::lowByteFirst ? Bytes({number, number >> 8}) : Bytes({number >> 8, number});
            }
        }
        EXPECT_TRUE(this->Voxels(expected.size()) == expected) << form.modality << form.first;
        for (const char* file : Format<TypeParam>::files) std::filesystem::remove(this->Path(file));
    }
    this->m_Volume.Init(CVolume::PT_FLOAT, 3, 2, 3, 1);
    this->m_Exporter = this->m_Series;
    EXPECT_EQ(this->m_Exporter.GetMapping().bits, 0);
    this->m_Volume.Init(CVolume::PT_SHORT, 3, 2, 3, 1);  // no pixels, and a range to be searched in them
    this->m_Volume.SetMin(9);
    this->m_Volume.SetMax(-9);
    EXPECT_NO_THROW(this->m_Exporter.GetMapping());
    EXPECT_FALSE(this->Save());
}

}  // namespace
