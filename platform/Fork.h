// Locks that a process which is forked off finds open.
#pragma once

#include <mutex>

namespace platform {

/// Has the forking thread hold `lock` while the process forks. Only that thread goes on in the child: a lock that another
/// one held at that moment would stay shut there for ever, and what it guards would be half changed. The child's is open.
/// A thread that holds one of these locks takes others only of a lower rank; those of a higher rank are taken first. From
/// `kLoadsLibraries` on are those that are held while libraries are loaded and unloaded. The lock lives until the process ends or the library is unloaded; each library registers its own, at most eight. For the
/// few locks of a whole library: those of an object that a thread works with are its user's business. Nothing on Windows,
/// where processes do not fork.
constexpr unsigned kLoadsLibraries = 100;
void HoldWhileForking(std::mutex& lock, unsigned rank);
void HoldWhileForking(std::recursive_mutex& lock, unsigned rank);

/// A lock that is held so from the beginning.
template <class Lock, unsigned Rank>
struct HeldWhileForking : Lock {
    HeldWhileForking() { HoldWhileForking(*this, Rank); }
};

}  // namespace platform
