#include "FolderTest.h"
#include "WrittenDirectory.h"

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

constexpr char kCT[] = "1.2.840.10008.5.1.4.1.1.2";
const std::string kRT = "1.2.840.10008.5.1.4.1.1.481.";
constexpr char kSR[] = "1.2.840.10008.5.1.4.1.1.88.33";

std::string Bytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// What a failing call throws.
std::string Thrown(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::string& message) {
        return message;
    }
    return "nothing";
}

class Builder : public CCDRObject {
public:
    using CCDRObject::CopyPrivateFile;
    using CCDRObject::FindRecord;
    using CCDRObject::m_pCopyFunction;
    using CCDRObject::m_pCurrent;
    using CCDRObject::MyCopyFunc;
};

using Set = std::unique_ptr<DICOMDataObject>;

void Put(DICOMObject& set, unsigned tag, const char* type, const std::string& value) {
    const auto code = static_cast<std::uint16_t>(type[0] << 8 | type[1]);
    set.Push(CCDRObject::CreateVR(static_cast<std::uint16_t>(tag >> 16), static_cast<std::uint16_t>(tag), code, value));
}

Set MakeSet(const std::string& patient, const std::string& study, const std::string& series,
            const std::string& instance, const std::string& sopClass = kCT) {
    const std::tuple<unsigned, const char*, std::string> elements[] = {
        {0x00080005, "CS", "ISO_IR 100"}, {0x00080016, "UI", sopClass}, {0x00080018, "UI", instance},
        {0x00080060, "CS", "CT"},         {0x00100020, "LO", patient},  {0x00100010, "PN", "../..\\D\xF6^J"},
        {0x0020000D, "UI", study},        {0x0020000E, "UI", series},   {0x00200013, "IS", "7"}};
    auto set = std::make_unique<DICOMDataObject>();
    for (const auto& [tag, type, value] : elements) Put(*set, tag, type, value);
    return set;
}

class CCDRObjectTest : public FolderTest {
protected:
    CCDRObjectTest() {
        fs::create_directories(m_Folder / "root" / "FILES");
        m_Builder.SetRoot((m_Folder / "root").string());
        m_Builder.SetFileRoot("FILES");
    }

    std::string Save(DICOMObject& set, int mode = 3) {
        const std::string path = (m_Folder / ("in" + std::to_string(++m_Files))).string();
        EXPECT_EQ(SaveDICOMFile(path.c_str(), mode, &set), 1);
        return path;
    }
    std::string Add(const Set& set) { return m_Builder.AddIOD(Save(*set), false); }
    fs::path Root() const { return m_Folder / "root"; }
    fs::path OnDisk(std::string path) const {
        for (char& c : path) c = c == '\\' ? '/' : c;
        return Root() / path;
    }
    WrittenDirectory Write() {
        EXPECT_TRUE(m_Builder.WriteCDR("\\DICOMDIR"));
        return WrittenDirectory(Bytes(Root() / "DICOMDIR"));
    }

    Builder m_Builder;
    int m_Files = 0;
};

