// One job of the Kit on one thread and on several: the same results, bytes, findings and failures, in the same order.
#include "FolderTest.h"

#include <Korvane/Kit.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace korvane;

namespace fs = std::filesystem;

namespace {

constexpr unsigned kJobs[] = {1, 2, 5};

std::string BytesOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return "no " + path.string();
    return {std::istreambuf_iterator<char>(file), {}};
}

/// All files of a folder, with their names.
std::string BytesBelow(const std::string& folder) {
    std::vector<fs::path> paths;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    std::string all;
    for (const fs::path& path : paths) all += fs::relative(path, folder).generic_string() + '\n' + BytesOf(path);
    return all;
}

/// Hears everything in one thread, and stops at one of the questions.
class Listener : public Watcher {
public:
    explicit Listener(int stopAt = 1 << 30) : m_StopAt(stopAt) {}

    void OnTask(const Task& task) override { Hear(task.label + ' ' + std::to_string(task.total)); }
    void OnStep(std::int64_t done) override { Hear(std::to_string(done)); }
    void OnFinding(const Finding& finding) override { Hear(finding.text); }
    bool IsStopped() noexcept override { return m_nQuestions++ >= m_StopAt; }

    std::string text;

private:
    void Hear(const std::string& what) {
        EXPECT_EQ(std::this_thread::get_id(), m_Thread);
        text += what + '\n';
    }

    int m_StopAt;
    std::atomic<int> m_nQuestions{0};
    std::thread::id m_Thread = std::this_thread::get_id();
};

class KitJobs : public FolderTest {
protected:
    KitJobs() {
        const auto paths = WritePhantom(Path("series"), {.slices = 23, .columns = 96, .rows = 128, .oblique = true});
        Convert(Path("series"), Path("packed"), {.syntax = "rle"});
        fs::copy_file(paths[3], Path("series/copy.dcm"));
        std::ofstream(Path("series/notes.txt")) << "no image";
    }

    /// The same for every number of threads. `run`: takes that number and a watcher, returns what came of it or throws, which it
    /// must where `fails`.
    template <class Run>
    void ExpectSame(const Run& run, bool fails = false) {
        std::string alone;
        for (const unsigned jobs : kJobs) {
            Listener listener;
            fs::remove_all(Path("out"));
            fs::create_directories(Path("out"));
            std::string result;
            try {
                result = run(jobs, &listener);
            } catch (const Error& error) {
                result = std::string("failed: ") + error.what();
            }
            EXPECT_EQ(result.starts_with("failed: "), fails) << result.substr(0, 300);
            result += listener.text + BytesBelow(Path("out"));
            if (jobs == 1) alone = result;
            EXPECT_TRUE(result == alone) << jobs << " threads: " << result.substr(0, 300) << "\nbut\n"
                                         << alone.substr(0, 300);
        }
    }

    /// Damages the run lengths of a slice in the middle.
    void Damage(const std::string& name) {
        std::vector<fs::path> paths;
        for (const auto& entry : fs::directory_iterator(Path(name))) paths.push_back(entry.path());
        std::sort(paths.begin(), paths.end());
        for (const std::size_t at : {std::size_t{15}, std::size_t{9}}) {
            fs::resize_file(paths[at], fs::file_size(paths[at]) - 300);
        }
    }
};

