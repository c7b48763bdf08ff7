// Small objects that come in thousands and mostly live and die together: elements, items, list nodes. A general
// allocator costs more than reading them. Public classes need their memory inline, so it is declared here; since pages
// come from the system, `platform/memory/` does the work.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

namespace platform {

/// The largest small block; larger ones are few, and belong on the heap.
inline constexpr std::size_t kLargestSmallBlock = 1024;

/// Uninitialised memory, aligned to 8 bytes, for `FreeSmall` to give back. `bytes` is at most `kLargestSmallBlock`.
/// Throws `std::bad_alloc`.
/// Blocks are cut one behind the other from pages in slabs of up to 2 MB, each thread from its own. A page is used again when
/// its last block is back, and goes to the system with its slab, or when many pile up. A block may be freed by another
/// thread or another module of the process.
void* AllocateSmall(std::size_t bytes);

/// Where the next blocks of a thread come from.
struct SmallCut {
    static constexpr std::size_t kAlignment = 8;
    static constexpr std::size_t kPrefetchBytes = 1024;

    unsigned char* next = nullptr;
    unsigned char* end = nullptr;
    std::uint32_t given = 0;  ///< blocks out of this piece

    bool Has(std::size_t step) const { return static_cast<std::size_t>(end - next) >= step; }
    static std::size_t StepOf(std::size_t bytes) { return (bytes + kAlignment - 1) / kAlignment * kAlignment; }

    /// `Has(step)` must hold.
    void* Take(std::size_t step) {
        unsigned char* const block = next;
        next += step;
        ++given;
        __builtin_prefetch(block + kPrefetchBytes, 1);  // fresh memory: most of the cost is waiting for it
        __builtin_prefetch(block + kPrefetchBytes + 64, 1);
        return block;
    }
};

/// That of the calling thread.
SmallCut& OwnSmallCut();

/// `AllocateSmall` for loops that make many blocks: the thread's own are found once.
inline void* AllocateSmallFrom(SmallCut& own, std::size_t bytes) {
    const std::size_t step = SmallCut::StepOf(bytes);
    return own.Has(step) ? own.Take(step) : AllocateSmall(bytes);
}

/// Gives a block back; null is ignored.
void FreeSmall(void* block) noexcept;

/// Base of classes whose objects come from there, those of derived classes included. Destructors must be virtual where
/// objects are deleted through a base: the size tells where an object came from.
class SmallObject {
public:
    static void* operator new(std::size_t bytes) {
        return bytes <= kLargestSmallBlock ? AllocateSmall(bytes) : ::operator new(bytes);
    }
    static void operator delete(void* block, std::size_t bytes) noexcept {
        bytes <= kLargestSmallBlock ? FreeSmall(block) : ::operator delete(block);
    }
};

}  // namespace platform
