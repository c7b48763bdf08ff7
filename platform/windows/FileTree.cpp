#include "platform/FileTree.h"

#include "SystemError.h"
#include "WideText.h"
#include "platform/File.h"
#include "platform/ReplacingFile.h"

#include <direct.h>
#include <io.h>
#include <windows.h>

namespace platform {

namespace {

std::wstring Wide(const char* path) {
    return WideText(NativePath(path).c_str());
}

using CreateHardLinkFunction = BOOL(WINAPI*)(LPCWSTR, LPCWSTR, LPSECURITY_ATTRIBUTES);

// Null where the system has none. CreateHardLinkA under the name by which it takes any path; both came with the same
// system.
CreateHardLinkFunction SystemHardLink() {
    static const auto function = [] {
        const HMODULE kernel = LoadLibraryW(L"Kernel32.dll");
        return kernel == nullptr ? nullptr
                                 : reinterpret_cast<CreateHardLinkFunction>(
                                       reinterpret_cast<void (*)()>(GetProcAddress(kernel, "CreateHardLinkW")));
    }();
    return function;
}

int HardLink(const char* newName, const char* existing, void* attributes) {
    const BOOL linked =
        SystemHardLink()(Wide(newName).c_str(), Wide(existing).c_str(), static_cast<LPSECURITY_ATTRIBUTES>(attributes));
    return linked != 0 || FailWithSystemError() ? 1 : 0;
}

}  // namespace

bool IsWritable(const char* path) {
    return _waccess(Wide(path).c_str(), 2) == 0;
}

bool CreateFolder(const char* path) {
    return _wmkdir(Wide(path).c_str()) == 0;
}

bool CreatePrivateFolder(const char* path) {
    return CreateFolder(path);
}

bool RemoveFolder(const char* path) {
    return _wrmdir(Wide(path).c_str()) == 0;
}

void GiveRights(const char*, const char*) {}

bool DuplicateFile(const char* source, const char* destination, const StopQuestion& stop) {
    if (!stop) return CopyFileW(Wide(source).c_str(), Wide(destination).c_str(), FALSE) != 0 || FailWithSystemError();
    // Copied piece by piece here: CopyFileEx may not call back between the pieces of a fast copy, so that a stop would
    // come too late.
    InputFile input;
    ReplacingFile output;
    input.SetStopQuestion(stop);
    return input.Open(source) && output.Open(destination) && output.WriteAll(input) && output.Commit();
}

LinkFunction FindHardLink() {
    return SystemHardLink() != nullptr ? HardLink : nullptr;
}

bool RemovesOpenFiles() {
    return false;
}

}  // namespace platform
