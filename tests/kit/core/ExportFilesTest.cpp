#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/core/ExportFiles.h>

#include <Korvane/export/CFileWriter.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace korvane;

namespace {

namespace fs = std::filesystem;

std::string ReadText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Windows does not replace a file that somebody reads, other systems do: either way the two belong together.
TEST(ExportFilesTest, APairInUseIsReplacedWholeOrNotAtAll) {
    const fs::path folder = fs::temp_directory_path() / "korvane-export-files-test";
    fs::remove_all(folder);
    fs::create_directories(folder);
    for (const char* const name : {"v.hdr", "v.img"}) std::ofstream(folder / name) << "old";
    bool replaced = false;
    {
        const std::ifstream reader(folder / "v.img");
        ExportFiles files(Destination{});
        const auto writer = files.MakeWriter();
        for (const char* const name : {"/v.hdr", "/v.img"}) {
            ASSERT_TRUE(writer->Open((folder.string() + name).c_str(), "wb")) << files.GetFailure();
            char text[] = "new";
            EXPECT_EQ(writer->Write(text, 1, 3), 3U);
            EXPECT_EQ(writer->Close(), 0);
        }
        try {
            files.Commit();
            replaced = true;
        } catch (const Error& error) {
            EXPECT_NE(std::string(error.what()).find("v.img: "), std::string::npos) << error.what();
        }
    }
    for (const char* const name : {"v.hdr", "v.img"}) {
        EXPECT_EQ(ReadText(folder / name), replaced ? "new" : "old") << name;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator{}), 2);
    fs::remove_all(folder);
}

}  // namespace
