#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/dataset/Inputs.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

using namespace korvane;

namespace {

namespace fs = std::filesystem;

/// A tar archive of entries that begin like data sets.
std::string MakeTar(std::size_t entries, std::size_t size) {
    std::string tar;
    for (std::size_t i = 0; i < entries; ++i) {
        std::string head(512, '\0');
        head.replace(0, 2, "e" + std::to_string(i));
        std::snprintf(head.data() + 100, 8, "%07o", 0644);
        std::snprintf(head.data() + 124, 12, "%011lo", static_cast<unsigned long>(size));
        std::memcpy(head.data() + 257, "ustar\00000", 8);
        head[156] = '0';
        std::memset(head.data() + 148, ' ', 8);
        unsigned sum = 0;
        for (const char c : head) sum += static_cast<unsigned char>(c);
        std::snprintf(head.data() + 148, 8, "%06o", sum);
        std::string body((size + 511) / 512 * 512, '\0');
        std::memcpy(body.data() + 128, "DICM", 4);
        tar += head + body;
    }
    return tar + std::string(1024, '\0');
}

Inputs Read(const std::string& bytes, InputOptions options = {}) {
    std::istringstream stream(bytes);
    options.stream = &stream;
    options.temporaryFolder = testing::TempDir();
    return FindInputs({"-"}, options, 1, {});
}

}  // namespace

// Archives are bounded; what they leave on the disk goes with the last who knows of it.
TEST(Inputs, ArchivesAreBoundedAndLeaveNothing) {
    const std::string tar = MakeTar(5, 2000);
    try {
        Read(tar);
    } catch (const Error& error) {
        ASSERT_EQ(error.GetKind(), ErrorKind::Unsupported);  // a build without libarchive
        GTEST_SKIP() << "this build reads no archives";
    }
    fs::path place;
    {
        const Inputs all = Read(tar);
        ASSERT_EQ(all.files.size(), 5U);
        EXPECT_EQ(all.files.front().name, "standard input: e0");
        place = all.files.front().place;
        EXPECT_EQ(fs::file_size(place), 2000U);
        EXPECT_TRUE(all.unreadable.empty());
    }
    EXPECT_FALSE(fs::exists(place.parent_path()));
    InputOptions few;
    few.mostEntries = 3;
    EXPECT_EQ(Read(tar, few).files.size(), 3U);
    EXPECT_EQ(Read(tar, few).unreadable.size(), 1U);
    EXPECT_EQ(Read(tar.substr(0, tar.size() / 2), {}).unreadable.size(), 1U);
    // Of a stream the archive itself counts first.
    InputOptions small;
    small.mostBytes = 5000;
    EXPECT_THROW(Read(tar, small), Error);
    const fs::path file = fs::path(testing::TempDir()) / "bounded.tar";
    std::FILE* const out = std::fopen(file.string().c_str(), "wb");
    ASSERT_EQ(std::fwrite(tar.data(), 1, tar.size(), out), tar.size());
    std::fclose(out);
    small.temporaryFolder = testing::TempDir();
    const Inputs bounded = FindInputs({file.string()}, small, 1, {});
    EXPECT_EQ(bounded.files.size(), 2U);
    EXPECT_EQ(bounded.unreadable.size(), 1U);
    fs::remove(file);
}

// Folders are read side by side: what is listed, and in which order, does not depend on that. Names tell themselves apart
// early, late, by their length, by bytes beyond ASCII, and by what sorts before a slash.
TEST(Inputs, FoldersAreListedByNameWhateverTheThreads) {
    const fs::path root = fs::path(testing::TempDir()) / "listed";
    fs::remove_all(root);
    std::set<std::string> expected;
    const auto make = [&](const fs::path& path) {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << 'x';
        expected.insert(path.generic_string());
    };
    for (int folder = 0; folder < 30; ++folder) {
        const fs::path below = root / ("f" + std::to_string(folder));
        for (const char* const name : {"IM000012345", "IM000012344", "IM", "I", "\xC3\xA4", "a b", "a-b"})
            make(below / name);
        make(root / ("f" + std::to_string(folder) + "-x"));
        make(below / "deep" / "er" / "IM000012345");
        fs::create_directories(below / "empty");
    }
    std::error_code unsupported;
    fs::create_directory_symlink(root, root / "f1" / "loop", unsupported);
    for (const unsigned jobs : {1U, 4U}) {
        const Inputs all = FindInputs({root.string(), (root / "f3").string()}, {}, jobs, {});
        std::vector<std::string> names;
        for (const NamedFile& file : all.files) {
            names.push_back(file.name);
            EXPECT_EQ(file.place, file.name);
        }
        EXPECT_EQ(names, std::vector<std::string>(expected.begin(), expected.end()));
        EXPECT_TRUE(all.unreadable.empty());
    }
    fs::remove_all(root);
}
