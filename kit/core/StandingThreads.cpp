#include "StandingThreads.h"

#include "../../platform/Environment.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace korvane {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::microseconds kLooks{200};
constexpr std::chrono::seconds kStays{5};

/// Asks for a while, leaving the processor to others in between.
template <class Question>
bool AskForAWhile(Question question) {
    const Clock::time_point end = Clock::now() + kLooks;
    do {
        if (question()) return true;
        std::this_thread::yield();
    } while (Clock::now() < end);
    return question();
}

}  // namespace

struct StandingThreads::Parts {
    void Stay(bool& isGone);
    void Begin(unsigned others);
    void Join();

    const std::uint32_t process = platform::ProcessNumber();
    struct Helper {
        std::thread thread;
        bool isGone = false;  // ended, or about to
    };
    std::vector<std::unique_ptr<Helper>> helpers;

    std::mutex mutex;  // for what follows
    std::condition_variable called;
    std::condition_variable returned;
    const std::function<void()>* work = nullptr;
    unsigned wanted = 0;  // helpers that may still begin
    unsigned asleep = 0;
    bool isWaiting = false;  // the caller, for those at work
    bool isEnd = false;
    // Changed under the mutex, looked at without:
    std::atomic<unsigned> turn = 0;
    std::atomic<unsigned> atWork = 0;
};

StandingThreads::StandingThreads() : m_pParts(std::make_unique<Parts>()) {}

StandingThreads::~StandingThreads() {
    if (m_pParts->process == platform::ProcessNumber()) {
        m_pParts->Join();
    } else {
        static_cast<void>(m_pParts.release());  // to wait for threads that were left behind has no end
    }
}

void StandingThreads::Parts::Join() {
    {
        const std::lock_guard lock(mutex);
        isEnd = true;
        ++turn;
        called.notify_all();
    }
    for (const auto& helper : helpers) helper->thread.join();
}

/// What a helper does from its beginning to its end.
void StandingThreads::Parts::Stay(bool& isGone) {
    unsigned seen = 0;
    std::unique_lock lock(mutex);
    while (!isEnd) {
        if (wanted > 0 && seen != turn) {
            seen = turn;
            --wanted;
            ++atWork;
            const std::function<void()>& own = *work;
            lock.unlock();
            own();
            lock.lock();
            if (--atWork == 0 && isWaiting) returned.notify_one();
            continue;
        }
        seen = turn;
        lock.unlock();
        const bool isCalled = AskForAWhile([&] { return turn.load(std::memory_order_relaxed) != seen; });
        lock.lock();
        if (isCalled || isEnd || turn != seen) continue;
        ++asleep;
        const bool isWoken = called.wait_for(lock, kStays, [&] { return isEnd || turn != seen; });
        --asleep;
        if (!isWoken) break;
    }
    isGone = true;
}

/// As many helpers as there are to be. The system may give fewer.
void StandingThreads::Parts::Begin(unsigned others) {
    std::unique_lock lock(mutex);
    for (const auto& helper : helpers) {
        if (!helper->isGone) continue;
        lock.unlock();
        helper->thread.join();
        lock.lock();
    }
    std::erase_if(helpers, [](const auto& helper) { return helper->isGone; });
    try {
        while (helpers.size() < others) {
            auto helper = std::make_unique<Helper>();
            helper->thread = std::thread([this, &isGone = helper->isGone] { Stay(isGone); });
            helpers.push_back(std::move(helper));
        }
    } catch (const std::system_error&) {
        // The calling thread works as well.
    }
}

void StandingThreads::Run(unsigned others, const std::function<void()>& work) {
    Parts& parts = *m_pParts;
    if (others == 0 || parts.process != platform::ProcessNumber()) return work();
    parts.Begin(others);
    {
        const std::lock_guard lock(parts.mutex);
        parts.work = &work;
        parts.wanted = others;
        ++parts.turn;
        if (parts.asleep > 0) parts.called.notify_all();
    }
    work();
    {
        const std::lock_guard lock(parts.mutex);
        parts.wanted = 0;
    }
    if (AskForAWhile([&] { return parts.atWork.load(std::memory_order_acquire) == 0; })) return;
    std::unique_lock lock(parts.mutex);
    parts.isWaiting = true;
    parts.returned.wait(lock, [&] { return parts.atWork == 0; });
    parts.isWaiting = false;
}

}  // namespace korvane
