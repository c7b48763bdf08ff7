#include "platform/memory/Pages.h"

#include <new>
#include <windows.h>

namespace platform {

void* MapPages(std::size_t bytes) {
    void* const pages = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (pages == nullptr) throw std::bad_alloc();
    return pages;
}

void UnmapPages(void* pages, std::size_t /*bytes*/) noexcept {
    VirtualFree(pages, 0, MEM_RELEASE);
}

}  // namespace platform
