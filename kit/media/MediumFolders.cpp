#include "MediumFolders.h"

#include "../core/Error.h"
#include "../core/Paths.h"

#include <cerrno>
#include <system_error>

namespace korvane {

namespace fs = std::filesystem;

namespace {

constexpr char kFileRoot[] = "DICOM";
constexpr int kMostFileRoots = 1000;  // names have eight letters (PS3.10 8.2)

}  // namespace

MediumFolders::MediumFolders(const std::string& root, Medium medium)
    : m_Root(root), m_Medium(medium), m_Files(PathFromText(root + "/" + kFileRoot)) {}

MediumFolders::~MediumFolders() {
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

std::string MediumFolders::GetFileRoot() const {
    return TextFromPath(m_Files.filename());
}

void MediumFolders::Make() {
    std::error_code error;
    if (m_Medium == Medium::New) {
        for (fs::path made = m_Files; made.has_relative_path() && !fs::exists(fs::symlink_status(made, error));
             made = made.parent_path()) {
            m_Made.push_back(made);
        }
    }
    Lock();
    const bool isThere = platform::FileExists(GetDirectory().c_str());
    if (isThere != (m_Medium != Medium::New)) {
        throw Error(isThere ? ErrorKind::Disk : ErrorKind::NotFound,
                    m_Root + (isThere ? " has a DICOMDIR already" : " has no DICOMDIR"))
            .InFile(GetDirectory());
    }
    if (m_Medium != Medium::Shrink) MakeFileRoot();
    if (m_Directory.Reserve(GetDirectory())) return;
    throw Error(ErrorKind::Disk, "cannot create " + GetDirectory() + ": " + SystemText(errno)).InFile(GetDirectory());
}

void MediumFolders::MakeFileRoot() {
    std::error_code error;
    if (m_Medium == Medium::There) {
        for (int number = 1; fs::exists(fs::symlink_status(m_Files, error)) && number < kMostFileRoots; ++number)
            m_Files.replace_filename(kFileRoot + std::to_string(number));
        m_Made.push_back(m_Files);
    }
    if (fs::exists(m_Files, error) && !(fs::is_directory(m_Files, error) && fs::is_empty(m_Files, error)))
        throw Error(ErrorKind::Disk, TextFromPath(m_Files) + " is there already and not empty");
    m_bOwn = true;
    MakeDirectory(TextFromPath(m_Files));
}

// Makes the root where it is missing, and locks it. It tries again where another builder, which has failed, has
// removed the root in between.
void MediumFolders::Lock() {
    constexpr int kAttempts = 10;
    for (int attempt = 0;; ++attempt) {
        if (m_Medium == Medium::New) MakeDirectory(m_Root);
        if (m_Lock.TakeAlone(m_Root)) return;
        if (errno != ENOENT || attempt == kAttempts) break;
    }
    const int error = errno;
    m_Made.clear();  // another builder has made them
    if (error == EBUSY) throw Error(ErrorKind::Disk, "another medium is being built in " + m_Root).InFile(m_Root);
    throw Error(error == ENOENT ? ErrorKind::NotFound : ErrorKind::Disk,
                "cannot open " + m_Root + ": " + SystemText(error))
        .InFile(m_Root);
}

void MediumFolders::Keep() {
    const bool isNew = m_Medium == Medium::New;
    using Existing = platform::ReplacingFile::Existing;
    if (!m_Directory.Commit(isNew ? Existing::Refuse : Existing::Replace)) {
        const std::error_code error(errno, std::generic_category());
        const std::string reason = SystemText(error, GetDirectory());
        throw Error(ErrorKind::Disk, error.value() == EEXIST ? m_Root + " has got a DICOMDIR from elsewhere"
                                                             : "cannot create " + GetDirectory() + ": " + reason)
            .InFile(GetDirectory());
    }
    m_bKept = true;
}

}  // namespace korvane
