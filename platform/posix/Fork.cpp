#include "platform/Fork.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <new>
#include <pthread.h>

namespace platform {

namespace {

struct Held {
    void* lock = nullptr;
    unsigned rank = 0;
    void (*take)(void* lock) = nullptr;
    void (*leave)(void* lock) = nullptr;
    void (*open)(void* lock) = nullptr;  // in the child
};

/// The highest rank first. An array, since memory comes from behind some of these locks.
constinit std::array<Held, 8> s_held{};
constinit std::size_t s_count = 0;
constinit std::mutex s_mutex;  // guards both

void BeforeFork() {
    s_mutex.lock();
    for (std::size_t i = 0; i < s_count; ++i) s_held[i].take(s_held[i].lock);
}

void InParent() {
    for (std::size_t i = s_count; i-- > 0;) s_held[i].leave(s_held[i].lock);
    s_mutex.unlock();
}

/// Made anew: a recursive lock knows its thread by a number, which is another one in the child.
void InChild() {
    for (std::size_t i = s_count; i-- > 0;) s_held[i].open(s_held[i].lock);
    new (&s_mutex) std::mutex;
}

// Before its version 2.36 the C library calls us under a lock that loading a library waits for: a thread that holds a lock of
// ours and loads one would wait for the thread that forks, and that one for it.
#if defined(__GLIBC__) && !__GLIBC_PREREQ(2, 36)
constexpr bool kMayWaitForLoading = false;
#else
constexpr bool kMayWaitForLoading = true;
#endif

void Add(const Held& added) {
    if (!kMayWaitForLoading && added.rank >= kLoadsLibraries) return;
    [[maybe_unused]] static const int isCalled = pthread_atfork(BeforeFork, InParent, InChild);
    const std::lock_guard guard(s_mutex);
    if (s_count == s_held.size()) std::abort();
    const auto end = s_held.begin() + static_cast<std::ptrdiff_t>(s_count);
    const auto at = std::find_if(s_held.begin(), end, [&added](const Held& held) { return held.rank < added.rank; });
    std::move_backward(at, end, end + 1);
    *at = added;
    ++s_count;
}

template <class Lock>
void Add(Lock& lock, unsigned rank) {
    Add({&lock, rank, [](void* held) { static_cast<Lock*>(held)->lock(); },
         [](void* held) { static_cast<Lock*>(held)->unlock(); }, [](void* held) { new (held) Lock; }});
}

}  // namespace

void HoldWhileForking(std::mutex& lock, unsigned rank) {
    Add(lock, rank);
}

void HoldWhileForking(std::recursive_mutex& lock, unsigned rank) {
    Add(lock, rank);
}

}  // namespace platform
