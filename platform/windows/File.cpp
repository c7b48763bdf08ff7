#include "platform/File.h"

#include "OpenChecks.h"
#include "WideText.h"

#include <algorithm>
#include <cerrno>
#include <windows.h>

namespace platform {

std::string NativePath(const char* path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '/', '\\');
    return native;
}

bool IsPathTooLong(const char* path) {
    const std::wstring wide = WideText(NativePath(path).c_str());
    return GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr) > MAX_PATH;  // both with the zero at the end
}

std::FILE* OpenFile(const char* path, const char* mode) {
    const std::wstring wide = WideText(NativePath(path).c_str());
    if (RefuseDirectory(wide)) return nullptr;
    std::FILE* const file = _wfopen(wide.c_str(), WideText(mode).c_str());
    if (file == nullptr) NameLength(path);
    return file;
}

int SeekFile(std::FILE* file, std::uint64_t offset) {
    return _fseeki64(file, static_cast<long long>(offset), SEEK_SET);
}

bool FileExists(const char* path) {
    return GetFileAttributesW(WideText(NativePath(path).c_str()).c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace platform
