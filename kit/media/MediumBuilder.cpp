// Builds media. The DICOMDIR gets its name only when everything else is there.
#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/Threads.h"
#include "../core/Watch.h"
#include "DirectoryCheck.h"
#include "MediaHeader.h"
#include "Medium.h"

#include "media/CCDRObject.h"
#include "platform/FolderLock.h"
#include "platform/ReplacingFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <system_error>
#include <unordered_map>
#include <unordered_set>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr char kFileRoot[] = "DICOM";

// The module's builder, with access to what writes the directory to a path of our own.
class Builder : public CCDRObject {
public:
    bool WriteDirectory(const std::string& path) {
        try {
            const auto dataSet = CreateDDO();
            return WriteDDO(path, *dataSet);
        } catch (const std::string& message) {
            throw Error(ErrorKind::Disk, message);
        }
    }
};

// The folders of a medium that is being built: removed again unless `Keep` is called. The root is locked meanwhile.
class MediumFolders {
public:
    explicit MediumFolders(const std::string& root) : m_Root(root), m_Files(PathFromText(root + "/" + kFileRoot)) {}
    ~MediumFolders() {
        if (m_bKept) return;
        m_Directory.Discard();
        std::error_code error;
        fs::directory_iterator entry = m_bOwn ? fs::directory_iterator(m_Files, error) : fs::directory_iterator();
        for (; entry != fs::directory_iterator(); entry.increment(error)) {
            std::error_code kept;
            fs::remove_all(entry->path(), kept);
        }
        for (const fs::path& made : m_Made) {
            if (made == m_Files.parent_path()) {
                m_Lock.RemoveFolder();
            } else {
                fs::remove(made, error);
            }
        }
    }
    MediumFolders(const MediumFolders&) = delete;
    MediumFolders& operator=(const MediumFolders&) = delete;

    std::string Directory() const { return m_Root + "/DICOMDIR"; }

    // The path under which the directory is written until `Keep`.
    const std::string& Unfinished() const { return m_Directory.GetUnfinished(); }

    void Make() {
        std::error_code error;
        for (fs::path made = m_Files; made.has_relative_path() && !fs::exists(fs::symlink_status(made, error));
             made = made.parent_path()) {
            m_Made.push_back(made);
        }
        Lock();
        if (platform::FileExists(Directory().c_str())) {
            throw Error(ErrorKind::Disk, m_Root + " has a DICOMDIR already").InFile(Directory());
        }
        if (fs::exists(m_Files, error) && !(fs::is_directory(m_Files, error) && fs::is_empty(m_Files, error))) {
            throw Error(ErrorKind::Disk, TextFromPath(m_Files) + " is there already and not empty");
        }
        m_bOwn = true;
        MakeDirectory(TextFromPath(m_Files));
        if (m_Directory.Reserve(Directory())) return;
        throw Error(ErrorKind::Disk, "cannot create " + Directory() + ": " + SystemText(errno)).InFile(Directory());
    }

    // Gives the directory its name.
    void Keep() {
        if (!m_Directory.Commit(platform::ReplacingFile::Existing::Refuse)) {
            const std::error_code error(errno, std::generic_category());
            const std::string reason = SystemText(error, Directory());
            throw Error(ErrorKind::Disk, error.value() == EEXIST ? m_Root + " has got a DICOMDIR from elsewhere"
                                                                 : "cannot create " + Directory() + ": " + reason)
                .InFile(Directory());
        }
        m_bKept = true;
    }

private:
    // Makes the root where it is missing, and locks it. It tries again where another builder, which has failed, has
    // removed the root in between.
    void Lock() {
        constexpr int kAttempts = 10;
        for (int attempt = 0;; ++attempt) {
            MakeDirectory(m_Root);
            if (m_Lock.TakeAlone(m_Root)) return;
            if (errno != ENOENT || attempt == kAttempts) break;
        }
        const int error = errno;
        m_Made.clear();  // another builder has made them
        if (error == EBUSY) throw Error(ErrorKind::Disk, "another medium is being built in " + m_Root).InFile(m_Root);
        throw Error(ErrorKind::Disk, "cannot open " + m_Root + ": " + SystemText(error)).InFile(m_Root);
    }

