// Small objects that come in thousands and mostly live and die together: elements, items, list nodes. A general
// allocator costs more than reading them.
#pragma once

#include <cstddef>
#include <new>

namespace platform {

// Fast memory for blocks of at most 1024 bytes; defined in the library.
void* AllocateSmall(std::size_t bytes);
void FreeSmall(void* block) noexcept;

}  // namespace platform

namespace korvane_detail {

/// Base of classes whose objects lie in that memory, those of derived classes included. Destructors must be virtual where
/// objects are deleted through a base: the size tells where an object came from.
class SmallObject {
public:
    /// Larger objects come from the heap. Throws `std::bad_alloc`.
    static constexpr std::size_t kLargest = 1024;

    static void* operator new(std::size_t bytes) {
        return bytes <= kLargest ? platform::AllocateSmall(bytes) : ::operator new(bytes);
    }
    static void operator delete(void* block, std::size_t bytes) noexcept {
        bytes <= kLargest ? platform::FreeSmall(block) : ::operator delete(block);
    }
};

}  // namespace korvane_detail
