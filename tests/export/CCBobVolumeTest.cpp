#include "export/ExportFixture.h"

namespace {

constexpr Tag kDate = 0x00080021, kPosition = 0x00185100, kThickness = 0x00180050, kName = 0x00100010;
using Texts = std::map<Tag, std::string>;

class CCBobVolumeTest : public ExportTest {
protected:
    bool Save(CDicomVolume& series) {
        m_Exporter = series;
        return m_Exporter.Save(m_Folder.string().c_str(), "vol");
    }
    std::string Saved(const TestSeries::Form& form, const char* file) {
        TestSeries series(form);
        std::filesystem::remove(Path(file));
        EXPECT_TRUE(Save(series));
        return ReadBack(file);
    }
    // The value behind a label of the header or of the first slice's block.
    std::string Value(const std::string& label, const TestSeries::Form& form, const char* file = "vol.header") {
        const std::string text = Saved(form, file);
        const std::size_t start = text.find("\t" + label + " ") + label.size() + 4;
        return text.substr(start, text.find('\n', start) - start);
    }
    std::string Value(const std::string& label, Tag tag, const std::string& text) {
        return Value(label, {.texts = {{tag, text}}});
    }
    CCBobVolume m_Exporter;
};

TEST_F(CCBobVolumeTest, WritesItsTextsByteForByte) {
    const Texts texts{{kDate, "20061116"},      {kName, "Rossi^Anna"}, {0x00100020, "77"},
                      {0x00080080, "Ospedale"}, {0x00080070, "Maker"}, {kPosition, "FFS"},
                      {kThickness, "2.5"},      {0x00281052, "-1"},    {0x00281053, "2"}};
    TestSeries series({.slices = 2, .first = -3, .texts = texts, .x = -12.34, .y = 5, .z = 1});
    ASSERT_TRUE(Save(series.Range(-3, 8)));
    EXPECT_EQ(
        ReadBack("vol.header"),
        "\tbyte_order = 1;\n\tt_dim = 1 ;\n\tx_dim = 3 ;\n\ty_dim = 2 ;\n\tz_dim = 2 ;\n"
        "\tdatatype = 1 ;\n\tbitpix = 16 ;\n\tbytes_pix = 2 ;\n\tvol_max = 15 ;\n\tvol_min = 0 ;\n"
        "\tt_pixdim = 0.000000 ;\n\tx_pixdim = 0.050000 ;\n\ty_pixdim = 0.075000 ;\n\tz_pixdim = 0.200000 ;\n"
        "\tt_start = 0 ;\n\tx_start = 0 ;\n\ty_start = 0 ;\n\tz_start = -0.100000 ;\n"
        "\tz_time = 0 ;\n\tid = 0 ;\n\torientation = 0 ;\n"
        "\tdim_units : cm\n\tvoxel_type : \n\tdata_type : short\n\tvol_type : \n"
        "\tdb_name : Rossi^Anna\n\tmedical_record_num : 77\n\toriginator : Ospedale\n\tdate : 11/16/2006\n"
        "\tscanner_id : Maker\n\tpatient_position : FFS\n\tcomment : \n"
        "\tfname_format : \n\tfname_index_start = 0 ;\n\tfname_index_delta = 0 ;\n\tbinary_header_size = 0 ;\n\n");
    const auto block = [](const std::string& z) {
        return "ImageInfo = {\n\tXDim = 3 ;\n\tYDim = 2 ;\n\tXPixelDim = 0.050000 ;\n\tYPixelDim = 0.075000 ;\n"
               "\tSliceThickness = 0.250000 ;\n\tXStart = -1.234000 ;\n\tYStart = 0.500000 ;\n"
               "\tTablePosition = " +
               z + " ;\n\tScanType = 0;\n\n}; // ImageInfo\n\n";
    };
    EXPECT_EQ(ReadBack("vol.ImageInfo"), block("-0.100000") + block("0.100000"));
    EXPECT_EQ(ReadBack("vol.img"), Bytes({0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 3, 0, 5, 0, 7, 0, 9, 0, 11, 0, 13, 0, 15}));
    const TestSeries::Form down{.z = 3, .reverse = true};  // planes at 1, -1, -3
    EXPECT_EQ(Value("z_start", down), "-0.300000 ;");
    EXPECT_EQ(Value("TablePosition", down, "vol.ImageInfo"), "-0.100000 ;");
}

TEST_F(CCBobVolumeTest, TakesDatesOfTwoLengthsEightPositionsAndBoundedTexts) {
    for (const char* date : {"2006.11.16", "20061116", "2007111", ""}) {
        EXPECT_EQ(Value("date", kDate, date), "11/16/2006") << date;  // left as it was by the last two
    }
    for (const char* known : {"HFP", "HFDR", "FFDR", "FFP", "HFS", "HFDL", "FFDL", "FFS"}) {
        EXPECT_EQ(Value("patient_position", kPosition, known), known);
    }
    for (const char* other : {"LFP", "", "F", "HFP|HFDR"}) {
        EXPECT_EQ(Value("patient_position", kPosition, other), "HFS");
    }
    EXPECT_EQ(Value("db_name", kName, std::string(400, 'n')), std::string(255, 'n'));
    EXPECT_EQ(Value("db_name", kName, "A\nx_dim = 7 ;"), "A x_dim = 7 ;");
    EXPECT_EQ(Value("db_name", {}), "");  // another patient's
    EXPECT_EQ(Value("SliceThickness", {.texts = {{kThickness, "abc"}}}, "vol.ImageInfo"), "0.000000 ;");
}

TEST_F(CCBobVolumeTest, MapsVoxelsToModalityUnitsOfEachModality) {
    const auto rescale = [](const char* intercept, const char* slope) {
        return Texts{{0x00281052, intercept}, {0x00281053, slope}};
    };
    const Texts air = rescale("-1024", "1");
    const struct {
        int first, bits, isSigned;
        const char* modality;
        Texts texts;
        std::string stored;  // of first and first + 1
    } cases[] = {
        {-1024, 16, 1, "CT", air, Bytes({0, 0, 0, 0})},
        {258, 16, 1, "CT", air, Bytes({1, 2, 1, 3})},  // nothing adds up from series to series
        {5, 16, 1, "CT", {}, Bytes({4, 5, 4, 6})},
        {2048, 16, 1, "MR", air, Bytes({4, 0, 4, 1})},
        {32766, 16, 1, "CT", {}, Bytes({0x83, 0xFE, 0x83, 0xFF})},     // the low 16 bits, not clamped
        {3, 16, 1, "MR", rescale("0.5", "1.5"), Bytes({0, 5, 0, 6})},  // truncated
        {3, 16, 0, "MR", rescale("1e30", "-1e30"), Bytes({0, 0, 0, 0})},
        {32767, 16, 0, "MR", {}, Bytes({0x7F, 0xFF, 0x7F, 0xFF})},
        {3, 16, 0, "MR", air, Bytes({0, 0, 0, 0})},
        {65534, 16, 0, "XA", {}, Bytes({0x7F, 0xFF, 0x7F, 0xFF})},
        {514, 16, 0, "XA", {}, Bytes({1, 1, 1, 1})},  // halved, truncated
        {514, 16, 1, "XA", {}, Bytes({2, 2, 2, 3})},
        {254, 8, 0, "CT", air, Bytes({0, 254, 0, 255})},  // bytes stay
    };
    for (const auto& [first, bits, isSigned, modality, texts, stored] : cases) {
        EXPECT_EQ(Saved({.slices = 1,
                         .bits = bits,
                         .isSigned = isSigned,
                         .first = first,
                         .modality = modality,
                         .texts = texts,
                         .rows = 1,
                         .columns = 2},
                        "vol.img"),
                  stored)
            << modality << first;
    }
}

TEST_F(CCBobVolumeTest, OverwritesNothingAndStaysWithinTheSlices) {
    TestSeries series(TestSeries::Form{.texts = {{kThickness, "4"}}});
    MakeFile("vol.ImageInfo", "mine");
    EXPECT_TRUE(Save(series));
    series.m_Series.GetVolume()->Init(CVolume::PT_BYTE, 1, 1, 2, 1);  // fewer than data sets
    series.m_Series.GetVolume()->Alloc(true);
    EXPECT_TRUE(Save(series));
    EXPECT_EQ(ReadBack("vol.ImageInfo"), "mine");
    EXPECT_EQ(ReadBack("vol.img").size() + ReadBack("vol.01.img").size(), 36U + 4U);
    for (const char* file : {"vol.header", "vol.01.header", "vol.01.ImageInfo", "vol.02.ImageInfo"}) {
        EXPECT_GT(ReadBack(file).size(), 100u) << file;
    }
}

}  // namespace
