#include "MediumBuilder.h"

#include "../core/HostError.h"
#include "../core/Paths.h"
#include "../core/Progress.h"
#include "MediaHeader.h"

#include "platform/File.h"
#include <Korvane/Korvane.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <unordered_map>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr char kFileRoot[] = "DICOM";

/// The library's builder, which writes the directory where it is told to.
class Builder : public CCDRObject {
public:
    bool WriteDirectory(const std::string& path) {
        try {
            const auto dataSet = CreateDDO();
            return WriteDDO(path, *dataSet);
        } catch (const std::string& message) {
            throw HostError(message);
        }
    }
};

/// The folders of a medium in the making: gone again unless they are kept.
class MediumFolders {
public:
    explicit MediumFolders(const std::string& root) : m_Root(root), m_Files(PathFromText(root + "/" + kFileRoot)) {
        std::error_code error;
        if (platform::FileExists(Directory().c_str())) throw HostError(root + " has a DICOMDIR already");
        if (fs::exists(m_Files, error) && !(fs::is_directory(m_Files, error) && fs::is_empty(m_Files, error))) {
            throw HostError(TextFromPath(m_Files) + " is there already and not empty");
        }
        for (fs::path made = m_Files; made.has_relative_path() && !fs::exists(fs::symlink_status(made, error));
             made = made.parent_path()) {
            m_Made.push_back(made);
        }
    }
    ~MediumFolders() {
        if (m_bKept) return;
        RemoveFile(Unfinished());
        std::error_code error;
        for (fs::directory_iterator entry(m_Files, error), end; entry != end; entry.increment(error)) {
            std::error_code kept;
            fs::remove_all(entry->path(), kept);
        }
        for (const fs::path& made : m_Made) fs::remove(made, error);
    }
    MediumFolders(const MediumFolders&) = delete;
    MediumFolders& operator=(const MediumFolders&) = delete;

    std::string Directory() const { return m_Root + "/DICOMDIR"; }
    std::string Unfinished() const { return Directory() + ".part"; }

    void Make() { MakeDirectory(TextFromPath(m_Files)); }

    /// Gives the directory its name.
    void Keep() {
        std::error_code error;
        if (platform::FileExists(Directory().c_str())) throw HostError(m_Root + " has got a DICOMDIR from elsewhere");
        fs::rename(PathFromText(Unfinished()), PathFromText(Directory()), error);
        if (error) throw HostError("cannot create " + Directory() + ": " + SystemText(error, Directory()));
        m_bKept = true;
    }

private:
    std::string m_Root;
    fs::path m_Files;
    std::vector<fs::path> m_Made;  // folders that were not there, the innermost first
    bool m_bKept = false;
};

bool HaveSameBytes(const std::string& a, const std::string& b) {
    platform::InputFile first;
    platform::InputFile second;
    if (!first.Open(a.c_str()) || !second.Open(b.c_str()) || first.GetSize() != second.GetSize()) return false;
    std::vector<unsigned char> left(64 * 1024);
    std::vector<unsigned char> right(left.size());
    for (;;) {
        const std::size_t count = first.Read(left.data(), left.size());
        if (second.Read(right.data(), right.size()) != count || first.HasFailed() || second.HasFailed()) return false;
        if (count == 0) return true;
        if (std::memcmp(left.data(), right.data(), count) != 0) return false;
    }
}

/// Whether what `AddIOD` said is about the file alone, so that the others can still be added.
bool IsAboutOneFile(const std::string& message) {
    constexpr const char* kBeginnings[] = {"CCDRObject::AddIOD: error loading", "CDRSRDocRecord::", "Error decoding",
                                           "Error encoding"};
    return std::any_of(std::begin(kBeginnings), std::end(kBeginnings),
                       [&](const char* beginning) { return message.starts_with(beginning); });
}

class MediumJob {
public:
    explicit MediumJob(const MediumOptions& options) : m_Options(options) {
        static DictionaryCodec codec;  // has the dictionary in the form in which the builder takes it
        CCDRObject::SetDictionary(codec.GetDictionary());
        m_Builder.SetRoot(options.root);
        m_Builder.SetFileRoot(kFileRoot);
        m_Builder.SetFileSetID(options.fileSetId);
        m_Builder.SetHardLinks(options.link);
    }

