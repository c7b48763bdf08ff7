#include "platform/FolderLock.h"

#include "platform/File.h"
#include "platform/FileTree.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr int kAttempts = 10;

// Locks an open folder: 1 done, 0 somebody else has it, -1 the file system knows no locks.
int Lock(int folder, int how) {
    int done = flock(folder, how);
    while (done != 0 && errno == EINTR) done = flock(folder, how);
    if (done == 0) return 1;
    return errno == EWOULDBLOCK ? 0 : -1;
}

// Whether the path still leads to what is open: the folder may have been removed, and made anew, before it was locked.
bool IsStill(int folder, const char* path) {
    struct stat open = {};
    struct stat named = {};
    return fstat(folder, &open) == 0 && stat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

}  // namespace

bool FolderLock::TakeAlone(const std::string& folder) {
    Release();
    m_Folder = folder;
    const std::string path = NativePath(folder.c_str());
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int handle = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (handle < 0) return false;
        const int locked = Lock(handle, LOCK_EX | LOCK_NB);
        if (locked > 0 && IsStill(handle, path.c_str())) {
            m_Handle = handle;
            return true;
        }
        close(handle);
        if (locked < 0) return true;
        errno = EBUSY;
        if (locked == 0) return false;
    }
    return false;
}

bool FolderLock::TakeShared(const std::string& folder) {
    if (m_Handle == kNone) {
        m_Folder = folder;
        m_Handle = open(NativePath(folder.c_str()).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (m_Handle == kNone) return false;
    }
    if (Lock(static_cast<int>(m_Handle), LOCK_SH) < 0) Release();
    return true;
}

bool FolderLock::RemoveFolder() {
    return platform::RemoveFolder(m_Folder.c_str());
}

void FolderLock::Release() noexcept {
    if (m_Handle != kNone) close(static_cast<int>(m_Handle));
    m_Handle = kNone;
}

}  // namespace platform
