#include "platform/FileCalls.h"

#include "platform/File.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

namespace {

constexpr mode_t kRights = 0666;  // less what the user's mask takes away

}  // namespace

FileHandle OpenToRead(const char* path, FileState& state) {
    const int file = open(NativePath(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return file;
    struct stat status;
    if (fstat(file, &status) != 0 || S_ISDIR(status.st_mode)) {
        close(file);
        errno = EISDIR;
        return -1;
    }
    constexpr std::int64_t kNanoseconds = 1'000'000'000;
    state.isRegular = S_ISREG(status.st_mode);
    state.size = state.isRegular ? static_cast<std::uint64_t>(status.st_size) : 0;
    state.written = static_cast<std::int64_t>(status.st_mtim.tv_sec) * kNanoseconds + status.st_mtim.tv_nsec;
    return file;
}

FileHandle OpenToWrite(const char* path) {
    return open(NativePath(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kRights);
}

FileHandle OpenNew(const char* path) {
    return open(NativePath(path).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kRights);
}

FileHandle OpenToAppend(const char* path) {
    const int file = open(NativePath(path).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kRights);
    if (file < 0 || flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return file;
    close(file);
    errno = EBUSY;
    return -1;
}

std::ptrdiff_t ReadSome(FileHandle file, void* bytes, std::size_t count) {
    return read(file, bytes, count);
}

bool SeekTo(FileHandle file, std::uint64_t place) {
    return lseek(file, static_cast<off_t>(place), SEEK_SET) >= 0;
}

std::ptrdiff_t WriteSome(FileHandle file, const void* bytes, std::size_t count) {
    return write(file, bytes, count);
}

bool SyncFile(FileHandle file) {
    return fsync(file) == 0;
}

bool SyncFolderOf(const char* path) {
    const std::string folder = FolderOf(NativePath(path));
    const int opened = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return false;
    const bool synced = fsync(opened) == 0 || errno == EINVAL;  // some network file systems have no such call
    close(opened);
    return synced;
}

bool CloseFile(FileHandle file) {
    return close(file) == 0;
}

bool RenameOver(const char* from, const char* to) {
    return std::rename(NativePath(from).c_str(), NativePath(to).c_str()) == 0;
}

bool RenameNew(const char* from, const char* to) {
    const std::string oldName = NativePath(from);
    const std::string newName = NativePath(to);
#if defined(RENAME_NOREPLACE)
    if (renameat2(AT_FDCWD, oldName.c_str(), AT_FDCWD, newName.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
#endif
    // A file system that does not know that call: an empty file of ours takes the name, and is replaced.
    const int place = OpenNew(to);
    if (place < 0) return false;
    close(place);
    if (std::rename(oldName.c_str(), newName.c_str()) == 0) return true;
    const int reason = errno;
    unlink(newName.c_str());
    errno = reason;
    return false;
}

bool RemoveFile(const char* path) {
    return unlink(NativePath(path).c_str()) == 0;
}

}  // namespace platform
