#include "Sync.h"

#include "File.h"

#include <cerrno>
#include <cstdio>

#if defined(_WIN32)
#include <io.h>
#else
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace platform {

#if defined(_WIN32)

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

#else

namespace {

bool Sync(const char* path, int flags) {
    const int file = open(NativePath(path).c_str(), O_RDONLY | O_CLOEXEC | flags);
    if (file < 0) return false;
    int done = fsync(file);
    while (done != 0 && errno == EINTR) done = fsync(file);
    const int error = errno;
    close(file);
    errno = error;
    return done == 0;
}

}  // namespace

bool SyncFile(const char* path) {
    return Sync(path, 0);
}

bool SyncFolder(const char* path) {
    return Sync(path, O_DIRECTORY);
}

void IgnoreFileLimitSignal() {
    sigset_t limit;
    sigemptyset(&limit);
    sigaddset(&limit, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &limit, nullptr);
}

#endif

}  // namespace platform
