#include "Phantom.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/Watch.h"
#include "../dataset/Toolkit.h"
#include "PhantomSeries.h"

#include <utility>

namespace korvane {

namespace {

constexpr int kMostSlices = 100000;
constexpr int kMostVolumes = 1000;
constexpr int kLongestSide = 32767;

// Removes what was written, unless everything was.
class WrittenFiles {
public:
    WrittenFiles() = default;
    ~WrittenFiles() {
        for (const std::string& path : m_Paths) RemoveFile(path);
    }
    WrittenFiles(const WrittenFiles&) = delete;
    WrittenFiles& operator=(const WrittenFiles&) = delete;

    void Add(const std::string& path) { m_Paths.push_back(path); }
    std::vector<std::string> Keep() { return std::exchange(m_Paths, {}); }

private:
    std::vector<std::string> m_Paths;
};

void CheckRange(const char* what, int value, int most) {
    if (value >= 1 && value <= most) return;
    throw Error(ErrorKind::WrongArgument,
                std::string(what) + " of a phantom: 1 to " + std::to_string(most) + ", not " + std::to_string(value));
}

}  // namespace

std::vector<std::string> WritePhantom(const std::string& folder, const PhantomOptions& options) {
    CheckRange("slices", options.slices, kMostSlices);
    CheckRange("columns", options.columns, kLongestSide);
    CheckRange("rows", options.rows, kLongestSide);
    CheckRange("volumes", options.volumes, kMostVolumes);
    const PhantomSeries series(options);
    MakeDirectory(folder);
    WrittenFiles written;
    TaskProgress progress(options.watcher, "writing", series.GetCount());
    for (int image = 0; image < series.GetCount(); ++image) {
        const std::string path = folder + "/" + series.FileName(image);
        const auto dataSet = series.MakeImage(image);
        written.Add(path);
        SaveFile(path, *dataSet);
        progress.Step();
    }
    return written.Keep();
}

}  // namespace korvane
