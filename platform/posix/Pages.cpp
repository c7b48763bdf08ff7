#include "platform/memory/Pages.h"

#include <cstdint>
#include <new>
#include <sys/mman.h>

namespace platform {

void* MapPages(std::size_t bytes, bool wantsHuge) {
    const std::size_t withSlack = bytes + kSlabBytes;
    void* const mapped = mmap(nullptr, withSlack, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) throw std::bad_alloc();
    const auto start = reinterpret_cast<std::uintptr_t>(mapped);
    const std::uintptr_t aligned = (start + kSlabBytes - 1) / kSlabBytes * kSlabBytes;
    if (aligned != start) munmap(mapped, aligned - start);
    const std::uintptr_t end = aligned + bytes;
    if (end != start + withSlack) munmap(reinterpret_cast<void*>(end), start + withSlack - end);
    auto* const pages = reinterpret_cast<void*>(aligned);
    if (wantsHuge) madvise(pages, bytes, MADV_HUGEPAGE);  // a wish: without it the pages are small ones
    return pages;
}

void DropPages(void* pages, std::size_t bytes) noexcept {
    madvise(pages, bytes, MADV_DONTNEED);
}

void UnmapPages(void* pages, std::size_t bytes) noexcept {
    munmap(pages, bytes);
}

}  // namespace platform
