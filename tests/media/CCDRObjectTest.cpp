#include "WrittenDirectory.h"

#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

constexpr char kCT[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kRT[] = "1.2.840.10008.5.1.4.1.1.481.";
constexpr char kSR[] = "1.2.840.10008.5.1.4.1.1.88.33";

std::string Bytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What a failing call throws.
std::string Thrown(const std::function<void()>& call) {
    try {
        call();
    } catch (const std::string& message) {
        return message;
    }
    return "nothing";
}

int NoLink(const char*, const char*, void*) {
    return 0;
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
    auto set = std::make_unique<DICOMDataObject>();
    Put(*set, 0x00080016, "UI", sopClass);
    Put(*set, 0x00080018, "UI", instance);
    Put(*set, 0x00080060, "CS", "CT");
    Put(*set, 0x00100010, "PN", "../..\\Doe^J");
    Put(*set, 0x00100020, "LO", patient);
    Put(*set, 0x0020000D, "UI", study);
    Put(*set, 0x0020000E, "UI", series);
    Put(*set, 0x00200013, "IS", "7");
    return set;
}

class CCDRObjectTest : public testing::Test {
protected:
    CCDRObjectTest() {
        fs::remove_all(m_Folder);
        fs::create_directories(m_Folder / "root" / "FILES");
        m_Builder.SetRoot((m_Folder / "root").string());
        m_Builder.SetFileRoot("FILES");
    }
    ~CCDRObjectTest() override { fs::remove_all(m_Folder); }

    std::string Save(DICOMObject& set, int syntax = kExplicitLittleEndian) {
        const std::string path = (m_Folder / ("in" + std::to_string(++m_Files))).string();
        EXPECT_EQ(SaveDICOMFile(path.c_str(), syntax == kExplicitLittleEndian ? 3 : 2, &set), 1);
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
        return WrittenDirectory((Root() / "DICOMDIR").string());
    }

    // Of its own for each test: they run side by side.
    fs::path m_Folder = fs::temp_directory_path() /
                        (std::string("korvane-media-") + testing::UnitTest::GetInstance()->current_test_info()->name());
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
    const WrittenDirectory written = Write();
    std::string shape;
    for (const auto& record : written.records) shape += std::to_string(record.depth) + record.Type().substr(3, 2) + " ";
    EXPECT_EQ(shape, "0PA 1ST 2SE 3IM 3IM 2SE 3IM 1ST 2SE 3IM 0PA 1ST 2SE 3IM ");
    EXPECT_EQ(written.Top(0x00041130), "UI:SET ");  // not the standard's CS: required
    EXPECT_EQ(written.Top(0x00041212), "US:\xFF\xFF");
    EXPECT_EQ(written.Top(0x00020016), "AE:ME");
    EXPECT_EQ(written.Top(0x00020002), "UI:1.2.840.10008.1.3.10");
    EXPECT_EQ(written.Top(0x00020001), std::string("OB:\0\1", 5));
    const auto& elements = written.records[3].elements;
    EXPECT_EQ(elements.at(0x00041500), "CS:" + first + (first.size() % 2 != 0 ? " " : ""));
    EXPECT_EQ(elements.at(0x00041510), "UI:1.2.840.10008.5.1.4.1.1.2 ");
    EXPECT_EQ(elements.at(0x00041511), "UI:1.2.1.1 ");
    EXPECT_EQ(elements.at(0x00041512), "UI:1.2.840.10008.1.2.1 ");
    EXPECT_EQ(elements.at(0x00200013), "IS:7 ");
    EXPECT_EQ(elements.size(), 9u);
    EXPECT_EQ(written.records[1].elements.at(0x00081030), "LO:");
    EXPECT_EQ(Thrown([&] { m_Builder.WriteCDR("\\DICOMDIR"); }), m_Builder.GetRoot() + "\\DICOMDIR already present");
}

TEST_F(CCDRObjectTest, EachClassHasItsRecordAndElements) {
    DcmDictionary dictionary;
    std::size_t count = 0;
    const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
    ASSERT_EQ(dictionary.Build(rows, count), 1);
    CCDRObject::SetDictionary(&dictionary);
    struct Case {
        std::string sopClass;
        const char* type;
        std::vector<std::pair<unsigned, const char*>> elements;
    };
    const Case cases[] = {
        {std::string(kRT) + "1", "CS:IMAGE ", {}},
        {std::string(kRT) + "2", "CS:RT STRUCTURE SET", {{0x3004000A, "CS"}}},
        {std::string(kRT) + "3", "CS:RT STRUCTURE SET", {{0x30060002, "SH"}, {0x30060008, "DA"}, {0x30060009, "TM"}}},
        {std::string(kRT) + "5", "CS:RT PLAN ", {{0x300A0002, "CS"}, {0x300A0006, "DA"}, {0x300A0007, "TM"}}},
        {kSR,
         "CS:SR DOCUMENT ",
         {{0x0040A491, "CS"}, {0x0040A493, "CS"}, {0x00080023, "DA"}, {0x00080033, "TM"}, {0x0040A030, "DT"}}},
    };
    for (const Case& c : cases) {
        const Set set = MakeSet("A", "1", "1.1", c.sopClass + ".9", c.sopClass);
        for (const auto& [tag, type] : c.elements) Put(*set, tag, tag == 0x30060002 ? "PN" : type, "ab");
        if (c.sopClass == kSR) {  // of defined length in an implicit file: a sequence to the dictionary alone
            Put(*set, 0x0040A043, "UN",
                std::string("\xFE\xFF\x00\xE0\x24\0\0\0\x08\0\0\x01\x04\0\0\0"
                            "11-1\x08\0\x04\x01\x04\0\0\0\xFC"
                            "ber\x09\0\x10\0\x04\0\0\0priv",
                            44));
            Put(*set, 0x00080005, "CS", "ISO_IR 100");
        }
        m_Builder.AddIOD(Save(*set, c.sopClass == kSR ? kImplicitLittleEndian : kExplicitLittleEndian), false);
    }
    CCDRObject::SetDictionary(nullptr);
    const WrittenDirectory written = Write();
    ASSERT_EQ(written.records.size(), 3 + std::size(cases));
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& record = written.records[3 + i];
        EXPECT_EQ(record.Type(), cases[i].type);
        for (const auto& [tag, type] : cases[i].elements) EXPECT_EQ(record.elements.at(tag), std::string(type) + ":ab");
        if (cases[i].sopClass != kSR) {
            EXPECT_EQ(record.elements.size(), 9 + cases[i].elements.size());
        }
    }
    const auto& report = written.records.back().elements;
    EXPECT_NE(report.at(0x0040A043).find("11-1"), std::string::npos);
    EXPECT_EQ(report.at(0x0040A043).find("priv"), std::string::npos);
    EXPECT_EQ(report.at(0x00080005), "CS:ISO_IR 100");
}