    MediumSummary Run() {
        const std::vector<std::string> files = ListSources();
        MediumFolders folders(m_Options.root);
        folders.Make();
        AddFiles(files);
        for (const std::string& path : m_Options.privateFiles) AddPrivate(path);
        errno = 0;
        if (!m_Builder.WriteDirectory(folders.Unfinished())) {
            throw HostError("cannot write " + folders.Directory() + ": " + SystemText(errno));
        }
        m_Summary.medium = CheckMedium(m_Options.root, folders.Unfinished(), MediumDepth::Names);
        const MediumReport& found = m_Summary.medium;
        if (!found.problems.empty()) throw HostError("the medium is not whole: " + found.problems.front());
        if (found.files != m_Known.size()) throw HostError("the medium is not whole: files are missing");
        StopIfInterrupted();
        folders.Keep();
        return std::move(m_Summary);
    }

private:
    std::vector<std::string> ListSources() {
        std::vector<std::string> files;
        std::vector<std::string> unreadable;
        for (const std::string& source : m_Options.sources) {
            const fs::path path = PathFromText(source);
            std::error_code error;
            const fs::file_status status = fs::status(path, error);
            if (!fs::exists(status)) throw HostError("cannot find " + source);
            if (fs::is_directory(status)) {
                ListFolder(path, files, unreadable);
            } else {
                files.push_back(source);
            }
        }
        for (const std::string& line : unreadable) m_Summary.faults.push_back({"", line});
        std::sort(files.begin(), files.end());
        files.erase(std::unique(files.begin(), files.end()), files.end());
        return files;
    }

    void AddFiles(const std::vector<std::string>& files) {
        ProgressBar progress("writing", static_cast<long>(files.size()));
        for (const std::string& path : files) {
            MediaHeader header = ReadMediaHeader(path, m_Options.transcode);
            if (header.dataSet != nullptr) {
                AddFile(path, *header.dataSet);
            } else {
                (header.IsFault() ? m_Summary.faults : m_Summary.notMeant).push_back({path, header.why});
            }
            progress.Step();
        }
        if (m_Known.empty()) {
            const auto& why = m_Summary.faults;
            throw HostError("no file for a medium under " + m_Options.sources.front() +
                            (why.empty() ? "" : "; " + why.front().path + ": " + why.front().why));
        }
    }

    void AddFile(const std::string& path, const DICOMObject& dataSet) {
        const auto [known, isNew] = m_Known.try_emplace(DirectoryText(dataSet, MakeTag(0x0008, 0x0018)), path);
        if (!isNew) {
            const bool isCopy = HaveSameBytes(path, known->second);
            const std::string relation = isCopy ? "the same as " : "another content, the same SOP Instance UID as ";
            (isCopy ? m_Summary.copies : m_Summary.faults).push_back({path, relation + known->second});
            return;
        }
        errno = 0;
        try {
            m_Builder.AddIOD(path, dataSet, m_Options.transcode);
        } catch (const std::string& message) {
            const int error = errno;
            StopIfInterrupted();
            if (!IsAboutOneFile(message)) throw HostError(Explain(message, error));
            const std::string& reason = m_Builder.GetReason();
            const bool hasReason = message.starts_with("Error decoding") && !reason.empty();
            m_Summary.faults.push_back({path, message + (hasReason ? ": " + reason : "")});
            m_Known.erase(known);
        }
    }

    void AddPrivate(const std::string& path) {
        errno = 0;
        try {
            m_Summary.privateFiles.push_back(m_Builder.AddPrivate(CDRRecord::Private, path));
        } catch (const std::string& message) {
            const int error = errno;
            StopIfInterrupted();
            throw HostError(Explain(message, error));
        }
    }

    static std::string Explain(const std::string& message, int error) {
        const std::string reason = SystemText(error);
        return error != 0 && !message.ends_with(reason) ? message + ": " + reason : message;
    }

    const MediumOptions& m_Options;
    Builder m_Builder;
    std::unordered_map<std::string, std::string> m_Known;  // SOP Instance UID, and the file that has it
    MediumSummary m_Summary;
};

}  // namespace

MediumSummary BuildMedium(const MediumOptions& options) {
    return MediumJob(options).Run();
}

}  // namespace korvane
