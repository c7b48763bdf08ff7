#include "platform/SmallBlocks.h"

#include "platform/Sanitizer.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace platform {

namespace {

constexpr std::size_t kAlignment = 2 * sizeof(void*);  // what the C heap gives too
constexpr std::size_t kSlabBytes = 64 * 1024;
#if defined(KORVANE_PLAIN_HEAP)
constexpr std::size_t kLargest = 0;
#else
constexpr std::size_t kLargest = 1024;  // larger ones are few, and would leave too much of a slab unused
#endif

/// Counts the blocks that are still to come back. It starts with the bias, from which the thread that fills the slab
/// takes off, once it is done with it, what it has not given out: giving out costs no atomic operation.
struct alignas(kAlignment) Slab {
    static constexpr std::size_t kBias = kSlabBytes;
    std::atomic<std::size_t> holders{kBias};
};

/// Stands right in front of each block.
struct Header {
    Slab* slab;  // null: the block came from the heap, kAlignment bytes in front of it
};
static_assert(sizeof(Header) <= kAlignment);

void TakeOff(Slab* slab, std::size_t count) noexcept {
    if (slab->holders.fetch_sub(count, std::memory_order_acq_rel) == count) std::free(slab);
}

/// What a thread fills at the moment.
class Filling {
public:
    ~Filling() { Retire(); }

    void* Cut(std::size_t bytes) {
        const std::size_t step = (bytes + sizeof(Header) + kAlignment - 1) / kAlignment * kAlignment;
        if (m_pSlab == nullptr || m_Used + step > kSlabBytes) Begin();
        auto* const header = reinterpret_cast<Header*>(reinterpret_cast<unsigned char*>(m_pSlab) + m_Used) - 1;
        header->slab = m_pSlab;
        m_Used += step;
        ++m_Given;
        return header + 1;
    }

private:
    void Retire() {
        if (m_pSlab != nullptr) TakeOff(m_pSlab, Slab::kBias - m_Given);
        m_pSlab = nullptr;
    }

    void Begin() {
        Retire();
        void* const memory = std::malloc(kSlabBytes);
        if (memory == nullptr) throw std::bad_alloc();
        m_pSlab = new (memory) Slab;
        m_Used = sizeof(Slab) + kAlignment;
        m_Given = 0;
    }

    Slab* m_pSlab = nullptr;
    std::size_t m_Used = 0;  // where the next block begins; its header stands in front of that
    std::size_t m_Given = 0;
};

thread_local Filling t_filling;

}  // namespace

void* AllocateSmall(std::size_t bytes) {
    if (bytes <= kLargest) return t_filling.Cut(bytes);
    void* const memory = std::malloc(bytes + kAlignment);
    if (memory == nullptr) throw std::bad_alloc();
    void* const block = static_cast<unsigned char*>(memory) + kAlignment;
    (static_cast<Header*>(block) - 1)->slab = nullptr;
    return block;
}

void FreeSmall(void* block) noexcept {
    if (block == nullptr) return;
    Slab* const slab = (static_cast<Header*>(block) - 1)->slab;
    if (slab != nullptr) {
        TakeOff(slab, 1);
    } else {
        std::free(static_cast<unsigned char*>(block) - kAlignment);
    }
}

}  // namespace platform
