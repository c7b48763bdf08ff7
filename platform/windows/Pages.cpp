#include "platform/memory/Pages.h"

#include <new>
#include <windows.h>

namespace platform {

static_assert(kSlabBytes <= 64 * 1024);

void* MapPages(std::size_t bytes, bool /*wantsHuge*/) {
    void* const pages = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (pages == nullptr) throw std::bad_alloc();
    return pages;
}

// Slabs are small on this system, and go back as a whole.
void DropPages(void* /*pages*/, std::size_t /*bytes*/) noexcept {}

void UnmapPages(void* pages, std::size_t /*bytes*/) noexcept {
    VirtualFree(pages, 0, MEM_RELEASE);
}

}  // namespace platform
