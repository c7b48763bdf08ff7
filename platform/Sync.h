// Files that outlast a loss of power.
#pragma once

namespace platform {

/// Wait until the bytes of a file, or the names in a folder, are on the disk. False with `errno` set on failure. On
/// Windows `SyncFolder` has nothing to do: the system writes folders by itself.
bool SyncFile(const char* path);
bool SyncFolder(const char* path);

/// From now on a write of the calling thread beyond the limit on a file's size fails with EFBIG instead of ending the
/// process by SIGXFSZ. The signal is blocked for the rest of the thread's life, so this is for threads that a job
/// started itself, not for a host's.
void IgnoreFileLimitSignal();

}  // namespace platform
