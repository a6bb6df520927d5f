// Named threads and one-shot flags.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "XirCommonRpcWorld.h"
#include "xir_common_osal.h"

using testing::ElementsAre;

static bool eventsAreRefused = false;

/// In the C library's place: a thread without a descriptor for its wake-ups must not come to be.
extern "C" int eventfd(unsigned initial, int flags) noexcept {
    if (eventsAreRefused) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_eventfd2, initial, flags));
}

namespace {

/// A thread whose steps are functions; it notes what was called.
struct Thread {
    std::function<int32_t()> init = [] { return 0; };
    std::function<int32_t()> run = [] { return -1; };
    Log log;
    xir_common_osal_thread_handle handle = nullptr;

    int32_t Create(const char* name = "test") {
        return xir_common_osal_createThread(
            name, this,
            [](xir_common_osal_thread_handle, void* self) { return static_cast<Thread*>(self)->Note("init"); },
            [](xir_common_osal_thread_handle, void* self) { return static_cast<Thread*>(self)->Note("run"); },
            [](xir_common_osal_thread_handle, void* self) { return static_cast<Thread*>(self)->Note("destroy"); },
            &handle);
    }
    int32_t Release() { return xir_common_osal_releaseThread(std::exchange(handle, nullptr)); }
    ~Thread() { Release(); }

  private:
    int32_t Note(const std::string& step) {
        log.Add(step);
        return step == "init" ? init() : step == "run" ? run() : 0;
    }
};

int64_t ProcessorMicros() {
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto micros = [](const timeval& time) { return time.tv_sec * 1'000'000L + time.tv_usec; };
    return micros(usage.ru_utime) + micros(usage.ru_stime);
}

}  // namespace

TEST(XirCommonOsal, AThreadIsInitialisedRunAgainAndAgainAndDestroyed) {
    Thread thread;
    Signal runs;
    thread.run = [&] {
        runs.Raise();
        return 0;
    };

    ASSERT_EQ(0, thread.Create());
    ASSERT_TRUE(runs.Wait(3));
    EXPECT_EQ(0, thread.Release());

    auto steps = thread.log.Lines();
    EXPECT_EQ("init", steps.front());
    EXPECT_EQ("destroy", steps.back());
    EXPECT_EQ(static_cast<size_t>(runs.Count()) + 2, steps.size());
}

TEST(XirCommonOsal, CreateReturnsAfterInitWithTheHandleKnownToInit) {
    Thread thread;
    bool handleKnown = false;
    bool initDone = false;
    thread.init = [&] {
        handleKnown = thread.handle != nullptr && xir_common_osal_is_same_thread(thread.handle) != 0;
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
        initDone = true;
        return 0;
    };

    ASSERT_EQ(0, thread.Create());

    EXPECT_TRUE(initDone);
    EXPECT_TRUE(handleKnown);
}

TEST(XirCommonOsal, AThreadWhoseInitFailedIsParkedAndStillDestroyed) {
    Thread thread;
    thread.init = [] { return -4; };

    EXPECT_EQ(0, thread.Create());
    EXPECT_EQ(0, thread.Release());

    EXPECT_THAT(thread.log.Lines(), ElementsAre("init", "destroy"));
}

