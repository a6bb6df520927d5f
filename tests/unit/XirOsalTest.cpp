#include "XirOsal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <thread>

#include "Faults.h"
#include "ServiceTest.h"
#include "Trace.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// What an assertion on 0 prints.
const char* const kAssertionOfZero = "Assertion `0' failed";

}  // namespace

TEST(XirOsal, AMutexIsCreatedByItsFirstUse) {
    XirMutex mutex("Fresh");
    EXPECT_EQ(0, mutex.initialised);

    EXPECT_TRUE(GetMutex(&mutex));

    EXPECT_EQ(1, mutex.initialised);
    ReleaseMutex(&mutex);
}

TEST(XirOsal, AMutexCountsItsHoldsAndTheProcessCountsThemAll) {
    XirMutex one("One");
    XirMutex other("Other");
    const int32_t before = XirMutexHoldCount();

    GetMutex(&one);
    GetMutex(&one);
    GetMutex(&other);

    EXPECT_EQ(2, one.lockCount);
    EXPECT_EQ(1, other.lockCount);
    EXPECT_EQ(before + 3, XirMutexHoldCount());

    ReleaseMutex(&one);
    ReleaseMutex(&one);
    ReleaseMutex(&other);
    EXPECT_EQ(0, one.lockCount);
    EXPECT_EQ(0, other.lockCount);
    EXPECT_EQ(before, XirMutexHoldCount());
}

TEST(XirOsal, AnotherThreadGetsTheMutexOnlyAfterTheLastRelease) {
    XirMutex mutex("Shared");
    std::atomic<int> releases = 0;
    int seen = -1;
    GetMutex(&mutex);
    GetMutex(&mutex);

    std::thread other([&] {
        GetMutex(&mutex);
        seen = releases;
        ReleaseMutex(&mutex);
    });
    releases = 1;
    ReleaseMutex(&mutex);
    releases = 2;
    ReleaseMutex(&mutex);
    other.join();

    EXPECT_EQ(2, seen);
}

TEST(XirOsal, ThreadsThatMeetOnAFreshMutexShareOne) {
    for (int round = 0; round < 100; ++round) {
        XirMutex mutex("Fresh");
        int guarded = 0;
        std::array<std::thread, 4> threads;

        for (std::thread& thread : threads) {
            thread = std::thread([&] {
                GetMutex(&mutex);
                ++guarded;
                ReleaseMutex(&mutex);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }

        ASSERT_EQ(4, guarded);
    }
}

TEST(XirOsal, TakingNoMutexSaysSoAndEndsTheProcess) {
    const Ended ended = EndOf([] { GetMutex(nullptr); });

    EXPECT_EQ(SIGABRT, ended.signal);
    EXPECT_THAT(ended.errors, HasSubstr(kAssertionOfZero));
    EXPECT_THAT(ended.logged.system, ElementsAre("5 pXirMutex == NULL"));
    EXPECT_THAT(ended.logged.Messages(), ElementsAre("pXirMutex == NULL"));
}

TEST(XirOsal, ReleasingNoMutexSaysSoAndGoesOn) {
    const Logged logged = LogOf([] { ReleaseMutex(nullptr); });

    EXPECT_EQ("pXirMutex == NULL\n\r", logged.console);
    EXPECT_THAT(logged.system, ElementsAre("5 pXirMutex == NULL"));
    EXPECT_THAT(logged.Messages(), ElementsAre("pXirMutex == NULL"));
}

TEST(XirOsal, AMutexThatCannotBeCreatedEndsTheProcess) {
    const Ended ended = EndOf([] {
        static XirMutex mutex("Fresh");
        const CallFault fault("pthread_mutex_init", EAGAIN, {.object = &mutex.mutex});
        GetMutex(&mutex);
    });

    EXPECT_EQ(SIGABRT, ended.signal);
    EXPECT_THAT(ended.errors, HasSubstr(kAssertionOfZero));
    EXPECT_THAT(ended.logged.system, ElementsAre("5 (Fresh) Error :  pthread_mutex_init : ret = 11 "
                                                 "(Resource temporarily unavailable) \n"));
}

TEST(XirOsal, ATraceMutexThatCannotBeCreatedEndsTheProcessWithOneReport) {
    const Ended ended = EndOf([] {
        TraceMutex.initialised = 0;
        const CallFault fault("pthread_mutex_init", ENOMEM, {.object = &TraceMutex.mutex});
        EcallUITrace("a message");
    });

    EXPECT_EQ(SIGABRT, ended.signal);
    EXPECT_THAT(ended.errors, HasSubstr(kAssertionOfZero));
    EXPECT_THAT(ended.logged.system,
                ElementsAre("5 (Trace) Error :  pthread_mutex_init : ret = 12 (Cannot allocate memory) \n"));
}

TEST(XirOsal, AFailedLockIsLoggedAndAnswersFalse) {
    XirMutex mutex("Broken");
    GetMutex(&mutex);
    ReleaseMutex(&mutex);
    const int32_t before = XirMutexHoldCount();
    bool isHeld = true;

    const Logged logged = LogOf([&] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.object = &mutex.mutex});
        isHeld = GetMutex(&mutex);
    });

    EXPECT_FALSE(isHeld);
    EXPECT_EQ(0, mutex.lockCount);
    EXPECT_EQ(before, XirMutexHoldCount());
    EXPECT_EQ("(Broken) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) \n\n\r", logged.console);
    EXPECT_THAT(logged.system,
                ElementsAre("5 (Broken) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) \n"));
    EXPECT_THAT(logged.Messages(),
                ElementsAre("(Broken) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) ", ""));
}

