// The Kit in several threads: each finds, loads, exports, draws and converts a series of its own, and all share one.
#include "AtOnce.h"
#include "FolderTest.h"

#include <Korvane/Kit.h>

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

using namespace korvane;

namespace {

class KitThreads : public FolderTest {};

std::string FileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return "no " + path;
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string VoxelBytes(const Volume& volume) {
    const auto bytes = volume.GetBytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

PhantomOptions SmallPhantom(int number) {
    PhantomOptions options;
    options.slices = 6;
    options.columns = 40;
    options.rows = 32;
    options.seed = static_cast<std::uint32_t>(number + 1);
    options.oblique = number % 2 == 1;
    return options;
}

// A picture of the volume, and its files in two formats.
std::string Products(const Volume& volume, const std::string& name) {
    SliceOptions options;
    options.view = View::Coronal;
    options.annotate = true;
    const SlicePicture slice = Slice(volume, options);
    std::string all(reinterpret_cast<const char*>(slice.picture.GetPixels()), slice.picture.GetSize());
    ExportOptions exportOptions;
    exportOptions.jobs = 2;
    Export(volume, "analyze", "file:" + name, exportOptions);
    Export(volume, "vox", "file:" + name, exportOptions);
    for (const char* const extension : {".hdr", ".img", ".vox"}) all += FileBytes(name + extension);
    return all;
}

// All that a program does with a series, in a folder of its own; what came of it.
std::string Study(const std::string& folder, int number) {
    const std::string series = folder + "/series", packed = folder + "/packed", product = folder + "/volume";
    const auto paths = WritePhantom(series, SmallPhantom(number));
    const Found found = Find({series}, {.jobs = 2});
    LoadOptions loadOptions;
    loadOptions.jobs = 2;
    const Volume volume = Load(found.Only(), loadOptions);
    std::string all = VoxelBytes(volume) + Products(volume, product);
    const ConvertReport report = Convert(series, packed, {.syntax = number % 2 == 0 ? "rle" : "jpegll"});
    if (report.written != paths.size()) return "not all files converted";
    if (VoxelBytes(Load(Find({packed}).Only(), loadOptions)) != VoxelBytes(volume)) return "other voxels once packed";
    DataSet set = DataSet::Read(paths.front());
    set.Set("PatientName", "Doe^" + std::to_string(number));
    std::ostringstream saved;
    set.Save(saved);
    all += saved.str() + set.ToJson();
    try {
        Find({folder + "/nothing"});
    } catch (const Error& error) {
        all += std::to_string(static_cast<int>(error.GetKind()));
    }
    return all;
}

}  // namespace

TEST_F(KitThreads, WholeStudiesSideBySide) {
    const auto together = AtOnce([this](int number) { return Study(Path("once" + std::to_string(number)), number); });
    const auto alone = InTurn([this](int number) { return Study(Path("turn" + std::to_string(number)), number); });
    for (std::size_t i = 0; i < together.size(); ++i) {
        EXPECT_GT(together[i].size(), 50000U) << together[i].substr(0, 200);
        EXPECT_TRUE(together[i] == alone[i])
            << i << ": " << together[i].size() << " and " << alone[i].size() << " bytes";
    }
}

TEST_F(KitThreads, OneSeriesForAll) {
    WritePhantom(Path("series"), SmallPhantom(0));
    std::vector<Series> copies;
    {
        const Found found = Find({Path("series")});
        copies.assign(kThreads, found.Only());
    }
    const auto together = AtOnce([&](int number) {
        Series own = std::move(copies[static_cast<std::size_t>(number)]);
        const std::string text = Describe(own) + own.GetUid();
        return text + Products(Load(own), Path(std::to_string(number)));
    });
    EXPECT_GT(together[0].size(), 10000U) << together[0].substr(0, 200);
    for (const std::string& one : together) EXPECT_TRUE(one == together[0]);
}
