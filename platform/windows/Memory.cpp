#include "platform/memory/Memory.h"

#include <cstdint>
#include <malloc.h>
#include <new>

namespace platform {

void* AllocateBuffer(std::size_t bytes) {
    void* const block = bytes > SIZE_MAX / 2 ? nullptr : _aligned_malloc(bytes == 0 ? 1 : bytes, 64);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void FreeBuffer(void* block) noexcept {
    _aligned_free(block);
}

}  // namespace platform
