// Builds media. The DICOMDIR gets its name only when everything else is there.
#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/Threads.h"
#include "../core/Watch.h"
#include "../core/WorkGroups.h"
#include "DirectoryCheck.h"
#include "DirectoryTree.h"
#include "MediaHeader.h"
#include "Medium.h"
#include "MediumCopies.h"
#include "MediumFolders.h"
#include "MediumProfile.h"
#include "RecordIcons.h"
#include "SourceFiles.h"

#include "media/CCDRObject.h"
#include "platform/File.h"
#include "platform/FileCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <system_error>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace korvane {

namespace fs = std::filesystem;

namespace {

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

    // Files get their names, and whoever asked copies them later. `SetHardLinks` ends it.
    void LeaveCopies() {
        m_pCopyFunction = [](const char*, const char*, void*) { return 1; };
    }

    // Files are moved to their places, and copied where that fails. `SetHardLinks` ends it.
    void MoveFiles() {
        m_pCopyFunction = [](const char* to, const char* from, void*) { return platform::RenameNew(from, to) ? 1 : 0; };
    }
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
    return message.starts_with("CDRSRDocRecord::");
}

class MediumJob {
public:
    MediumJob(const std::string& root, const MediumOptions& options)
        : m_Root(root), m_Options(options), m_Watch(options.watcher), m_Profile(options.profile),
          m_Sources(options, m_Profile), m_Copies(m_Watch) {
        // The module's builder has one dictionary for all of its objects, so it is set once and for good.
        [[maybe_unused]] static const bool isSet = [] {
            static DictionaryCodec s_codec;
            CCDRObject::SetDictionary(s_codec.GetDictionary());
            return true;
        }();
        m_Builder.SetStopQuestion(m_Watch.GetStopQuestion());
        m_Builder.SetRoot(root);
        m_Builder.SetFileSetID(options.fileSetId);
        UseCopying(options.link ? Copying::Linked : Copying::Later);
        m_Report.profile = options.profile;
    }

