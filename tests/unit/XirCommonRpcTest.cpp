// Clients and servers of the RPC library, against each other and against bare sockets that speak the documented bytes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "XirCommonRpcWorld.h"

using testing::ElementsAre;

namespace {

constexpr int32_t kFile = XIR_COMMON_RPC_TRANSPORT_FILE;
constexpr int32_t kTcp = XIR_COMMON_RPC_TRANSPORT_TCP;

class XirCommonRpc : public testing::Test {
  protected:
    TemporaryFolder folder;
    std::string path = folder.File("socket");
};

}  // namespace

TEST_F(XirCommonRpc, ACallOverALocalSocketBringsTheAnswer) {
    Server server(kFile, path);
    Client client(kFile, path);
    ASSERT_TRUE(client.WaitConnected());

    EXPECT_EQ(0, CallTrigger(client));
}

TEST_F(XirCommonRpc, ACallOverTcpBringsTheAnswer) {
    const uint16_t port = FreePort();
    Server server(kTcp, std::to_string(port));
    Client client(kTcp, "127.0.0.1:" + std::to_string(port));
    ASSERT_TRUE(client.WaitConnected());

    EXPECT_EQ(0, CallTrigger(client));
}

TEST_F(XirCommonRpc, ClientAndServerLiveOnTheThreadsOfTheirUser) {
    const auto threads = [] {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::distance(begin(tasks), end(tasks));
    };
    pid_t first = 0;
    std::thread([&first] { first = gettid(); }).join();  // a sanitizer's own thread comes with the first one
    while (std::filesystem::exists("/proc/self/task/" + std::to_string(first))) {
        std::this_thread::yield();  // the kernel shows a joined thread a little longer
    }
    const auto before = threads();
    Server server(kFile, path);
    Client client(kFile, path);
    ASSERT_TRUE(client.WaitConnected());
    ASSERT_EQ(0, CallSubscribe(client));

    EXPECT_EQ(before + 2, threads());
}

TEST_F(XirCommonRpc, ASubscriberIsNotified) {
    Server server(kFile, path);
    Client client(kFile, path);
    ASSERT_TRUE(client.WaitConnected());
    ASSERT_EQ(0, CallSubscribe(client));

    EXPECT_EQ(1, server.NotifyState(3));

    ASSERT_TRUE(client.messages.Wait(1));
    EXPECT_THAT(client.messages.Lines(), ElementsAre("method=18 kind=2 callState=3"));
}

TEST_F(XirCommonRpc, AReplyReachesItsCallerWhileAHandlerWaitsForThatCaller) {
    Server server(kFile, path);
    Client client(kFile, path);
    Signal inHandler;
    Signal callerDone;
    client.OnMessage([&](const xir_common_rpc_header&) {
        inHandler.Raise();
        EXPECT_TRUE(callerDone.Wait());
    });
    ASSERT_TRUE(client.WaitConnected());
    ASSERT_EQ(0, CallSubscribe(client));
    ASSERT_EQ(1, server.NotifyState(1));
    ASSERT_TRUE(inHandler.Wait());

    EXPECT_EQ(0, CallTrigger(client));
    callerDone.Raise();
    client.thread.Do([] {});  // it has left the handler
}

TEST_F(XirCommonRpc, ARestartedServerFindsItsSubscribersAgain) {
    auto server = std::make_unique<Server>(kFile, path);
    Client client(kFile, path);
    ASSERT_TRUE(client.WaitConnected());
    ASSERT_EQ(0, CallSubscribe(client));

    server.reset();
    server = std::make_unique<Server>(kFile, path);
    ASSERT_TRUE(client.opened.Wait(2));
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (CallTrigger(client) != 0) {  // the old one's socket may have taken it once more
        ASSERT_LT(std::chrono::steady_clock::now(), end);
    }

    EXPECT_EQ(1, server->NotifyState(5));
    ASSERT_TRUE(client.messages.Wait(1));
    EXPECT_THAT(client.messages.Lines(), ElementsAre("method=18 kind=2 callState=5"));
}
