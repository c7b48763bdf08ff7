#include "platform/FolderReader.h"

#include "platform/File.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace platform {

struct FolderReader::Handle {
    DIR* folder = nullptr;
};

namespace {

FolderReader::Kind KindOf(mode_t mode, bool isLink) {
    if (S_ISREG(mode)) return FolderReader::Kind::File;
    return S_ISDIR(mode) && !isLink ? FolderReader::Kind::Folder : FolderReader::Kind::Other;
}

// Most file systems tell the kind with the name.
FolderReader::Kind KindOf(DIR* folder, const dirent& entry) {
    if (entry.d_type == DT_REG) return FolderReader::Kind::File;
    if (entry.d_type == DT_DIR) return FolderReader::Kind::Folder;
    if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return FolderReader::Kind::Other;
    struct stat status;
    bool isLink = entry.d_type == DT_LNK;
    if (!isLink) {
        if (fstatat(dirfd(folder), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return FolderReader::Kind::Other;
        isLink = S_ISLNK(status.st_mode);
    }
    if (isLink && fstatat(dirfd(folder), entry.d_name, &status, 0) != 0) return FolderReader::Kind::Other;
    return KindOf(status.st_mode, isLink);
}

}  // namespace

FolderReader::FolderReader() : m_pHandle(std::make_unique<Handle>()) {}

FolderReader::~FolderReader() {
    if (m_pHandle->folder != nullptr) closedir(m_pHandle->folder);
}

bool FolderReader::Open(const char* path) {
    if (m_pHandle->folder != nullptr) closedir(m_pHandle->folder);
    m_pHandle->folder = opendir(NativePath(path).c_str());
    return m_pHandle->folder != nullptr;
}

bool FolderReader::ReadNext(Entry& entry) {
    for (;;) {
        errno = 0;
        const dirent* const next = readdir(m_pHandle->folder);  // NOLINT(concurrency-mt-unsafe): of a folder of its own
        if (next == nullptr) return false;
        if (std::strcmp(next->d_name, ".") == 0 || std::strcmp(next->d_name, "..") == 0) continue;
        entry.kind = KindOf(m_pHandle->folder, *next);
        entry.name = next->d_name;
        return true;
    }
}

}  // namespace platform
