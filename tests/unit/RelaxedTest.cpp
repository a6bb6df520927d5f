#include "Relaxed.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <type_traits>

TEST(Relaxed, WithoutAnInitialValueItIsZero) {
    const Relaxed<int32_t> number;
    const Relaxed<const char*> pointer;

    EXPECT_EQ(0, number);
    EXPECT_EQ(nullptr, pointer.get());
}

TEST(Relaxed, ItReadsAndIsWrittenLikeAPlainField) {
    Relaxed<uint16_t> number = 7;
    EXPECT_EQ(7, number + 0);

    number = 65535;
    EXPECT_EQ(65535, number.get());

    number.set(8);
    EXPECT_EQ(8, number);
}

TEST(Relaxed, ACopyHasTheValueAndAFutureOfItsOwn) {
    Relaxed<int> first = 1;
    Relaxed<int> copy = first;
    Relaxed<int> assigned = 5;

    assigned = first;
    first = 2;

    EXPECT_EQ(1, copy);
    EXPECT_EQ(1, assigned);
    copy = 3;
    EXPECT_EQ(2, first);
}

TEST(Relaxed, ItTakesTheRoomOfItsValueAndNoLock) {
    static_assert(sizeof(Relaxed<uint8_t>) == 1 && sizeof(Relaxed<void*>) == sizeof(void*));
    static_assert(std::atomic<uint8_t>::is_always_lock_free && std::atomic<int32_t>::is_always_lock_free &&
                  std::atomic<void*>::is_always_lock_free);
    static_assert(std::is_same_v<uint8_t, decltype(Relaxed<uint8_t>().get())>);
}

TEST(Relaxed, AThreadThatPollsSeesTheChangeWhole) {
    constexpr uint64_t kHalves = 0xAAAAAAAA'AAAAAAAA;
    Relaxed<uint64_t> value = 0;
    uint64_t seen = 0;

    std::thread poller([&] {
        while ((seen = value) == 0) {
            std::this_thread::yield();
        }
    });
    value = kHalves;
    poller.join();

    EXPECT_EQ(kHalves, seen);
}
