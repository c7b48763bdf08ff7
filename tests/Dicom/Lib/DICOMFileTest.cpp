#include "DataSetBytes.h"
#include "FolderTest.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <utility>

namespace fs = std::filesystem;

namespace {

class DicomFile : public FolderTest {
protected:
    void Write(const char* name, const Bytes& bytes) const { WriteBytes(Path(name), bytes); }
    std::unique_ptr<DICOMDataObject> Load(const char* name) { return m_Reader.Load(Path(name).c_str()); }

    TransferSyntaxCodec m_Codec{&PublicDictionary()};
    DICOMFileReader m_Reader{m_Codec};
};

std::unique_ptr<DICOMDataObject> SmallImage() {
    auto set = std::make_unique<DICOMDataObject>();
    set->Push(MakeText(0x0008, 0x0016, "UI", std::string("1.2.840.10008.5.1.4.1.1.2\0", 26)));
    set->Push(MakeText(0x0008, 0x0018, "UI", "1.2.3.44"));
    set->Push(MakeText(0x0010, 0x0010, "PN", "Doe^Jane"));
    set->Push(MakeU16(0x0028, 0x0010, 300));
    set->Push(MakeText(0x7FE0, 0x0010, "OW", std::string(100000, 'p')));
    return set;
}

// What stands behind group 0002.
std::string DataSetListing(const DICOMObject& set) {
    const std::string listing = Listing(set);
    return listing.substr(listing.find("0008,0016"));
}

}  // namespace

TEST_F(DicomFile, EveryModeWritesWhatIsReadBack) {
    const std::string expected = DataSetListing(*SmallImage());
    for (const int mode : {1, 2, 3}) {
        const auto set = SmallImage();
        ASSERT_EQ(SaveDICOMFile(Path("a.dcm").c_str(), mode, set.get(), &m_Codec), 1);
        EXPECT_EQ(set->GetFirst(), nullptr);
        const auto loaded = Load("a.dcm");
        EXPECT_TRUE(m_Reader.IsComplete());
        EXPECT_EQ(m_Reader.HasPreamble(), mode != 1);
        EXPECT_EQ(m_Reader.GetSyntax(), mode == 3 ? kExplicitLittleEndian : kImplicitLittleEndian);
        EXPECT_EQ(DataSetListing(*loaded), expected);
        if (mode == 1) continue;
        EXPECT_EQ(m_Reader.GetTransferSyntax(), mode == 2 ? kImplicitLittleEndianUid : kExplicitLittleEndianUid);
        EXPECT_EQ(TrimmedUid(loaded->GetVR(0x0002, 0x0002)->GetText()), "1.2.840.10008.5.1.4.1.1.2");
        EXPECT_EQ(TrimmedUid(loaded->GetVR(0x0002, 0x0003)->GetText()), "1.2.3.44");
        EXPECT_EQ(TrimmedUid(loaded->GetVR(0x0002, 0x0012)->GetText()), "1.2.999.0.1.7310057.2.555.20000624");
        EXPECT_EQ(loaded->GetVR(0x0002, 0x0013)->GetText(), "/QX/W32//1.6.7");
        std::uint32_t groupLength;
        std::memcpy(&groupLength, loaded->GetVR(0x0002, 0x0000)->m_pData, 4);
        EXPECT_EQ(loaded->GetVR(0x0002, 0x0000)->m_StreamOffset, 132U);
        EXPECT_EQ(loaded->GetVR(0x0008, 0x0016)->m_StreamOffset, 132 + 12 + groupLength);
    }
}

