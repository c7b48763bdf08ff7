#include "FolderTest.h"

#include <Korvane/platform/File.h>
#include <Korvane/platform/FileTree.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

using namespace platform;
namespace fs = std::filesystem;

using File = FolderTest;

TEST_F(File, BothSeparatorsWorkAndDirectoriesAreRefused) {
    const std::string path = m_Folder.string() + "\\a.bin";
    OutputFile out;
    ASSERT_TRUE(out.Open(path.c_str()));
    EXPECT_TRUE(out.Write("abcdef", 6));
    EXPECT_TRUE(out.Close());
    EXPECT_EQ(fs::file_size(m_Folder / "a.bin"), 6U);
    EXPECT_TRUE(FileExists(path.c_str()));

    InputFile in;
    char bytes[8];
    ASSERT_TRUE(in.Open((m_Folder / "a.bin").string().c_str()));
    EXPECT_EQ(in.GetSize(), 6U);
    EXPECT_EQ(in.Read(bytes, 4), 4U);
    EXPECT_EQ(in.Read(bytes, 8), 2U);
    EXPECT_FALSE(in.HasFailed());

    EXPECT_FALSE(in.Open(m_Folder.string().c_str()));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(OpenFile(m_Folder.string().c_str(), "rb"), nullptr);
    EXPECT_FALSE(in.Open((m_Folder / "missing").string().c_str()));
    EXPECT_EQ(errno, ENOENT);
}

// Readers keep the state to know the file again: it is the same as long as nobody writes, and another by the time alone.
TEST_F(File, TheStateOfAFileIsItsSizeAndWhenItWasWritten) {
    const fs::path path = m_Folder / "state.bin";
    const auto write = [&](const char* text) {
        OutputFile out;
        ASSERT_TRUE(out.Open(path.string().c_str()) && out.Write(text, std::strlen(text)) && out.Close());
    };
    const auto state = [&] {
        InputFile in;
        EXPECT_TRUE(in.Open(path.string().c_str()));
        return in.GetState();
    };
    write("abcdef");
    const FileState first = state();
    EXPECT_TRUE(first.isRegular);
    EXPECT_EQ(first.size, 6U);
    EXPECT_EQ(state(), first);
    write("ghijkl");
    fs::last_write_time(path, fs::last_write_time(path) + std::chrono::seconds(2));
    EXPECT_EQ(state().size, 6U);
    EXPECT_NE(state(), first);
}

TEST_F(File, PathsAreUtf8OrElseInTheCodePage) {
    const std::string utf8 = "\xCE\xA9\xE6\x97\xA5.bin", codePage = "gr\xF6.bin";
    for (const std::string& name : {utf8, codePage}) {
        const std::string path = m_Folder.string() + "/" + name;
        OutputFile out;
        ASSERT_TRUE(out.Open(path.c_str()));
        EXPECT_TRUE(out.Close());
        EXPECT_TRUE(FileExists(path.c_str()));
    }
    EXPECT_TRUE(fs::exists(m_Folder / fs::path(std::u8string(utf8.begin(), utf8.end()))));
}

TEST_F(File, AFullDiskIsReportedByClose) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    OutputFile out;
    ASSERT_TRUE(out.Open("/dev/full"));
    out.Write("x", 1);
    EXPECT_FALSE(out.Close());
}

TEST_F(File, ReadingWritingAndCopyingStopWithinAFewMegabytesAndLeaveNoCopy) {
    const std::string path = (m_Folder / "large").string();
    const std::string copy = (m_Folder / "copy").string();
    std::vector<char> bytes(std::size_t{24} << 20, 'x');
    int asked = 0;
    const StopQuestion third = [&] { return ++asked >= 3; };
    OutputFile out;
    ASSERT_TRUE(out.Open(path.c_str()));
    ASSERT_TRUE(out.Write(bytes.data(), bytes.size()) && out.Close());

    InputFile in;
    in.SetStopQuestion(third);
    ASSERT_TRUE(in.Open(path.c_str()));
    const std::size_t got = in.Read(bytes.data(), bytes.size());
    EXPECT_EQ(errno, EINTR);
    EXPECT_GT(got, 0U);
    EXPECT_LT(got, std::size_t{8} << 20);
    EXPECT_EQ(in.Read(bytes.data(), 1), 0U);
    EXPECT_EQ(in.GetError(), EINTR);

    asked = 0;
    EXPECT_FALSE(DuplicateFile(path.c_str(), copy.c_str(), third));
    EXPECT_EQ(errno, EINTR);
    EXPECT_FALSE(fs::exists(copy));
    EXPECT_TRUE(DuplicateFile(path.c_str(), copy.c_str()));
    EXPECT_EQ(fs::file_size(copy), bytes.size());

    asked = 0;
    out.SetStopQuestion(third);
    ASSERT_TRUE(out.Open(copy.c_str()));
    EXPECT_FALSE(out.Write(bytes.data(), bytes.size()));
    EXPECT_FALSE(out.Close());
    EXPECT_EQ(errno, EINTR);
    EXPECT_LT(fs::file_size(copy), std::size_t{8} << 20);
}
