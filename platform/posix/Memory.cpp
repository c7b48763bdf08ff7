#include "platform/memory/Memory.h"

#include "base/Sanitizer.h"
#include "platform/memory/Pages.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

namespace platform {

#if defined(KORVANE_PLAIN_HEAP)

void* AllocateBuffer(std::size_t bytes) {
    void* block = nullptr;
    if (posix_memalign(&block, 64, bytes == 0 ? 1 : bytes) != 0) throw std::bad_alloc();
    return block;
}

void FreeBuffer(void* block) noexcept {
    std::free(block);
}

#else

namespace {

constexpr std::size_t kAlignment = 64;
constexpr std::size_t kRegionBytes = std::size_t{32} << 20;
constexpr std::size_t kSmallest = std::size_t{32} << 10;  // below: the C heap
constexpr std::size_t kLargest = std::size_t{8} << 20;    // above: a mapping of its own
constexpr std::size_t kKeptWhenEmpty = std::size_t{8}
                                       << 20;  // an emptied region that used more goes back to the system

struct Region;

/// Stands in front of each block.
struct alignas(kAlignment) Header {
    Region* region;           // null: not from a region
    std::size_t mappedBytes;  // of a mapping of its own; 0: from the C heap
};

/// Stands at the start of each region. The allocating module's copy of this code holds one count while the region is
/// the one that it fills.
struct alignas(kAlignment) Region {
    std::atomic<std::size_t> holders{1};
    std::size_t used = sizeof(Region);
};

std::mutex g_mutex;
Region* g_current = nullptr;

std::size_t RoundUp(std::size_t value, std::size_t unit) {
    return (value + unit - 1) / unit * unit;
}

void LetGo(Region* region) noexcept {
    if (region->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) UnmapPages(region, kRegionBytes);
}

void* AllocateFromRegion(std::size_t bytes) {
    const std::lock_guard lock(g_mutex);
    if (g_current != nullptr && g_current->holders.load(std::memory_order_acquire) == 1) {
        g_current->used = sizeof(Region);
    }
    if (g_current == nullptr || g_current->used + bytes > kRegionBytes) {
        if (g_current != nullptr) LetGo(g_current);
        g_current = nullptr;
        g_current = new (MapPages(kRegionBytes)) Region;
    }
    auto* const place = reinterpret_cast<unsigned char*>(g_current) + g_current->used;
    g_current->used += bytes;
    g_current->holders.fetch_add(1, std::memory_order_relaxed);
    return new (place) Header{g_current, 0} + 1;
}

void FreeInRegion(Region* region) noexcept {
    LetGo(region);
    const std::lock_guard lock(g_mutex);
    const bool emptied = region == g_current && region->holders.load(std::memory_order_acquire) == 1;
    if (!emptied || region->used <= kKeptWhenEmpty) return;
    g_current = nullptr;
    LetGo(region);
}

}  // namespace

void* AllocateBuffer(std::size_t bytes) {
    if (bytes > SIZE_MAX / 2) throw std::bad_alloc();
    const std::size_t total = RoundUp(bytes + sizeof(Header), kAlignment);
    if (total < kSmallest) {
        void* const block = std::aligned_alloc(kAlignment, total);
        if (block == nullptr) throw std::bad_alloc();
        return new (block) Header{nullptr, 0} + 1;
    }
    if (total <= kLargest) return AllocateFromRegion(total);
    const std::size_t mapped = RoundUp(total, 4096);
    return new (MapPages(mapped)) Header{nullptr, mapped} + 1;
}

void FreeBuffer(void* block) noexcept {
    if (block == nullptr) return;
    Header* const header = static_cast<Header*>(block) - 1;
    if (header->region != nullptr) {
        FreeInRegion(header->region);
    } else if (header->mappedBytes != 0) {
        UnmapPages(header, header->mappedBytes);
    } else {
        std::free(header);
    }
}

#endif

}  // namespace platform
