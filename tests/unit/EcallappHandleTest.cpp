#include "EcallappHandle.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;

// Two proxies that are never looked into: addresses of something else.
char first;
char second;
IEcallAppPubProxy* const kFirst = reinterpret_cast<IEcallAppPubProxy*>(&first);
IEcallAppPubProxy* const kSecond = reinterpret_cast<IEcallAppPubProxy*>(&second);

}  // namespace

TEST(EcallappHandle, HoldsNothingAtFirst) {
    EcallappHandle handle;

    EXPECT_EQ(nullptr, handle.hold());
    EXPECT_EQ(nullptr, handle.exchange(nullptr));
}

TEST(EcallappHandle, AnExchangeAnswersTheProxyBefore) {
    EcallappHandle handle;

    EXPECT_EQ(nullptr, handle.exchange(kFirst));
    EXPECT_EQ(kFirst, handle.hold().get());
    EXPECT_EQ(kFirst, handle.exchange(kSecond));
    EXPECT_EQ(kSecond, handle.hold().get());
    EXPECT_EQ(kSecond, handle.exchange(nullptr));
    EXPECT_EQ(nullptr, handle.hold());
}

TEST(EcallappHandle, TheSameProxyCanComeBack) {
    EcallappHandle handle;

    handle.exchange(kFirst);
    handle.exchange(nullptr);

    EXPECT_EQ(nullptr, handle.exchange(kFirst));
    EXPECT_EQ(kFirst, handle.hold().get());
}

TEST(EcallappHandle, AnExchangeWaitsForEveryHolderOfTheProxyBefore) {
    EcallappHandle handle;
    handle.exchange(kFirst);
    EcallappHandle::Hold hold = handle.hold();
    EcallappHandle::Hold copy = hold;
    EcallappHandle::Hold other = handle.hold();
    std::future<IEcallAppPubProxy*> exchange =
        std::async(std::launch::async, [&handle] { return handle.exchange(kSecond); });
    while (handle.hold().get() != kSecond) {  // from now on the exchange only waits
        std::this_thread::yield();
    }

    // A time-out here means that the exchange still waits; an early end would show within far less.
    hold.reset();
    EXPECT_EQ(std::future_status::timeout, exchange.wait_for(50ms));
    copy.reset();
    EXPECT_EQ(std::future_status::timeout, exchange.wait_for(50ms));
    other.reset();
    EXPECT_EQ(kFirst, exchange.get());
}

TEST(EcallappHandle, NobodyWaitsToHoldWhileAnExchangeWaits) {
    EcallappHandle handle;
    handle.exchange(kFirst);
    EcallappHandle::Hold hold = handle.hold();
    std::future<IEcallAppPubProxy*> exchange =
        std::async(std::launch::async, [&handle] { return handle.exchange(nullptr); });

    while (handle.hold() != nullptr) {
        std::this_thread::yield();
    }

    EXPECT_EQ(kFirst, hold.get());
    hold.reset();
    EXPECT_EQ(kFirst, exchange.get());
}

// What a holder did with the proxy is seen by whoever has taken it away: without that a release would be a race.
TEST(EcallappHandle, WhatAHolderDidIsSeenAfterTheExchange) {
    for (int round = 0; round < 100; ++round) {
        EcallappHandle handle;
        handle.exchange(kFirst);
        int uses = 0;  // plain: only the exchange orders its accesses
        std::promise<void> held;
        std::thread holder([&handle, &uses, &held] {
            const EcallappHandle::Hold hold = handle.hold();
            held.set_value();
            std::this_thread::yield();
            uses = 1;
        });
        held.get_future().wait();

        handle.exchange(nullptr);

        EXPECT_EQ(1, uses);
        holder.join();
    }
}