TEST(XirOsal, WithoutTheTraceMutexAMessageGoesToTheSystemLogInstead) {
    EcallUITrace("creates the mutex");

    const Logged logged = LogOf([] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.object = &TraceMutex.mutex});
        EcallUITrace("number %d", 7);
    });

    EXPECT_THAT(logged.system,
                ElementsAre("5 (Trace) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) \n",
                            "5 ERROR Getting the mutex", "5 number 7"));
    EXPECT_THAT(logged.console, testing::Not(HasSubstr("number 7")));
    EXPECT_EQ("", logged.file);
}

TEST(XirOsal, WithoutTheTraceMutexAFailureStillReachesConsoleAndSystemLog) {
    EcallUITrace("creates the mutex");

    const Logged logged = LogOf([] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.object = &TraceMutex.mutex});
        EcallUITraceError("failure %d", 7);
    });

    EXPECT_THAT(
        logged.system,
        ElementsAre("5 failure 7", "5 (Trace) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) \n"));
    EXPECT_THAT(logged.console, HasSubstr("failure 7\n\r"));
    EXPECT_EQ("", logged.file);
}

TEST(XirOsal, ReleasingAMutexThatIsNotHeldSaysSoAndLeavesIt) {
    XirMutex mutex("Free");
    GetMutex(&mutex);
    ReleaseMutex(&mutex);
    const int32_t before = XirMutexHoldCount();
    int unlocks = -1;

    const Logged logged = LogOf([&] {
        const CallFault fault("pthread_mutex_unlock", EPERM, {.object = &mutex.mutex});
        ReleaseMutex(&mutex);
        unlocks = fault.Calls();
    });

    EXPECT_EQ(0, unlocks);
    EXPECT_EQ(0, mutex.lockCount);
    EXPECT_EQ(before, XirMutexHoldCount());
    EXPECT_THAT(logged.system, ElementsAre("5 Error :  Release a resource that is not locked !!! (Free)\n"));
    EXPECT_TRUE(GetMutex(&mutex));
    ReleaseMutex(&mutex);
}

TEST(XirOsal, ReleasingAMutexThatWasNeverTakenSaysSo) {
    XirMutex mutex("Fresh");

    const Logged logged = LogOf([&] { ReleaseMutex(&mutex); });

    EXPECT_THAT(logged.system, ElementsAre("5 Error :  Release a resource that is not locked !!! (Fresh)\n"));
    EXPECT_EQ(0, mutex.initialised);
}

namespace {

/// Whether a thread that holds nothing finds the mutex taken.
bool IsTaken(XirMutex& mutex) {
    int answer = 0;
    std::thread([&] {
        answer = pthread_mutex_trylock(&mutex.mutex);
        if (answer == 0) {
            pthread_mutex_unlock(&mutex.mutex);
        }
    }).join();
    return answer == EBUSY;
}

}  // namespace

