#include "FolderSink.h"

#include "Dicom/Lib/dataset/ReplaceValue.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "Dicom/Lib/stream/MemoryBuffer.h"
#include "Dicom/Lib/syntax/TransferSyntaxCodec.h"
#include "Dicom/Lib/syntax/TransferSyntaxTable.h"
#include "platform/ReplacingFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

namespace {

constexpr std::string_view kExtension = ".dcm";
constexpr int kMostCompared =
    100;  // versions of one instance; else a flood of them would have all read for each new one

// Whether `a`, an older file, ends with the data set that `b` has behind its head: heads name the sender, and may
// differ.
bool HasSameDataSet(platform::InputFile& a, platform::InputFile& b, std::size_t head) {
    constexpr std::size_t kPiece = 64 * 1024;
    if (b.GetSize() < head) return false;
    const std::uint64_t length = b.GetSize() - head;
    if (a.GetSize() < length || a.GetSize() - length > kPiece) return false;
    const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, std::max(a.GetSize(), b.GetSize())));
    std::vector<unsigned char> x(room);
    std::vector<unsigned char> y(room);
    a.Read(x.data(), static_cast<std::size_t>(a.GetSize() - length));
    b.Read(y.data(), head);
    for (std::uint64_t left = length; left > 0;) {
        const auto step = static_cast<std::size_t>(std::min<std::uint64_t>(left, room));
        if (a.Read(x.data(), step) != step || b.Read(y.data(), step) != step) return false;
        if (!std::equal(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(step), y.begin())) return false;
        left -= step;
    }
    return true;
}

enum class Content { Same, Other, Unreadable };

// Opens a file that another process may be renaming at this moment, which Windows refuses: tries again for a second.
bool OpenPatiently(platform::InputFile& file, const std::string& path) {
    constexpr int kTries = 50;
    for (int i = 0; i < kTries; ++i) {
        if (file.Open(path.c_str())) return true;
        if (errno == ENOENT) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

// Compares the data sets of two files. Both are closed again before it returns, for Windows neither renames nor removes
// open files. A file that exists but cannot be opened is `Unreadable`.
Content CompareDataSets(const std::string& older, const std::string& file, std::size_t head) {
    platform::InputFile a;
    platform::InputFile b;
    if (!OpenPatiently(a, older)) return errno == ENOENT ? Content::Other : Content::Unreadable;
    if (!OpenPatiently(b, file)) return Content::Unreadable;
    if (HasSameDataSet(a, b, head)) return Content::Same;
    return a.HasFailed() || b.HasFailed() ? Content::Unreadable : Content::Other;
}

std::string NumberedName(const std::string& path, int number) {
    const std::string base = path.substr(0, path.size() - kExtension.size());
    return base + "-" + std::to_string(number) + std::string(kExtension);
}

// A name with a number above `low` that no file has, where a file has the number `low`. It is searched in steps that
// double, so that many files cost few look-ups.
std::string FreeName(const std::string& path, int low) {
    const auto isTaken = [&](int number) { return platform::FileExists(NumberedName(path, number).c_str()); };
    int high = low + 1;
    for (int step = 1; isTaken(high); step *= 2) {
        low = high;
        high += step;
    }
    while (high - low > 1) {
        const int middle = low + (high - low) / 2;
        (isTaken(middle) ? low : high) = middle;
    }
    return NumberedName(path, high);
}

}  // namespace

std::vector<unsigned char> FileHead(const StorageRequest& request) {
    static constexpr unsigned char kVersion[2] = {0, 1};
    DICOMDataObject meta;
    int made = ReplaceValue(meta, tags::FileMetaInformationVersion, TypeCode("OB"), kVersion, sizeof kVersion);
    const auto put = [&](tags::Tag tag, std::uint16_t type, std::string_view text) {
        made &= ReplaceText(meta, tag, type, text);
    };
    put(tags::MediaStorageSOPClassUID, TypeCode("UI"), request.sopClass);
    put(tags::MediaStorageSOPInstanceUID, TypeCode("UI"), request.sopInstance);
    put(tags::TransferSyntaxUID, TypeCode("UI"), request.transferSyntax);
    put(tags::ImplementationClassUID, TypeCode("UI"), kImplementationClassUid);
    put(tags::ImplementationVersionName, TypeCode("SH"), kImplementationVersionName);
    if (!request.callingTitle.empty()) put(tags::SourceApplicationEntityTitle, TypeCode("AE"), request.callingTitle);
    MemoryOutputBuffer head;
    head.WriteZeros(128);
    head.Write("DICM", 4);
    TransferSyntaxCodec codec;
    if (made == 0 || codec.EncodeMetaInformation(head, meta) == 0) return {};
    return head.GetBytes();
}

FolderSink::FolderSink(std::string folder, Existing existing)
    : m_Folder(std::move(folder)), m_Existing(existing), m_pFile(std::make_unique<platform::ReplacingFile>()) {}

FolderSink::~FolderSink() = default;

std::string FolderSink::MakeName(const StorageRequest& request) const {
    return IsUid(request.sopInstance) ? request.sopInstance : "";  // `SetTakesAnyInstance` lets others through
}

std::uint16_t FolderSink::Begin(const StorageRequest& request) {
    Discard();
    const std::string name = MakeName(request);
    if (name.empty()) return kStatusInvalidInstance;
    m_Path = m_Folder + "/" + name + std::string(kExtension);
    const std::vector<unsigned char> head = FileHead(request);
    m_Head = head.size();
    const bool begun = !head.empty() && m_pFile->Open(m_Path) && m_pFile->Write(head.data(), head.size());
    if (!begun) Discard();
    return begun ? kStatusSuccess : kStatusOutOfResources;
}

std::uint16_t FolderSink::Write(const void* bytes, std::size_t count) {
    return m_pFile->Write(bytes, count) ? kStatusSuccess : kStatusOutOfResources;
}

std::uint16_t FolderSink::End() {
    std::uint16_t status = kStatusOutOfResources;
    if (m_pFile->Close()) status = Check(m_pFile->GetUnfinished(), m_Head);
    if (status == kStatusSuccess) status = Place(m_pFile->GetUnfinished(), m_Path);
    if (status == kStatusSuccess && !Settle()) status = kStatusOutOfResources;
    Discard();
    return status;
}

// Gives the file its name, with a number behind it where other files have the name. A file that has the same content
// already is kept, and this one is not stored a second time.
bool FolderSink::Settle() {
    using Commit = platform::ReplacingFile::Existing;
    if (m_Existing == Existing::Replace) return m_pFile->CommitAs(m_Path, Commit::Replace);
    const std::string first = m_Path;
    for (int number = 2; !m_pFile->CommitAs(m_Path, Commit::Refuse); ++number) {
        if (errno != EEXIST) return false;
        if (number > kMostCompared) {
            m_Path = FreeName(first, number - 1);
            continue;
        }
        const Content content = CompareDataSets(m_Path, m_pFile->GetUnfinished(), m_Head);
        if (content == Content::Same) return true;
        if (content == Content::Unreadable)
            return false;  // it may have the same content, which must not be stored twice
        m_Path = NumberedName(first, number);
    }
    return true;
}

void FolderSink::Discard() {
    m_pFile->Discard();
}
