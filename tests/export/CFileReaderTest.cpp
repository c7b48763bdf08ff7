#include "export/ExportFixture.h"

namespace {

using CFileReaderTest = ExportTest;

TEST_F(CFileReaderTest, SkipsBlanksAndCommentsButKeepsLeadingWhiteSpace) {
    MakeFile("f", "\n  # comment only\n  key = 1 # note\n \t\r\nend#\n#\n" + std::string(600, 'x'));
    CFileReader reader(Path("f").c_str());
    char line[5];
    for (const char* expected : {"  ke", "end", "xxxx", "xxxx"}) {  // the long line comes in two pieces
        EXPECT_FALSE(reader.Eof());
        ASSERT_TRUE(reader.ReadNextLine(line, sizeof line));
        EXPECT_STREQ(line, expected);
    }
    EXPECT_EQ(std::strlen(reader.GetCurrentLineBuf()), 89u);
    EXPECT_FALSE(reader.ReadNextLine(line, sizeof line));
    EXPECT_TRUE(reader.Eof());
    EXPECT_EQ(reader.GetCurrentLineNumber(), 8);  // skipped lines count

    reader.Reset();
    EXPECT_EQ(reader.GetCurrentLineNumber(), 0);
    CFileReader copy;  // shares the file, and leaves it open behind itself
    EXPECT_FALSE(copy.ReadNextLine(line, sizeof line));
    copy = CFileReader(reader);
    EXPECT_TRUE(copy.ReadNextLine(line, 0));
    EXPECT_STREQ(copy.GetCurrentLineBuf(), "  key = 1");
}

TEST_F(CFileReaderTest, FailsWithTheSystemsText) {
    EXPECT_EQ(ThrownText([this] { CFileReader reader(Path("none").c_str()); }), std::strerror(ENOENT));
    EXPECT_EQ(ThrownText([this] { CFileReader reader(Path("sub").c_str()); }), std::strerror(EISDIR));
}

}  // namespace