TEST(XirOsal, AReleaseByAnotherThreadIsLoggedAndTakesTheCountFromTheHolder) {
    XirMutex mutex("Held");
    GetMutex(&mutex);
    const int32_t before = XirMutexHoldCount();

    const Logged foreign = LogOf([&] {
        const ForeignUnlock misuse;
        std::thread([&] { ReleaseMutex(&mutex); }).join();
    });
    EXPECT_EQ(0, mutex.lockCount);
    EXPECT_EQ(before, XirMutexHoldCount());
    EXPECT_TRUE(IsTaken(mutex));
    EXPECT_EQ("Error :  pthread_mutex_unlock !!! (Held)\n\n\r", foreign.console);
    EXPECT_THAT(foreign.system, ElementsAre("5 Error :  pthread_mutex_unlock !!! (Held)\n"));
    EXPECT_THAT(foreign.Messages(), ElementsAre("Error :  pthread_mutex_unlock !!! (Held)", ""));

    const Logged own = LogOf([&] { ReleaseMutex(&mutex); });
    EXPECT_TRUE(IsTaken(mutex));
    EXPECT_THAT(own.system, ElementsAre("5 Error :  Release a resource that is not locked !!! (Held)\n"));
    pthread_mutex_unlock(&mutex.mutex);
}

TEST(XirOsal, AFailedUnlockIsLoggedAndTheCountStaysDecreased) {
    XirMutex mutex("Broken");
    GetMutex(&mutex);
    const int32_t before = XirMutexHoldCount();

    const Logged logged = LogOf([&] {
        const CallFault fault("pthread_mutex_unlock", EPERM, {.object = &mutex.mutex});
        ReleaseMutex(&mutex);
    });

    EXPECT_EQ(0, mutex.lockCount);
    EXPECT_EQ(before, XirMutexHoldCount());
    EXPECT_THAT(logged.system, ElementsAre("5 Error :  pthread_mutex_unlock !!! (Broken)\n"));
    pthread_mutex_unlock(&mutex.mutex);
}

TEST(XirOsal, ATraceMutexThatCannotBeUnlockedIsReportedOnce) {
    EcallUITrace("creates the mutex");

    const Ended ended = EndOf([] {
        const CallFault fault("pthread_mutex_unlock", EPERM, {.object = &TraceMutex.mutex});
        EcallUITrace("a message");
    });

    EXPECT_EQ(0, ended.signal);
    EXPECT_THAT(ended.logged.system, ElementsAre("5 Error :  pthread_mutex_unlock !!! (Trace)\n"));
}

// The rendezvous. There is one per process, so each of these has a process of its own, which answers on standard error.

TEST(XirOsalSyncCmd, TheWaiterGetsWhatTheOtherThreadAnswered) {
    const Ended ended = EndOf([] {
        InitSyncCmd();
        std::thread worker([] { SyncCmdDone(42); });
        worker.join();
        fprintf(stderr, "%d", WaitCmdDone());
    });

    EXPECT_EQ("42", ended.errors);
    EXPECT_THAT(ended.logged.Messages(),
                ElementsAre("InitSyncCmd : enter", "InitSyncCmd : exit", "SyncCmdDone : enter, val = 42",
                            "SyncCmdDone : exit", "WaitCmdDone : enter", "WaitCmdDone : exit, retVal = 42"));
    EXPECT_THAT(ended.logged.system, IsEmpty());
}

TEST(XirOsalSyncCmd, TheWaiterWaitsUntilTheCommandIsDone) {
    const Ended ended = EndOf([] {
        std::atomic<bool> isDone = false;
        InitSyncCmd();

        std::thread waiter([&] {
            const int value = WaitCmdDone();
            fprintf(stderr, "%d %s", value, isDone ? "after" : "before");
        });
        isDone = true;
        SyncCmdDone(-7);
        waiter.join();
    });

    EXPECT_EQ("-7 after", ended.errors);
}

TEST(XirOsalSyncCmd, ASecondWaitAnswersTheSameAtOnce) {
    const Ended ended = EndOf([] {
        InitSyncCmd();
        SyncCmdDone(5);
        fprintf(stderr, "%d ", WaitCmdDone());
        fprintf(stderr, "%d", WaitCmdDone());
    });

    EXPECT_EQ("5 5", ended.errors);
}