TEST(XirCommonOsal, AThreadWhoseRunFailedIsParkedWithoutEatingTime) {
    Thread thread;
    thread.run = [] { return -4; };
    ASSERT_EQ(0, thread.Create());
    ASSERT_TRUE(thread.log.Wait(2));

    const int64_t before = ProcessorMicros();
    std::this_thread::sleep_for(std::chrono::milliseconds{200});
    const int64_t spent = ProcessorMicros() - before;
    EXPECT_EQ(0, thread.Release());

    EXPECT_LT(spent, 100'000);
    EXPECT_THAT(thread.log.Lines(), ElementsAre("init", "run", "destroy"));
}

TEST(XirCommonOsal, TheKernelShowsFifteenCharactersOfTheName) {
    Thread thread;
    std::array<char, 32> name = {};
    thread.init = [&] { return -pthread_getname_np(pthread_self(), name.data(), name.size()); };

    ASSERT_EQ(0, thread.Create("LocationProvider"));

    EXPECT_STREQ("LocationProvide", name.data());
}

TEST(XirCommonOsal, OnlyTheThreadItselfIsTheSameThread) {
    Thread thread;
    Signal ran;
    int32_t seenInRun = 0;
    thread.run = [&] {
        seenInRun = xir_common_osal_is_same_thread(thread.handle);
        ran.Raise();
        return -1;
    };
    ASSERT_EQ(0, thread.Create());
    ASSERT_TRUE(ran.Wait());

    EXPECT_NE(0, seenInRun);
    EXPECT_EQ(0, xir_common_osal_is_same_thread(thread.handle));
    EXPECT_EQ(0, xir_common_osal_is_same_thread(nullptr));
}

TEST(XirCommonOsal, AThreadCannotReleaseItself) {
    Thread thread;
    Signal ran;
    int32_t answer = 0;
    thread.run = [&] {
        answer = xir_common_osal_releaseThread(thread.handle);
        ran.Raise();
        return -1;
    };
    ASSERT_EQ(0, thread.Create());
    ASSERT_TRUE(ran.Wait());

    EXPECT_EQ(-1, answer);
}

TEST(XirCommonOsal, MissingStepsAreSkipped) {
    xir_common_osal_thread_handle handle = nullptr;

    ASSERT_EQ(0, xir_common_osal_createThread("bare", nullptr, nullptr, nullptr, nullptr, &handle));

    EXPECT_EQ(0, xir_common_osal_releaseThread(handle));
}

TEST(XirCommonOsal, AThreadThatCannotBeMadeChangesNothing) {
    Thread thread;
    auto* const marker = reinterpret_cast<xir_common_osal_thread_handle>(&thread);
    thread.handle = marker;

    eventsAreRefused = true;
    const int32_t result = thread.Create();
    eventsAreRefused = false;

    EXPECT_GT(0, result);
    EXPECT_EQ(marker, std::exchange(thread.handle, nullptr));
    EXPECT_TRUE(thread.log.Lines().empty());
}

TEST(XirCommonOsal, NullIsRefusedOrIgnored) {
    uint8_t flag = 0;
    Thread thread;
    ASSERT_EQ(0, thread.Create());

    EXPECT_EQ(0, xir_common_osal_releaseThread(nullptr));
    EXPECT_EQ(-1, xir_common_osal_createThread("x", nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_osal_init_flag(nullptr, &flag));
    EXPECT_EQ(-1, xir_common_osal_notify_flag(nullptr, &flag));
    EXPECT_EQ(-1, xir_common_osal_wait_flag(nullptr, &flag));
    EXPECT_EQ(-1, xir_common_osal_init_flag(thread.handle, nullptr));
    EXPECT_EQ(-1, xir_common_osal_notify_flag(thread.handle, nullptr));
    EXPECT_EQ(-1, xir_common_osal_wait_flag(thread.handle, nullptr));
}

TEST(XirCommonOsal, AFlagStaysRaisedUntilItIsCleared) {
    Thread thread;
    ASSERT_EQ(0, thread.Create());
    uint8_t flag = 0;
    EXPECT_EQ(0, xir_common_osal_init_flag(thread.handle, &flag));
    EXPECT_EQ(0, xir_common_osal_notify_flag(thread.handle, &flag));

    EXPECT_EQ(0, xir_common_osal_wait_flag(thread.handle, &flag));
    EXPECT_EQ(0, xir_common_osal_wait_flag(thread.handle, &flag));

    xir_common_osal_init_flag(thread.handle, &flag);
    EXPECT_EQ(0, flag);
}

TEST(XirCommonOsal, AWaiterGetsUpWhenItsFlagIsRaisedAndNotBefore) {
    Thread thread;
    ASSERT_EQ(0, thread.Create());
    uint8_t flags[2] = {0, 0};  // bytes of one word, as in an owner's record
    std::atomic<bool> raised{false};
    Caller waiter([&] {
        EXPECT_EQ(0, xir_common_osal_wait_flag(thread.handle, &flags[0]));
        EXPECT_TRUE(raised);
    });
    waiter.WaitAsleep();

    xir_common_osal_notify_flag(thread.handle, &flags[1]);
    waiter.WaitAsleep();
    raised = true;
    xir_common_osal_notify_flag(thread.handle, &flags[0]);

    waiter.Join();
}

TEST(XirCommonOsal, ManyWaitersOfOneFlagAllGetUp) {
    Thread thread;
    ASSERT_EQ(0, thread.Create());
    uint8_t flag = 0;
    std::vector<std::thread> waiters(8);
    for (auto& waiter : waiters) {
        waiter = std::thread([&] { EXPECT_EQ(0, xir_common_osal_wait_flag(thread.handle, &flag)); });
    }

    xir_common_osal_notify_flag(thread.handle, &flag);

    for (auto& waiter : waiters) {
        waiter.join();
    }
}

TEST(XirCommonOsal, NoNotificationIsLost) {
    // Two threads that wake each other in turn: one lost notification, and both wait for ever.
    constexpr int kRounds = 20'000;
    Thread thread;
    ASSERT_EQ(0, thread.Create());
    uint8_t ping = 0;
    uint8_t pong = 0;
    std::thread other([&] {
        for (int round = 0; round < kRounds; ++round) {
            xir_common_osal_wait_flag(thread.handle, &ping);
            xir_common_osal_init_flag(thread.handle, &ping);
            xir_common_osal_notify_flag(thread.handle, &pong);
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        xir_common_osal_notify_flag(thread.handle, &ping);
        xir_common_osal_wait_flag(thread.handle, &pong);
        xir_common_osal_init_flag(thread.handle, &pong);
    }

    other.join();
    EXPECT_EQ(0, ping);
}

TEST(XirCommonOsal, TheRecordOfAFlagMayEndAsSoonAsTheFlagIsSeen) {
    // The address sanitizer and the thread sanitizer see a notify that touches the record too late.
    Thread thread;
    ASSERT_EQ(0, thread.Create());
    for (int round = 0; round < 1000; ++round) {
        auto record = std::make_unique<uint8_t>(0);
        std::thread notifier([&thread, flag = record.get()] { xir_common_osal_notify_flag(thread.handle, flag); });
        xir_common_osal_wait_flag(thread.handle, record.get());
        record.reset();
        notifier.join();
    }
}

TEST(XirCommonOsal, AReleaseSendsItsWaitersAway) {
    Thread thread;
    ASSERT_EQ(0, thread.Create());
    uint8_t flag = 0;
    Caller waiter([&, handle = thread.handle] { EXPECT_EQ(-1, xir_common_osal_wait_flag(handle, &flag)); });
    waiter.WaitAsleep();

    EXPECT_EQ(0, thread.Release());

    waiter.Join();
}
