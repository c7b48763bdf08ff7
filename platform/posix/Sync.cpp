#include "platform/Sync.h"

#include "platform/File.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace platform {

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

}  // namespace platform
