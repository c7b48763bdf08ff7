// Other people's programs: watchers that throw and stop wherever they are called, files that change under an export.
#include "../../FolderTest.h"

#include <Korvane/kit/core/Error.h>
#include <Korvane/kit/core/Watcher.h>
#include <Korvane/kit/dataset/DataSet.h>
#include <Korvane/kit/export/Export.h>
#include <Korvane/kit/phantom/Phantom.h>
#include <Korvane/kit/study/Find.h>
#include <Korvane/kit/study/Load.h>

#include <Korvane/export/CAnalyzeVolume.h>
#include <Korvane/export/CCBobVolume.h>
#include <Korvane/export/CRTVizVolume.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <iterator>

using namespace korvane;

namespace {

/// Throws a number at one of its calls, or stops at one of the questions.
class Troublesome : public Watcher {
public:
    Troublesome(int throwAt, int stopAt) : m_ThrowAt(throwAt), m_StopAt(stopAt) {}

    void OnTask(const Task& /*task*/) override { Count(); }
    void OnStep(std::int64_t /*done*/) override { Count(); }
    void OnFinding(const Finding& /*finding*/) override { Count(); }
    bool IsStopped() noexcept override { return m_Questions++ >= m_StopAt; }

private:
    void Count() {
        if (m_Calls++ == m_ThrowAt) throw m_ThrowAt;
    }