TEST(XirOsalSyncCmd, TheNextCommandWaitsForTheOneThatPends) {
    const Ended ended = EndOf([] {
        std::atomic<bool> isFirstDone = false;
        InitSyncCmd();

        std::thread next([&] {
            InitSyncCmd();
            fprintf(stderr, "%s ", isFirstDone ? "after" : "before");
            SyncCmdDone(2);
        });
        isFirstDone = true;
        SyncCmdDone(1);
        next.join();
        fprintf(stderr, "%d", WaitCmdDone());
    });

    EXPECT_EQ("after 2", ended.errors);
}

TEST(XirOsalSyncCmd, WithoutACommandTheWaiterGetsMinusOneAtOnce) {
    const Ended ended = EndOf([] { fprintf(stderr, "%d", WaitCmdDone()); });

    EXPECT_EQ("-1", ended.errors);
    EXPECT_THAT(ended.logged.Messages(), ElementsAre("WaitCmdDone : enter", "Error :  mutex not initialized",
                                                     "WaitCmdDone : exit, retVal = -1"));
    EXPECT_THAT(ended.logged.system, ElementsAre("5 Error :  mutex not initialized"));
}

TEST(XirOsalSyncCmd, AnAnswerWithoutACommandIsLoggedOnly) {
    const Ended ended = EndOf([] { SyncCmdDone(3); });

    EXPECT_EQ(0, ended.signal);
    EXPECT_THAT(ended.logged.Messages(),
                ElementsAre("SyncCmdDone : enter, val = 3", "Error :  mutex not initialized", "SyncCmdDone : exit"));
}

namespace {

/// Runs an operation of the rendezvous, whose mutex exists already, with one of its locks or unlocks failing.
Ended EndOfSyncCmd(const char* function, const std::function<void()>& operation) {
    return EndOf([&] {
        InitSyncCmd();
        SyncCmdDone(1);
        const CallFault fault(function, EINVAL, {.exceptObject = &TraceMutex.mutex});
        operation();
    });
}

}  // namespace

TEST(XirOsalSyncCmd, ACommandWhoseMutexCannotBeCreatedEndsTheProcess) {
    EcallUITrace("creates the trace mutex");

    const Ended ended = EndOf([] {
        const CallFault fault("pthread_mutex_init", EAGAIN);
        InitSyncCmd();
    });

    EXPECT_EQ(SIGABRT, ended.signal);
    EXPECT_THAT(ended.errors, HasSubstr(kAssertionOfZero));
    EXPECT_THAT(ended.logged.system,
                ElementsAre("5 Error :  pthread_mutex_init : ret = 11 (Resource temporarily unavailable) "));
}

TEST(XirOsalSyncCmd, ACommandWhoseMutexCannotBeLockedEndsTheProcess) {
    for (const auto& operation : {std::function<void()>(InitSyncCmd), std::function<void()>(WaitCmdDone)}) {
        const Ended ended = EndOfSyncCmd("pthread_mutex_lock", operation);

        EXPECT_EQ(SIGABRT, ended.signal);
        EXPECT_THAT(ended.errors, HasSubstr(kAssertionOfZero));
        EXPECT_THAT(ended.logged.system,
                    ElementsAre("5 Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) "));
    }
}

TEST(XirOsalSyncCmd, AWaitThatCannotGiveTheMutexBackEndsTheProcess) {
    const Ended ended = EndOfSyncCmd("pthread_mutex_unlock", [] { WaitCmdDone(); });

    EXPECT_EQ(SIGABRT, ended.signal);
    EXPECT_THAT(ended.errors, HasSubstr(kAssertionOfZero));
    EXPECT_THAT(ended.logged.system, ElementsAre("5 Error :  pthread_mutex_unlock !!! "));
}

TEST(XirOsalSyncCmd, AnAnswerThatCannotGiveTheMutexBackIsLoggedOnly) {
    const Ended ended = EndOfSyncCmd("pthread_mutex_unlock", [] { SyncCmdDone(2); });

    EXPECT_EQ(0, ended.signal);
    EXPECT_THAT(ended.logged.system, ElementsAre("5 Error :  pthread_mutex_unlock !!! "));
}
