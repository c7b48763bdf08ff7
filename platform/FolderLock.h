// Who works in a folder: a lock that ends with the process that holds it.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// A lock of one folder, for processes of one machine and the objects of one process alike. It leaves nothing behind when
/// the process is killed. Where the file system knows no locks (some network ones), taking one succeeds and keeps nobody
/// out: `IsHeld` tells.
///
/// Nobody is kept from the folder's files by it: only from the same lock.
class FolderLock {
public:
    FolderLock() = default;
    ~FolderLock() { Release(); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// For one holder alone. False with `errno` set: EBUSY when somebody holds it, else the folder cannot be opened.
    bool TakeAlone(const std::string& folder);

    /// Holders of this kind share it; waits for one who has it alone. An own lock is exchanged. Windows, where files that
    /// are open cannot be removed, knows no such kind: nothing is held afterwards.
    bool TakeShared(const std::string& folder);

    bool IsHeld() const { return m_Handle != kNone; }

    /// Removes the locked folder, which must be empty. Nobody can take the lock in between.
    bool RemoveFolder();

    void Release() noexcept;

private:
    static constexpr std::intptr_t kNone = -1;

    std::string m_Folder;
    std::intptr_t m_Handle = kNone;
};

}  // namespace platform