TEST_F(CCDRObjectTest, FilesLieInGeneratedFoldersAndEveryOffsetLeadsToItsRecord) {
    const std::string source = Save(*MakeSet("../../A", "1.2", "1.2.1", "1.2.1.1"));
    const std::string first = m_Builder.AddIOD(source, false);
    EXPECT_EQ(first, "FILES\\P0000001\\S0000001\\S0000001\\I0000001");
    EXPECT_EQ(Bytes(OnDisk(first)), Bytes(source));
    EXPECT_EQ(Add(MakeSet("../../A", "1.2", "1.2.1", "1.2.1.22")), "FILES\\P0000001\\S0000001\\S0000001\\I0000002");
    EXPECT_EQ(Add(MakeSet("B", "1.3", "1.3.1", "1.3.1.1")), "FILES\\P0000002\\S0000001\\S0000001\\I0000001");
    EXPECT_EQ(Add(MakeSet("../../A ", "1.2", "1.2.2", "1.2.2.1")), "FILES\\P0000001\\S0000001\\S0000002\\I0000001");
    EXPECT_EQ(Add(MakeSet("../../A", "1.4", "1.2.1", "1.2.1.1")), "FILES\\P0000001\\S0000002\\S0000001\\I0000001");
    EXPECT_EQ(m_Builder.AddIOD(source, false), first);
    EXPECT_EQ(m_Builder.m_pCurrent->m_Path, first);
    m_Builder.SetFileSetID("SET");
    m_Builder.SetConsistencyFlag(true);
    m_Builder.SetSourceAETitle("ME");
    WrittenDirectory written = Write();
    std::string shape;
    for (const std::string& record : written.records) shape += record[0] + record.substr(14, 2) + " ";
    EXPECT_EQ(shape, "0PA 1ST 2SE 3IM 3IM 2SE 3IM 1ST 2SE 3IM 0PA 1ST 2SE 3IM ");
    EXPECT_EQ(written.top[0x00041130], "UI:SET ");  // not the standard's CS: required
    EXPECT_EQ(written.top[0x00041212], "US:\xFF\xFF");
    EXPECT_EQ(written.top[0x00020016], "AE:ME");
    EXPECT_EQ(written.top[0x00020002], "UI:1.2.840.10008.1.3.10");
    EXPECT_EQ(written.top[0x00020001], std::string("OB:\0\1", 5));
    EXPECT_EQ(written.records[0], "0|00041430 CS:PATIENT |00080005 CS:ISO_IR 100|00100010 PN:../..\\D\xF6^J"
                                  "|00100020 LO:../../A |00100030 DA:|00100040 CS:");
    EXPECT_EQ(written.records[1], "1|00041430 CS:STUDY |00080020 DA:|00080030 TM:|00080050 SH:|00081030 LO:"
                                  "|0020000D UI:1.2 |00200010 SH:");
    EXPECT_EQ(written.records[2], "2|00041430 CS:SERIES|00080060 CS:CT|0020000E UI:1.2.1 |00200011 IS:");
    EXPECT_EQ(written.records[3], "3|00041430 CS:IMAGE |00041500 CS:" + first +
                                      " |00041510 UI:1.2.840.10008.5.1.4.1.1.2 |00041511 UI:1.2.1.1 "
                                      "|00041512 UI:1.2.840.10008.1.2.1 |00200013 IS:7 ");
    EXPECT_EQ(Thrown([&] { m_Builder.WriteCDR("\\DICOMDIR"); }), m_Builder.GetRoot() + "\\DICOMDIR already present");
}

TEST_F(CCDRObjectTest, EachClassHasItsRecordAndElements) {
    DcmDictionary dictionary;
    std::size_t count = 0;
    const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
    ASSERT_EQ(dictionary.Build(rows, count), 1);
    CCDRObject::SetDictionary(&dictionary);
    // Bare files are transcoded: the RT classes to implicit.
    const std::string head = "|00041512 UI:1.2.840.10008.1.2 |00200013 IS:7 ";
    const std::string code("\xFE\xFF\0\xE0\xFF\xFF\xFF\xFF\x08\0\0\1SH\4\0"
                           "11-1\x08\0\4\1LO\4\0\xFC"
                           "ber\xFE\xFF\x0D\xE0\0\0\0\0\xFE\xFF\xDD\xE0\0\0\0\0",
                           48);
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {kSR, "SR DOCUMENT ",
         "|00041512 UI:1.2.840.10008.1.2.1 |00080005 CS:ISO_IR 100|00080023 DA:ab|00080033 TM:ab|00200013 IS:7 "
         "|0040A030 DT:ab|0040A043 SQ:" +
             code + "|0040A491 CS:ab|0040A493 CS:ab"},
        {kRT + "1", "IMAGE ", head},
        {kRT + "2", "RT STRUCTURE SET", head + "|3004000A CS:ab"},
        {kRT + "3", "RT STRUCTURE SET", head + "|30060002 SH:ab|30060008 DA:ab|30060009 TM:ab"},
        {kRT + "4", "IMAGE ", head},
        {kRT + "5", "RT PLAN ", head + "|300A0002 CS:ab|300A0006 DA:ab|300A0007 TM:ab"},
        {kRT + "6", "IMAGE ", head},
        {kRT + "7", "IMAGE ", head},
        {kRT + "8", "IMAGE ", "|00041512 UI:1.2.840.10008.1.2.1 |00200013 IS:7 "},
    };
    for (const auto& [sopClass, type, tail] : cases) {
        const Set set = MakeSet("A", "1", "1.1", sopClass + ".9", sopClass);
        for (const unsigned tag : {0x00080023, 0x00080033, 0x0040A030, 0x0040A491, 0x0040A493, 0x3004000A, 0x30060002,
                                   0x30060008, 0x30060009, 0x300A0002, 0x300A0006, 0x300A0007}) {
            Put(*set, tag, "LO", "ab");
        }
        // Of defined length in an implicit file: a sequence to the dictionary alone.
        Put(*set, 0x0040A043, "UN",
            std::string("\xFE\xFF\x00\xE0\x24\0\0\0\x08\0\0\x01\x04\0\0\0"
                        "11-1\x08\0\x04\x01\x04\0\0\0\xFC"
                        "ber\x09\0\x10\0\x04\0\0\0priv",
                        44));
        m_Builder.AddIOD(Save(*set, 1), true);
    }
    CCDRObject::SetDictionary(nullptr);
    const WrittenDirectory written = Write();
    ASSERT_EQ(written.records.size(), 3 + std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& [sopClass, type, tail] = cases[i];
        const std::string& record = written.records[3 + i];
        EXPECT_TRUE(record.starts_with("3|00041430 CS:" + type + "|00041500 CS:")) << record;
        EXPECT_EQ(record.substr(record.find("|00041512")), tail);
    }
}

