// Files that outlast a loss of power.
#pragma once

namespace platform {

/// Returns when what was written to a file, or which names a folder holds, is on the disk. False with `errno` set on
/// failure. Windows keeps folders by itself: nothing to do there.
bool SyncFile(const char* path);
bool SyncFolder(const char* path);

/// From now on a write of this thread beyond the limit of a file's size fails with EFBIG instead of ending the process by
/// SIGXFSZ. For threads of a job: what is raised stays pending until the thread ends.
void IgnoreFileLimitSignal();

}  // namespace platform