    MediumReport Run(const std::vector<std::string>& sources) {
        const std::vector<std::string> files = ListSources(sources);
        MediumFolders folders(m_Root, m_Options.append ? MediumFolders::Medium::There : MediumFolders::Medium::New);
        folders.Make();
        m_Builder.SetFileRoot(folders.GetFileRoot());
        if (m_Options.append) TakeEarlier(folders.GetDirectory());
        m_Sources.Begin(files, m_Root + "/" + folders.GetFileRoot());
        AddFiles(files, sources.front());
        UseCopying(m_Options.link ? Copying::Linked : Copying::AtOnce);
        for (const std::string& path : m_Options.privateFiles) AddPrivate(path);
        m_Sources.End();
        WriteDirectory(folders);
        m_Report.medium =
            CheckDirectory(m_Root, folders.GetUnfinished(), MediumDepth::Names, m_Watch, m_Options.profile);
        const MediumContents& found = m_Report.medium;
        if (!found.problems.empty()) {
            throw Error(ErrorKind::Damaged, "the medium would not be as it should: " + found.problems.front());
        }
        if (found.files != m_nEarlier + m_nAdded) {
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

    // What the medium has already: its records stay, and none of its instances is added again.
    void TakeEarlier(const std::string& directory) {
        m_Earlier = DirectoryTree::Read(directory, m_Watch);
        std::string study;
        std::string patient;
        m_Earlier->ForEach([&](DirectoryTree::Node& node, std::size_t, std::size_t) {
            const DICOMObject& record = *node.record;
            const std::string type = FindText(record, tags::DirectoryRecordType);
            if (type == "PATIENT") {
                patient = TextOf(record, tags::PatientID);
                m_Names[patient] = FindText(record, tags::PatientName);
            }
            if (type == "STUDY") m_Sources.Learn(TextOf(record, tags::StudyInstanceUID), patient);
            const std::string path = PathOfFileId(FindText(record, tags::ReferencedFileID));
            if (path.empty()) return;
            ++m_nEarlier;
            m_Known.emplace(TextOf(record, tags::ReferencedSOPInstanceUIDInFile), m_Root + path);
        });
    }

    // Headers are read ahead on all threads, which decode what must be, and copy meanwhile what has been given its name; names
    // are given here, in order.
    void AddFiles(const std::vector<std::string>& files, const std::string& source) {
        TaskProgress progress(m_Watch, "writing", static_cast<std::int64_t>(files.size()));
        try {
            NameFiles(files, progress);
            ForEachInOrder(
                m_Options.jobs, m_Copies.CountWaiting(), kAhead, m_Watch, [this](std::size_t) { m_Copies.Work(1); },
                [&](std::size_t) { StepCopied(progress); });
            m_Copies.Rethrow();
        } catch (...) {
            // A copy of a file before is what would have failed first.
            m_Watch.StopIfAsked();
            m_Copies.Work(m_Copies.CountWaiting());
            m_Copies.Rethrow();
            throw;
        }
        if (m_nAdded == 0) {
            const auto& why = m_Report.faults.empty() ? m_Report.copies : m_Report.faults;
            throw Error(ErrorKind::NotFound, "no file for a medium under " + source +
                                                 (why.empty() ? "" : "; " + why.front().path + ": " + why.front().why));
        }
    }

    void NameFiles(const std::vector<std::string>& files, TaskProgress& progress) {
        const WorkGroups groups(files.size(), m_Options.jobs, kMostTogether);
        std::vector<std::optional<SourceFile>> ring(kAhead);
        const auto forEach = [&](std::size_t group, const auto& body) {
            for (std::size_t i = groups.BeginOf(group); i < groups.EndOf(group); ++i) body(i);
        };
        ForEachInOrder(
            m_Options.jobs, groups.GetCount(), kAhead / groups.GetSize(), m_Watch,
            [&](std::size_t group) {
                forEach(group, [&](std::size_t i) {
                    // Opening a pipe may take for ever, which a signal ends on the calling thread alone.
                    std::error_code error;
                    if (fs::is_regular_file(PathFromText(files[i]), error)) ring[i % kAhead] = m_Sources.Take(files[i]);
                });
                m_Copies.Work(2 * groups.GetSize());  // more than are added meanwhile
            },
            [&](std::size_t group) {
                forEach(group, [&](std::size_t i) {
                    std::optional<SourceFile> file = std::exchange(ring[i % kAhead], std::nullopt);
                    if (!file) {
                        BeforePipe();
                        file = m_Sources.Take(files[i]);
                    }
                    TakeFile(files[i], *file, progress);
                });
                if (m_Copies.CountWaiting() > kMostWaiting) m_Copies.Work(groups.GetSize());
                StepCopied(progress);
                m_Copies.Rethrow();
            });
    }

    // Nobody knows how long a pipe takes, nor does a stop that came before it was opened end the waiting for it.
    void BeforePipe() {
        m_Copies.Work(m_Copies.CountWaiting());
        m_Copies.Rethrow();
        m_Watch.StopIfAsked();
    }

    void TakeFile(const std::string& path, const SourceFile& file, TaskProgress& progress) {
        bool isCopiedLater = false;
        if (file.header.dataSet != nullptr) {
            isCopiedLater = AddFile(path, file);
        } else {
            (file.header.IsFault() ? m_Report.faults : m_Report.notMeant)
                .push_back({path, file.header.why, file.header.isDirectory});
        }
        if (!isCopiedLater) progress.Step();
    }

    void StepCopied(TaskProgress& progress) {
        for (std::size_t done = m_Copies.TakeDone(); done > 0; --done) progress.Step();
    }

    enum class Copying { Linked, AtOnce, Later, Moved };

    // The builder does not try links again where one has failed, unless it is told anew.
    void UseCopying(Copying copying) {
        if (copying == m_Copying) return;
        m_Copying = copying;
        m_Builder.SetHardLinks(copying == Copying::Linked);
        if (copying == Copying::Later) m_Builder.LeaveCopies();
        if (copying == Copying::Moved) m_Builder.MoveFiles();
    }

    /// Whether the file waits to be copied.
    bool AddFile(const std::string& path, const SourceFile& file) {
        const auto [known, isNew] = m_Known.try_emplace(TextOf(*file.header.dataSet, tags::SOPInstanceUID), path);
        if (!isNew) {
            // Two files that were both written anew, or one that is on the medium in that form.
            const bool isCopy = HaveSameBytes(path, known->second, m_Watch) ||
                                (file.made && HaveSameBytes(file.path, known->second, m_Watch));
            const std::string relation = isCopy ? "the same as " : "another content, the same SOP Instance UID as ";
            (isCopy ? m_Report.copies : m_Report.faults).push_back({path, relation + known->second});
            return false;
        }
        errno = 0;
        try {
            const Copying ofOthers = m_Options.link ? Copying::Linked : Copying::Later;
            UseCopying(file.made ? Copying::Moved : ofOthers);
            const std::string place = m_Builder.AddIOD(file.path, *file.header.dataSet, false);
            ++m_nAdded;
            CompareNames(path, *file.header.dataSet);
            if (!file.rewritten.empty()) m_Report.rewritten.push_back({path, file.rewritten});
            if (m_Copying != Copying::Later) return false;
            m_Copies.Add(file.path, m_Root + "\\" + place);
            return true;
        } catch (const std::string& message) {
            const int error = errno;
            m_Watch.StopIfAsked();
            if (!IsAboutOneFile(message)) throw Error(ErrorKind::Disk, WithReason(message, error)).InFile(path);
            m_Report.faults.push_back({path, message});
            m_Known.erase(known);
            return false;
        }
    }

    // A patient's record is found by the Patient ID, and has the name of the first. Two patients under one ID, from places
    // that number theirs by themselves, would be taken for one. Each other name is told once.
    void CompareNames(const std::string& path, const DICOMObject& dataSet) {
        const std::string id = TextOf(dataSet, tags::PatientID);
        const std::string name = FindText(dataSet, tags::PatientName);
        const std::string& first = m_Names.try_emplace(id, name).first->second;
        if (name == first || !m_Told.insert(id + '\\' + name).second) return;
        std::string why = "its patient is \"" + name + "\", and the record of Patient ID \"";
        m_Report.namesakes.push_back({path, why.append(id).append("\" says \"").append(first).append("\"")});
    }

    // The module's builder writes the directory of what was added; what it does not know is put into that.
    void WriteDirectory(const MediumFolders& folders) {
        errno = 0;
        if (!m_Builder.WriteDirectory(folders.GetUnfinished())) {
            const std::string reason = SystemText(errno);
            throw Error(ErrorKind::Disk, "cannot write " + folders.GetDirectory() + ": " + reason)
                .InFile(folders.GetDirectory());
        }
        if (!m_Earlier && !m_Options.icons && !m_Profile.IsNamed()) return;
        DirectoryTree tree = DirectoryTree::Read(folders.GetUnfinished(), m_Watch);
        if (m_Options.icons) AddIcons(tree, m_Root, m_Watch);
        if (m_Earlier) {
            m_Earlier->Merge(std::move(tree));
            tree = std::move(*m_Earlier);
            if (!m_Options.fileSetId.empty()) PutText(tree.GetHead(), tags::FileSetID, m_Options.fileSetId);
        }
        if (m_Profile.IsNamed()) m_Profile.Apply(tree);
        tree.Write(folders.GetUnfinished());
    }

    void AddPrivate(const std::string& path) {
        errno = 0;
        try {
            m_Report.privateFiles.push_back(m_Builder.AddPrivate(CDRRecord::Private, path));
        } catch (const std::string& message) {
            const int error = errno;
            m_Watch.StopIfAsked();
            throw Error(ErrorKind::Disk, WithReason(message, error)).InFile(path);
        }
    }

    static constexpr std::size_t kAhead = 32;        // headers
    static constexpr std::size_t kMostTogether = 4;  // of those, that a thread reads at a time
    static constexpr std::size_t kMostWaiting =
        32;  // copies: more than are added before threads that wait for room are woken

    const std::string m_Root;
    const MediumOptions& m_Options;
    Watch m_Watch;
    MediumProfile m_Profile;
    SourceFiles m_Sources;
    MediumCopies m_Copies;
    Builder m_Builder;
    std::optional<Copying> m_Copying{};
    std::optional<DirectoryTree> m_Earlier;
    std::unordered_map<std::string, std::string> m_Known;  // SOP Instance UID, and the file that has it
    std::unordered_map<std::string, std::string> m_Names;  // by Patient ID
    std::unordered_set<std::string> m_Told;                // IDs and names that are not those
    std::size_t m_nEarlier = 0;                            // files that the medium had
    std::size_t m_nAdded = 0;
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
