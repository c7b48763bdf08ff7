#include "FileTree.h"

#include "File.h"

#if defined(_WIN32)
#include "WideText.h"

#include <cerrno>
#include <direct.h>
#include <io.h>
#include <stdio.h>
#include <windows.h>
#else
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <memory>
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
    case ERROR_REQUEST_ABORTED: errno = EINTR; break;
    default: errno = EIO;
    }
    return false;
}

/// The system calls it for each piece of a copy.
DWORD CALLBACK AskWhileCopying(LARGE_INTEGER, LARGE_INTEGER, LARGE_INTEGER, LARGE_INTEGER, DWORD, DWORD, HANDLE, HANDLE,
                               void* check) {
    constexpr std::size_t kPiece = 64 * 1024;
    return static_cast<StopCheck*>(check)->IsStopped(kPiece) ? PROGRESS_CANCEL : PROGRESS_CONTINUE;
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

bool DuplicateFile(const char* source, const char* destination, const StopQuestion& stop) {
    StopCheck check;
    check.SetQuestion(stop);
    LPPROGRESS_ROUTINE const ask = stop ? AskWhileCopying : nullptr;
    // The system removes what it could not finish, and what was stopped.
    return CopyFileExW(Wide(source).c_str(), Wide(destination).c_str(), ask, &check, nullptr, 0) != 0 || Failed();
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

/// False with `errno` set on failure.
bool Copy(InputFile& input, OutputFile& output) {
    constexpr std::uint64_t kLargestBlock = 1 << 20;
    const auto size = static_cast<std::size_t>(std::clamp<std::uint64_t>(input.GetSize(), 1 << 12, kLargestBlock));
    const auto block = std::make_unique_for_overwrite<unsigned char[]>(size);
    while (const std::size_t count = input.Read(block.get(), size)) {
        if (!output.Write(block.get(), count)) return false;
    }
    return !input.HasFailed();
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

bool DuplicateFile(const char* source, const char* destination, const StopQuestion& stop) {
    InputFile input;
    input.SetStopQuestion(stop);
    OutputFile output;
    const bool isNew = !FileExists(destination);
    if (!input.Open(source) || !output.Open(destination)) return false;
    // Who may read the one may read the other.
    std::error_code ignored;
    const std::filesystem::path target = NativePath(destination);
    const auto rights =
        std::filesystem::status(NativePath(source), ignored).permissions() & std::filesystem::perms::all;
    std::filesystem::permissions(target, rights, ignored);
    const bool copied = Copy(input, output) && output.Close();
    const int reason = errno;
    if (!copied && isNew) unlink(target.c_str());
    errno = reason;
    return copied;
}

LinkFunction FindHardLink() {
    return HardLink;
}

#endif

}  // namespace platform
