#include "platform/Sync.h"

#include "platform/File.h"

#include <cstdio>
#include <io.h>

namespace platform {

bool SyncFile(const char* path) {
    std::FILE* const file = OpenFile(path, "r+b");
    if (file == nullptr) return false;
    const bool synced = _commit(_fileno(file)) == 0;
    return std::fclose(file) == 0 && synced;
}

bool SyncFolder(const char* /*path*/) {
    return true;
}

void IgnoreFileLimitSignal() {}

}  // namespace platform