TEST_F(DicomFile, WhatCannotBeWrittenTouchesNoFile) {
    auto set = SmallImage();
    EXPECT_EQ(SaveDICOMFile(Path("no.dcm").c_str(), 4, set.get()), 0);
    AppendFragment(*set->GetVR(0x7FE0, 0x0010), "", 0);
    for (const int mode : {1, 2, 3}) EXPECT_EQ(SaveDICOMFile(Path("no.dcm").c_str(), mode, set.get()), 0);
    EXPECT_FALSE(fs::exists(Path("no.dcm")));
    ReplaceText(*set, tags::TransferSyntaxUID, TypeCode("UI"), kLosslessJpegUid);
    EXPECT_EQ(SaveDICOMFile(Path("yes.dcm").c_str(), 3, set.get()), 1);
    Load("yes.dcm");
    EXPECT_EQ(m_Reader.GetTransferSyntax(), kLosslessJpegUid) << "compressed data keeps its syntax";
    EXPECT_EQ(SaveDICOMFile((Path("missing") + "/a.dcm").c_str(), 3, SmallImage().get()), 0);
    if (fs::exists("/dev/full")) {
        EXPECT_EQ(SaveDICOMFile("/dev/full", 3, SmallImage().get()), 0);
    }
}

TEST_F(DicomFile, TheSixthByteDecidesAsASignedNumber) {
    for (const unsigned secondByte : {10U, 11U, 127U, 128U}) {
        const bool isExplicit = secondByte == 11 || secondByte == 127;
        Write("raw", Join({le.Tag(0x0008, 0x0000), le.U32(secondByte << 8), Text(std::string(secondByte << 8, 'a'))}));
        Load("raw");
        EXPECT_EQ(m_Reader.GetSyntax() == kExplicitLittleEndian, isExplicit) << secondByte;
    }
}

