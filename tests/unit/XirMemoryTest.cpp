#include "xir_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace {

void* Allocate(size_t size) {
    void* block = nullptr;
    EXPECT_EQ(0, xir_allocate(&block, size));
    return block;
}

bool IsZero(const void* block, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(block);
    return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

bool IsAlignedForAnything(const void* block) {
    return reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t) == 0;
}

}  // namespace

TEST(XirMemory, ABlockIsZeroAlignedAndCountedOnce) {
    void* block = Allocate(1000);

    EXPECT_TRUE(IsZero(block, 1000));
    EXPECT_TRUE(IsAlignedForAnything(block));
    EXPECT_EQ(0, xir_release(block));
}

TEST(XirMemory, RetainCountsUpAndReleaseDown) {
    void* block = Allocate(1);

    EXPECT_EQ(2, xir_retain(block));
    EXPECT_EQ(3, xir_retain(block));
    EXPECT_EQ(2, xir_release(block));
    EXPECT_EQ(1, xir_release(block));
    EXPECT_EQ(0, xir_release(block));
}

TEST(XirMemory, AttachedBlocksLiveUntilTheMainBlockIsReleased) {
    void* block = Allocate(8);
    std::vector<uint8_t*> attached;
    for (size_t size = 0; size < 50; ++size) {
        attached.push_back(static_cast<uint8_t*>(xir_allocate_and_attach(block, size)));
        ASSERT_NE(nullptr, attached.back());
        EXPECT_TRUE(IsAlignedForAnything(attached.back()));
        EXPECT_TRUE(IsZero(attached.back(), size));
        std::memset(attached.back(), static_cast<int>(size), size);
    }
    xir_retain(block);
    EXPECT_EQ(1, xir_release(block));

    for (size_t size = 0; size < attached.size(); ++size) {
        EXPECT_TRUE(std::all_of(attached[size], attached[size] + size, [size](uint8_t byte) { return byte == size; }));
    }
    EXPECT_EQ(0, xir_release(block));  // the address sanitizer sees that all of it is freed
}

TEST(XirMemory, ABlockOfSizeZeroIsABlock) {
    void* block = Allocate(0);

    EXPECT_NE(nullptr, block);
    EXPECT_EQ(0, xir_release(block));
}

TEST(XirMemory, ASizeThatCannotBeIsRefusedAndLeavesANullPointer) {
    void* block = &block;

    EXPECT_EQ(-1, xir_allocate(&block, std::numeric_limits<size_t>::max()));
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(-1, xir_allocate(nullptr, 1));
    void* main = Allocate(1);
    EXPECT_EQ(nullptr, xir_allocate_and_attach(main, std::numeric_limits<size_t>::max()));
    xir_release(main);
}

TEST(XirMemory, NullIsIgnored) {
    EXPECT_EQ(0, xir_retain(nullptr));
    EXPECT_EQ(0, xir_release(nullptr));
    EXPECT_EQ(nullptr, xir_allocate_and_attach(nullptr, 1));
}

TEST(XirMemory, ThreadsThatCountTogetherFreeTheBlockOnce) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 10'000;
    void* block = Allocate(64);
    for (int index = 1; index < kThreads; ++index) {
        xir_retain(block);
    }

    std::vector<std::thread> threads(kThreads);
    std::atomic<int> lastReleases{0};
    for (auto& thread : threads) {
        thread = std::thread([&] {
            for (int round = 0; round < kRounds; ++round) {
                xir_retain(block);
                xir_release(block);
            }
            lastReleases += xir_release(block) == 0 ? 1 : 0;
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(1, lastReleases);
}
