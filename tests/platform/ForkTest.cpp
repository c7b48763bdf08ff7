#include <Korvane/base/Sanitizer.h>
#include <Korvane/base/SmallBlocks.h>
#include <Korvane/platform/Fork.h>
#include <Korvane/platform/memory/Memory.h>

#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

/// Whether `work` ends in a child that is forked off now.
template <class Work>
bool EndsInChild(const Work& work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);  // ends one that waits for ever
        work();
        _exit(0);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

void AllocateOfBothKinds() {
    std::vector<void*> blocks;
    for (int i = 0; i < 1000; ++i) blocks.push_back(platform::AllocateSmall(100));
    for (void* const block : blocks) platform::FreeSmall(block);
    platform::FreeBuffer(platform::AllocateBuffer(100'000));
}

}  // namespace

TEST(Fork, AChildHasMemoryWhateverOtherThreadsDid) {
#if defined(KORVANE_PLAIN_HEAP)
    GTEST_SKIP() << "the sanitizer's heap stays locked in a child";
#else
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!isOver) AllocateOfBothKinds();
        });
    }
    int ended = 0;
    for (int i = 0; i < 300; ++i) ended += EndsInChild(AllocateOfBothKinds) ? 1 : 0;
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(ended, 300);
#endif
}

TEST(Fork, LocksAreTakenFromTheHighestRankAndOpenOnBothSides) {
    struct Locks {
        std::recursive_mutex outer;
        std::mutex inner;
    };
    static Locks* const locks = new Locks;  // as long as the process
    platform::HoldWhileForking(locks->inner, 3);
    platform::HoldWhileForking(locks->outer, 4);
    const auto takeBoth = [] {
        const std::lock_guard outer(locks->outer);
        std::this_thread::yield();
        const std::lock_guard inner(locks->inner);
    };
    std::atomic<bool> isOver = false;
    std::thread other([&] {
        while (!isOver) takeBoth();
    });
    int ended = 0;
    for (int i = 0; i < 300; ++i) ended += EndsInChild(takeBoth) ? 1 : 0;
    isOver = true;
    other.join();
    EXPECT_EQ(ended, 300);
}
