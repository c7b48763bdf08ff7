// Values that stay in the file: whatever is done with them gives what it gives of a data set that was read whole.
#include "../Refuses.h"
#include "FolderTest.h"
#include "MadeData.h"

#include <Korvane/kit/dataset/DataSet.h>
#include <Korvane/kit/dataset/Dump.h>
#include <Korvane/kit/dataset/LeftValues.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

using namespace korvane;

namespace {

constexpr std::uint32_t kLarger = 1000;
constexpr ReadOptions kLeaving{.leaveLarger = kLarger};

// Large values of every width, at the top, behind the pixels and in items.
DataSet Made() {
    DataSet set;
    set.Set("SpecificCharacterSet", "ISO_IR 100");
    set.Set("SOPClassUID", "1.2.840.10008.5.1.4.1.1.2");
    set.Set("SOPInstanceUID", "1.2.3.4");
    set.Set("PixelRepresentation", "1");
    set.SetBytes("00020102", Pattern(2000, 8), "OB");
    set.SetBytes("IconImageSequence[0].PixelData", Pattern(7000, 1), "OW");
    set.Set("IconImageSequence[0].Rows", "50");
    set.SetBytes("0011,0010", std::vector<unsigned char>{'M', 'E'}, "LO");
    set.SetBytes("0011,1001", Pattern(5000, 2), "UN");
    set.SetBytes("RedPaletteColorLookupTableData", Pattern(3000, 3), "OW");
    set.SetBytes("SpectroscopyData", Pattern(4096, 4), "OF");
    set.SetBytes("SimpleFrameList", Pattern(2000, 7), "UL");
    set.Set("TextValue", "\xC3\xA9" + std::string(2000, 'x'));
    set.SetBytes("PixelData", Pattern(3'000'000, 5), "OW");
    set.SetBytes("DataSetTrailingPadding", Pattern(2000, 6), "OB");
    return set;
}

std::string BytesOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string Dumped(const std::string& path, DumpForm form, bool whole) {
    std::ostringstream out;
    Dump(path, out, {.form = form, .whole = whole});
    return out.str();
}

class LeftValuesTest : public FolderTest {};

TEST_F(LeftValuesTest, AllThatIsAskedIsAsIfItHadBeenRead) {
    for (const char* const syntax : {"explicit", "implicit", "big"}) {
        SCOPED_TRACE(syntax);
        const std::string path = Path(syntax);
        Made().Save(path, {.syntax = syntax});
        const DataSet whole = DataSet::Read(path);
        const auto leaving = [&path] { return DataSet::Read(path, kLeaving); };
        const DataSetFile file = ReadDataSetFile(path, kParseAll, {}, {}, kLarger);
        std::size_t left = 0;
        for (const char* const name :
             {"RedPaletteColorLookupTableData", "SpectroscopyData", "SimpleFrameList", "PixelData", "TextValue"})
            left += IsLeft(*FindElement(*file.dataSet, ElementPath(name).GetTag())) ? 1 : 0;
        EXPECT_EQ(left, 4U);  // of a text it must be known whether it decodes
        EXPECT_TRUE(file.complete && file.findings.empty());

        EXPECT_TRUE(leaving() == whole && whole == leaving().Clone());
        EXPECT_EQ(leaving().ToJson(true), whole.ToJson(true));
        EXPECT_EQ(leaving().Integers("SimpleFrameList"), whole.Integers("SimpleFrameList"));
        EXPECT_EQ(leaving().Items("IconImageSequence").at(0).Text("Rows"), "50");
        EXPECT_EQ(leaving().Bytes("PixelData").size(), 3'000'000U);
        EXPECT_EQ(DataSet::FromToolkit(leaving().ReleaseToolkit()), whole);
        for (const char* const target : {"", "explicit", "implicit", "big"}) {
            EXPECT_EQ(Saved(leaving(), target), Saved(whole, target)) << target;
        }
    }
}

TEST_F(LeftValuesTest, DumpsShowWhatIsThere) {
    const std::string path = Path("made");
    Made().Save(path);
    const std::string lines = Dumped(path, DumpForm::Lines, false);
    EXPECT_NE(lines.find("(7FE0,0010) OW  3000000  Pixel Data                            05 24 43 62"),
              std::string::npos)
        << lines;
    EXPECT_LT(lines.size(), 5000U);
    EXPECT_GT(Dumped(path, DumpForm::Lines, true).size(), 9'000'000U);
    DataSet again = DataSet::FromJson(Dumped(path, DumpForm::Json, false));
    EXPECT_TRUE(std::ranges::equal(again.Bytes("PixelData"), Made().Bytes("PixelData")));
    EXPECT_NE(Dumped(path, DumpForm::Xml, false).find("keyword=\"SpectroscopyData\""), std::string::npos);
}

TEST_F(LeftValuesTest, FragmentsAreLeftAndCopied) {
    DataSet set = Made();
    set.Delete("PixelData");
    set.Set("TransferSyntaxUID", "1.2.840.10008.1.2.4.50");
    const std::vector<std::vector<unsigned char>> fragments = {
        {}, Pattern(2'000'000, 128), Pattern(10, 10), Pattern(2048)};
    const std::string path = Path("made");
    WithFragments(std::move(set), fragments).Save(path);
    const DataSet whole = DataSet::Read(path);
    DataSet left = DataSet::Read(path, {.leaveLarger = 100'000});
    EXPECT_EQ(left.ToJson(), whole.ToJson());
    EXPECT_NE(Dumped(path, DumpForm::Lines, false).find("fragment 2  2000000  80 9F"), std::string::npos);
    left.Set("PatientID", "edited");
    left.Save(path);
    DataSet edited = DataSet::Read(path);
    EXPECT_EQ(edited.Text("PatientID"), "edited");
    edited.Delete("PatientID");
    EXPECT_EQ(edited, whole);
}

TEST_F(LeftValuesTest, WhatAHostRefersToIsNoPlaceInAFile) {
    auto made = std::make_unique<DICOMDataObject>();
    int own = 0;
    auto* const element = new VR(tags::PixelData, 4000, 0);
    element->m_TypeCode = TypeCode("OW");
    element->m_pReference = &own;
    made->Push(element);
    const DataSet set = DataSet::FromToolkit(std::move(made));
    EXPECT_TRUE(set.Bytes("PixelData").empty());
    EXPECT_EQ(Saved(set).size() % 2, 0U);
}

TEST_F(LeftValuesTest, AFileMayBeSavedOntoItself) {
    const std::string path = Path("made");
    Made().Save(path);
    DataSet set = DataSet::Read(path, kLeaving);
    DataSet expected = DataSet::Read(path);
    for (DataSet* const one : {&set, &expected}) one->Set("PatientName", "New^Name");
    set.Save(path);
    EXPECT_EQ(BytesOf(path), Saved(expected));
    // What is there now is another file: the old places mean nothing in it.
    EXPECT_EQ(Refuses([&] { set.Bytes("PixelData"); }, ErrorKind::Disk), path);
    EXPECT_EQ(Refuses([&] { static_cast<void>(set == expected); }, ErrorKind::Disk), path);
}

TEST_F(LeftValuesTest, AFileThatChangedOrWentIsTold) {
    const std::string path = Path("made");
    const std::string other = Path("other");
    for (const bool gone : {false, true}) {
        Made().Save(path);
        std::ofstream(other) << "old";
        DataSet set;
        set = DataSet::Read(path, kLeaving);  // what moves still leaves its values where they are
        if (gone) {
            std::filesystem::remove(path);
        } else {
            std::filesystem::resize_file(path, 2'000'000);
        }
        EXPECT_EQ(Refuses([&] { set.Save(other); }, ErrorKind::Disk), path);
        EXPECT_EQ(Refuses([&] { set.ToJson(); }, ErrorKind::Disk), path);
        EXPECT_EQ(Refuses([&] { static_cast<void>(set.Clone().Toolkit()); }, ErrorKind::Disk), path);
        EXPECT_EQ(BytesOf(other), "old");
        EXPECT_EQ(set.Integer("PixelRepresentation"), 1);
    }
    for (const auto& entry : std::filesystem::directory_iterator(m_Folder)) EXPECT_EQ(entry.path().filename(), "other");
}

TEST_F(LeftValuesTest, ACutFileIsAsCutAsEver) {
    const std::string path = Path("made");
    Made().Save(path);
    for (const std::uintmax_t size : {std::uintmax_t{2'000'001}, std::uintmax_t{9001}, std::uintmax_t{1601}}) {
        std::filesystem::resize_file(path, size);
        const DataSet whole = DataSet::Read(path);
        const DataSet left = DataSet::Read(path, kLeaving);
        EXPECT_EQ(left, whole) << size;
        EXPECT_EQ(Saved(left), Saved(whole)) << size;
        EXPECT_FALSE(left.GetReport().complete);
        ASSERT_EQ(left.GetReport().findings.size(), whole.GetReport().findings.size());
        EXPECT_EQ(left.GetReport().findings.at(0).text, whole.GetReport().findings.at(0).text);
    }
}

// Such elements are written in another way than all others.
TEST_F(LeftValuesTest, MetaInformationAmongOtherElementsIsReadWhole) {
    const std::string path = Path("made");
    const std::string begin = std::string(128, '\0') + "DICM" + std::string("\x01\0\x01\0LO\x04\0abcd", 12);
    std::ofstream(path, std::ios::binary)
        << begin << std::string("\x02\0\0\x1BOB\0\0\0\0\1\0", 12) << std::string(2000, 'x');
    const DataSet left = DataSet::Read(path, kLeaving);
    EXPECT_EQ(left.Bytes("00021B00").size(), 2000U);
    EXPECT_EQ(Saved(DataSet::Read(path, kLeaving)), Saved(DataSet::Read(path)));
}

}  // namespace
