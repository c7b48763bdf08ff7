// Pages that blocks are cut from: which of them are free, which of those have gone back to the system, and which stocks of
// a pool have some. What small blocks and large ones have in common.
#pragma once

#include "../Fork.h"
#include "Pages.h"

#include <cstddef>
#include <cstdint>
#include <mutex>

namespace platform {

template <std::size_t Pages>
class PageSet {
public:
    void Add(std::size_t page) { m_Words[page / 64] |= std::uint64_t{1} << page % 64; }
    void Remove(std::size_t page) { m_Words[page / 64] &= ~(std::uint64_t{1} << page % 64); }
    bool Has(std::size_t page) const { return (m_Words[page / 64] >> page % 64 & 1) != 0; }

    /// The first page from `from` on that is in the set, or that is not; `Pages` without one.
    std::size_t Next(std::size_t from, bool isIn = true) const {
        for (std::size_t word = from / 64; word < kWords; ++word) {
            std::uint64_t bits = isIn ? m_Words[word] : ~m_Words[word];
            if (word == from / 64) bits &= ~std::uint64_t{0} << from % 64;
            const std::size_t found = word * 64 + static_cast<std::size_t>(__builtin_ctzll(bits));
            if (bits != 0) return found < Pages ? found : Pages;
        }
        return Pages;
    }

private:
    static constexpr std::size_t kWords = (Pages + 63) / 64;
    std::uint64_t m_Words[kWords] = {};
};

template <std::size_t Pages, std::size_t Bytes>
struct PageStock;

/// The stocks of one module. Blocks may outlive the module that they came from, so a pool is never freed.
template <std::size_t Pages, std::size_t Bytes>
struct PagePool {
    const std::size_t mostKept;  ///< free pages of listed stocks whose memory is not given back to the system
    HeldWhileForking<std::mutex, 0> mutex;
    PageStock<Pages, Bytes>* first = nullptr;  ///< of those that are listed: free pages to be had
    std::size_t kept = 0;

    explicit PagePool(std::size_t most) : mostKept(most) {}

    /// Pages came back to a stock of which others are out. What is freed as a whole is freed stock by stock, and goes back to
    /// the system so: giving it back in pieces takes huge pages apart, which costs more than reading a data set. So it is
    /// done only for what piles up in stocks that are not being emptied now.
    void LimitKept(const PageStock<Pages, Bytes>* current) noexcept {
        if (kept <= mostKept) return;
        for (auto* stock = first; stock != nullptr; stock = stock->next) {
            if (stock != current) stock->Drop();
        }
    }
};

/// Stands at the start of its pages, of `Bytes` each, of which it takes the first; all are mapped as one piece. Everything
/// is guarded by the mutex of the pool.
template <std::size_t Pages, std::size_t Bytes>
struct PageStock {
    static constexpr std::size_t kUsable = Pages - 1;

    PagePool<Pages, Bytes>* pool;
    PageStock* previous = nullptr;
    PageStock* next = nullptr;
    bool isListed = false;
    std::size_t freePages = kUsable;
    std::size_t droppedPages = 0;
    PageSet<Pages> free;
    PageSet<Pages> dropped;  ///< those of the free ones whose memory the system has

    /// `isThere`: the system has given memory for all pages at once.
    PageStock(PagePool<Pages, Bytes>& owner, bool isThere) : pool(&owner) {
        for (std::size_t page = 1; page < Pages; ++page) free.Add(page);
        if (isThere) return;
        dropped = free;
        droppedPages = kUsable;
    }

    unsigned char* GetPage(std::size_t page) { return reinterpret_cast<unsigned char*>(this) + page * Bytes; }
    bool IsEmpty() const { return freePages == kUsable; }

    void Take(std::size_t begin, std::size_t count) noexcept {
        const std::size_t kept = GetKept();
        for (std::size_t page = begin; page < begin + count; ++page) {
            free.Remove(page);
            if (dropped.Has(page)) --droppedPages;
            dropped.Remove(page);
        }
        freePages -= count;
        if (isListed) pool->kept -= kept - GetKept();
    }

    void Give(std::size_t begin, std::size_t count) noexcept {
        for (std::size_t page = begin; page < begin + count; ++page) free.Add(page);
        freePages += count;
        if (isListed) pool->kept += count;
    }

    void List() noexcept {
        if (isListed) return;
        next = pool->first;
        if (next != nullptr) next->previous = this;
        pool->first = this;
        pool->kept += GetKept();
        isListed = true;
    }

    void Unlist() noexcept {
        if (!isListed) return;
        (previous != nullptr ? previous->next : pool->first) = next;
        if (next != nullptr) next->previous = previous;
        previous = next = nullptr;
        pool->kept -= GetKept();
        isListed = false;
    }

    /// Gives the memory of the free pages of a listed stock to the system.
    void Drop() noexcept {
        if (GetKept() == 0) return;
        pool->kept -= GetKept();
        std::size_t page = free.Next(0);
        while (page < Pages) {
            const std::size_t begin = page;
            for (; page < Pages && free.Has(page) && !dropped.Has(page); ++page) dropped.Add(page);
            if (page > begin) DropPages(GetPage(begin), (page - begin) * Bytes);
            droppedPages += page - begin;
            page = free.Next(page > begin ? page : page + 1);
        }
    }

private:
    std::size_t GetKept() const { return freePages - droppedPages; }
};

}  // namespace platform