    std::string m_Root;
    fs::path m_Files;
    platform::FolderLock m_Lock;
    std::vector<fs::path> m_Made;  // folders that were not there, the innermost first
    platform::ReplacingFile m_Directory;
    bool m_bOwn = false;  // the folder of files was empty: what is in it now is of this builder
    bool m_bKept = false;
};

bool HaveSameBytes(const std::string& a, const std::string& b, const Watch& watch) {
    platform::InputFile first;
    platform::InputFile second;
    if (!first.Open(a.c_str()) || !second.Open(b.c_str()) || first.GetSize() != second.GetSize()) return false;
    std::vector<unsigned char> left(64 * 1024);
    std::vector<unsigned char> right(left.size());
    for (;;) {
        watch.StopIfAsked();
        const std::size_t count = first.Read(left.data(), left.size());
        if (second.Read(right.data(), right.size()) != count || first.HasFailed() || second.HasFailed()) return false;
        if (count == 0) return true;
        if (std::memcmp(left.data(), right.data(), count) != 0) return false;
    }
}

// Whether the message that `AddIOD` threw is about one file only, so that the others can still be added.
bool IsAboutOneFile(const std::string& message) {
    constexpr const char* kBeginnings[] = {"CCDRObject::AddIOD: error loading", "CDRSRDocRecord::", "Error decoding",
                                           "Error encoding"};
    return std::any_of(std::begin(kBeginnings), std::end(kBeginnings),
                       [&](const char* beginning) { return message.starts_with(beginning); });
}

class MediumJob {
public:
    MediumJob(const std::string& root, const MediumOptions& options)
        : m_Root(root), m_Options(options), m_Watch(options.watcher) {
        // The module's builder has one dictionary for all of its objects, so it is set once and for good.
        [[maybe_unused]] static const bool isSet = [] {
            static DictionaryCodec s_codec;
            CCDRObject::SetDictionary(s_codec.GetDictionary());
            return true;
        }();
        m_Builder.SetStopQuestion(m_Watch.GetStopQuestion());
        m_Builder.SetRoot(root);
        m_Builder.SetFileRoot(kFileRoot);
        m_Builder.SetFileSetID(options.fileSetId);
        m_Builder.SetHardLinks(options.link);
    }

    MediumReport Run(const std::vector<std::string>& sources) {
        const std::vector<std::string> files = ListSources(sources);
        MediumFolders folders(m_Root);
        folders.Make();
        AddFiles(files, sources.front());
        for (const std::string& path : m_Options.privateFiles) AddPrivate(path);
        errno = 0;
        if (!m_Builder.WriteDirectory(folders.Unfinished())) {
            const std::string reason = SystemText(errno);
            throw Error(ErrorKind::Disk, "cannot write " + folders.Directory() + ": " + reason)
                .InFile(folders.Directory());
        }
        m_Report.medium = CheckDirectory(m_Root, folders.Unfinished(), MediumDepth::Names, m_Watch);
        const MediumContents& found = m_Report.medium;
        if (!found.problems.empty()) {
            throw Error(ErrorKind::Damaged, "the medium is not whole: " + found.problems.front());
        }
        if (found.files != m_Known.size()) {
            throw Error(ErrorKind::Damaged, "the medium is not whole: files are missing");
        }
        m_Watch.StopIfAsked();
        folders.Keep();
        return std::move(m_Report);
    }

private:
    // All files in the order in which they were given, each once.
    std::vector<std::string> ListSources(const std::vector<std::string>& sources) {
        std::vector<std::string> files;
        std::vector<std::string> unreadable;
        std::unordered_set<std::string> seen;
        for (const std::string& source : sources) {
            const fs::path path = PathFromText(source);
            std::error_code error;
            const fs::file_status status = fs::status(path, error);
            if (!fs::exists(status)) throw Error(ErrorKind::NotFound, "cannot find " + source).InFile(source);
            std::vector<std::string> found;
            if (fs::is_directory(status)) {
                ListFolder(path, found, unreadable, m_Watch);
                std::sort(found.begin(), found.end());
            } else {
                found.push_back(source);
            }
            std::copy_if(found.begin(), found.end(), std::back_inserter(files),
                         [&](const std::string& file) { return seen.insert(file).second; });
        }
        for (const std::string& line : unreadable) m_Report.faults.push_back({"", line});
        return files;
    }

