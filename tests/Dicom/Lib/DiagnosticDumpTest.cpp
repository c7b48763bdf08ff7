#include "DataSetBytes.h"
#include "FolderTest.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

class DiagnosticDump : public FolderTest {
protected:
    DiagnosticDump() { SetDumpLogPath(m_Path); }
    ~DiagnosticDump() override {
        SetDebugFlag(0xFFFFFFFF, false);
        SetDumpLogPath("");
    }
    std::string Log() const { return ReadText(m_Path); }

    const std::string m_Path = Path("dump.log");
};

}  // namespace

TEST_F(DiagnosticDump, WritesNothingUnlessItsBitIsOn) {
    EXPECT_EQ(DumpLogName(), m_Path);
    SetDebugFlag(1 | 2, true);
    SetDebugFlag(2, false);
    Trace(2 | 4, "no");
    EXPECT_FALSE(std::filesystem::exists(m_Path));
    Trace(1 | 4, "%s-%d\n", "yes", 1);
    EXPECT_EQ(Log(), "yes-1\n");
    TraceStamped("text", 1);
    EXPECT_TRUE(Log().ends_with(" : text\n"));
    SetDumpLogPath("");
    EXPECT_EQ(DumpLogName(), "DcmServiceDump.log");
}

TEST_F(DiagnosticDump, HexLinesHold32Bytes) {
    SetDebugFlag(1, true);
    std::string bytes;
    for (char c = 'A'; c < 'A' + 31; ++c) bytes += c;
    bytes += "\x01z";
    HexDump(bytes.data(), 33, 1);
    std::string fill;
    for (int i = 0; i < 31; ++i) fill += "   ";
    EXPECT_EQ(Log(), "000000-000031 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F 50 51 52 53 54 55 56 57 58 59 5A "
                     "5B 5C 5D 5E 5F 01 | ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_.|\n"
                     "000032-000032 7A " +
                         fill + "| z|\n");
    std::filesystem::remove(m_Path);
    HexDump(bytes.data(), 0, 1);
    EXPECT_EQ(std::filesystem::file_size(m_Path), 0U) << "opened and closed all the same";
}

TEST_F(DiagnosticDump, ElementLines) {
    SetDebugFlag(4, true);
    const TransferSyntaxCodec codec(&PublicDictionary());
    const std::unique_ptr<VR> name(MakeText(0x0010, 0x0010, "PN", "Doe^\x1bJane "));
    name->m_StreamOffset = 0x1A2;
    DumpElement(4, *name, &codec);
    const std::unique_ptr<VR> rows(MakeU16(0x0028, 0x0010, 512));
    DumpElement(4, *rows, nullptr);
    const std::unique_ptr<VR> unknown(MakeText(0x0099, 0x0001, "UN", "\x01\xFF"));
    unknown->m_TypeCode = 0;
    DumpElement(4, *unknown, &codec);
    EXPECT_EQ(Log(), "(01A2)[0010,0010][    10][PN]:'Patient's Name' |Doe^.Jane|\n"
                     "(0000)[0028,0010][     2][US]:512,0x200\n"
                     "(0000)[0099,0001][     2][XX]:01 FF \n");
}

TEST_F(DiagnosticDump, ParsingAndEncodingLeaveTheirTrace) {
    const Bytes item = Join({le.Implicit(0x0028, 0x0010, "ab")});
    const Bytes stream =
        Join({le.Tag(0x0040, 0xA730), le.U32(0xFFFFFFFF), le.Item(10), item, le.SequenceEnds(), le.Tag(0x0040, 0xA731),
              le.U32(0xFFFFFFFF), le.Item(0xFFFFFFFF), le.ItemEnds(), le.SequenceEnds()});
    SetDebugFlag(kDumpTransferSyntax, true);
    TransferSyntaxCodec codec;
    DICOMDataObject set;
    MemoryInputBuffer in(stream.data(), stream.size());
    codec.ParseImplicitLittleEndian(in, &set);
    EXPECT_EQ(Log(), "-----------------------------\nParsing incoming Implicit Little Endian\n"
                     "Variable length item [sequence, etc]\n"
                     "[FFFE,E000][    10]explicit length, sequence item begin\n"
                     "(0000)[0028,0010][     2][XX]:61 62 \n"
                     "[FFFE,E0DD][     0]Implicit terminator\n"
                     "Variable length item [sequence, etc]\n"
                     "[FFFE,E000][    -1]Implicit length of sequence\n"
                     "[FFFE,E00D][     0]Implicit terminator\n"
                     "[FFFE,E0DD][     0]Implicit terminator\n");
    std::filesystem::remove(m_Path);
    set.GetVR(0x0040, 0xA730)->m_TypeCode = TypeCode("SQ");
    MemoryOutputBuffer out;
    codec.EncodeExplicitLittleEndian(out, &set);
    EXPECT_EQ(Log(), "-----------------------------\nParsing outgoing Explicit Little Endian\n"
                     "[0040][A730][FFFFFFFF][SQ]Start undefined length sequence\n"
                     "[FFFE][E000][ffffffff]Start Sequence item\n"
                     "Deleting (0000)[0028,0010][     2][XX]:61 62 \n"
                     "[FFFE][E00D][ffffffff]End Sequence item\n"
                     "[FFFE][E0DD][ffffffff]End Sequence\n"
                     "Deleting (0022)[0040,A731][     0][XX]:\n");
}