TEST_F(CCDRObjectTest, FailuresAreToldToTheLetterAndLeaveNothingInTheTree) {
    EXPECT_EQ(Thrown([&] { m_Builder.AddIOD("nowhere", false); }), "CCDRObject::AddIOD: error loading [nowhere]");
    EXPECT_EQ(Thrown([&] { m_Builder.AddPrivate(CDRRecord::Private, "x"); }),
              "CCDRObject::AddPrivate: No current record");
    EXPECT_EQ(Thrown([&] { Add(MakeSet("A", "1", "1.1", "1.1.1", kSR)); }),
              "CDRSRDocRecord::SetDDO: Concept name sequence missing");
    EXPECT_TRUE(fs::is_empty(Root() / "FILES"));
    fs::create_directory(Root() / "FILES" / "P0000001");
    EXPECT_EQ(Thrown([&] { Add(MakeSet("A", "1", "1.1", "1.1.1")); }), "Destination is not empty");
    fs::remove(Root() / "FILES" / "P0000001");
    m_Builder.SetFileRoot("none");
    const std::string root = m_Builder.GetRoot();
    EXPECT_EQ(Thrown([&] { Add(MakeSet("A", "1", "1.1", "1.1.1")); }), "Error Creating [" + root + "\\none\\P0000001]");
    m_Builder.SetRoot(root + "\\none");
    EXPECT_EQ(Thrown([&] { Add(MakeSet("A", "1", "1.1", "1.1.1")); }), "cannot write to [" + root + "\\none\\]");
    m_Builder.SetRoot(root);
    m_Builder.SetFileRoot("FILES");
    m_Builder.SetHardLinks(false);
    const Set set = MakeSet("A", "1", "1.1", "1.1.1");
    EXPECT_EQ(Thrown([&] { m_Builder.AddIOD("gone", *set, false); }),
              "Cannot copy gone to " + root + "\\FILES\\P0000001\\S0000001\\S0000001\\I0000001");
    EXPECT_TRUE(Write().records.empty());
    fs::remove(Root() / "DICOMDIR");
    fs::create_directory(Root() / "DICOMDIR");
    EXPECT_FALSE(m_Builder.WriteCDR("\\OTHER"));
    fs::remove(Root() / "DICOMDIR");
    EXPECT_EQ(Add(MakeSet("A", "1", "1.1", "1.1.1")), "FILES\\P0000001\\S0000001\\S0000001\\I0000001");
    EXPECT_EQ(Write().records.size(), 4u);
}

