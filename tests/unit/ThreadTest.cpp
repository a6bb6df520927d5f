#include "Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <future>
#include <string>

#include "Faults.h"

namespace {

/// What a thread says of itself, once its starter has come back from starting it.
struct Seen {
    pthread_t thread{};
    std::string name;
    int detachState = -1;
    std::size_t stackSize = 0;
};

std::promise<void> started;
std::promise<Seen> seen;

void LookAtOneself() {
    started.get_future().wait();
    Seen self;
    self.thread = pthread_self();
    char name[64];
    pthread_getname_np(self.thread, name, sizeof name);
    self.name = name;
    pthread_attr_t attributes;
    pthread_getattr_np(self.thread, &attributes);
    pthread_attr_getdetachstate(&attributes, &self.detachState);
    pthread_attr_getstacksize(&attributes, &self.stackSize);
    pthread_attr_destroy(&attributes);
    seen.set_value(self);
}

Seen SeenByAThreadOfName(const char* name) {
    started = {};
    seen = {};
    EXPECT_EQ(0, StartThread(name, LookAtOneself));
    started.set_value();
    return seen.get_future().get();
}

std::size_t DefaultStackSize() {
    std::size_t size = 0;
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

}  // namespace

TEST(Thread, ItRunsBesideItsStarterUnderItsName) {
    const Seen thread = SeenByAThreadOfName("worker");

    EXPECT_EQ("worker", thread.name);
    EXPECT_FALSE(pthread_equal(pthread_self(), thread.thread));
}

TEST(Thread, ALongNameIsCutAt15Characters) {
    EXPECT_EQ("123456789012345", SeenByAThreadOfName("123456789012345").name);
    EXPECT_EQ("Thread_GPIO_UEV", SeenByAThreadOfName("Thread_GPIO_UEVNET").name);
}

TEST(Thread, NobodyNeedsToJoinItAndItsStackIsTheDefault) {
    const Seen thread = SeenByAThreadOfName("worker");

    EXPECT_EQ(PTHREAD_CREATE_DETACHED, thread.detachState);
    EXPECT_EQ(DefaultStackSize(), thread.stackSize);
}

TEST(Thread, AThreadThatCannotBeMadeIsAnsweredWithTheError) {
    const CallFault fault("pthread_create", EAGAIN);

    EXPECT_EQ(EAGAIN, StartThread("never", [] { std::abort(); }));

    EXPECT_EQ(1, fault.Calls());
}
