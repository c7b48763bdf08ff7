#include "SendList.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../dataset/DataSetFile.h"
#include "../dataset/DataSetOutput.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace korvane {

namespace {

void Examine(const std::string& path, bool fromFolder, const Watch& watch, SendList& list) {
    StorageFile file;
    std::string why;
    if (file.Examine(path, why) != 0) {
        list.bytes += file.dataLength;
        list.files.push_back(std::move(file));
        return;
    }
    bool isMeant = true;
    try {
        const DataSetFile read = ReadDataSetFile(path, kStopBeforePixelData, watch);
        if (read.dataSet == nullptr) {
            isMeant = false;
            why = "not DICOM";
        } else if (IsMediaDirectory(*read.dataSet)) {
            isMeant = false;
            why = "a DICOMDIR";
        }
    } catch (const Error& error) {  // a file that cannot be read: `why` says so already
        if (error.GetKind() == ErrorKind::Stopped) throw;
    }
    (isMeant || !fromFolder ? list.failed : list.leftOut).push_back({path, why});
}

}  // namespace

SendList ListFilesToSend(const std::vector<std::string>& sources, const Watch& watch) {
    SendList list;
    std::vector<std::pair<std::string, bool>> paths;  // each with whether it was found in a folder
    for (const std::string& source : sources) {
        std::error_code error;
        if (!std::filesystem::is_directory(PathFromText(source), error)) {
            paths.emplace_back(source, false);
            continue;
        }
        std::vector<std::string> files;
        std::vector<std::string> unreadable;
        ListFolder(PathFromText(source), files, unreadable, watch);
        std::sort(files.begin(), files.end());
        for (const std::string& file : files) paths.emplace_back(file, true);
        for (const std::string& line : unreadable) list.failed.push_back({source, line});
    }
    TaskProgress progress(watch, "looking", static_cast<std::int64_t>(paths.size()));
    for (const auto& [path, fromFolder] : paths) {
        Examine(path, fromFolder, watch, list);
        progress.Step();
    }
    return list;
}

}  // namespace korvane