TEST_F(CCDRObjectTest, LinksAreMadeWhereTheyCanAndCopiesForGoodWhereNot) {
    const std::string source = Save(*MakeSet("A", "1", "1.1", "1.1.1"));
    const fs::path linked = OnDisk(m_Builder.AddIOD(source, false));
    std::ofstream(source, std::ios::app) << "more";
    EXPECT_EQ(Bytes(linked) == Bytes(source), m_Builder.m_pCopyFunction != &Builder::MyCopyFunc);
    m_Builder.m_pCopyFunction = NoLink;
    const std::string copied = Add(MakeSet("A", "1", "1.1", "1.1.2"));
    EXPECT_TRUE(fs::exists(OnDisk(copied)));
    EXPECT_EQ(m_Builder.m_pCopyFunction, &Builder::MyCopyFunc);
    m_Builder.SetHardLinks(true);
    EXPECT_EQ(m_Builder.m_pCopyFunction, nullptr);
    EXPECT_EQ(Thrown([&] { Builder::MyCopyFunc(source.c_str(), source.c_str(), nullptr); }),
              "Destination is not empty");
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
    const std::string uid = Write().Top(0x00020003);
    EXPECT_EQ(WrittenDirectory((Root() / "DICOMDIR").string()).records.size(), 4u);
    m_Builder.Reset();
    EXPECT_EQ(m_Builder.m_pCurrent, nullptr);
    fs::remove_all(Root());
    fs::create_directories(Root() / "FILES");
    Add(MakeSet("A", "1", "1.1", "1.1.1"));
    EXPECT_EQ(m_Builder.AddPrivate(CDRRecord::Image, notes).substr(33), "R0000001");
    EXPECT_NE(Write().Top(0x00020003), uid);
    const CCDRObject copy(m_Builder);
    EXPECT_EQ(copy.GetFilePath(), m_Builder.GetRoot() + "\\FILES");
}

TEST(CDRRecordListTest, ManyRecordsAreFoundByTheirKeysTheFirstOfEach) {
    CDRRecordList list;
    for (int i = 0; i < 150000; ++i) {
        const std::string uid = "2.25." + std::to_string(i % 100000);
        if (i < 100000) {
            EXPECT_EQ(Builder::FindRecord(list, uid), nullptr);
        }
        auto* const record = new CDRRecord;
        record->m_ReferencedInstance = uid;
        list.Append(record);
    }
    EXPECT_EQ(Builder::FindRecord(list, "2.25.777"), list.GetAt(777));
    list.RemoveLast();
    EXPECT_EQ(Builder::FindRecord(list, "2.25.49999"), list.GetAt(49999));
}

}  // namespace
