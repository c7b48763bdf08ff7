#include <Korvane/platform/Memory.h>
#include <Korvane/platform/SmallBlocks.h>

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <thread>
#include <vector>

using namespace platform;

TEST(Memory, BlocksOfEverySizeAreApartAlignedAndReusable) {
    const std::size_t sizes[] = {0, 1, 1000, 40'000, 524'288, 3'000'000, 9'000'000, 40'000'000};
    for (int round = 0; round < 3; ++round) {
        std::vector<unsigned char*> blocks;
        for (int copy = 0; copy < 20; ++copy) {
            const std::size_t size = sizes[static_cast<std::size_t>(copy) % std::size(sizes)];
            auto* const block = static_cast<unsigned char*>(AllocateBuffer(size));
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0U);
            std::memset(block, copy, size);
            blocks.push_back(block);
        }
        for (int copy = 0; copy < 20; ++copy) {
            const auto index = static_cast<std::size_t>(copy);
            const std::size_t size = sizes[index % std::size(sizes)];
            if (size > 0) {
                EXPECT_EQ(blocks[index][0], copy);
                EXPECT_EQ(blocks[index][size - 1], copy);
            }
            FreeBuffer(blocks[index]);
        }
    }
    FreeBuffer(nullptr);
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

TEST(SmallBlocks, KeepTheirBytesAndMayComeBackInAnotherThread) {
    for (int round = 0; round < 3; ++round) {
        std::vector<unsigned char*> blocks;
        std::thread([&blocks] {
            for (std::size_t i = 0; i < 50'000; ++i) {
                const std::size_t size = i * 7919 % kLargestSmallBlock + 1;
                auto* const block = static_cast<unsigned char*>(AllocateSmall(size));
                std::memset(block, static_cast<int>(i % 251), size);
                blocks.push_back(block);
            }
        }).join();
        for (std::size_t i = 0; i < blocks.size(); ++i) {
            const std::size_t size = i * 7919 % kLargestSmallBlock + 1;
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(blocks[i]) % 8, 0U);
            ASSERT_EQ(blocks[i][0], i % 251);
            ASSERT_EQ(blocks[i][size - 1], i % 251);
            FreeSmall(blocks[i]);
        }
    }
    FreeSmall(nullptr);
}