TEST_F(DicomFile, TheTransferSyntaxOfTheMetaInformationRules) {
    const auto file = [](const std::string& uid, const Bytes& rest) {
        return Join({Text(std::string(128, 'x')), Text("DICM"), le.Short(0x0002, 0x0010, "UI", uid), rest});
    };
    const Bytes implicitSet = Join({le.Implicit(0x0028, 0x0010, "\x01\x02")});
    const Bytes explicitSet = Join({le.Short(0x0028, 0x0010, "US", "\x01\x02")});
    const Bytes bigSet = Join({be.Short(0x0028, 0x0010, "US", "\x02\x01")});
    const Bytes files[] = {file(std::string(kExplicitBigEndianUid) + " ", bigSet),  // padding is not part of a UID
                           file("1.2.3.99", explicitSet), file(PaddedUid(kImplicitLittleEndianUid), implicitSet),
                           // No (0002,0010): tested again behind the group.
                           Join({le.Short(0x0002, 0x0012, "UI", "1.2."), implicitSet})};
    for (const Bytes& bytes : files) {
        Write("file", bytes);
        EXPECT_EQ(Load("file")->GetUINT16(0x0028, 0x0010), 0x0201);
        EXPECT_EQ(m_Reader.GetTransferSyntax() == kExplicitBigEndianUid, &bytes == files);
    }
    Write("deflated", file(std::string(kDeflatedUid), {1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(Load("deflated")->GetNext(m_Reader.Load(Path("deflated").c_str())->GetFirst()), nullptr);
    EXPECT_TRUE(m_Reader.IsDeflated());
    EXPECT_FALSE(m_Reader.IsComplete());
    EXPECT_EQ(Load("missing"), nullptr);
    EXPECT_EQ(m_Reader.Load(m_Folder.string().c_str()), nullptr) << "a directory";
}

TEST(TransferSyntaxTableTest, HasTheRowsAndTakesMore) {
    const std::string root = "1.2.840.10008.1.2";
    std::vector<std::pair<std::string, int>> stated = {
        {root, 100}, {root + ".1", 101}, {root + ".2", 102}, {root + ".5", 101}};
    for (int end = 50; end <= 66; ++end) stated.emplace_back(root + ".4." + std::to_string(end), 101);
    stated.insert(stated.end(), {{root + ".4.70", 101}, {"", 0}});
    ASSERT_EQ(TransferSyntaxTable.size(), stated.size());
    for (std::size_t i = 0; i < stated.size(); ++i) {
        EXPECT_EQ(stated[i],
                  std::make_pair(std::string(TransferSyntaxTable[i].uid), int{TransferSyntaxTable[i].syntax}));
    }
    EXPECT_EQ(std::count(std::begin(TransferSyntaxTable[0].uid), std::end(TransferSyntaxTable[0].uid), '\0'), 64 - 17);
    EXPECT_EQ(FindTransferSyntax("1.2.840.10008.1.2.4", 7), 7);
    EXPECT_EQ(GetTransferSyntax(22), nullptr);
    for (const int added : {1, 0}) EXPECT_EQ(RegisterTransferSyntax("1.2.840.10008.1.2.4.80", 101), added);
    EXPECT_EQ(RegisterTransferSyntax(std::string(64, '1'), 101), 0);
    EXPECT_STREQ(GetTransferSyntax(22)->uid, "1.2.840.10008.1.2.4.80");
}

TEST(TransferSyntaxRowTest, EachSyntaxAndWordHasOneRow) {
    std::set<std::string_view> words;
    for (const TransferSyntaxRow& row : kTransferSyntaxes) {
        EXPECT_EQ(FindSyntaxRow(row.uid), &row) << row.uid;
        EXPECT_EQ(row.word.empty() ? &row : FindSyntaxWord(row.word), &row) << row.word;
        // Deflated data sets and compressed pixels are explicit little endian (PS3.5 A.4, A.5).
        EXPECT_EQ(IsNativeTransferSyntax(row.uid), !row.isEncapsulated && !row.isDeflated) << row.uid;
        EXPECT_TRUE(IsNativeTransferSyntax(row.uid) || row.number == kExplicitLittleEndian) << row.uid;
        EXPECT_TRUE(row.isEncapsulated || row.lossyMethod.empty()) << row.uid;
        EXPECT_TRUE(!row.isLossy || !row.lossyMethod.empty()) << row.uid;
        words.insert(row.word);
    }
    EXPECT_EQ(words, (std::set<std::string_view>{"", "big", "explicit", "implicit", "jpegll", "rle"}));
    for (const int number : {100, 101, 102}) EXPECT_EQ(FindTransferSyntax(NativeSyntaxUid(number), 0), number);
    EXPECT_EQ(FindSyntaxWord(""), nullptr);
    EXPECT_EQ(FindSyntaxRow("1.2.840.10008.1.2 "), nullptr);
    // The lossless processes of JPEG, JPEG-LS and JPEG 2000 (PS3.5 A.4.1 to A.4.4).
    for (const std::string end : {"57", "58", "65", "66", "70", "80", "90", "92", "no"}) {
        EXPECT_FALSE(IsLossyTransferSyntax("1.2.840.10008.1.2.4." + end)) << end;
    }
    for (const std::string end : {"50", "51", "53", "64", "81", "91", "93", "100", "102", "203"}) {
        EXPECT_TRUE(IsLossyTransferSyntax("1.2.840.10008.1.2.4." + end)) << end;
    }
    EXPECT_FALSE(IsLossyTransferSyntax(kRleUid) || IsLossyTransferSyntax(kDeflatedUid));
}

TEST_F(DicomFile, UniqueNamesCountUpToAHundred) {
    const UniqueFileName name{m_Folder.string(), "out", "dcm"};
    const std::string folder = m_Folder.string() + "/";
    EXPECT_EQ(name.Make(), folder + "out.dcm");
    Write("out.dcm", {});
    for (int i = 1; i <= 100; ++i) {
        char number[16];
        std::snprintf(number, sizeof number, "out.%2.2d.dcm", i);
        ASSERT_EQ(name.Make(), folder + number);
        Write(number, {});
    }
    EXPECT_EQ(name.Make(), folder + "out.100.dcm") << "taken, and returned all the same";
    EXPECT_EQ((UniqueFileName{m_Folder.string(), "", "img"}.Make()), folder + "Unnamed.img");
}
