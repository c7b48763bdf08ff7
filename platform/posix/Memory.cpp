#include "platform/memory/Memory.h"

#include "base/Sanitizer.h"
#include "platform/memory/PageStock.h"

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
constexpr std::size_t kPages = kRegionBytes / kPageBytes;
using Pool = PagePool<kPages, kPageBytes>;

constexpr std::size_t kSmallest = std::size_t{3} << 10;  // below: the C heap
constexpr std::size_t kLargest = std::size_t{2} << 20;   // above: a mapping of its own

/// Blocks from it have whole pages.
struct Region : PageStock<kPages, kPageBytes> {
    using PageStock::PageStock;

    std::size_t longestRun = kUsable;  // no run of free pages is longer
};
static_assert(sizeof(Region) <= kPageBytes);

/// Stands in front of each block.
struct alignas(kAlignment) Header {
    Region* region;           // null: not from a region
    std::size_t mappedBytes;  // of its pages in a region or in a mapping of its own; 0: from the C heap
};

Pool& OwnPool() {
    static Pool* const pool = new Pool(kPages);
    return *pool;
}

/// Made while the library is loaded: a process that is forked off while another thread makes it could never have it.
[[maybe_unused]] const Pool& s_madeEarly = OwnPool();

std::size_t RoundUp(std::size_t value, std::size_t unit) {
    return (value + unit - 1) / unit * unit;
}

/// The first run of free pages of that length; 0 without one.
std::size_t FindRun(Region& region, std::size_t count) noexcept {
    if (count > region.longestRun) return 0;
    for (std::size_t begin = region.free.Next(0); begin < kPages;) {
        const std::size_t end = region.free.Next(begin, false);
        if (end - begin >= count) return begin;
        begin = region.free.Next(end);
    }
    region.longestRun = count - 1;
    return 0;
}

Header* TakeRun(Region& region, std::size_t begin, std::size_t count) noexcept {
    region.Take(begin, count);
    if (region.freePages == 0) region.Unlist();
    return new (region.GetPage(begin)) Header{&region, count * kPageBytes};
}

Header* AllocateFromRegion(std::size_t bytes) {
    const std::size_t count = bytes / kPageBytes;
    Pool& pool = OwnPool();
    const std::lock_guard lock(pool.mutex);
    for (auto* stock = pool.first; stock != nullptr; stock = stock->next) {
        Region& region = *static_cast<Region*>(stock);
        if (const std::size_t begin = FindRun(region, count); begin != 0) return TakeRun(region, begin, count);
    }
    auto* const region = new (MapPages(kRegionBytes)) Region(pool, true);
    region->List();
    return TakeRun(*region, 1, count);
}

void FreeInRegion(Header* header) noexcept {
    Region* const region = header->region;
    const std::size_t begin = static_cast<std::size_t>(reinterpret_cast<unsigned char*>(header) - region->GetPage(0));
    bool isLeft = false;
    {
        Pool& pool = *region->pool;
        const std::lock_guard lock(pool.mutex);
        region->Give(begin / kPageBytes, header->mappedBytes / kPageBytes);
        region->longestRun = Region::kUsable;
        region->List();
        // One empty region stays, so that a program that reads one file after the other does not wait for fresh pages.
        isLeft = region->IsEmpty() && (pool.first != region || region->next != nullptr);
        isLeft ? region->Unlist() : pool.LimitKept(region);
    }
    if (isLeft) UnmapPages(region, kRegionBytes);
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
    const std::size_t mapped = RoundUp(total, kPageBytes);
    if (mapped <= kLargest) return AllocateFromRegion(mapped) + 1;
    return new (MapPages(mapped)) Header{nullptr, mapped} + 1;
}

void FreeBuffer(void* block) noexcept {
    if (block == nullptr) return;
    Header* const header = static_cast<Header*>(block) - 1;
    if (header->region != nullptr) {
        FreeInRegion(header);
    } else if (header->mappedBytes != 0) {
        UnmapPages(header, header->mappedBytes);
    } else {
        std::free(header);
    }
}

#endif

}  // namespace platform
