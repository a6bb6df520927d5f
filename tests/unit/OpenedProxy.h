/// When a proxy's connection, or the loss of it, has been told of.
#ifndef OPENED_PROXY_H
#define OPENED_PROXY_H

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "XirRpcClient.h"

/// Waits until the connection's callback has printed its line: the proxy may be there before.
template <typename Proxy>
void AwaitOpened(Proxy* proxy) {
    auto& record = *reinterpret_cast<XirRpcProxy*>(proxy);
    EXPECT_EQ(0, xir_common_osal_wait_flag(record.thread, &record.flags[kXirRpcFlagOpened]));
}

/// Waits until the proxy knows that its connection is lost: a call can fail a moment before, by its own write.
template <typename Proxy>
void AwaitLost(Proxy* proxy) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (XirRpcIsConnected(reinterpret_cast<XirRpcProxy*>(proxy))) {
        ASSERT_LT(std::chrono::steady_clock::now(), limit) << "the connection stands";
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

#endif