TEST_F(CCDRObjectTest, FailuresAreToldToTheLetterAndLeaveNothingInTheTree) {
    const auto refusal = [&] { return Thrown([&] { Add(MakeSet("A", "1", "1.1", "1.1.1")); }); };
    const std::string root = m_Builder.GetRoot();
    EXPECT_EQ(Thrown([&] { m_Builder.AddIOD("nowhere", false); }), "CCDRObject::AddIOD: error loading [nowhere]");
    EXPECT_EQ(Thrown([&] { m_Builder.AddPrivate(CDRRecord::Private, "x"); }),
              "CCDRObject::AddPrivate: No current record");
    EXPECT_EQ(Thrown([&] { Add(MakeSet("A", "1", "1.1", "1.1.1", kSR)); }),
              "CDRSRDocRecord::SetDDO: Concept name sequence missing");
    const std::string coded = Save(*MakeSet("A", "1", "1.1", "1.1.1"));
    std::string bytes = Bytes(coded);
    bytes[bytes.find(kExplicitLittleEndianUid) + 18] = '9';  // a syntax that nobody knows, and encapsulated pixels
    bytes += std::string("\xE0\x7F\x10\0OB\0\0\xFF\xFF\xFF\xFF\xFE\xFF\0\xE0\0\0\0\0\xFE\xFF\xDD\xE0\0\0\0\0", 28);
    std::ofstream(coded, std::ios::binary) << bytes;
    EXPECT_EQ(Thrown([&] { m_Builder.AddIOD(coded, true); }), "Error decoding object");
    EXPECT_TRUE(fs::is_empty(Root() / "FILES"));
    fs::create_directory(Root() / "FILES" / "P0000001");
    EXPECT_EQ(refusal(), "Destination is not empty");
    fs::remove(Root() / "FILES" / "P0000001");
    m_Builder.SetFileRoot("none");
    EXPECT_EQ(refusal(), "Error Creating [" + root + "\\none\\P0000001]");
    m_Builder.SetRoot(root + "\\none");
    EXPECT_EQ(refusal(), "cannot write to [" + root + "\\none\\]");
    m_Builder.SetRoot(root);
    m_Builder.SetFileRoot("FILES");
    m_Builder.SetHardLinks(false);
    EXPECT_EQ(Thrown([&] { m_Builder.AddIOD("gone", *MakeSet("A", "1", "1.1", "1.1.1"), false); }),
              "Cannot copy gone to " + root + "\\FILES\\P0000001\\S0000001\\S0000001\\I0000001");
    EXPECT_TRUE(Write().records.empty());
    fs::remove(Root() / "DICOMDIR");
    fs::create_directory(Root() / "DICOMDIR");
    EXPECT_FALSE(m_Builder.WriteCDR("\\OTHER"));
    fs::remove(Root() / "DICOMDIR");
    EXPECT_EQ(refusal(), "nothing");
    EXPECT_EQ(Write().records.size(), 4u);
}

TEST_F(CCDRObjectTest, LinksAreMadeWhereTheyCanAndCopiesForGoodWhereNot) {
    const std::string source = Save(*MakeSet("A", "1", "1.1", "1.1.1"));
    const fs::path linked = OnDisk(m_Builder.AddIOD(source, false));
    std::ofstream(source, std::ios::app) << "more";
    EXPECT_EQ(Bytes(linked) == Bytes(source), m_Builder.m_pCopyFunction != &Builder::MyCopyFunc);
    m_Builder.m_pCopyFunction = [](const char*, const char*, void*) { return 0; };
    const std::string copied = Add(MakeSet("A", "1", "1.1", "1.1.2"));
    EXPECT_TRUE(fs::exists(OnDisk(copied)));
    EXPECT_EQ(m_Builder.m_pCopyFunction, &Builder::MyCopyFunc);
    m_Builder.SetHardLinks(true);
    EXPECT_EQ(m_Builder.m_pCopyFunction, nullptr);
    EXPECT_EQ(Thrown([&] { Builder::MyCopyFunc(source.c_str(), source.c_str(), nullptr); }),
              "Destination is not empty");
}

