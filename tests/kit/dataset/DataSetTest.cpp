#include "../Refuses.h"
#include "MadeData.h"

#include <Korvane/kit/dataset/DataSet.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

using namespace korvane;

namespace {

DataSet Patient() {
    DataSet set;
    set.Set("SpecificCharacterSet", "\\ISO 2022 IR 87");
    set.Set("SOPClassUID", "1.2.840.10008.5.1.4.1.1.2");
    set.Set("SOPInstanceUID", "1.2.3.4");
    set.Set("PatientName", "Yamada^Tarou=\xE5\xB1\xB1\xE7\x94\xB0^\xE5\xA4\xAA\xE9\x83\x8E");
    set.Set("StudyDate", "20240229");
    set.Set("StudyTime", "1359");
    set.Set("Rows", "512");
    set.Set("PixelSpacing", std::vector<double>{0.1 + 0.2, 1.0 / 3});
    set.Set("ReferencedSeriesSequence[0].SeriesInstanceUID", "1.2.3");
    set.SetBytes("0011,1010", std::vector<unsigned char>{1, 2, 3, 4}, "UN");
    return set;
}

DataSet Parsed(const std::string& bytes, const ReadOptions& options = {}) {
    return DataSet::Parse({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, options);
}

TEST(DataSetTest, WhatWasMovedFromIsEmpty) {
    DataSet set = Patient();
    const DataSetView item = set.Items("ReferencedSeriesSequence").at(0);
    DataSet other = std::move(set);
    EXPECT_EQ(item.Text("SeriesInstanceUID"), "1.2.3");  // lies in the other one now
    // NOLINTBEGIN(bugprone-use-after-move): what was moved from is empty, and can be used
    EXPECT_EQ(set.Text("PatientName"), "");
    set.Set("Modality", "CT");
    EXPECT_EQ(other.Text("Modality"), "");
    other = std::move(set);
    EXPECT_EQ(other.Text("Modality") + other.Text("StudyDate") + set.Text("Modality"), "CT");
    // NOLINTEND(bugprone-use-after-move)
}

TEST(DataSetTest, TypedValues) {
    const DataSet set = Patient();
    EXPECT_EQ(set.Text("PatientName").substr(0, 16), "Yamada^Tarou=\xE5\xB1\xB1");
    EXPECT_EQ(set.Integer("Rows"), 512);
    EXPECT_EQ(set.Bytes("Rows").size(), 2U);
    EXPECT_EQ(set.Text("PixelSpacing"), "0.3\\0.33333333333333");  // 16 characters at most
    EXPECT_NEAR(set.Reals("0028,0030").at(1), 1.0 / 3, 1e-14);
    EXPECT_EQ(set.Date("StudyDate"), std::chrono::year(2024) / 2 / 29);
    EXPECT_EQ(set.Time("StudyTime"), std::chrono::minutes(13 * 60 + 59));
    DataSet moments = set.Clone();
    const auto at = [&](const char* text) {
        moments.SetUnchecked("AcquisitionDateTime", text);
        return moments.DateAndTime("AcquisitionDateTime");
    };
    EXPECT_EQ(at("20240229135900.25-0330")->time, std::chrono::milliseconds((13 * 60 + 59) * 60000 + 250));
    EXPECT_EQ(at("20240229135900.25-0330")->offset, std::chrono::minutes(-210));
    EXPECT_EQ(at("2024022913:59:00.2500001")->time, at("20240229135900.25-0330")->time);  // colons: of old files
    EXPECT_EQ(at("20240229")->time.count() + (at("20240229")->offset ? 1 : 0), 0);
    EXPECT_EQ(at("2024022913+0200")->date.day(), std::chrono::day(29));
    for (const char* const none : {"2024", "20230229", "2024022925", "20240229135900-9", "20240229135900+1500", "-0330",
                                   "20240229123", "202402291359.5"})
        EXPECT_FALSE(at(none)) << none;
    EXPECT_EQ(set.Items("ReferencedSeriesSequence").at(0).Text("SeriesInstanceUID"), "1.2.3");
    EXPECT_FALSE(set.Real("SliceThickness").has_value());
    Refuses([&] { set.Real("PixelSpacing"); }, ErrorKind::Damaged);
    Refuses([&] { set.Real("PatientName"); }, ErrorKind::Damaged);
    Refuses([&] { set.Text("PatientNam"); }, ErrorKind::WrongArgument);
}

TEST(DataSetTest, SettersKeepTheStandard) {
    DataSet set = Patient();
    for (const auto& [path, value] :
         std::vector<std::pair<const char*, const char*>>{{"Rows", "70000"},
                                                          {"Rows", "1\\2"},
                                                          {"PixelSpacing", "1"},
                                                          {"StudyDate", "2024-01-01"},
                                                          {"PatientSex", "male"},
                                                          {"SOPInstanceUID", "1.x"},
                                                          {"ReferencedSeriesSequence", "a"},
                                                          {"ReferencedSeriesSequence[5].SeriesInstanceUID", "1"},
                                                          {"0011,1020", "a"},
                                                          {"PatientID", "\xD0\x9B\xF0\x9F\x98\x80"}}) {
        Refuses([&, &place = path, &text = value] { set.Set(place, text); }, ErrorKind::WrongArgument);
    }
    EXPECT_EQ(set, Patient());
    EXPECT_TRUE(set.Delete("PatientName"));
    EXPECT_FALSE(set.Delete("PatientName"));
    EXPECT_FALSE(set.Has("PatientName"));
}

// Every syntax gives back what was saved, and saving leaves the set alone.
TEST(DataSetTest, SavingLosesNothing) {
    const DataSet set = Patient();
    for (const char* const syntax : {"implicit", "explicit", "big"}) {
        const DataSet read = Parsed(Saved(set, syntax));
        EXPECT_EQ(set, Patient());
        for (const char* const path :
             {"PatientName", "Rows", "PixelSpacing", "ReferencedSeriesSequence[0].SeriesInstanceUID"}) {
            EXPECT_EQ(read.Text(path), set.Text(path)) << syntax << ' ' << path;
        }
        EXPECT_EQ(read.Bytes("0011,1010").size(), 4U) << syntax;
        EXPECT_TRUE(read.GetReport().complete && read.GetReport().findings.empty());
    }
    const std::string path = (std::filesystem::temp_directory_path() / "korvane-dataset-test.dcm").string();
    set.Save(path);
    Refuses([&] { set.Save(path + "/below"); }, ErrorKind::Disk);
    Refuses([&] { set.Save(path, {.syntax = "1.2.3"}); }, ErrorKind::Unsupported);
    EXPECT_EQ(DataSet::Read(path).Text("PatientName"), set.Text("PatientName"));
    std::filesystem::remove(path);
}

TEST(DataSetTest, JsonBothWays) {
    const DataSet set = Patient();
    const DataSet back = DataSet::FromJson(set.ToJson());
    EXPECT_EQ(back.ToJson(), set.ToJson());
    EXPECT_EQ(back.Text("PatientName"), set.Text("PatientName"));
    for (const char* const json : {"", "[]", "{\"0010\":{}}", "{\"00100010\":{\"vr\":\"PN\",\"InlineBinary\":\"a\"}}",
                                   "{\"00100010\":{\"vr\":[\"PN\"]}}", "{\"00100010\":\"A^B\"}",
                                   "{\"00100010\":{\"vr\":\"PN\",\"Value\":\"A\"}}"}) {
        Refuses([&] { DataSet::FromJson(json); }, ErrorKind::Damaged);
    }
    // A value that is elsewhere is not an empty one.
    const DataSet partly = DataSet::FromJson(R"({"7FE00010":{"vr":"OW","BulkDataURI":"file:x"}})");
    EXPECT_FALSE(partly.Has("PixelData") || partly.GetReport().complete);
    EXPECT_EQ(partly.GetReport().findings.size(), 1U);
}

bool Tells(const DataSet& set, FindingKind kind) {
    for (const Finding& finding : set.GetReport().findings) {
        if (finding.kind == kind) return true;
    }
    return false;
}

std::string Replaced(std::string bytes, const std::string& from, const std::string& to) {
    const std::size_t at = bytes.find(from);
    EXPECT_NE(at, std::string::npos);
    return bytes.replace(at, from.size(), to);
}

TEST(DataSetTest, WhatIsForgivenIsTold) {
    const std::string implicit = Saved(Patient(), "implicit");
    const std::string explicitly = Saved(Patient(), "explicit");
    const std::string name = Patient().Text("PatientName");
    using namespace std::string_literals;

    const DataSet other = Parsed(Replaced(implicit, "1.2.840.10008.1.2\0"s, "1.2.840.10008.1.2.1\0"s.substr(0, 18)));
    EXPECT_EQ(other.Text("PatientName"), name);

    // Implicit items in an explicit data set: the length field takes the place of letters and short length.
    const DataSet mixed = Parsed(Replaced(explicitly, "\x20\0\x0E\0UI\x06\0"s, "\x20\0\x0E\0\x06\0\0\0"s));
    EXPECT_EQ(mixed.Text("ReferencedSeriesSequence[0].SeriesInstanceUID"), "1.2.3");
    EXPECT_TRUE(Tells(mixed, FindingKind::MixedEncoding) && mixed.GetReport().complete);
    EXPECT_EQ(mixed.Text("Rows"), "512");

    const DataSet trailing = Parsed(explicitly + "\0\0\0\0\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(trailing.Text("Rows"), "512");

    const DataSet cut = Parsed(explicitly.substr(0, explicitly.size() - 1));
    EXPECT_TRUE(Tells(cut, FindingKind::EndsEarly) && !cut.GetReport().complete);
    EXPECT_EQ(cut.Text("PatientName"), name);

    const DataSet bare = Parsed(explicitly.substr(explicitly.find("\x08\0\x05\0CS"s)));
    EXPECT_TRUE(Tells(bare, FindingKind::NoMeta));
    EXPECT_EQ(bare.Text("PatientName"), name);
    Refuses([] { Parsed("not DICOM at all, though long enough"); }, ErrorKind::NotDicom);

    // Every cut of the file is read as far as it goes.
    for (std::size_t length = 140; length < explicitly.size(); ++length) {
        EXPECT_NO_THROW(Parsed(explicitly.substr(0, length))) << length;
    }
}

TEST(DataSetTest, LengthsThatOthersContradictAreToldAndNothingIsLost) {
    DataSet set;
    set.Set("SOPInstanceUID", "1.2.3.4");
    set.Set("ReferencedSeriesSequence[0].SeriesInstanceUID", "1.2.3");
    set.Set("PatientID", "behind");
    // The item's length reaches behind the end of the data, and its delimiter says where it ends.
    const std::string undefined("\xFE\xFF\x00\xE0\xFF\xFF\xFF\xFF", 8);
    const DataSet late =
        Parsed(Replaced(Saved(set, "explicit"), undefined, std::string("\xFE\xFF\x00\xE0\xFF\xFF\xF0\xFF", 8)));
    EXPECT_TRUE(late.GetReport().complete && Tells(late, FindingKind::WrongLengths));
    EXPECT_EQ(late, Parsed(Saved(set, "explicit")));

    // The item's length reaches behind that of its sequence.
    const std::string head("\x08\x00\x15\x11SQ\0\0", 8);
    const std::string element("\x20\x00\x0E\x00UI\x06\x00"
                              "1.2.3\0",
                              14);
    std::string whole = Saved(set, "explicit");
    const std::size_t begin = whole.find(head);
    const std::size_t end = whole.find(std::string("\xFE\xFF\xDD\xE0\0\0\0\0", 8)) + 8;
    const auto sequence = [&](char itemLength) {
        return head + std::string("\x16\0\0\0\xFE\xFF\0\xE0", 8) + std::string(1, itemLength) + std::string(3, '\0') +
               element;
    };
    const DataSet inner = Parsed(std::string(whole).replace(begin, end - begin, sequence(100)));
    EXPECT_TRUE(inner.GetReport().complete && Tells(inner, FindingKind::WrongLengths));
    EXPECT_EQ(inner, Parsed(std::string(whole).replace(begin, end - begin, sequence(14))));
    EXPECT_EQ(inner.Text("PatientID"), "behind");

    // The sequence's length reaches behind the end of the data.
    const std::string lying =
        Replaced(sequence(14), std::string("\x16\0\0\0\xFE", 5), std::string("\x16\0\0\x70\xFE", 5));
    const DataSet outer = Parsed(std::string(whole).replace(begin, end - begin, lying));
    EXPECT_TRUE(outer.GetReport().complete && Tells(outer, FindingKind::WrongLengths));
    EXPECT_EQ(outer, inner);
}

TEST(DataSetTest, PrivateElementsAreWhatTheirCreatorSays) {
    using namespace std::string_literals;
    DataSet set;
    set.Set("SOPClassUID", "1.2.840.10008.5.1.4.1.1.4");
    set.Set("SOPInstanceUID", "1.2.3.4");
    const auto put = [&set](const char* path, const std::string& bytes) {
        set.SetBytes(path, {reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()}, "UN");
    };
    put("0019,0042", "SIEMENS MR HEADER "s);  // whatever the block
    put("0019,420C", "1000"s);
    put("0019,4228", "\0\0\0\0\0\0\x34\xC0"s);
    put("0019,4229", "\0\0\0"s);            // FD takes 8 bytes each
    put("0019,420D", "\x01\x02\x03\x04"s);  // no text
    put("0019,0043", "NOBODY"s);
    put("0019,430C", "1000"s);
    put("0054,0016", "\xFE\xFF\x00\xE0\xFF\xFF\xFF\xFF\x18\0\x31\0\x04\0\0\0Drug\xFE\xFF\x0D\xE0\0\0\0\0"s);
    put("0008,1115", "no items"s);
    put("0028,0106", "\xFF\xFF"s);  // US or SS
    set.Set("PixelRepresentation", "1");
    for (const char* const syntax : {"explicit", "implicit"}) {
        const DataSet read = Parsed(Saved(set, syntax));
        EXPECT_EQ(read.TypeOf("0019,0042"), "LO");
        EXPECT_EQ(read.Integer("0019,420C"), 1000) << syntax;
        EXPECT_EQ(read.Real("0019,4228"), -20.0) << syntax;
        EXPECT_EQ(read.TypeOf("0019,4229"), "UN") << syntax;
        EXPECT_EQ(read.TypeOf("0019,430C"), "UN") << syntax;
        EXPECT_EQ(read.Text("RadiopharmaceuticalInformationSequence[0].Radiopharmaceutical"), "Drug") << syntax;
        EXPECT_EQ(read.Integer("SmallestImagePixelValue"), -1) << syntax;
        std::string name;
        read.Walk([&name](const ElementFacts& facts) {
            if (facts.tag == static_cast<tags::Tag>(0x0019420C)) name = facts.name;
        });
        EXPECT_EQ(name, "B_value") << syntax;
        EXPECT_EQ(Parsed(Saved(read, syntax)).Integer("0019,420C"), 1000) << syntax;
    }
    const std::string bytes = Saved(set, "explicit");
    EXPECT_EQ(Parsed(bytes).TypeOf("ReferencedSeriesSequence"), "UN");
    EXPECT_EQ(Parsed(bytes, {.leniency = {.unnamedTypes = false}}).TypeOf("0019,420C"), "UN");
    EXPECT_EQ(Parsed(Saved(set, "big")).TypeOf("0019,4228"), "UN");  // its byte order is not known
}

TEST(DataSetTest, SignedPixelsMakeNewValuesSigned) {
    DataSet set;
    set.Set("SmallestImagePixelValue", "65535");
    EXPECT_EQ(set.TypeOf("SmallestImagePixelValue"), "US");
    set.Set("PixelRepresentation", "1");
    set.Set("LargestImagePixelValue", "-3");
    set.Set("ReferencedImageSequence[0].PixelPaddingValue", "-2000");
    EXPECT_EQ(set.TypeOf("LargestImagePixelValue"), "SS");
    EXPECT_EQ(set.Integer("ReferencedImageSequence[0].PixelPaddingValue"), -2000);
    set.Set("ReferencedImageSequence[1].PixelRepresentation", "0");
    set.Set("ReferencedImageSequence[1].PixelPaddingValue", "63536");
    EXPECT_EQ(set.TypeOf("ReferencedImageSequence[1].PixelPaddingValue"), "US");
    Refuses([&] { set.Set("ReferencedImageSequence[1].PixelPaddingValue", "-1"); }, ErrorKind::WrongArgument);
}

TEST(DataSetTest, WhatIsMissingOrCannotBeDecodedIsTold) {
    DataSet set = Patient();
    set.SetBytes("PatientName", std::vector<unsigned char>{0xBB, 0xEE, 'A', ' '}, "PN");
    set.Set("SpecificCharacterSet", "ISO_IR 192");
    const std::string whole = Saved(set, "explicit");
    const auto tells = [](const DataSet& read, FindingKind kind) {
        const auto& findings = read.GetReport().findings;
        return std::any_of(findings.begin(), findings.end(), [&](const Finding& f) { return f.kind == kind; });
    };
    const DataSet read = Parsed(whole);
    EXPECT_TRUE(read.GetReport().complete);
    EXPECT_TRUE(tells(read, FindingKind::UndecodedText));
    EXPECT_FALSE(tells(Parsed(Saved(Patient(), "explicit")), FindingKind::UndecodedText));
    struct : Watcher {
        void OnFinding(const Finding& finding) override { told.push_back(finding); }
        std::vector<Finding> told;
    } watcher;
    EXPECT_NE(set.ToJson(false, &watcher).find("\xEF\xBF\xBD"), std::string::npos);
    ASSERT_EQ(watcher.told.size(), 1U);
    EXPECT_EQ(watcher.told[0].kind, FindingKind::UndecodedText);
    // Without its last delimiters; those of the item, and of the sequence.
    DataSet nested;
    nested.Set("SOPClassUID", "1.2.840.10008.5.1.4.1.1.2");
    nested.Set("SOPInstanceUID", "1.2.3.4");
    nested.Set("ReferencedSeriesSequence[0].SeriesInstanceUID", "1.2.3");
    const std::string bytes = Saved(nested, "explicit");
    for (const std::size_t missing : {8U, 16U}) {
        const DataSet cut = Parsed(bytes.substr(0, bytes.size() - missing));
        EXPECT_FALSE(cut.GetReport().complete) << missing;
        EXPECT_TRUE(tells(cut, FindingKind::EndsEarly)) << missing;
        EXPECT_EQ(cut.Text("ReferencedSeriesSequence[0].SeriesInstanceUID"), "1.2.3") << missing;
    }
}

}  // namespace
