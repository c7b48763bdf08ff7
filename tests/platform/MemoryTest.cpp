#include <Korvane/base/Sanitizer.h>
#include <Korvane/base/SmallBlocks.h>
#include <Korvane/platform/memory/Memory.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <thread>
#include <vector>

using namespace platform;

namespace {

// Blocks are aligned, keep what another thread has written into them, and come back, the next rounds' among them.
template <typename Allocate, typename Free>
void Exercise(const std::vector<std::size_t>& sizes, std::size_t alignment, const Allocate& allocate,
              const Free& free) {
    for (int round = 0; round < 3; ++round) {
        std::vector<unsigned char*> blocks;
        std::thread([&] {
            for (const std::size_t size : sizes) {
                auto* const block = static_cast<unsigned char*>(allocate(size));
                std::memset(block, static_cast<int>(blocks.size() % 251), size);
                blocks.push_back(block);
            }
        }).join();
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i]) % alignment, 0U);
            if (sizes[i] > 0) {
                ASSERT_EQ(blocks[i][0], i % 251);
                ASSERT_EQ(blocks[i][sizes[i] - 1], i % 251);
            }
            free(blocks[i]);
        }
    }
    free(nullptr);
}

}  // namespace

TEST(Memory, BlocksOfEverySizeAreApartAlignedAndReusable) {
    std::vector<std::size_t> sizes;
    for (int copy = 0; copy < 3; ++copy) {
        sizes.insert(sizes.end(), {0, 1, 1000, 40'000, 524'288, 3'000'000, 9'000'000, 40'000'000});
    }
    Exercise(sizes, 64, AllocateBuffer, FreeBuffer);
    sizes.clear();
    for (std::size_t i = 0; i < 50'000; ++i) sizes.push_back(i * 7919 % kLargestSmallBlock + 1);
    Exercise(sizes, 8, AllocateSmall, FreeSmall);
}

// How many of the new blocks lie where blocks of a batch came back, of which one of 20 stayed.
template <typename Allocate, typename Free>
double ReusedAfterBatch(std::size_t bytes, std::size_t count, const Allocate& allocate, const Free& free) {
    std::vector<unsigned char*> batch;
    for (std::size_t i = 0; i < count; ++i) batch.push_back(static_cast<unsigned char*>(allocate(bytes)));
    std::vector<std::uintptr_t> holes;
    std::vector<unsigned char*> kept;
    for (std::size_t i = 0; i < count; ++i) {
        holes.push_back(reinterpret_cast<std::uintptr_t>(batch[i]));
        if (i % 1000 < 50) {
            std::memset(batch[i], static_cast<int>(i % 251), bytes);
            kept.push_back(batch[i]);
        } else {
            free(batch[i]);
        }
    }
    std::sort(holes.begin(), holes.end());
    std::vector<unsigned char*> next;
    std::size_t reused = 0;
    for (std::size_t i = 0; i < count / 2; ++i) {
        next.push_back(static_cast<unsigned char*>(allocate(bytes)));
        std::memset(next.back(), 0xFF, bytes);
        const auto address = reinterpret_cast<std::uintptr_t>(next.back());
        const auto below = std::upper_bound(holes.begin(), holes.end(), address);
        if (below != holes.begin() && address - *(below - 1) < bytes) ++reused;
    }
    for (std::size_t i = 0; i < kept.size(); ++i) {
        EXPECT_EQ(kept[i][0], (i / 50 * 1000 + i % 50) % 251);
        EXPECT_EQ(kept[i][bytes - 1], (i / 50 * 1000 + i % 50) % 251);
        free(kept[i]);
    }
    for (unsigned char* const block : next) free(block);
    return static_cast<double>(reused) / static_cast<double>(next.size());
}

TEST(Memory, HolesThatABatchLeavesAreUsedAgain) {
#if defined(KORVANE_PLAIN_HEAP)
    GTEST_SKIP() << "the sanitizer's heap keeps what was freed apart";
#else
    EXPECT_GT(ReusedAfterBatch(104, 400'000, AllocateSmall, FreeSmall), 0.85);
    if (sizeof(void*) > 4) {
        EXPECT_GT(ReusedAfterBatch(500'000, 1000, AllocateBuffer, FreeBuffer), 0.85);
    }
#endif
}

TEST(Memory, AnImpossibleSizeIsRefused) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's heap ends the program instead";
#else
    for (const std::size_t size : {SIZE_MAX, SIZE_MAX - 64, SIZE_MAX / 2}) {
        EXPECT_THROW(AllocateBuffer(size), std::bad_alloc);
    }
#endif
}