TEST_F(CCDRObjectTest, AStoppedCopyLeavesNothingOnTheMedium) {
    m_Builder.SetHardLinks(false);
    const std::string source = Save(*MakeSet("A", "1", "1.1", "1.1.1"));
    std::ofstream(source, std::ios::app | std::ios::binary) << std::string(std::size_t{8} << 20, 'x');
    int asked = 0;
    m_Builder.SetStopQuestion([&] { return ++asked == 3; });
    const std::string message = Thrown([&] { m_Builder.AddIOD(source, *MakeSet("A", "1", "1.1", "1.1.1"), false); });
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(message.substr(0, 11), "Cannot copy");
    EXPECT_TRUE(fs::is_empty(Root() / "FILES"));
    m_Builder.SetStopQuestion([] { return true; });
    EXPECT_EQ(Thrown([&] { m_Builder.AddIOD(source, false); }), "CCDRObject::AddIOD: error loading [" + source + "]");
    EXPECT_EQ(errno, EINTR);
    m_Builder.SetStopQuestion({});
    EXPECT_EQ(Bytes(OnDisk(m_Builder.AddIOD(source, *MakeSet("A", "1", "1.1", "1.1.1"), false))), Bytes(source));
}

TEST_F(CCDRObjectTest, PrivateFilesLieBesideTheLastAddedOne) {
    std::ofstream(m_Folder / "notes") << "text";
    const std::string notes = (m_Folder / "notes").string();
    Add(MakeSet("A", "1", "1.1", "1.1.1"));
    const std::string path = m_Builder.AddPrivate(CDRRecord::Private, notes);
    EXPECT_EQ(path, "FILES\\P0000001\\S0000001\\S0000001\\R0000001");
    EXPECT_EQ(Bytes(OnDisk(path)), "text");
    EXPECT_EQ(m_Builder.AddPrivate(CDRRecord::Private, notes, "FILES"), "FILES\\R0000002");
    EXPECT_NE(Thrown([&] { m_Builder.AddPrivate(CDRRecord::RecordTypes, notes); }), "nothing");
    EXPECT_EQ(m_Builder.m_pCurrent->m_PrivateRecords.GetAt(0)->GetTypeText(), "CDRRECORD");
    m_Builder.CopyPrivateFile(m_Builder.m_pCurrent->m_PrivateRecords, "FILES\\");
    EXPECT_EQ(Bytes(Root() / "FILES" / "PRIVATE" / "P0000002"), "text");
    EXPECT_EQ(Thrown([&] { m_Builder.CopyPrivateFile(m_Builder.m_pCurrent->m_PrivateRecords, "FILES\\"); }),
              "Error Creating [" + m_Builder.GetRoot() + "\\FILES\\PRIVATE]");
    WrittenDirectory written = Write();
    EXPECT_EQ(written.records.size(), 4u);
    m_Builder.Reset();
    EXPECT_EQ(m_Builder.m_pCurrent, nullptr);
    fs::remove_all(Root());
    fs::create_directories(Root() / "FILES");
    Add(MakeSet("A", "1", "1.1", "1.1.1"));
    EXPECT_EQ(m_Builder.AddPrivate(CDRRecord::Image, notes).substr(33), "R0000001");
    EXPECT_NE(Write().top[0x00020003], written.top[0x00020003]);
    const CCDRObject copy(m_Builder);
    EXPECT_EQ(copy.GetFilePath(), m_Builder.GetRoot() + "\\FILES");
}

TEST(CDRRecordListTest, ManyRecordsAreFoundByTheirKeysTheFirstOfEach) {
    CDRRecordList list;
    for (int i = 0; i < 150000; ++i) {
        auto* const record = new CDRRecord;
        record->m_ReferencedInstance = "2.25." + std::to_string(i % 100000);
        list.Append(record);
    }
    EXPECT_EQ(Builder::FindRecord(list, "2.25.100000"), nullptr);
    EXPECT_EQ(Builder::FindRecord(list, "2.25.777"), list.GetAt(777));
    list.RemoveLast();
    EXPECT_EQ(Builder::FindRecord(list, "2.25.49999"), list.GetAt(49999));
}

}  // namespace
