// A lock that says who works in a folder; it ends with the process that holds it.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// A lock of one folder, for processes of one machine and the objects of one process alike. It leaves nothing behind
/// when the process is killed. Where the file system knows no locks (some network ones), taking one succeeds and keeps
/// nobody out: `IsHeld` tells.
///
/// The lock is advisory: it keeps others from the same lock, not from the folder's files.
class FolderLock {
public:
    FolderLock() = default;
    ~FolderLock() { Release(); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// Takes the lock for one holder alone, without waiting. False with `errno` set: EBUSY when somebody holds it,
    /// another value when the folder cannot be opened.
    bool TakeAlone(const std::string& folder);

    /// Several holders may share the lock; the call waits while somebody holds it alone. A lock that this object holds
    /// already becomes a shared one. On Windows nothing is locked, and nothing is held afterwards: files that are open
    /// cannot be removed there anyway. False with `errno` set when the folder cannot be opened.
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
