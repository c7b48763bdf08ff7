#include "base/SmallBlocks.h"

#include "PageStock.h"
#include "base/Sanitizer.h"
#include "platform/PerThread.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

namespace platform {

#if defined(KORVANE_PLAIN_HEAP)

void* AllocateSmall(std::size_t bytes) {
    void* const block = std::malloc(bytes);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

SmallCut& OwnSmallCut() {
    static thread_local SmallCut s_empty;
    return s_empty;
}

void FreeSmall(void* block) noexcept {
    std::free(block);
}

#else

namespace {

constexpr std::size_t kPrefetchBytes = SmallCut::kPrefetchBytes;
// What blocks are cut from, and what goes back as a whole. Each is counted twice with an atomic operation, when it is full
// and when it has come back: smaller ones cost time, larger ones are kept by fewer survivors.
constexpr std::size_t kCutBytes = 2 * kPageBytes;
constexpr std::size_t kPages = kSlabBytes / kCutBytes;
using Pool = PagePool<kPages, kCutBytes>;

constexpr std::size_t kWorthFilling = kPages / 8;
constexpr std::size_t kMostKept = 5 * kPages;  // less goes back and forth at each data set that is read and freed
// Pages that a thread takes at a time; those that it frees meanwhile, which are still in the cache, come next.
constexpr std::size_t kBatch = 16;

/// Aligned to its size, so that the slab of a block, and the block's page, follow from the address. No block crosses from
/// one page into the next.
struct Slab : PageStock<kPages, kCutBytes> {
    static constexpr std::uint32_t kBias = kCutBytes;

    using PageStock::PageStock;

    bool isFilled = true;  // a thread takes pages from it

    /// Blocks of each page that are still to come back. A page starts with the bias, from which the thread that fills it
    /// takes off, once it is done with it, what it has not given out: giving out costs no atomic operation.
    std::atomic<std::uint32_t> counts[kPages] = {};
};
static_assert(sizeof(Slab) <= kCutBytes);

Pool& OwnPool() {
    static Pool* const pool = new Pool(kMostKept);
    return *pool;
}

/// Made while the library is loaded: a process that is forked off while another thread makes it could never have it.
[[maybe_unused]] const Pool& s_madeEarly = OwnPool();

/// Pages have come back to a slab that nobody fills. True when it is empty: the caller unmaps it, without the lock.
bool Settle(Slab* slab) noexcept {
    if (slab->IsEmpty()) {
        slab->Unlist();
        return true;
    }
    if (slab->freePages >= kWorthFilling) slab->List();
    slab->pool->LimitKept(slab);
    return false;
}

/// Pages of one slab that have become free, given back together: the lock is taken once for many.
class FreedPages {
public:
    void Add(Slab* slab, std::size_t page) noexcept {
        if (slab != m_pSlab || m_Count == kMost) Flush();
        m_pSlab = slab;
        m_Pages[m_Count++] = page;
    }

    void Flush() noexcept {
        if (m_Count == 0) return;
        bool isEmpty = false;
        {
            const std::lock_guard lock(m_pSlab->pool->mutex);
            for (; m_Count > 0; --m_Count) m_pSlab->Give(m_Pages[m_Count - 1], 1);
            if (!m_pSlab->isFilled) isEmpty = Settle(m_pSlab);
        }
        if (isEmpty) UnmapPages(m_pSlab, kSlabBytes);
    }

private:
    static constexpr std::size_t kMost = 16;
    Slab* m_pSlab = nullptr;
    std::size_t m_Count = 0;
    std::size_t m_Pages[kMost] = {};
};

void TakeOff(Slab* slab, std::size_t page, std::uint32_t count, FreedPages& freed) noexcept {
    if (slab->counts[page].fetch_sub(count, std::memory_order_acq_rel) == count) freed.Add(slab, page);
}

/// What a thread fills at the moment: some pages of a slab, the lowest that are free.
class Filling {
public:
    void* Cut(std::size_t bytes, FreedPages& freed) {
        const std::size_t step = SmallCut::StepOf(bytes);
        if (!m_Cut.Has(step)) [[unlikely]]
            BeginPage(freed);
        return m_Cut.Take(step);
    }

    SmallCut& GetCut() { return m_Cut; }

    /// Gives everything back.
    void Retire(FreedPages& freed) noexcept {
        if (m_pSlab == nullptr) return;
        LeavePage(freed);
        freed.Flush();
        Slab* const slab = m_pSlab;
        m_pSlab = nullptr;
        bool isEmpty = false;
        {
            const std::lock_guard lock(slab->pool->mutex);
            for (; m_Taken < m_TakenEnd; ++m_Taken) slab->Give(m_Batch[m_Taken], 1);
            slab->isFilled = false;
            isEmpty = Settle(slab);
        }
        if (isEmpty) UnmapPages(slab, kSlabBytes);
    }

private:
    [[gnu::noinline]] void BeginPage(FreedPages& freed) {
        LeavePage(freed);
        if (m_Taken == m_TakenEnd) TakeBatch(freed);
        m_Page = m_Batch[m_Taken++];
        m_pSlab->counts[m_Page].store(Slab::kBias, std::memory_order_relaxed);
        unsigned char* const begin = m_pSlab->GetPage(m_Page);
        m_Cut = {begin, begin + kCutBytes, 0};
    }

    void LeavePage(FreedPages& freed) noexcept {
        if (m_Cut.next == nullptr) return;
        TakeOff(m_pSlab, m_Page, Slab::kBias - m_Cut.given, freed);
        m_Cut = {};
    }

    void TakeBatch(FreedPages& freed) {
        freed.Flush();
        if (m_pSlab == nullptr || !TakeFrom(*m_pSlab)) {
            const bool isFirst = m_pSlab == nullptr && !m_bFilledOne;
            Retire(freed);
            m_pSlab = Adopt();
            if (m_pSlab == nullptr) m_pSlab = new (MapPages(kSlabBytes, !isFirst)) Slab(OwnPool(), !isFirst);
            m_bFilledOne = true;
            TakeFrom(*m_pSlab);
        }
    }

    // A slab that others have left, with free pages; null without one.
    static Slab* Adopt() noexcept {
        Pool& pool = OwnPool();
        const std::lock_guard lock(pool.mutex);
        auto* const slab = static_cast<Slab*>(pool.first);
        if (slab == nullptr) return nullptr;
        slab->Unlist();
        slab->isFilled = true;
        return slab;
    }

    bool TakeFrom(Slab& slab) noexcept {
        const std::lock_guard lock(slab.pool->mutex);
        m_Taken = m_TakenEnd = 0;
        for (std::size_t page = slab.free.Next(0); page < kPages && m_TakenEnd < kBatch; page = slab.free.Next(page)) {
            slab.Take(page, 1);
            m_Batch[m_TakenEnd++] = page;
        }
        return m_TakenEnd > 0;
    }

    Slab* m_pSlab = nullptr;
    SmallCut m_Cut;  // of a page
    std::size_t m_Page = 0;
    bool m_bFilledOne = false;
    std::size_t m_Taken = 0;
    std::size_t m_TakenEnd = 0;
    std::size_t m_Batch[kBatch] = {};
};

/// Blocks that come back to a page are counted here first, for one atomic operation. What is nested comes back by turns to
/// a few pages.
class Returning {
public:
    void Add(std::uintptr_t page, FreedPages& freed) noexcept {
        Entry& entry = m_Entries[page / kCutBytes % kEntries];
        if (page != entry.page) {
            Flush(entry, freed);
            entry.page = page;
        }
        ++entry.count;
    }

    void FlushAll(FreedPages& freed) noexcept {
        for (Entry& entry : m_Entries) Flush(entry, freed);
    }

private:
    static constexpr std::size_t kEntries = 8;

    struct Entry {
        std::uintptr_t page = 0;
        std::uint32_t count = 0;
    };

    [[gnu::noinline]] static void Flush(Entry& entry, FreedPages& freed) noexcept {
        if (entry.count != 0) {
            const std::uintptr_t slab = entry.page & ~std::uintptr_t{kSlabBytes - 1};
            TakeOff(reinterpret_cast<Slab*>(slab), (entry.page - slab) / kCutBytes, entry.count, freed);
        }
        entry.count = 0;
    }

    Entry m_Entries[kEntries];
};

struct ThreadBlocks {
    ~ThreadBlocks() {
        returning.FlushAll(freed);
        filling.Retire(freed);
        freed.Flush();
    }

    Filling filling;
    Returning returning;
    FreedPages freed;
};

}  // namespace

void* AllocateSmall(std::size_t bytes) {
    ThreadBlocks& own = PerThread<ThreadBlocks>::Get();
    return own.filling.Cut(bytes, own.freed);
}

SmallCut& OwnSmallCut() {
    return PerThread<ThreadBlocks>::Get().filling.GetCut();
}

void FreeSmall(void* block) noexcept {
    if (block == nullptr) return;
    // What was made one behind the other is mostly freed so: the next ones are fetched meanwhile.
    __builtin_prefetch(static_cast<unsigned char*>(block) + kPrefetchBytes);
    __builtin_prefetch(static_cast<unsigned char*>(block) + kPrefetchBytes + 64);
    const std::uintptr_t address = reinterpret_cast<std::uintptr_t>(block);
    ThreadBlocks& own = PerThread<ThreadBlocks>::Get();
    own.returning.Add(address & ~std::uintptr_t{kCutBytes - 1}, own.freed);
}

#endif

}  // namespace platform
