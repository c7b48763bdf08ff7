#include "platform/FileCalls.h"

#include "OpenChecks.h"
#include "SystemError.h"
#include "WideText.h"
#include "platform/File.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

namespace platform {

namespace {

FileHandle Open(const char* path, int flags) {
    const std::wstring wide = WideText(NativePath(path).c_str());
    if (RefuseDirectory(wide)) return -1;
    const int file = _wopen(wide.c_str(), flags | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    if (file < 0) NameLength(path);
    return file;
}

bool Rename(const char* from, const char* to, DWORD flags) {
    const std::wstring oldName = WideText(NativePath(from).c_str());
    const std::wstring newName = WideText(NativePath(to).c_str());
    return MoveFileExW(oldName.c_str(), newName.c_str(), flags) != 0 || FailWithSystemError();
}

}  // namespace

FileHandle OpenToRead(const char* path, FileState& state) {
    const int file = Open(path, _O_RDONLY | _O_SEQUENTIAL);
    state = {};
    if (file < 0) return file;
    auto* const handle = reinterpret_cast<HANDLE>(_get_osfhandle(file));
    const long long length = _filelengthi64(file);
    state.size = length > 0 ? static_cast<std::uint64_t>(length) : 0;
    state.isRegular = GetFileType(handle) == FILE_TYPE_DISK;
    FILETIME written{};
    GetFileTime(handle, nullptr, nullptr, &written);
    state.written = static_cast<std::int64_t>(std::uint64_t{written.dwHighDateTime} << 32 | written.dwLowDateTime);
    return file;
}

FileHandle OpenToWrite(const char* path) {
    return Open(path, _O_WRONLY | _O_CREAT | _O_TRUNC);
}

FileHandle OpenNew(const char* path) {
    return Open(path, _O_WRONLY | _O_CREAT | _O_EXCL);
}

FileHandle OpenToAppend(const char* path) {
    const std::wstring wide = WideText(NativePath(path).c_str());
    if (RefuseDirectory(wide)) return -1;
    const int file = _wsopen(wide.c_str(), _O_WRONLY | _O_CREAT | _O_APPEND | _O_BINARY | _O_NOINHERIT, _SH_DENYWR,
                             _S_IREAD | _S_IWRITE);
    if (file >= 0) return file;
    const bool isShared = GetLastError() == ERROR_SHARING_VIOLATION;
    NameLength(path);
    if (isShared) errno = EBUSY;
    return -1;
}

std::ptrdiff_t ReadSome(FileHandle file, void* bytes, std::size_t count) {
    return _read(file, bytes, static_cast<unsigned>(count));
}

bool SeekTo(FileHandle file, std::uint64_t place) {
    return _lseeki64(file, static_cast<std::int64_t>(place), SEEK_SET) >= 0;
}

std::ptrdiff_t WriteSome(FileHandle file, const void* bytes, std::size_t count) {
    return _write(file, bytes, static_cast<unsigned>(count));
}

bool SyncFile(FileHandle file) {
    return _commit(file) == 0;
}

bool SyncFolderOf(const char* /*path*/) {
    return true;  // `MOVEFILE_WRITE_THROUGH` has waited
}

bool CloseFile(FileHandle file) {
    return _close(file) == 0;
}

bool RenameOver(const char* from, const char* to) {
    return Rename(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

bool RenameNew(const char* from, const char* to) {
    return Rename(from, to, MOVEFILE_WRITE_THROUGH);
}

bool RemoveFile(const char* path) {
    return _wremove(WideText(NativePath(path).c_str()).c_str()) == 0;
}

}  // namespace platform
