#include "platform/File.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

std::string NativePath(const char* path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

bool IsPathTooLong(const char*) {
    return false;
}

std::FILE* OpenFile(const char* path, const char* mode) {
    const std::string native = NativePath(path);
    struct stat status;
    if (stat(native.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return nullptr;
    }
    return std::fopen(native.c_str(), mode);
}

int SeekFile(std::FILE* file, std::uint64_t offset) {
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET);
}

bool FileExists(const char* path) {
    return access(NativePath(path).c_str(), F_OK) == 0;
}

}  // namespace platform