    int m_ThrowAt;
    int m_StopAt;
    int m_Calls = 0;
    std::atomic<int> m_Questions{0};
};

constexpr int kNever = 1 << 30;

class ExportTest : public FolderTest {
protected:
    /// What ended the job: "thrown 3", "stopped"; "" when nothing did.
    std::string Run(const std::string& format, Irregular policy, int throwAt, int stopAt) {
        Troublesome watcher(throwAt, stopAt);
        try {
            const Found found = Find({Path("series")}, {.watcher = &watcher});
            Export(found.Only(), format, "file:" + Path("out/volume"), {.irregular = policy, .watcher = &watcher});
            return "";
        } catch (int thrown) {
            return "thrown " + std::to_string(thrown);
        } catch (const Error& error) {
            return error.what();
        }
    }
};

TEST_F(ExportTest, WhatWatchersThrowReachesTheCallerAndLeavesNoFiles) {
    WritePhantom(Path("series"), {.slices = 4, .columns = 8, .rows = 8, .uneven = true});
    for (const std::string& format : GetExportFormats()) {
        for (const Irregular policy : {Irregular::Keep, Irregular::Resample}) {
            int calls = 0;
            for (std::string end; (end = Run(format, policy, calls, kNever)) != ""; ++calls) {
                EXPECT_EQ(end, "thrown " + std::to_string(calls)) << format;
                EXPECT_TRUE(!std::filesystem::exists(Path("out")) || std::filesystem::is_empty(Path("out"))) << format;
            }
            EXPECT_GT(calls, 10);
            std::filesystem::remove_all(Path("out"));
            int questions = 0;
            for (std::string end; (end = Run(format, policy, kNever, questions)) != ""; questions += 3) {
                EXPECT_EQ(end, "stopped") << format;
                EXPECT_TRUE(!std::filesystem::exists(Path("out")) || std::filesystem::is_empty(Path("out"))) << format;
            }
            EXPECT_GT(questions, 10);
            std::filesystem::remove_all(Path("out"));
        }
    }
}

TEST_F(ExportTest, FilesThatChangedSinceTheyWereFoundAreRefused) {
    const std::vector<std::string> series = WritePhantom(Path("series"), {.slices = 4, .columns = 8, .rows = 8});
    const std::string other = WritePhantom(Path("other"), {.slices = 1, .columns = 8, .rows = 8}).front();
    for (const char* const format : {"nifti", "analyze"}) {
        const Found found = Find({Path("series")});
        std::filesystem::rename(series.at(2), Path("kept"));
        std::filesystem::copy(other, series.at(2));
        try {
            Export(found.Only(), format, "file:" + Path("volume"));
            ADD_FAILURE() << format << " of two series";
        } catch (const Error& error) {
            EXPECT_EQ(error.GetKind(), ErrorKind::Damaged) << error.what();
            EXPECT_NE(std::string(error.what()).find(std::filesystem::path(series.at(2)).filename().string()),
                      std::string::npos)
                << error.what();
        }
        std::filesystem::remove(series.at(2));
        std::filesystem::rename(Path("kept"), series.at(2));
    }
}

std::string BytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <class Exporter>
void SaveByModule(const Volume& volume, const std::string& folder) {
    std::filesystem::create_directories(folder);
    Exporter exporter;
    static_cast<CVolumeExport&>(exporter) = *volume.Module();
    EXPECT_TRUE(exporter.Save(folder.c_str(), "volume"));
}

// Takes places from slices, and numbers them: an Instance Number below 1 says which the module takes the pitch from.
void Number(const std::string& folder, const std::function<void(DataSet&, int slice)>& number) {
    std::vector<std::string> files;
    for (const auto& file : std::filesystem::directory_iterator(folder)) files.push_back(file.path().string());
    std::sort(files.begin(), files.end());
    for (int i = 0; i < static_cast<int>(files.size()); ++i) {
        DataSet dataSet = DataSet::Read(files[static_cast<std::size_t>(i)]);
        for (const char* const place : {"ImagePositionPatient", "ImageOrientationPatient", "SpacingBetweenSlices"})
            dataSet.Delete(std::string(place));
        dataSet.Set("SliceThickness", std::to_string(i + 2));
        number(dataSet, i);
        dataSet.Save(files[static_cast<std::size_t>(i)]);
    }
}

// Planes are read one after the other: each exporter must get each of them, and the range of all beforehand.
TEST_F(ExportTest, FilesOfTheModulesFormatsAreThoseOfAVolumeOfTheModule) {
    const std::vector<PhantomOptions> all = {{.slices = 130, .columns = 9, .rows = 7, .descending = true},
                                             {.slices = 1, .columns = 64, .rows = 64, .isSigned = true},
                                             {.slices = 12, .columns = 300, .rows = 300, .oblique = true},
                                             {.slices = 12, .columns = 9, .rows = 7}};
    const std::vector<std::function<void(DataSet&, int)>> numbers = {
        [](DataSet& dataSet, int) { dataSet.Delete("InstanceNumber"); },
        [](DataSet& dataSet, int) { dataSet.Set("InstanceNumber", "0"); },
        [](DataSet& dataSet, int slice) { dataSet.Set("InstanceNumber", std::to_string(slice - 3)); },
        [](DataSet& dataSet, int slice) { dataSet.Set("InstanceNumber", slice == 5 ? "" : "3"); },
        [](DataSet& dataSet, int slice) {
            if (slice == 6) dataSet.Set("InstanceNumber", "0");
            if (slice < 6) dataSet.Delete("InstanceNumber");
        }};
    for (std::size_t i = 0; i < all.size() + numbers.size(); ++i) {
        const std::string series = Path("series" + std::to_string(i));
        WritePhantom(series, all[std::min(i, all.size() - 1)]);
        if (i >= all.size()) Number(series, numbers[i - all.size()]);
        const Found found = Find({series});
        const Volume volume = Load(found.Only());
        SaveByModule<CAnalyzeVolume>(volume, Path("analyze"));
        SaveByModule<CCBobVolume>(volume, Path("bob"));
        SaveByModule<CRTVizVolume>(volume, Path("vox"));
        for (const char* const format : {"analyze", "bob", "vox"}) {
            for (const unsigned jobs : {1U, 3U}) {
                Export(found.Only(), format, "file:" + Path("out/volume"), {.jobs = jobs});
                for (const auto& file : std::filesystem::directory_iterator(Path(format))) {
                    const std::string name = file.path().filename().string();
                    EXPECT_EQ(BytesOf(file.path().string()), BytesOf(Path("out/" + name))) << i << ' ' << name;
                }
                std::filesystem::remove_all(Path("out"));
            }
            std::filesystem::remove_all(Path(format));
        }
    }
}

}  // namespace
