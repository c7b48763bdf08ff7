#include "base/SmallBlocks.h"

#include "Pages.h"
#include "base/Sanitizer.h"
#include "platform/PerThread.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace platform {

#if defined(KORVANE_PLAIN_HEAP)

void* AllocateSmall(std::size_t bytes) {
    void* const block = std::malloc(bytes);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void FreeSmall(void* block) noexcept {
    std::free(block);
}

#else

namespace {

constexpr std::size_t kAlignment = 8;
constexpr std::size_t kPrefetchBytes = 1024;

// A slab is one chunk or several, each aligned to its size; no block crosses from one into the next. So the chunk of a
// block follows from its address, and blocks need no header of their own.
constexpr std::size_t kChunkBytes = 64 * 1024;

struct Slab;

struct alignas(kAlignment) Chunk {
    Slab* slab;
};

/// Stands at the start of a slab's first chunk. `holders` counts the blocks that are still to come back. It starts with
/// the bias, from which the thread that fills the slab takes off, once it is done with it, what it has not given out:
/// giving out costs no atomic operation.
struct Slab : Chunk {
    static constexpr std::size_t kBias = kHugePageBytes;
    std::atomic<std::size_t> holders{kBias};
    std::size_t bytes;
};

/// One emptied slab of the smallest size stays with each thread, so that a program that reads one small file after the
/// other does not ask the system for memory each time.
class Spare {
public:
    void Close() noexcept {
        if (m_pSlab != nullptr) UnmapPages(m_pSlab, kChunkBytes);
        m_bClosed = true;
    }

    Slab* Take() noexcept {
        Slab* const slab = m_pSlab;
        m_pSlab = nullptr;
        return slab;
    }

    bool Keep(Slab* slab) noexcept {
        if (m_pSlab != nullptr || m_bClosed) return false;
        m_pSlab = slab;
        return true;
    }

private:
    Slab* m_pSlab = nullptr;
    bool m_bClosed = false;
};

Slab* MakeSlab(std::size_t bytes, Spare& spare) {
    void* memory = bytes == kChunkBytes ? spare.Take() : nullptr;
    if (memory == nullptr) memory = MapPages(bytes);
    auto* const slab = new (memory) Slab;
    slab->slab = slab;
    slab->bytes = bytes;
    return slab;
}

/// True when the slab has gone back with this.
bool TakeOff(Slab* slab, std::size_t count, Spare& spare) noexcept {
    if (slab->holders.fetch_sub(count, std::memory_order_acq_rel) != count) return false;
    if (slab->bytes != kChunkBytes || !spare.Keep(slab)) UnmapPages(slab, slab->bytes);
    return true;
}

/// What a thread fills at the moment. As long as blocks stay out, each slab is twice as large as the one before it, up
/// to a huge page.
class Filling {
public:
    void* Cut(std::size_t bytes, Spare& spare) {
        const std::size_t step = (bytes + kAlignment - 1) / kAlignment * kAlignment;
        if (static_cast<std::size_t>(m_pChunkEnd - m_pNext) < step) BeginChunk(spare);
        unsigned char* const block = m_pNext;
        m_pNext += step;
        ++m_Given;
        __builtin_prefetch(block + kPrefetchBytes, 1);  // fresh memory: most of the cost is waiting for it
        __builtin_prefetch(block + kPrefetchBytes + 64, 1);
        return block;
    }

    void Retire(Spare& spare) noexcept {
        if (m_pSlab == nullptr) return;
        const bool allCameBack = TakeOff(m_pSlab, Slab::kBias - m_Given, spare);
        m_NextBytes = allCameBack ? kChunkBytes : std::min(m_NextBytes * 2, kHugePageBytes);
        m_pSlab = nullptr;
        m_pNext = m_pChunkEnd = nullptr;
    }

private:
    void BeginChunk(Spare& spare) {
        const bool hasMore =
            m_pSlab != nullptr && m_pChunkEnd < reinterpret_cast<unsigned char*>(m_pSlab) + m_pSlab->bytes;
        if (hasMore) {
            new (m_pChunkEnd) Chunk{m_pSlab};
            m_pNext = m_pChunkEnd + sizeof(Chunk);
            m_pChunkEnd += kChunkBytes;
            return;
        }
        Retire(spare);
        m_pSlab = MakeSlab(m_NextBytes, spare);
        m_Given = 0;
        m_pNext = reinterpret_cast<unsigned char*>(m_pSlab + 1);
        m_pChunkEnd = reinterpret_cast<unsigned char*>(m_pSlab) + kChunkBytes;
    }

    Slab* m_pSlab = nullptr;
    unsigned char* m_pNext = nullptr;
    unsigned char* m_pChunkEnd = nullptr;
    std::size_t m_NextBytes = kChunkBytes;
    std::size_t m_Given = 0;
};

/// Blocks that come back to the same slab one after the other are counted here first, for one atomic operation.
class Returning {
public:
    void Add(Slab* slab, Spare& spare) noexcept {
        if (slab != m_pSlab) {
            Flush(spare);
            m_pSlab = slab;
        }
        ++m_Count;
    }

    void Flush(Spare& spare) noexcept {
        if (m_Count != 0) TakeOff(m_pSlab, m_Count, spare);
        m_Count = 0;
    }

private:
    Slab* m_pSlab = nullptr;
    std::size_t m_Count = 0;
};

struct ThreadBlocks {
    ~ThreadBlocks() {
        returning.Flush(spare);
        filling.Retire(spare);
        spare.Close();
    }

    Spare spare;
    Filling filling;
    Returning returning;
};

}  // namespace

void* AllocateSmall(std::size_t bytes) {
    ThreadBlocks& own = PerThread<ThreadBlocks>::Get();
    return own.filling.Cut(bytes, own.spare);
}

void FreeSmall(void* block) noexcept {
    if (block == nullptr) return;
    // What was made one behind the other is mostly freed so: the next ones are fetched meanwhile.
    __builtin_prefetch(static_cast<unsigned char*>(block) + kPrefetchBytes);
    __builtin_prefetch(static_cast<unsigned char*>(block) + kPrefetchBytes + 64);
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(block);
    ThreadBlocks& own = PerThread<ThreadBlocks>::Get();
    own.returning.Add(reinterpret_cast<const Chunk*>(address & ~std::uintptr_t{kChunkBytes - 1})->slab, own.spare);
}

#endif

}  // namespace platform
