// The dispatcher: one thread, so most tests simply run it and look at what was called.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "protobuf-c-rpc/protobuf-c-rpc-dispatch.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned kReadable = PROTOBUF_C_RPC_EVENT_READABLE;
constexpr unsigned kWritable = PROTOBUF_C_RPC_EVENT_WRITABLE;

/// Counts what is allocated and what is freed; can be told to fail.
struct CountingAllocator {
    int allocated = 0;
    int freed = 0;
    bool exhausted = false;
    ProtobufCAllocator allocator = {[](void* self, size_t size) {
                                        auto& counter = *static_cast<CountingAllocator*>(self);
                                        if (counter.exhausted) {
                                            return static_cast<void*>(nullptr);
                                        }
                                        ++counter.allocated;
                                        return std::malloc(size);
                                    },
                                    [](void* self, void* pointer) {
                                        static_cast<CountingAllocator*>(self)->freed += pointer == nullptr ? 0 : 1;
                                        std::free(pointer);
                                    },
                                    this};
};

/// Two connected sockets.
struct Pair {
    int ends[2] = {-1, -1};
    Pair() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends)); }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    ~Pair() {
        CloseOwn();
        ClosePeer();
    }
    int Own() const { return ends[0]; }
    void Send() const { EXPECT_EQ(1, write(ends[1], "x", 1)); }
    void CloseOwn() { Close(0); }
    void ClosePeer() { Close(1); }

  private:
    void Close(int end) {
        if (ends[end] >= 0) {
            close(ends[end]);
            ends[end] = -1;
        }
    }
};

class Dispatch : public testing::Test {
  protected:
    ~Dispatch() override { protobuf_c_rpc_dispatch_free(dispatch); }

    using Action = std::function<void()>;

    void Run() { protobuf_c_rpc_dispatch_run(dispatch); }

    /// A callback that notes its name and then acts.
    struct Step {
        Dispatch* test;
        std::string name;
        Action action;
    };
    Step* MakeStep(std::string name, Action action) {
        steps.push_back(std::make_unique<Step>(Step{this, std::move(name), std::move(action)}));
        return steps.back().get();
    }
    static void Call(void* step) {
        auto& self = *static_cast<Step*>(step);
        self.test->called.push_back(self.name);
        if (self.action) {
            self.action();
        }
    }

    ProtobufCRPCDispatchTimer* AddTimer(unsigned millis, std::string name, Action action = {}) {
        return protobuf_c_rpc_dispatch_add_timer_millis(
            dispatch, millis, [](ProtobufCRPCDispatch*, void* step) { Call(step); },
            MakeStep(std::move(name), std::move(action)));
    }
    ProtobufCRPCDispatchIdle* AddIdle(std::string name, Action action = {}) {
        return protobuf_c_rpc_dispatch_add_idle(
            dispatch, [](ProtobufCRPCDispatch*, void* step) { Call(step); },
            MakeStep(std::move(name), std::move(action)));
    }
    void Watch(int fd, unsigned events, std::string name, Action action = {}) {
        protobuf_c_rpc_dispatch_watch_fd(
            dispatch, fd, events,
            [](ProtobufC_RPC_FD, unsigned ready, void* step) {
                static_cast<Step*>(step)->test->lastEvents = ready;
                Call(step);
            },
            MakeStep(std::move(name), std::move(action)));
    }

    CountingAllocator memory;
    ProtobufCRPCDispatch* dispatch = protobuf_c_rpc_dispatch_new(&memory.allocator);
    std::vector<std::unique_ptr<Step>> steps;
    std::vector<std::string> called;
    unsigned lastEvents = 0;
};

}  // namespace

TEST_F(Dispatch, ATimerIsCalledOnceAndNotBeforeItsTime) {
    const auto start = steady_clock::now();
    AddTimer(30, "timer");

    Run();

    EXPECT_GE(steady_clock::now() - start, milliseconds{30});
    AddTimer(1, "later");
    Run();
    EXPECT_THAT(called, ElementsAre("timer", "later"));
}

TEST_F(Dispatch, ARunWaitsUntilATimerIsDueInsteadOfWakingEarly) {
    AddTimer(25, "timer");

    Run();  // once

    EXPECT_THAT(called, ElementsAre("timer"));
}

TEST_F(Dispatch, TimersAreCalledInTheOrderOfTheirTimes) {
    // Each time counts from its own adding: once more if that took as long as the times are apart.
    for (bool isHeldUp = true; isHeldUp;) {
        const auto start = steady_clock::now();
        ProtobufCRPCDispatchTimer* const timers[] = {AddTimer(20, "third"), AddTimer(0, "first"),
                                                     AddTimer(10, "second"), AddTimer(20, "fourth")};
        isHeldUp = steady_clock::now() - start >= milliseconds{10};
        for (size_t index = 0; isHeldUp && index < std::size(timers); ++index) {
            protobuf_c_rpc_dispatch_remove_timer(timers[index]);
        }
    }

    while (called.size() < 4) {
        Run();
    }

    EXPECT_THAT(called, ElementsAre("first", "second", "third", "fourth"));
}

