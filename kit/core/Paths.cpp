#include "Paths.h"

#include "Error.h"
#include "Threads.h"

#include "platform/File.h"
#include "platform/FolderReader.h"

#include <cerrno>
#include <deque>
#include <exception>
#include <system_error>
#include <utility>

namespace korvane {

namespace fs = std::filesystem;

namespace {

std::string CannotRead(const std::string& folder, const std::error_code& error) {
    return "cannot read " + folder + ": " + SystemText(error, folder);
}

}  // namespace

fs::path PathFromText(const std::string& text) {
    const std::string native = platform::NativePath(text.c_str());
    return {std::u8string(native.begin(), native.end())};
}

std::string TextFromPath(const fs::path& path) {
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

std::string WithoutEndSlash(std::string folder) {
    while (folder.size() > 1 && (folder.back() == '/' || folder.back() == '\\')) folder.pop_back();
    return folder;
}

namespace {

/// The folders of a tree, read level by level, those of a level side by side.
class FolderTree {
public:
    FolderTree(const fs::path& root, unsigned jobs, const Watch& watch) : m_Watch(watch) {
        m_Folders.push_back({.path = TextFromPath(root)});
        constexpr std::size_t kWorthThreads = 8;
        for (std::size_t first = 0; first < m_Folders.size();) {
            const std::size_t count = m_Folders.size() - first;
            ForEach(count < kWorthThreads ? 1 : jobs, count, watch, [&](std::size_t i) { Read(m_Folders[first + i]); });
            first += count;
            for (std::size_t i = first - count; i < first; ++i) Enter(i);
        }
    }

    /// In the order in which a walk meets them: what is below a folder where its name stands.
    void Take(std::vector<std::string>& files, std::vector<std::string>& unreadable) {
        std::vector<Place> way{{0, 0}};
        while (!way.empty()) {
            Folder& folder = m_Folders[way.back().folder];
            if (way.back().entry == folder.entries.size()) {
                if (!folder.failure.empty()) unreadable.push_back(std::move(folder.failure));
                way.pop_back();
                continue;
            }
            Entry& entry = folder.entries[way.back().entry++];
            if (entry.folder == 0) {
                files.push_back(std::move(entry.path));
            } else {
                way.push_back({entry.folder, 0});
            }
        }
    }

private:
    struct Entry {
        std::string path;
        std::size_t folder;  ///< its place among all folders; 0 of a file
    };
    struct Folder {
        std::string path;
        std::vector<Entry> entries{};
        std::string failure{};  ///< why the rest of it, or all, could not be read
    };
    struct Place {
        std::size_t folder;
        std::size_t entry;
    };

    void Read(Folder& folder) {
        constexpr std::size_t kEntriesUnasked = 64;
        const std::string before = TextFromPath(PathFromText(folder.path) / "");
        platform::FolderReader reader;
        bool isRead = reader.Open(folder.path.c_str());
        for (platform::FolderReader::Entry entry; isRead && (isRead = reader.ReadNext(entry));) {
            if (entry.kind == platform::FolderReader::Kind::Other) continue;
            folder.entries.push_back({before + entry.name, entry.kind == platform::FolderReader::Kind::File ? 0U : 1U});
            if (folder.entries.size() % kEntriesUnasked == 0) m_Watch.StopIfAsked();
        }
        if (errno != 0) folder.failure = CannotRead(folder.path, std::error_code(errno, std::generic_category()));
    }

    void Enter(std::size_t index) {
        for (std::size_t i = 0; i < m_Folders[index].entries.size(); ++i) {
            Entry& entry = m_Folders[index].entries[i];
            if (entry.folder == 0) continue;
            entry.folder = m_Folders.size();
            m_Folders.push_back({.path = std::move(entry.path)});
        }
    }

    Watch m_Watch;
    std::deque<Folder> m_Folders;  // the first is the root
};

}  // namespace

void ListFolder(const fs::path& folder, std::vector<std::string>& files, std::vector<std::string>& unreadable,
                const Watch& watch, unsigned jobs) {
    FolderTree(folder, jobs, watch).Take(files, unreadable);
}

void MakeDirectory(const std::string& directory) {
    std::error_code error;
    const fs::path path = PathFromText(directory);
    fs::create_directories(path, error);
    std::error_code ignored;
    if (!fs::is_directory(path, ignored)) {
        throw Error(ErrorKind::Disk, "cannot create the folder " + directory + ": " +
                                         (error ? SystemText(error, directory) : "something else is there"))
            .InFile(directory);
    }
}

bool RemoveFile(const std::string& path) noexcept {
    try {
        std::error_code error;
        return fs::remove(PathFromText(path), error);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace korvane