std::string VoxelsOf(const Volume& volume) {
    const auto bytes = volume.GetBytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

TEST_F(KitJobs, FindingAndLoading) {
    for (const char* const name : {"series", "packed"}) {
        ExpectSame([&](unsigned jobs, Watcher* watcher) {
            const Found found = Find({Path(name)}, {.jobs = jobs, .watcher = watcher});
            LoadOptions options;
            options.jobs = jobs;
            options.watcher = watcher;
            const Volume volume = Load(found.Only(), options);
            return ToJson(found) + VoxelsOf(volume);
        });
    }
    Damage("packed");
    const auto load = [&](unsigned jobs, Watcher* watcher) {
        LoadOptions options;
        options.jobs = jobs;
        options.watcher = watcher;
        return VoxelsOf(Load(Find({Path("packed")}, {.jobs = jobs}).Only(), options));
    };
    ExpectSame(load, true);
}

TEST_F(KitJobs, Converting) {
    Damage("packed");
    for (const auto& [from, syntax] : {std::pair("series", "rle"), {"series", "jpegll"}, {"packed", "explicit"}}) {
        ExpectSame([&, &name = from, &to = syntax](unsigned jobs, Watcher* watcher) {
            const ConvertReport report =
                Convert(Path(name), Path("out/converted"), {.syntax = to, .jobs = jobs, .watcher = watcher});
            return std::to_string(report.written) + ' ' + std::to_string(report.failed) + ' ' +
                   std::to_string(report.notDicom) + ' ' + std::to_string(report.findings.size());
        });
    }
}

TEST_F(KitJobs, BuildingMedia) {
    Damage("packed");
    for (const bool decoded : {false, true}) {
        ExpectSame([&](unsigned jobs, Watcher* watcher) {
            MediumOptions options;
            options.transcode = decoded;
            options.jobs = jobs;
            options.watcher = watcher;
            const MediumReport report = BuildMedium(Path("out/medium"), {Path("packed"), Path("series")}, options);
            EXPECT_EQ(report.rewritten.empty(), !decoded);
            fs::remove(Path("out/medium/DICOMDIR"));  // has a UID of its own
            return ToJson(report);
        });
    }
}

TEST_F(KitJobs, Exporting) {
    WritePhantom(Path("times"), {.slices = 5, .columns = 16, .rows = 16, .volumes = 12});
    for (const char* const format : {"analyze", "vox", "bob", "nifti"}) {
        for (const char* const name : {"series", "packed", "times"}) {
            for (const Irregular policy : {Irregular::Keep, Irregular::Resample}) {
                ExpectSame([&](unsigned jobs, Watcher* watcher) {
                    ExportOptions options;
                    options.irregular = policy;
                    options.jobs = jobs;
                    options.watcher = watcher;
                    Export(Find({Path(name)}, {.jobs = jobs}).Only(), format, "file:" + Path("out/volume"), options);
                    return std::string();
                });
            }
        }
    }
}

std::string PicturesOf(const Volume& volume, SliceOptions options) {
    std::string all;
    for (const SlicePicture& drawn : SliceStack(volume, options)) {
        all += drawn.report.what;
        all.append(reinterpret_cast<const char*>(drawn.picture.GetPixels()), drawn.picture.GetSize());
    }
    return all;
}

TEST_F(KitJobs, Slicing) {
    const Volume volume = Load(Find({Path("packed")}).Only());
    SliceOptions oblique;
    oblique.view.reset();
    oblique.plane.normal = {0.3, -1, 0.4};
    oblique.size = 700;  // large enough for several threads
    oblique.slab = 6;
    oblique.annotate = true;
    oblique.count = 3;
    oblique.step = 4;
    SliceOptions all;
    all.pictures = SliceOptions::Pictures::All;
    all.view = View::Coronal;
    for (SliceOptions options : {oblique, all}) {
        ExpectSame([&](unsigned jobs, Watcher* watcher) {
            options.jobs = jobs;
            options.watcher = watcher;
            const SliceReport report = SaveSlices(volume, Path("out/pictures"), options);
            return PicturesOf(volume, options) + Describe(report).front();
        });
    }
    for (const bool values : {false, true}) {
        ExpectSame([&](unsigned jobs, Watcher* watcher) {
            SliceOptions one = oblique;
            one.count = 1;
            one.values = values;
            one.raw16 = !values;
            one.annotate = false;
            one.jobs = jobs;
            one.watcher = watcher;
            try {
                return Describe(SaveSlices(volume, Path("out/picture") + (values ? ".tif" : ".png"), one)).front();
            } catch (const Error& error) {
                if (!values || error.GetKind() != ErrorKind::Unsupported) throw;
                return std::string(error.what());  // a build without TIFF
            }
        });
    }
}

TEST_F(KitJobs, AStopEndsAllAndLeavesNothing) {
    using namespace std::chrono;
    for (const unsigned jobs : kJobs) {
        for (int stopAt = 0; stopAt < 400; stopAt += 23) {
            fs::remove_all(Path("out"));
            Listener listener(stopAt);
            const auto begun = steady_clock::now();
            try {
                Convert(Path("series"), Path("out"), {.syntax = "rle", .jobs = jobs, .watcher = &listener});
                const Found found = Find({Path("packed")}, {.jobs = jobs, .watcher = &listener});
                LoadOptions options;
                options.jobs = jobs;
                options.watcher = &listener;
                Load(found.Only(), options);
                EXPECT_GT(stopAt, 200);  // it asks more often than that
            } catch (const Error& error) {
                EXPECT_EQ(error.GetKind(), ErrorKind::Stopped) << error.what();
            }
            EXPECT_LT(steady_clock::now() - begun, seconds(60));
            if (!fs::exists(Path("out"))) continue;
            for (const auto& entry : fs::recursive_directory_iterator(Path("out"))) {
                EXPECT_NO_THROW(DataSet::Read(entry.path().string())) << entry.path();
            }
        }
    }
}

}  // namespace
