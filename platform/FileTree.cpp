#include "platform/FileTree.h"

#include "platform/File.h"

#if defined(_WIN32)
#include "platform/WideText.h"

#include <cerrno>
#include <direct.h>
#include <io.h>
#include <stdio.h>
#include <windows.h>
#else
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#endif

namespace platform {

#if defined(_WIN32)

namespace {

std::wstring Wide(const char* path) {
    return WideText(NativePath(path).c_str());
}

/// `errno` for the system's last error, as far as messages to users want to tell one from another.
bool Failed() {
    switch (GetLastError()) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: errno = ENOENT; break;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_WRITE_PROTECT: errno = EACCES; break;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL: errno = ENOSPC; break;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS: errno = EEXIST; break;
    default: errno = EIO;
    }
    return false;
}

using CreateHardLinkFunction = BOOL(WINAPI*)(LPCWSTR, LPCWSTR, LPSECURITY_ATTRIBUTES);
CreateHardLinkFunction g_CreateHardLink = nullptr;

int HardLink(const char* newName, const char* existing, void* attributes) {
    const BOOL linked =
        g_CreateHardLink(Wide(newName).c_str(), Wide(existing).c_str(), static_cast<LPSECURITY_ATTRIBUTES>(attributes));
    return linked != 0 || Failed() ? 1 : 0;
}

}  // namespace

bool IsWritable(const char* path) {
    return _waccess(Wide(path).c_str(), 2) == 0;
}

bool CreateFolder(const char* path) {
    return _wmkdir(Wide(path).c_str()) == 0;
}

bool RemoveFolder(const char* path) {
    return _wrmdir(Wide(path).c_str()) == 0;
}

bool DuplicateFile(const char* source, const char* destination) {
    // The system removes what it could not finish.
    return CopyFileW(Wide(source).c_str(), Wide(destination).c_str(), FALSE) != 0 || Failed();
}

LinkFunction FindHardLink() {
    // CreateHardLinkA under the name by which it takes any path; both came with the same system.
    const HMODULE kernel = LoadLibraryW(L"Kernel32.dll");
    if (kernel == nullptr) return nullptr;
    g_CreateHardLink = reinterpret_cast<CreateHardLinkFunction>(
        reinterpret_cast<void (*)()>(GetProcAddress(kernel, "CreateHardLinkW")));
    return g_CreateHardLink != nullptr ? HardLink : nullptr;
}

#else

namespace {

int HardLink(const char* newName, const char* existing, void*) {
    const int linked =
        linkat(AT_FDCWD, NativePath(existing).c_str(), AT_FDCWD, NativePath(newName).c_str(), AT_SYMLINK_FOLLOW);
    return linked == 0 ? 1 : 0;
}

}  // namespace

bool IsWritable(const char* path) {
    return access(NativePath(path).c_str(), W_OK) == 0;
}

bool CreateFolder(const char* path) {
    return mkdir(NativePath(path).c_str(), 0777) == 0;
}

bool RemoveFolder(const char* path) {
    return rmdir(NativePath(path).c_str()) == 0;
}

bool DuplicateFile(const char* source, const char* destination) {
    namespace fs = std::filesystem;
    std::error_code error;
    const std::string target = NativePath(destination);
    if (fs::copy_file(NativePath(source), target, fs::copy_options::overwrite_existing, error)) return true;
    const int reason = error.value();
    // In these cases writing had begun.
    if (reason == ENOSPC || reason == EDQUOT || reason == EFBIG || reason == EIO) unlink(target.c_str());
    errno = reason;
    return false;
}

LinkFunction FindHardLink() {
    return HardLink;
}

#endif

}  // namespace platform
