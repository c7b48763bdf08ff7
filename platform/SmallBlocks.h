// Small objects that come in thousands and mostly live and die together: elements, items, list nodes. A general
// allocator costs more than reading them.
#pragma once

#include <cstddef>

namespace platform {

/// Uninitialised memory, aligned as the C heap's, for `FreeSmall` to give back. Throws `std::bad_alloc`.
/// Blocks are cut one behind the other from slabs of 64 KB, each thread from its own; a slab goes back with its last
/// block. A block may be freed by another thread, or by another module of the process, than the one it came from.
void* AllocateSmall(std::size_t bytes);

/// Gives a block back; null is ignored.
void FreeSmall(void* block) noexcept;

/// Base of classes whose objects come from there, those of derived classes included.
class SmallObject {
public:
    static void* operator new(std::size_t bytes) { return AllocateSmall(bytes); }
    static void operator delete(void* block) noexcept { FreeSmall(block); }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void*, void*) noexcept {}
};

}  // namespace platform
