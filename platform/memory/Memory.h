// Large memory: pixel data, volume planes. Fresh pages are most of the cost of filling it, so it is asked for in huge
// pages where the system has them.
#pragma once

#include <cstddef>

namespace platform {

/// Uninitialised memory, aligned to 64 bytes, for `FreeBuffer` to give back. 0 bytes give a valid address.
/// Throws `std::bad_alloc`. Blocks of three kilobytes up to megabytes are packed side by side into regions, so that
/// they share huge pages too; a region goes back to the system with its last block, and holes in it are used again. What
/// piles up in holes, beyond some 32 MB, goes back too.
/// A block may be freed by another library or program of the process than the one that allocated it, since each of them
/// contains this code.
void* AllocateBuffer(std::size_t bytes);

/// Gives a block back; null is ignored.
void FreeBuffer(void* block) noexcept;

}  // namespace platform
