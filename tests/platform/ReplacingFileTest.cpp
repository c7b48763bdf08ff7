#include <Korvane/platform/ReplacingFile.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

using namespace platform;
namespace fs = std::filesystem;

namespace {

class ReplacingFileTest : public testing::Test {
protected:
    ReplacingFileTest()
        : m_Folder(fs::path(testing::TempDir()) /
                   (std::string("korvane-") + testing::UnitTest::GetInstance()->current_test_info()->name())) {
        fs::remove_all(m_Folder);
        fs::create_directories(m_Folder);
    }
    ~ReplacingFileTest() override { fs::remove_all(m_Folder); }

    std::string Path(const std::string& name) const { return (m_Folder / fs::path(name)).string(); }

    std::string Text(const std::string& name) const {
        std::ifstream file(m_Folder / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::size_t Count() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_Folder), fs::directory_iterator{}));
    }

    fs::path m_Folder;
};

TEST_F(ReplacingFileTest, TheOldFileStaysUntilTheNewOneIsWholeAndNothingElseDoes) {
    std::ofstream(m_Folder / "a") << "old";
    ReplacingFile file;
    ReplacingFile other;  // two writers of one name do not meet before the end
    ASSERT_TRUE(file.Open(Path("a")) && other.Open(Path("a")));
    EXPECT_NE(file.GetUnfinished(), other.GetUnfinished());
    EXPECT_EQ(fs::path(file.GetUnfinished()).filename().string().substr(0, 3), ".a.");
    EXPECT_TRUE(file.Write("new", 3) && other.Write("other", 5));
    other.Discard();
    EXPECT_EQ(Text("a"), "old");
    file.SetDurable(true);
    EXPECT_TRUE(file.Commit());
    EXPECT_EQ(Text("a"), "new");
    EXPECT_FALSE(file.Commit());  // once only
    {
        ReplacingFile unused;
        EXPECT_TRUE(unused.Reserve(Path("b")));
    }
    EXPECT_EQ(Count(), 1U);
    EXPECT_FALSE(file.Open(Path("none\\a")));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ReplacingFileTest, WhereNothingMayBeReplacedTheFileWaitsForAnotherName) {
    std::ofstream(m_Folder / "a") << "old";
    ReplacingFile file;
    ASSERT_TRUE(file.Open(Path("a")) && file.Write("new", 3));
    EXPECT_FALSE(file.Commit(ReplacingFile::Existing::Refuse));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_TRUE(file.CommitAs(Path("a-2"), ReplacingFile::Existing::Refuse));
    EXPECT_EQ(Text("a") + Text("a-2"), "oldnew");
    fs::create_directory(m_Folder / "folder");
    ASSERT_TRUE(file.Open(Path("folder")));
    EXPECT_FALSE(file.Commit());
    file.Discard();
    EXPECT_EQ(Count(), 3U);
}

TEST_F(ReplacingFileTest, NamesOfAnyLengthThatTheSystemTakesAndLargeFilesAreWritten) {
    for (const std::string& target : {std::string(251, 'n'), std::string("größe")}) {
        if (IsPathTooLong((m_Folder.string() + "/" + target).c_str())) continue;
        ReplacingFile file;
        const std::vector<char> bytes(std::size_t{1} << 20, 'x');
        ASSERT_TRUE(file.Open(m_Folder.string() + "/" + target)) << target;
        EXPECT_TRUE(file.Write("a", 1) && file.Write(bytes.data(), bytes.size()) && file.Write("b", 1));
        ASSERT_TRUE(file.Commit()) << target;
        const fs::path path = m_Folder / fs::path(std::u8string(target.begin(), target.end()));
        EXPECT_EQ(fs::file_size(path), bytes.size() + 2);
    }
}

}  // namespace
