#include "export/ExportFixture.h"

namespace {

class CFileWriterTest : public ExportTest {
protected:
    CFileWriter m_Writer;
    char m_Text[9] = "abcdefgh";
};

TEST_F(CFileWriterTest, WritesItemsTextAndSeeksFromTheStart) {
    ASSERT_TRUE(m_Writer.Open((m_Folder.string() + "\\sub/f").c_str(), "wb"));
    EXPECT_EQ(m_Writer.Write(m_Text, 3, 2), 2u);  // items, not bytes
    EXPECT_EQ(m_Writer.Print("<%d %s>", 42, "x"), 6);
    EXPECT_EQ(m_Writer.Seek(1), 0u);
    EXPECT_EQ(m_Writer.Write(m_Text + 6, 1, 2), 2u);
    EXPECT_EQ(m_Writer.Close(), 0);
    EXPECT_EQ(ReadBack("sub/f"), "aghdef<42 x>");
}

TEST_F(CFileWriterTest, NumbersAndOffsetsAreTheSameOnEverySystem) {
    ASSERT_TRUE(m_Writer.Open(Path("f").c_str(), "wb"));
    EXPECT_EQ(m_Writer.Print("%f %e %g %lld\n", 0.5, 1e5, 1e-7, 1LL << 40), 42);
    EXPECT_EQ(m_Writer.Close(), 0);
    EXPECT_EQ(ReadBack("f"), "0.500000 1.000000e+05 1e-07 1099511627776\n");
    ASSERT_TRUE(m_Writer.Open(Path("f").c_str(), "wb"));
    EXPECT_EQ(m_Writer.Seek(3'000'000'000), 0u);
    EXPECT_EQ(m_Writer.Write(m_Text, 1, 1), 1u);
    EXPECT_EQ(m_Writer.Close(), 0);
    EXPECT_EQ(std::filesystem::file_size(Path("f")), 3'000'000'001);
}

TEST_F(CFileWriterTest, FailsQuietlyWithoutAFile) {
    EXPECT_FALSE(m_Writer.Open(Path("sub").c_str(), "rb"));  // a directory is no file
    EXPECT_STREQ(m_Writer.StrError(), std::strerror(EISDIR));
    EXPECT_EQ(m_Writer.Write(m_Text, 1, 8), 0u);
    EXPECT_LT(m_Writer.Print("text"), 0);
    EXPECT_NE(m_Writer.Seek(0), 0u);
    EXPECT_EQ(m_Writer.Close(), 0);
}

TEST_F(CFileWriterTest, ACopySharesTheFileAndNeverClosesIt) {
    ASSERT_TRUE(m_Writer.Open(Path("f").c_str(), "wb"));
    {
        CFileWriter copy(m_Writer);
        EXPECT_EQ(copy.Write(m_Text, 1, 3), 3u);
        EXPECT_EQ(copy.Close(), 0);
        EXPECT_EQ(ReadBack("f"), "abc");  // flushed, though not closed
        copy = m_Writer;
        m_Writer = copy;  // the source stays the owner
    }
    EXPECT_EQ(m_Writer.Write(m_Text + 3, 1, 5), 5u);
    ASSERT_TRUE(m_Writer.Open(Path("g").c_str(), "wb"));  // closes the file before
    EXPECT_EQ(ReadBack("f"), m_Text);
}

}  // namespace
