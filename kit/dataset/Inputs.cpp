#include "Inputs.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "Archive.h"
#include "MediaFiles.h"

#include "platform/File.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <tuple>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kHead = 2048;  // bytes that show what a file is
constexpr std::size_t kStep = std::size_t{1} << 16;

class Search {
public:
    Search(const InputOptions& options, const Watch& watch) : m_Options(options), m_Watch(watch) {}

    Inputs Do(const std::vector<std::string>& paths) {
        for (const std::string& path : paths) Take(path);
        for (const std::string& line : m_Folders)
            m_Inputs.unreadable.push_back({.kind = FindingKind::Unreadable, .text = line});
        std::vector<NamedFile>& files = m_Inputs.files;
        const auto key = [](const NamedFile& file) { return std::tie(file.name, file.place); };
        std::sort(files.begin(), files.end(), [&](const auto& a, const auto& b) { return key(a) < key(b); });
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
        ListFolder(path, files, m_Folders, m_Watch);
        m_Inputs.files.insert(m_Inputs.files.end(), files.begin(), files.end());
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
    Watch m_Watch;
    Inputs m_Inputs;
    std::vector<std::string> m_Folders;  // unreadable ones
};

}  // namespace

Inputs FindInputs(const std::vector<std::string>& paths, const InputOptions& options, const Watch& watch) {
    return Search(options, watch).Do(paths);
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
