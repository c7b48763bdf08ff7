#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/core/ExportFiles.h>

#include <Korvane/export/CFileWriter.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

using namespace korvane;

namespace {

namespace fs = std::filesystem;

std::string ReadText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

const fs::path kFolder = fs::temp_directory_path() / "korvane-export-files-test";

// A header and an image, which `files` then has without their names.
void WritePair(ExportFiles& files, std::string text) {
    const auto writer = files.MakeWriter();
    for (const char* const name : {"/v.hdr", "/v.img"}) {
        ASSERT_TRUE(writer->Open((kFolder.string() + name).c_str(), "wb")) << files.GetFailure();
        EXPECT_EQ(writer->Write(text.data(), 1, static_cast<unsigned>(text.size())), text.size());
        EXPECT_EQ(writer->Close(), 0);
    }
}

// Windows does not replace a file that somebody reads, other systems do: either way the two belong together.
TEST(ExportFilesTest, APairInUseIsReplacedWholeOrNotAtAll) {
    fs::remove_all(kFolder);
    fs::create_directories(kFolder);
    for (const char* const name : {"v.hdr", "v.img"}) std::ofstream(kFolder / name) << "old";
    bool replaced = false;
    {
        const std::ifstream reader(kFolder / "v.img");
        ExportFiles files(Destination{});
        WritePair(files, "new");
        try {
            files.Commit();
            replaced = true;
        } catch (const Error& error) {
            EXPECT_NE(std::string(error.what()).find("v.img: "), std::string::npos) << error.what();
        }
    }
    for (const char* const name : {"v.hdr", "v.img"}) {
        EXPECT_EQ(ReadText(kFolder / name), replaced ? "new" : "old") << name;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(kFolder), fs::directory_iterator{}), 2);
    fs::remove_all(kFolder);
}

// The header of one beside the image of the other would be a volume that nobody wrote.
TEST(ExportFilesTest, PairsOfOneNameMadeAtOnceAreNotMixed) {
    fs::remove_all(kFolder);
    fs::create_directories(kFolder);
    for (int round = 0; round < 60; ++round) {
        std::vector<std::thread> threads;
        std::atomic<int> written{0};
        for (const char* const text : {"one", "two", "three"}) {
            threads.emplace_back([text, &written] {
                ExportFiles files(Destination{});
                WritePair(files, text);
                for (++written; written < 3;) std::this_thread::yield();
                try {
                    files.Commit();
                } catch (const Error&) {  // of files that are in use; it is told, and nothing is replaced
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        ASSERT_EQ(ReadText(kFolder / "v.hdr"), ReadText(kFolder / "v.img")) << round;
    }
    fs::remove_all(kFolder);
}

}  // namespace
