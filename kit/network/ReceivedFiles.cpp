#include "ReceivedFiles.h"

#include "../core/Error.h"
#include "../core/Paths.h"
#include "../core/SafeName.h"
#include "../core/TimeText.h"
#include "../dataset/DataSetFile.h"
#include "../dataset/InflateBuffer.h"

#include "Dicom/Lib/stream/FileBuffer.h"
#include "Dicom/Lib/syntax/DataSetWalker.h"
#include "Dicom/Lib/syntax/TransferSyntaxCodec.h"
#include "Dicom/Lib/syntax/TransferSyntaxTable.h"

#include "platform/File.h"
#include "platform/Sync.h"

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace korvane {

namespace {

constexpr std::size_t kPieceBytes = 64 * 1024;
constexpr std::uint64_t kAskDiskEvery = std::uint64_t{16} << 20;
constexpr auto kNotForOthers = std::filesystem::perms::others_all | std::filesystem::perms::group_write;

// A name for a folder: the text, or where that is no plain name, what is like it with a number of its own.
std::string FolderName(const std::string& text) {
    if (text.empty()) return "unknown";
    constexpr std::size_t kLongest = 80;
    std::string name = MakeSafeName(text, kLongest);
    if (name == text) return name;
    return name + (name.empty() ? "" : "-") + std::to_string(HashOfText(text, 1));
}

// Whether a file has a name that `platform::ReplacingFile` gives to unfinished files: ".UID.dcm.RANDOM.part".
bool IsUnfinished(std::string_view name) {
    constexpr std::string_view kMiddle = ".dcm.";
    constexpr std::string_view kEnd = ".part";
    constexpr std::size_t kRandom = 8;
    if (name.size() < 1 + kMiddle.size() + kRandom + kEnd.size() || !name.starts_with('.')) return false;
    if (!name.ends_with(kEnd)) return false;
    return name.substr(0, name.size() - kEnd.size() - kRandom).ends_with(kMiddle);
}

}  // namespace

std::string FileNameOf(const std::string& sopInstance) {
    if (IsUid(sopInstance)) return sopInstance;
    return "2.25." + std::to_string(HashOfText(sopInstance, 1)) + std::to_string(HashOfText(sopInstance, 2));
}

void RemoveUnfinished(const std::string& folder, const Watch& watch) {
    Finding finding{FindingKind::FileFailed};
    std::error_code error;
    for (std::filesystem::directory_iterator entry(PathFromText(folder), error), end; entry != end;
         entry.increment(error)) {
        watch.StopIfAsked();
        const std::string path = TextFromPath(entry->path());
        std::error_code other;
        if (!IsUnfinished(TextFromPath(entry->path().filename())) ||
            !std::filesystem::is_regular_file(entry->symlink_status(other)))
            continue;
        if (RemoveFile(path)) finding.files.push_back(path);
    }
    finding.count = finding.files.size();
    if (finding.count == 0) return;
    finding.text =
        folder + ": removed " + std::to_string(finding.count) + " unfinished files of a receiver that was killed";
    watch.Tell(finding);
}

ReceivedFiles::ReceivedFiles(const ReceiveOptions& options, std::function<bool()> stop,
                             const std::function<void(const ReceivedFile&)>& tell)
    : FolderSink(options.folder, options.replace ? Existing::Replace : Existing::KeepBoth), m_Options(options),
      m_Stop(std::move(stop)), m_Tell(tell) {}

bool ReceivedFiles::HasRoom() {
    m_nUnasked = 0;
    std::error_code error;
    const auto space = std::filesystem::space(PathFromText(m_Options.folder), error);
    if (error || space.available >= m_Options.keepFree) return true;
    m_Why = ": less than " + std::to_string(m_Options.keepFree >> 20) + " MB are free";
    return false;
}

std::uint16_t ReceivedFiles::Begin(const StorageRequest& request) {
    m_Request = request;
    m_Why.clear();
    m_Study.clear();
    m_Patient.clear();
    m_Changed = {m_Options.folder};
    if (!HasRoom()) return kStatusOutOfResources;
    errno = 0;
    const std::uint16_t status = FolderSink::Begin(request);
    return Explain(status);
}

std::uint16_t ReceivedFiles::Write(const void* bytes, std::size_t count) {
    m_nUnasked += count;
    if (m_nUnasked >= kAskDiskEvery && !HasRoom()) return kStatusOutOfResources;
    errno = 0;
    return Explain(FolderSink::Write(bytes, count));
}

std::uint16_t ReceivedFiles::End() {
    errno = 0;
    std::uint16_t status = FolderSink::End();
    if (status != kStatusSuccess) return Explain(status);
    // Unless its name is on the disk, the file may be lost in a power failure: a failure status tells the peer to keep
    // its own.
    for (const std::string& folder : m_Changed) {
        if (m_Options.sync && !platform::SyncFolder(folder.c_str())) status = kStatusOutOfResources;
    }
    return Explain(status);
}

void ReceivedFiles::Answered(const StorageRequest& request, std::uint16_t status, const std::string& reason) {
    const bool stored = IsStored(status);
    ++(stored ? m_nStored : m_nRefused);
    ReceivedFile file;
    file.path = stored ? GetPath() : "";
    file.sopClass = request.sopClass;
    file.sopInstance = request.sopInstance;
    file.transferSyntax = request.transferSyntax;
    file.caller = request.callingTitle;
    file.status = status;
    file.time = TimeNow();
    if (stored) file.study = m_Study;
    if (stored) file.patient = m_Patient;
    if (stored && !IsUid(request.sopInstance)) file.remark = "no UID; stored as " + file.path;
    file.why = stored ? "" : DimseStatusText(status) + ": " + reason + m_Why;
    m_Why.clear();
    m_Tell(file);
}

std::uint16_t ReceivedFiles::Check(const std::string& path, std::size_t head) {
    const std::uint16_t status =
        IsDeflatedTransferSyntax(m_Request.transferSyntax) ? CheckDeflated(path, head) : std::uint16_t{kStatusSuccess};
    if (status != kStatusSuccess) return status;
    std::error_code ignored;  // some file systems have no access rights
    std::filesystem::permissions(PathFromText(path), kNotForOthers, std::filesystem::perm_options::remove, ignored);
    errno = 0;
    return !m_Options.sync || platform::SyncFile(path.c_str()) ? std::uint16_t{kStatusSuccess}
                                                               : std::uint16_t{kStatusOutOfResources};
}

std::uint16_t ReceivedFiles::Place(const std::string& unfinished, std::string& path) {
    if (m_Options.layout == FileLayout::Flat && m_Options.studyQuiet == 0) return kStatusSuccess;
    std::string series;
    try {
        const DataSetFile read = ReadDataSetFile(unfinished, kStopBeforePixelData, {});
        if (read.dataSet == nullptr) return kStatusCannotUnderstand;
        m_Study = FindText(*read.dataSet, tags::StudyInstanceUID);
        m_Patient = FindText(*read.dataSet, tags::PatientID);
        series = FindText(*read.dataSet, tags::SeriesInstanceUID);
    } catch (const Error& error) {
        m_Why = std::string(": ") + error.what();
        return kStatusOutOfResources;
    }
    std::vector<std::string> names = {m_Patient, m_Study, series};
    names.resize(static_cast<std::size_t>(m_Options.layout));
    std::string folder = m_Options.folder;
    if (!MakeFolders(names, folder)) return kStatusOutOfResources;
    path = folder + path.substr(m_Options.folder.size());
    return kStatusSuccess;
}

// Makes folders with safe names in each other, within `folder`, which becomes the last of them.
bool ReceivedFiles::MakeFolders(const std::vector<std::string>& names, std::string& folder) {
    for (const std::string& text : names) {
        folder += "/" + FolderName(text);
        if (!platform::FileExists(folder.c_str())) {
            try {
                MakeDirectory(folder);
            } catch (const Error& error) {
                m_Why = std::string(": ") + error.what();
                return false;
            }
        }
        m_Changed.push_back(folder);  // all of them: another association may have made it, and not synced it yet
    }
    return true;
}

std::uint16_t ReceivedFiles::CheckDeflated(const std::string& path, std::size_t head) {
    FileInputBuffer file;
    if (!file.Open(path.c_str()) || !file.Skip(head)) return kStatusOutOfResources;
    file.SetStopQuestion(m_Stop);
    InflateBuffer inflated(file);
    DataSetWalker walker(kExplicitLittleEndian);
    std::vector<unsigned char> piece(kPieceBytes);
    while (const std::size_t count = inflated.ReadSome(piece.data(), piece.size())) {
        if (!walker.Feed(piece.data(), count)) break;
    }
    if (m_Stop && m_Stop()) return kStatusOutOfResources;
    return inflated.IsWhole() ? CheckDataSet(walker, m_Request) : std::uint16_t{kStatusCannotUnderstand};
}

std::uint16_t ReceivedFiles::Explain(std::uint16_t status) {
    if (status == kStatusOutOfResources && errno != 0 && m_Why.empty()) m_Why = ": " + SystemText(errno);
    return status;
}

}  // namespace korvane
