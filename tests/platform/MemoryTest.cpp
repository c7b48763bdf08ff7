#include <Korvane/base/SmallBlocks.h>
#include <Korvane/platform/memory/Memory.h>

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

TEST(Memory, AnImpossibleSizeIsRefused) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's heap ends the program instead";
#else
    for (const std::size_t size : {SIZE_MAX, SIZE_MAX - 64, SIZE_MAX / 2}) {
        EXPECT_THROW(AllocateBuffer(size), std::bad_alloc);
    }
#endif
}