TEST_F(Dispatch, ATimerInSecondsAndMicrosecondsAddsBothUp) {
    const auto start = steady_clock::now();
    protobuf_c_rpc_dispatch_add_timer(
        dispatch, 1, 20'000, [](ProtobufCRPCDispatch*, void* step) { Call(step); }, MakeStep("timer", {}));

    Run();

    EXPECT_GE(steady_clock::now() - start, milliseconds{1020});
    EXPECT_THAT(called, ElementsAre("timer"));
}

TEST_F(Dispatch, ARemovedTimerIsNotCalled) {
    protobuf_c_rpc_dispatch_remove_timer(AddTimer(0, "removed"));
    AddTimer(5, "kept");

    Run();

    EXPECT_THAT(called, ElementsAre("kept"));
}

TEST_F(Dispatch, ATimerMayRemoveAnotherThatIsDueAtTheSameTime) {
    ProtobufCRPCDispatchTimer* second = nullptr;
    AddTimer(0, "first", [&] { protobuf_c_rpc_dispatch_remove_timer(second); });
    second = AddTimer(0, "second");

    Run();
    AddTimer(5, "later");
    Run();

    EXPECT_THAT(called, ElementsAre("first", "later"));
}

TEST_F(Dispatch, ATimerThatAddsItselfAgainWaitsForTheNextRun) {
    AddTimer(0, "first", [&] { AddTimer(0, "again"); });

    Run();
    EXPECT_THAT(called, ElementsAre("first"));

    Run();
    EXPECT_THAT(called, ElementsAre("first", "again"));
}

TEST_F(Dispatch, AnIdleFunctionIsCalledOnceInTheNextRun) {
    AddIdle("idle", [&] { AddIdle("next"); });

    Run();
    EXPECT_THAT(called, ElementsAre("idle"));

    Run();
    EXPECT_THAT(called, ElementsAre("idle", "next"));
}

TEST_F(Dispatch, ARemovedIdleFunctionIsNotCalled) {
    ProtobufCRPCDispatchIdle* third = nullptr;
    ProtobufCRPCDispatchIdle* first = AddIdle("first");
    AddIdle("second", [&] { protobuf_c_rpc_dispatch_remove_idle(third); });
    third = AddIdle("third");
    protobuf_c_rpc_dispatch_remove_idle(first);

    Run();

    EXPECT_THAT(called, ElementsAre("second"));
}

TEST_F(Dispatch, AReadableDescriptorIsCalledForAsLongAsItIsReadable) {
    const Pair pair;
    Watch(pair.Own(), kReadable, "readable");
    pair.Send();

    Run();
    Run();

    EXPECT_THAT(called, ElementsAre("readable", "readable"));
    EXPECT_EQ(kReadable, lastEvents);
}

TEST_F(Dispatch, OnlyTheEventsAskedForAreReported) {
    const Pair pair;
    pair.Send();
    Watch(pair.Own(), kReadable | kWritable, "both");
    Run();
    EXPECT_EQ(kReadable | kWritable, lastEvents);

    Watch(pair.Own(), kWritable, "writable");
    Run();

    EXPECT_EQ(kWritable, lastEvents);
    EXPECT_THAT(called, ElementsAre("both", "writable"));
}

TEST_F(Dispatch, AHangUpShowsAsAllEventsAskedFor) {
    Pair pair;
    Watch(pair.Own(), kReadable | kWritable, "hang-up");
    pair.ClosePeer();

    Run();

    EXPECT_EQ(kReadable | kWritable, lastEvents);
}

TEST_F(Dispatch, ADescriptorWatchedForNothingIsForgotten) {
    const Pair pair;
    pair.Send();
    Watch(pair.Own(), kReadable, "forgotten");
    Watch(pair.Own(), 0, "none");
    AddTimer(5, "timer");

    Run();

    EXPECT_THAT(called, ElementsAre("timer"));
}

TEST_F(Dispatch, ACallbackMayForgetItselfAndOthers) {
    const Pair one;
    const Pair other;
    one.Send();
    other.Send();
    const auto forgetBoth = [&] {
        Watch(one.Own(), 0, "");
        Watch(other.Own(), 0, "");
    };
    Watch(one.Own(), kReadable, "callback", forgetBoth);
    Watch(other.Own(), kReadable, "callback", forgetBoth);

    Run();
    AddTimer(5, "timer");
    Run();

    EXPECT_THAT(called, ElementsAre("callback", "timer"));
}

TEST_F(Dispatch, AWatchAddedForANumberThatWasJustClosedGetsNoOldEvent) {
    Pair first;
    Pair second;
    first.Send();
    second.Send();
    // Whichever is called first closes the other, whose number a new and silent socket then takes over.
    std::unique_ptr<Pair> reused;
    const auto replace = [&](Pair& pair) {
        protobuf_c_rpc_dispatch_close_fd(dispatch, pair.Own());
        pair.ends[0] = -1;
        reused = std::make_unique<Pair>();
        Watch(reused->Own(), kReadable, "new");
        Watch(reused->ends[1], kReadable, "new");
    };
    Watch(first.Own(), kReadable, "old", [&] { replace(second); });
    Watch(second.Own(), kReadable, "old", [&] { replace(first); });

    Run();

    EXPECT_THAT(called, ElementsAre("old"));
}

TEST_F(Dispatch, ADescriptorThatLivesOnInAChildProcessDoesNotCallBack) {
    Pair pair;
    int gate[2];
    ASSERT_EQ(0, pipe(gate));
    Watch(pair.Own(), kReadable, "stale");
    const pid_t child = fork();
    if (child == 0) {
        close(gate[1]);
        char end = 0;
        _exit(read(gate[0], &end, 1) == 0 ? 0 : 1);
    }
    const int own = pair.Own();
    pair.CloseOwn();  // the child's copy keeps the registration alive
    protobuf_c_rpc_dispatch_fd_closed(dispatch, own);
    pair.Send();

    AddTimer(20, "timer");
    while (called.empty()) {
        Run();
    }

    EXPECT_THAT(called, ElementsAre("timer"));
    close(gate[0]);
    close(gate[1]);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
}

TEST_F(Dispatch, ClosingADescriptorThroughTheDispatcherClosesIt) {
    Pair pair;
    Watch(pair.Own(), kReadable, "closed");

    protobuf_c_rpc_dispatch_close_fd(dispatch, pair.Own());

    char byte = 0;
    EXPECT_EQ(0, read(pair.ends[1], &byte, 1));  // end of file
    pair.ends[0] = -1;
}

TEST_F(Dispatch, FreeingLeavesDescriptorsOpenAndReturnsAllMemory) {
    const Pair pair;
    Watch(pair.Own(), kReadable, "watch");
    AddTimer(1000, "timer");
    AddIdle("idle");

    protobuf_c_rpc_dispatch_free(std::exchange(dispatch, nullptr));

    EXPECT_GT(memory.allocated, 3);
    EXPECT_EQ(memory.allocated, memory.freed);
    pair.Send();
    char byte = 0;
    EXPECT_EQ(1, read(pair.Own(), &byte, 1));
    EXPECT_THAT(called, IsEmpty());
}

TEST_F(Dispatch, WithoutMemoryNothingIsMade) {
    memory.exhausted = true;

    EXPECT_EQ(nullptr, protobuf_c_rpc_dispatch_new(&memory.allocator));
    EXPECT_EQ(nullptr, AddTimer(0, "timer"));
    EXPECT_EQ(nullptr, AddIdle("idle"));
}

TEST_F(Dispatch, WithoutAnAllocatorMallocIsUsed) {
    ProtobufCRPCDispatch* plain = protobuf_c_rpc_dispatch_new(nullptr);
    ASSERT_NE(nullptr, plain);
    protobuf_c_rpc_dispatch_add_timer_millis(
        plain, 0, [](ProtobufCRPCDispatch*, void* step) { Call(step); }, MakeStep("timer", {}));

    protobuf_c_rpc_dispatch_run(plain);

    protobuf_c_rpc_dispatch_free(plain);
    EXPECT_THAT(called, ElementsAre("timer"));
}

TEST_F(Dispatch, NothingIsFreedForNull) {
    protobuf_c_rpc_dispatch_free(nullptr);
    protobuf_c_rpc_dispatch_remove_timer(nullptr);
    protobuf_c_rpc_dispatch_remove_idle(nullptr);
}

TEST_F(Dispatch, ManyReadyDescriptorsAreAllServed) {
    constexpr size_t kMany = 200;  // more than one epoll_wait brings
    std::vector<std::unique_ptr<Pair>> pairs;
    size_t served = 0;
    for (size_t index = 0; index < kMany; ++index) {
        pairs.push_back(std::make_unique<Pair>());
        const int fd = pairs.back()->Own();
        Watch(fd, kReadable, "ready", [this, fd, &served] {
            ++served;
            Watch(fd, 0, "");
        });
        pairs.back()->Send();
    }

    while (served < kMany) {
        Run();
    }

    EXPECT_EQ(kMany, called.size());
}

TEST_F(Dispatch, AWatchWithoutMemoryEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            memory.exhausted = true;
            Watch(0, kReadable, "deaf");
        },
        testing::KilledBySignal(SIGABRT), "");
}
