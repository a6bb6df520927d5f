/// When a proxy's connection has been told of.
#ifndef OPENED_PROXY_H
#define OPENED_PROXY_H

#include <gtest/gtest.h>

#include "XirRpcClient.h"

/// Waits until the connection's callback has printed its line: the proxy may be there before.
template <typename Proxy>
void AwaitOpened(Proxy* proxy) {
    auto& record = *reinterpret_cast<XirRpcProxy*>(proxy);
    EXPECT_EQ(0, xir_common_osal_wait_flag(record.thread, &record.flags[kXirRpcFlagOpened]));
}

#endif
