#include "Inputs.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "Archive.h"
#include "MediaFiles.h"

#include "base/Bytes.h"
#include "platform/File.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kHead = 2048;  // bytes that show what a file is
constexpr std::size_t kStep = std::size_t{1} << 16;

/// How many bytes all names have in common at their beginning.
std::size_t CountCommon(const std::vector<NamedFile>& files) {
    std::string_view common = files.empty() ? std::string_view() : files.front().name;
    for (const NamedFile& file : files) {
        const std::size_t most = std::min(common.size(), file.name.size());
        const auto differs =
            std::mismatch(common.begin(), common.begin() + static_cast<std::ptrdiff_t>(most), file.name.begin());
        common = common.substr(0, static_cast<std::size_t>(differs.first - common.begin()));
    }
    return common.size();
}

/// By name and place. Eight bytes in which names may differ tell most of them apart; they are compared where they stand.
void SortByName(std::vector<NamedFile>& files) {
    struct Key {
        std::uint64_t begin;
        std::size_t index;
    };
    const std::size_t common = CountCommon(files);
    std::vector<Key> keys(files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        char begin[sizeof(std::uint64_t)] = {};
        files[i].name.copy(begin, sizeof begin, common);
        keys[i] = {platform::LoadBig<std::uint64_t>(reinterpret_cast<const unsigned char*>(begin)), i};
    }
    std::sort(keys.begin(), keys.end(), [&](const Key& a, const Key& b) {
        if (a.begin != b.begin) return a.begin < b.begin;
        const NamedFile& first = files[a.index];
        const NamedFile& second = files[b.index];
        return std::tie(first.name, first.place) < std::tie(second.name, second.place);
    });
    std::vector<NamedFile> sorted;
    sorted.reserve(files.size());
    for (const Key& key : keys) sorted.push_back(std::move(files[key.index]));
    files = std::move(sorted);
}

class Search {
public:
    Search(const InputOptions& options, unsigned jobs, const Watch& watch)
        : m_Options(options), m_nJobs(jobs), m_Watch(watch) {}

    Inputs Do(const std::vector<std::string>& paths) {
        for (const std::string& path : paths) Take(path);
        for (const std::string& line : m_Folders)
            m_Inputs.unreadable.push_back({.kind = FindingKind::Unreadable, .text = line});
        std::vector<NamedFile>& files = m_Inputs.files;
        SortByName(files);
        const auto key = [](const NamedFile& file) { return std::tie(file.name, file.place); };
        files.erase(
            std::unique(files.begin(), files.end(), [&](const auto& a, const auto& b) { return key(a) == key(b); }),
            files.end());
        return std::move(m_Inputs);
    }

private:
    void Take(const std::string& text) {
        if (text == "-" && m_Options.stream != nullptr) return TakeStream(*m_Options.stream, "standard input");
        const fs::path path = PathFromText(text);
        std::error_code error;
        const fs::file_status status = fs::status(path, error);
        if (!fs::exists(status)) {
            throw Error(ErrorKind::NotFound, "cannot find " + text + (error ? ": " + SystemText(error, text) : ""))
                .InFile(text);
        }
        if (fs::is_directory(status)) {
            TakeFolder(path);
        } else if (fs::is_fifo(status)) {  // which can be read only once
            std::ifstream stream(path, std::ios::binary);
            TakeStream(stream, text);
        } else {
            TakeFile(text);
        }
    }

    void TakeFolder(const fs::path& path) {
        std::vector<std::string> files;
        ListFolder(path, files, m_Folders, m_Watch, m_nJobs);
        m_Inputs.files.insert(m_Inputs.files.end(), std::make_move_iterator(files.begin()),
                              std::make_move_iterator(files.end()));
    }

    void TakeFile(const NamedFile& file) {
        const std::string head = ReadHead(file.place);
        if (LooksLikeArchive({reinterpret_cast<const unsigned char*>(head.data()), head.size()})) {
            UnpackArchive(file, m_Options, m_Watch, m_Inputs);
        } else if (head.find(kMediaDirectoryClassUid) == std::string::npos ||
                   !FollowMediaDirectory(file, m_Watch, m_Inputs)) {
            m_Inputs.files.push_back(file);
        }
    }

    /// "" of what cannot be read: that is told by those who read it.
    static std::string ReadHead(const std::string& place) {
        platform::InputFile file;
        std::string head(kHead, '\0');
        head.resize(file.Open(place.c_str()) ? file.Read(head.data(), head.size()) : 0);
        return head;
    }

    void TakeStream(std::istream& stream, const std::string& name) {
        if (m_Inputs.unpacked == nullptr)
            m_Inputs.unpacked = std::make_shared<TemporaryFolder>(m_Options.temporaryFolder);
        const std::string place = m_Inputs.unpacked->NewFile();
        platform::OutputFile file;
        file.SetStopQuestion(m_Watch.GetStopQuestion());
        bool written = file.OpenExclusively(place.c_str());
        std::vector<char> bytes(kStep);
        std::uint64_t total = 0;
        while (written && stream) {
            m_Watch.StopIfAsked();
            errno = 0;
            stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
            const int error = errno;
            m_Watch.StopIfAsked();
            if (stream.bad()) throw Error(ErrorKind::Disk, "cannot read " + name + ": " + SystemText(error));
            total += static_cast<std::uint64_t>(stream.gcount());
            if (total > m_Options.mostBytes) {
                throw Error(ErrorKind::Unsupported,
                            name + ": more than " + std::to_string(m_Options.mostBytes) + " bytes");
            }
            written = file.Write(bytes.data(), static_cast<std::size_t>(stream.gcount()));
        }
        if (!written || !file.Close()) {
            const int error = errno;
            m_Watch.StopIfAsked();
            throw Error(ErrorKind::Disk, "cannot keep " + name + ": " + SystemText(error));
        }
        TakeFile({name, place});
    }

    const InputOptions& m_Options;
    unsigned m_nJobs;
    Watch m_Watch;
    Inputs m_Inputs;
    std::vector<std::string> m_Folders;  // unreadable ones
};

}  // namespace

Inputs FindInputs(const std::vector<std::string>& paths, const InputOptions& options, unsigned jobs,
                  const Watch& watch) {
    return Search(options, jobs, watch).Do(paths);
}

std::vector<std::string> ReadPathList(std::istream& list) {
    std::vector<std::string> paths;
    errno = 0;
    for (std::string line; std::getline(list, line);) {
        if (line.ends_with('\r')) line.pop_back();
        if (!line.empty()) paths.push_back(line);
    }
    if (list.bad()) throw Error(ErrorKind::Disk, "cannot read the list of paths: " + SystemText(errno));
    return paths;
}

std::vector<std::string> ReadPathList(const std::string& path) {
    errno = 0;
    std::ifstream list(PathFromText(path), std::ios::binary);
    if (!list || fs::is_directory(PathFromText(path))) {
        throw Error(ErrorKind::Disk, "cannot read " + path + ": " + SystemText(list ? EISDIR : errno)).InFile(path);
    }
    return ReadPathList(list);
}

}  // namespace korvane