    void AddFiles(const std::vector<std::string>& files, const std::string& source) {
        TaskProgress progress(m_Watch, "writing", static_cast<std::int64_t>(files.size()));
        constexpr std::size_t kAhead = 32;  // headers
        std::vector<std::optional<MediaHeader>> ring(kAhead);
        const auto read = [&](std::size_t i) { return ReadMediaHeader(files[i], m_Options.transcode, m_Watch); };
        ForEachInOrder(
            m_Options.jobs, files.size(), kAhead, m_Watch,
            [&](std::size_t i) {
                // Opening a pipe may take for ever, which a signal ends on the calling thread alone.
                std::error_code error;
                if (fs::is_regular_file(PathFromText(files[i]), error)) ring[i % kAhead] = read(i);
            },
            [&](std::size_t i) {
                std::optional<MediaHeader>& ahead = ring[i % kAhead];
                const MediaHeader header = ahead ? std::move(*ahead) : read(i);
                ahead.reset();
                if (header.dataSet != nullptr) {
                    AddFile(files[i], *header.dataSet);
                } else {
                    (header.IsFault() ? m_Report.faults : m_Report.notMeant)
                        .push_back({files[i], header.why, header.isDirectory});
                }
                progress.Step();
            });
        if (m_Known.empty()) {
            const auto& why = m_Report.faults;
            throw Error(ErrorKind::NotFound, "no file for a medium under " + source +
                                                 (why.empty() ? "" : "; " + why.front().path + ": " + why.front().why));
        }
    }

    void AddFile(const std::string& path, const DICOMObject& dataSet) {
        const auto [known, isNew] = m_Known.try_emplace(TextOf(dataSet, tags::SOPInstanceUID), path);
        if (!isNew) {
            const bool isCopy = HaveSameBytes(path, known->second, m_Watch);
            const std::string relation = isCopy ? "the same as " : "another content, the same SOP Instance UID as ";
            (isCopy ? m_Report.copies : m_Report.faults).push_back({path, relation + known->second});
            return;
        }
        errno = 0;
        try {
            m_Builder.AddIOD(path, dataSet, m_Options.transcode);
        } catch (const std::string& message) {
            const int error = errno;
            m_Watch.StopIfAsked();
            if (!IsAboutOneFile(message)) throw Error(ErrorKind::Disk, Explain(message, error)).InFile(path);
            const std::string& reason = m_Builder.GetReason();
            const bool hasReason = message.starts_with("Error decoding") && !reason.empty();
            m_Report.faults.push_back({path, message + (hasReason ? ": " + reason : "")});
            m_Known.erase(known);
        }
    }

    void AddPrivate(const std::string& path) {
        errno = 0;
        try {
            m_Report.privateFiles.push_back(m_Builder.AddPrivate(CDRRecord::Private, path));
        } catch (const std::string& message) {
            const int error = errno;
            m_Watch.StopIfAsked();
            throw Error(ErrorKind::Disk, Explain(message, error)).InFile(path);
        }
    }

    static std::string Explain(const std::string& message, int error) {
        const std::string reason = SystemText(error);
        return error != 0 && !message.ends_with(reason) ? message + ": " + reason : message;
    }

    const std::string m_Root;
    const MediumOptions& m_Options;
    Watch m_Watch;
    Builder m_Builder;
    std::unordered_map<std::string, std::string> m_Known;  // SOP Instance UID, and the file that has it
    MediumReport m_Report;
};

}  // namespace

std::string FaultOfFileSetId(const std::string& id) {
    const bool fits = id.size() <= 16 && id.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_ ") == id.npos;
    return fits ? "" : "a file-set ID is at most 16 of A-Z, 0-9, _ and space";
}

MediumReport BuildMedium(const std::string& root, const std::vector<std::string>& sources,
                         const MediumOptions& options) {
    if (sources.empty()) throw Error(ErrorKind::WrongArgument, "no files given");
    if (const std::string fault = FaultOfFileSetId(options.fileSetId); !fault.empty())
        throw Error(ErrorKind::WrongArgument, fault);
    return MediumJob(WithoutEndSlash(root), options).Run(sources);
}

}  // namespace korvane
