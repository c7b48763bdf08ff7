#include "platform/FileTree.h"

#include "SystemError.h"
#include "WideText.h"
#include "platform/File.h"

#include <direct.h>
#include <io.h>
#include <windows.h>

namespace platform {

namespace {

std::wstring Wide(const char* path) {
    return WideText(NativePath(path).c_str());
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
    return linked != 0 || FailWithSystemError() ? 1 : 0;
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
    return CopyFileExW(Wide(source).c_str(), Wide(destination).c_str(), ask, &check, nullptr, 0) != 0 ||
           FailWithSystemError();
}

LinkFunction FindHardLink() {
    // CreateHardLinkA under the name by which it takes any path; both came with the same system.
    const HMODULE kernel = LoadLibraryW(L"Kernel32.dll");
    if (kernel == nullptr) return nullptr;
    g_CreateHardLink = reinterpret_cast<CreateHardLinkFunction>(
        reinterpret_cast<void (*)()>(GetProcAddress(kernel, "CreateHardLinkW")));
    return g_CreateHardLink != nullptr ? HardLink : nullptr;
}

}  // namespace platform
