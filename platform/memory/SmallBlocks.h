// Small objects that come in thousands and mostly live and die together: elements, items, list nodes. A general
// allocator costs more than reading them.
#pragma once

#include <cstddef>

namespace platform {

/// The largest small block; larger ones are few, and belong on the heap.
inline constexpr std::size_t kLargestSmallBlock = 1024;

/// Uninitialised memory, aligned to 8 bytes, for `FreeSmall` to give back. `bytes` is at most `kLargestSmallBlock`.
/// Throws `std::bad_alloc`.
/// Blocks are cut one behind the other from slabs (64 KB, later up to 2 MB), each thread from its own; a slab goes back
/// with its last block. A block may be freed by another thread, or by another module of the process, than the one it
/// came from.
void* AllocateSmall(std::size_t bytes);

/// Gives a block back; null is ignored.
void FreeSmall(void* block) noexcept;

}  // namespace platform
