#include "CommittedFiles.h"

#include "../core/Paths.h"
#include "ReceivedFiles.h"

#include "Dicom/Lib/network/StorageUser.h"
#include "platform/File.h"
#include "platform/Sync.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace korvane {

namespace {

constexpr int kMostVersions = 100;  // of an instance that are looked at
constexpr char kExtension[] = ".dcm";

using Files = std::map<std::string, std::vector<std::string>>;  // paths by the name without number and extension

// The name that a file has for its instance, without the "-2" of a second version; "" for other files.
std::string InstanceNameOf(const std::string& file) {
    const std::size_t end = file.size() - std::min(file.size(), sizeof kExtension - 1);
    if (file.substr(end) != kExtension) return "";
    return file.substr(0, std::min(end, file.find('-')));
}

class Search {
public:
    Search(const ReceiveOptions& options, const std::function<bool()>& stop) : m_Options(options), m_Stop(stop) {}

    bool IsStopped() const { return m_Stop && m_Stop(); }

    // Where files lie in folders of their own, one walk finds all that are asked for.
    void Walk(const CommitmentData& data) {
        if (m_Options.layout == FileLayout::Flat) return;
        for (const CommitmentItem& item : data.items) m_Files[FileNameOf(item.sopInstance)];
        std::error_code error;
        const auto options = std::filesystem::directory_options::skip_permission_denied;
        std::filesystem::recursive_directory_iterator entry(PathFromText(m_Options.folder), options, error);
        for (; !error && entry != std::filesystem::recursive_directory_iterator() && !IsStopped();
             entry.increment(error)) {
            const auto wanted = m_Files.find(InstanceNameOf(TextFromPath(entry->path().filename())));
            if (wanted == m_Files.end() || wanted->second.size() == kMostVersions) continue;
            wanted->second.push_back(TextFromPath(entry->path()));
        }
    }

    // 0, or why the instance is not committed.
    std::uint16_t Check(const CommitmentItem& item) {
        std::uint16_t failure = kStatusNoSuchInstance;
        for (const std::string& path : PathsOf(FileNameOf(item.sopInstance))) {
            std::error_code error;
            StorageFile file;
            std::string why;
            const bool isWhole = std::filesystem::is_regular_file(PathFromText(path), error) &&
                                 file.Examine(path, why) != 0 && file.sopInstance == item.sopInstance;
            if (isWhole && file.sopClass == item.sopClass && Sync(path)) return 0;
            const bool isOther = isWhole && file.sopClass != item.sopClass;
            failure = isOther ? kStatusClassInstanceConflict : kStatusProcessingFailure;
        }
        return failure;
    }

private:
    std::vector<std::string> PathsOf(const std::string& name) const {
        if (m_Options.layout != FileLayout::Flat) return m_Files.at(name);
        std::vector<std::string> paths;
        std::string path = m_Options.folder + "/" + name + kExtension;
        for (int number = 2; number <= kMostVersions && platform::FileExists(path.c_str()); ++number) {
            paths.push_back(path);
            path = m_Options.folder + "/" + name + "-" + std::to_string(number) + kExtension;
        }
        return paths;
    }

    // Each folder once: what is asked about was there before.
    bool Sync(const std::string& path) {
        if (!platform::SyncFile(path.c_str())) return false;
        const std::string folder = platform::FolderOf(path);
        if (m_Synced.contains(folder)) return true;
        if (!platform::SyncFolder(folder.c_str())) return false;
        m_Synced.insert(folder);
        return true;
    }

    const ReceiveOptions& m_Options;
    const std::function<bool()>& m_Stop;
    Files m_Files;
    std::set<std::string> m_Synced;
};

}  // namespace

bool CheckCommitted(const ReceiveOptions& options, CommitmentData& data, const std::function<bool()>& stop) {
    Search search(options, stop);
    search.Walk(data);
    for (CommitmentItem& item : data.items) {
        if (search.IsStopped()) return false;
        item.failure = search.Check(item);
    }
    return !search.IsStopped();
}

}  // namespace korvane
