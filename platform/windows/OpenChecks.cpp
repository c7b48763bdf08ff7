#include "OpenChecks.h"

#include "platform/File.h"

#include <cerrno>
#include <windows.h>

namespace platform {

bool RefuseDirectory(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return false;
    errno = EISDIR;
    return true;
}

void NameLength(const char* path) {
    if (errno == ENOENT && IsPathTooLong(path)) errno = ENAMETOOLONG;
}

}  // namespace platform
