// The server against bare sockets that speak the documented bytes, the wrong ones included.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "XirCommonRpcWorld.h"
#include "xir_frame.h"
#include "xir_server.h"

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr int32_t kFile = XIR_COMMON_RPC_TRANSPORT_FILE;
constexpr int32_t kTcp = XIR_COMMON_RPC_TRANSPORT_TCP;
constexpr uint8_t kReply = 0;
constexpr uint8_t kRequest = 1;
constexpr uint8_t kNotification = 2;
const Bytes kTrigger = {0x08, 0x01};  // automatic = true
const Bytes kZero = {0x08, 0x00};     // responsecode = 0

/// A subscription request's payload.
Bytes Subscription(uint8_t messageId) {
    return {0x08, messageId, 0x12, 1, 't'};
}

void AnswerCode(uint32_t responsecode, ProtobufCClosure closure, void* closureData) {
    Com__Vantu__Ms__Protobuf__VoidResponse reply = COM__VANTU__MS__PROTOBUF__VOID_RESPONSE__INIT;
    reply.responsecode = responsecode;
    closure(&reply.base, closureData);
}

/// A request that its handler did not answer yet.
struct Held {
    ProtobufCClosure closure = nullptr;
    void* closureData = nullptr;
    void Answer(uint32_t responsecode) const { AnswerCode(responsecode, closure, closureData); }
};

/// Holds the requests of one server.
class Holder {
  public:
    Server::Handler Handler() {
        return [this](unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
            {
                const std::scoped_lock lock(mutex);
                held.push_back({closure, closureData});
            }
            taken.Raise();
        };
    }
    Held Take(size_t index = 0) {
        EXPECT_TRUE(taken.Wait(static_cast<int>(index) + 1));
        const std::scoped_lock lock(mutex);
        return held.at(index);
    }

  private:
    std::mutex mutex;
    std::vector<Held> held;
    Signal taken;
};

class XirCommonRpcServer : public testing::Test {
  protected:
    /// A new client of the server.
    RawSocket Connect() const { return RawSocket::ConnectLocal(path); }
    /// Sends a request and reads the next frame.
    static Bytes Exchange(const RawSocket& client, uint16_t method, const Bytes& payload = {}, uint32_t id = 7) {
        client.Send(Frame(method, kRequest, 0, id, payload));
        return client.ReceiveFrame();
    }
    static void ExpectServed(const RawSocket& client) {
        EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 3, kZero), Exchange(client, kTriggerEcall, kTrigger, 3));
    }

    TemporaryFolder folder;
    std::string path = folder.File("socket");
};

}  // namespace

// --- Requests and replies.

TEST_F(XirCommonRpcServer, AReplyIsWrittenAsDocumented) {
    Server server(kFile, path, [](unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
        AnswerCode(300, closure, closureData);
    });

    EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 0xa1b2c3d4, {0x08, 0xac, 0x02}),
              Exchange(Connect(), kTriggerEcall, kTrigger, 0xa1b2c3d4));
}

TEST_F(XirCommonRpcServer, TheHandlerGetsTheUnpackedRequest) {
    Log requests;
    Server server(kFile, path,
                  [&](unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure, void* closureData) {
                      const auto* trigger = reinterpret_cast<const Com__Vantu__Ecallapp__TriggerEcallRequest*>(request);
                      requests.Add(std::to_string(method) + " automatic=" + std::to_string(trigger->automatic));
                      AnswerCode(0, closure, closureData);
                  });

    Exchange(Connect(), kTriggerEcall, kTrigger);

    EXPECT_THAT(requests.Lines(), ElementsAre("0 automatic=1"));
}

TEST_F(XirCommonRpcServer, AnUnknownMethodIsAnsweredWithStatusOne) {
    Server server(kFile, path);
    const RawSocket client = Connect();

    EXPECT_EQ(Frame(22, kReply, 1, 7), Exchange(client, 22, {1, 2, 3}));
    EXPECT_EQ(Frame(0xffff, kReply, 1, 7), Exchange(client, 0xffff));
    ExpectServed(client);
}

TEST_F(XirCommonRpcServer, ARequestThatCannotBeUnpackedIsAnsweredWithStatusTwo) {
    Server server(kFile, path);
    const RawSocket client = Connect();

    EXPECT_EQ(Frame(kTriggerEcall, kReply, 2, 7), Exchange(client, kTriggerEcall, {0xff}));
    EXPECT_EQ(Frame(kTriggerEcall, kReply, 2, 7), Exchange(client, kTriggerEcall, {}));
    ExpectServed(client);
}

TEST_F(XirCommonRpcServer, ARequestThatTheServiceRefusesIsAnsweredWithStatusThree) {
    Server server(kFile, path, [](unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
        closure(nullptr, closureData);
    });

    EXPECT_EQ(Frame(kTriggerEcall, kReply, 3, 7), Exchange(Connect(), kTriggerEcall, kTrigger));
}

TEST_F(XirCommonRpcServer, AReplyThatDoesNotFitAFrameIsAnsweredWithStatusThree) {
    Server server(kFile, path, [](unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
        std::string text(kXirFramePayloadLimit, 'v');
        Com__Vantu__Ecallapp__GetVersionResponse reply = COM__VANTU__ECALLAPP__GET_VERSION_RESPONSE__INIT;
        reply.strversion = text.data();
        closure(&reply.base, closureData);
    });

    EXPECT_EQ(Frame(kGetVersion, kReply, 3, 7), Exchange(Connect(), kGetVersion));
}

TEST_F(XirCommonRpcServer, AMethodWithoutAHandlerIsUnknown) {
    // A service as the generated code lays it out, without any handler.
    Com__Vantu__Ecallapp__IEcallApp_Service service = {};
    service.base = {&kEcallApp, protobuf_c_service_invoke_internal, nullptr};
    DispatchThread thread("server");
    const xir_common_rpc_interface interface = {.id = 112, .major = 2, .notification_count = 1};
    xir_common_rpc_server* server = nullptr;
    thread.Do([&] {
        server = xir_common_rpc_server_new(kFile, path.c_str(), &service.base, thread.Dispatcher(), &interface);
    });

    EXPECT_EQ(Frame(kNotifyState, kReply, 1, 7), Exchange(Connect(), kNotifyState, kZero));
    thread.Do([&] { xir_common_rpc_server_destroy(server, 0); });
}

TEST_F(XirCommonRpcServer, RequestsMayArriveByteByByteAndManyAtOnce) {
    Server server(kFile, path);
    const RawSocket client = Connect();
    Bytes many;
    for (uint32_t id = 1; id <= 500; ++id) {
        const Bytes frame = Frame(kTriggerEcall, kRequest, 0, id, kTrigger);
        many.insert(many.end(), frame.begin(), frame.end());
    }

    for (const uint8_t byte : Frame(kTriggerEcall, kRequest, 0, 0, kTrigger)) {
        client.Send({byte});
    }
    client.Send(many);

    for (uint32_t id = 0; id <= 500; ++id) {
        ASSERT_EQ(Frame(kTriggerEcall, kReply, 0, id, kZero), client.ReceiveFrame());
    }
}

// --- Answers that come later, or never.

TEST_F(XirCommonRpcServer, AHandlerMayAnswerLaterFromAnotherThread) {
    Holder holder;
    Server server(kFile, path, holder.Handler());
    const RawSocket client = Connect();
    client.Send(Frame(kTriggerEcall, kRequest, 0, 1, kTrigger));
    client.Send(Frame(kUserRequestCancel, kRequest, 0, 2));

    holder.Take(1).Answer(22);
    holder.Take(0).Answer(11);

    EXPECT_EQ(Frame(kUserRequestCancel, kReply, 0, 2, {0x08, 22}), client.ReceiveFrame());
    EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 1, {0x08, 11}), client.ReceiveFrame());
}

TEST_F(XirCommonRpcServer, AnAnswerAfterItsClientHasGoneIsIgnored) {
    Holder holder;
    Server server(kFile, path, holder.Handler());
    RawSocket client = Connect();
    client.Send(Frame(kTriggerEcall, kRequest, 0, 1, kTrigger));
    const Held held = holder.Take();

    client.Close();
    ASSERT_TRUE(server.connections.Wait(2));
    held.Answer(0);

    const RawSocket next = Connect();
    next.Send(Frame(kTriggerEcall, kRequest, 0, 9, kTrigger));
    holder.Take(1).Answer(5);
    EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 9, {0x08, 5}), next.ReceiveFrame());
}

TEST_F(XirCommonRpcServer, AnAnswerAfterTheServerHasGoneIsIgnored) {
    Holder holder;
    auto server = std::make_unique<Server>(kFile, path, holder.Handler());
    const RawSocket client = Connect();
    client.Send(Frame(kTriggerEcall, kRequest, 0, 1, kTrigger));
    const Held held = holder.Take();

    server.reset();

    held.Answer(0);
    EXPECT_THAT(client.ReceiveFrame(), IsEmpty());
}

TEST_F(XirCommonRpcServer, ASecondAnswerIsIgnored) {
    Holder holder;
    Server server(kFile, path, holder.Handler());
    const RawSocket client = Connect();
    client.Send(Frame(kTriggerEcall, kRequest, 0, 1, kTrigger));

    holder.Take().Answer(1);
    holder.Take().Answer(2);
    client.Send(Frame(kTriggerEcall, kRequest, 0, 2, kTrigger));
    holder.Take(1).Answer(3);

    EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 1, {0x08, 1}), client.ReceiveFrame());
    EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 2, {0x08, 3}), client.ReceiveFrame());
}

TEST_F(XirCommonRpcServer, AnswersRaceAgainstClientsThatLeave) {
    Holder holder;
    Server server(kFile, path, holder.Handler());
    for (size_t round = 0; round < 50; ++round) {
        RawSocket client = Connect();
        client.Send(Frame(kTriggerEcall, kRequest, 0, 1, kTrigger));
        const Held held = holder.Take(round);
        Caller answerer([held] { held.Answer(0); });
        client.Close();
    }
    EXPECT_TRUE(server.connections.Wait(100));
}

TEST_F(XirCommonRpcServer, AClientWithTooManyUnansweredRequestsIsDisconnectedAlone) {
    Holder holder;
    Server server(kFile, path, holder.Handler());
    const RawSocket greedy = Connect();
    const RawSocket modest = Connect();
    Bytes many;
    for (int index = 0; index <= kXirOpenRequestLimit; ++index) {
        const Bytes frame = Frame(kUserRequestCancel, kRequest, 0, static_cast<uint32_t>(index));
        many.insert(many.end(), frame.begin(), frame.end());
    }

    Caller sender([&] { greedy.Send(many); });

    EXPECT_TRUE(greedy.WaitClosed());
    ASSERT_TRUE(server.errors.Wait(1));
    EXPECT_THAT(server.errors.Lines(), ElementsAre(HasSubstr("too many of its requests wait for an answer")));
    modest.Send(Frame(kTriggerEcall, kRequest, 0, 5, kTrigger));
    holder.Take(kXirOpenRequestLimit).Answer(0);
    EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 5, kZero), modest.ReceiveFrame());
}

// --- Notifications.

TEST_F(XirCommonRpcServer, ANotificationIsWrittenAsDocumented) {
    Server server(kFile, path);
    const RawSocket client = Connect();
    Exchange(client, kSubscribe, Subscription(kNotifyState));

    EXPECT_EQ(1, server.NotifyState(3));

    EXPECT_EQ(Frame(kNotifyState, kNotification, 0, 0, StatePayload(3)), client.ReceiveFrame());
}

TEST_F(XirCommonRpcServer, OnlySubscribersAreNotified) {
    Server server(
        kFile, path, [](unsigned, const ProtobufCMessage* request, ProtobufCClosure closure, void* closureData) {
            const auto* subscribe = reinterpret_cast<const Com__Vantu__Ms__Protobuf__SubscribeRequest*>(request);
            AnswerCode(std::string("r") == subscribe->clientname ? 1 : 0, closure, closureData);
        });
    const RawSocket subscriber = Connect();
    const RawSocket refused = Connect();
    const RawSocket ofAnother = Connect();
    const RawSocket silent = Connect();
    Exchange(subscriber, kSubscribe, {0x08, kNotifyState, 0x12, 1, 's'});
    Exchange(refused, kSubscribe, {0x08, kNotifyState, 0x12, 1, 'r'});
    Exchange(ofAnother, kSubscribe, {0x08, 3, 0x12, 1, 's'});

    EXPECT_EQ(1, server.NotifyState(3));

    EXPECT_EQ(kNotifyState, MethodOf(subscriber.ReceiveFrame()));
    for (const RawSocket* other : {&refused, &ofAnother, &silent}) {  // their next frame is the answer to this
        EXPECT_EQ(kSubscribe, MethodOf(Exchange(*other, kSubscribe, {0x08, 5, 0x12, 1, 's'})));
    }
}

TEST_F(XirCommonRpcServer, ASubscriberThatUnsubscribesIsNotNotifiedAnyMore) {
    std::atomic<uint32_t> answer{0};
    Server server(kFile, path, [&](unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
        AnswerCode(answer, closure, closureData);
    });
    const RawSocket client = Connect();
    Exchange(client, kSubscribe, Subscription(kNotifyState));

    answer = 1;  // refused: it stays subscribed
    Exchange(client, kUnsubscribe, Subscription(kNotifyState));
    EXPECT_EQ(1, server.NotifyState(1));
    EXPECT_EQ(kNotifyState, MethodOf(client.ReceiveFrame()));

    answer = 0;
    Exchange(client, kUnsubscribe, Subscription(kNotifyState));
    EXPECT_EQ(0, server.NotifyState(2));
}

TEST_F(XirCommonRpcServer, ASubscriptionToAMethodThatDoesNotExistIsHarmless) {
    Server server(kFile, path);
    const RawSocket client = Connect();

    EXPECT_EQ(kSubscribe, MethodOf(Exchange(client, kSubscribe, {0x08, 0xff, 0xff, 0xff, 0xff, 0x0f, 0x12, 1, 't'})));

    ExpectServed(client);
    EXPECT_EQ(0, server.NotifyState(1));
}

TEST_F(XirCommonRpcServer, ANotificationNeverOvertakesTheReplyToItsSubscription) {
    Server* notifier = nullptr;
    Server server(kFile, path, [&](unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
        EXPECT_EQ(0, notifier->NotifyState(1));  // not yet subscribed
        AnswerCode(0, closure, closureData);
        EXPECT_EQ(1, notifier->NotifyState(2));
    });
    notifier = &server;
    const RawSocket client = Connect();

    EXPECT_EQ(kSubscribe, MethodOf(Exchange(client, kSubscribe, Subscription(kNotifyState))));

    EXPECT_EQ(Frame(kNotifyState, kNotification, 0, 0, StatePayload(2)), client.ReceiveFrame());
}

TEST_F(XirCommonRpcServer, AHandlerMayNotifyBeforeItReplies) {
    Server* notifier = nullptr;
    Server server(kFile, path,
                  [&](unsigned method, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
                      if (method == kTriggerEcall) {
                          notifier->NotifyState(2);
                      }
                      AnswerCode(0, closure, closureData);
                  });
    notifier = &server;
    const RawSocket client = Connect();
    Exchange(client, kSubscribe, Subscription(kNotifyState));

    EXPECT_EQ(kNotifyState, MethodOf(Exchange(client, kTriggerEcall, kTrigger)));
    EXPECT_EQ(kTriggerEcall, MethodOf(client.ReceiveFrame()));
}

TEST_F(XirCommonRpcServer, ManyThreadsMayNotifyAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kEach = 200;
    Server server(kFile, path);
    const RawSocket client = Connect();
    Exchange(client, kSubscribe, Subscription(kNotifyState));
    std::vector<std::unique_ptr<Caller>> callers(kThreads);

    for (auto& caller : callers) {
        caller = std::make_unique<Caller>([&] {
            for (int round = 0; round < kEach; ++round) {
                EXPECT_EQ(1, server.NotifyState(1));
            }
        });
    }

    for (int index = 0; index < kThreads * kEach; ++index) {
        ASSERT_EQ(Frame(kNotifyState, kNotification, 0, 0, StatePayload(1)), client.ReceiveFrame());
    }
}

TEST_F(XirCommonRpcServer, WhatIsNoNotificationOfTheServiceIsNotSent) {
    Server server(kFile, path);
    const Com__Vantu__Ms__Protobuf__VoidResponse message = COM__VANTU__MS__PROTOBUF__VOID_RESPONSE__INIT;

    EXPECT_EQ(-1, server.Notify(22, message.base));
    EXPECT_EQ(-1, xir_common_rpc_server_notify(server.server, kNotifyState, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_server_notify(nullptr, kNotifyState, &message.base));
}

// --- Clients that misbehave.

TEST_F(XirCommonRpcServer, AClientThatBreaksTheFramingIsDisconnectedAlone) {
    const Bytes kBroken[] = {Frame(0, 3, 0, 1),                                          // no such kind
                             Frame(0, kRequest, 1, 1, kTrigger),                         // a request with a status
                             Frame(0, kReply, 0, 1, kZero),                              // a client sends no replies
                             Frame(kNotifyState, kNotification, 0, 0, StatePayload(1)),  // and no notifications
                             {0x01, 0x00, 0x10, 0x00, 0, 0, kRequest, 0, 1, 0, 0, 0},    // 1 MiB and 1 byte
                             {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0, 0, 0, 0}};  // noise
    Server server(kFile, path);
    const RawSocket bystander = Connect();
    size_t errors = 0;
    for (const Bytes& broken : kBroken) {
        const RawSocket client = Connect();
        ExpectServed(client);

        client.Send(broken);

        EXPECT_TRUE(client.WaitClosed());
        ASSERT_TRUE(server.errors.Wait(++errors));
        EXPECT_THAT(server.errors.Lines().back(),
                    AllOf(StartsWith("-71: interface 112: client "), HasSubstr("disconnected: it breaks the framing")));
        ExpectServed(bystander);
    }
}

TEST_F(XirCommonRpcServer, AClientThatDoesNotReadItsRepliesIsDisconnectedAlone) {
    Server server(kFile, path);
    const RawSocket deaf = Connect();
    const RawSocket subscriber = Connect();
    Exchange(deaf, kSubscribe, Subscription(kGetVersion));
    Exchange(subscriber, kSubscribe, Subscription(kNotifyState));
    std::string text(500'000, 'v');
    Com__Vantu__Ecallapp__GetVersionResponse message = COM__VANTU__ECALLAPP__GET_VERSION_RESPONSE__INIT;
    message.strversion = text.data();

    int reached = 0;
    while (server.Notify(kGetVersion, message.base) == 1 && reached < 100) {
        ++reached;
    }

    EXPECT_GE(reached, 8);  // 4 MiB, at least
    EXPECT_LT(reached, 20);
    ASSERT_TRUE(server.errors.Wait(1));
    EXPECT_THAT(server.errors.Lines(), ElementsAre(HasSubstr("it does not read, and too much waits for it")));
    EXPECT_TRUE(deaf.WaitClosed());
    EXPECT_EQ(1, server.NotifyState(1));
    EXPECT_EQ(kNotifyState, MethodOf(subscriber.ReceiveFrame()));
}

TEST_F(XirCommonRpcServer, WhatAClientReadsLateStillArrivesWhole) {
    Server server(kFile, path);
    const RawSocket client = Connect();
    Exchange(client, kSubscribe, Subscription(kGetVersion));
    std::string text(1'000'000, 'v');
    Com__Vantu__Ecallapp__GetVersionResponse message = COM__VANTU__ECALLAPP__GET_VERSION_RESPONSE__INIT;
    message.strversion = text.data();

    for (int index = 0; index < 3; ++index) {
        message.responsecode = static_cast<uint32_t>(index);
        EXPECT_EQ(1, server.Notify(kGetVersion, message.base));
    }

    for (int index = 0; index < 3; ++index) {
        const Bytes frame = client.ReceiveFrame();
        EXPECT_EQ(12 + protobuf_c_message_get_packed_size(&message.base), frame.size());
        EXPECT_EQ(index, frame.at(13));
    }
    ExpectServed(client);
}

TEST_F(XirCommonRpcServer, TheSixtyFifthClientIsRefusedUntilAnotherLeaves) {
    Server server(kFile, path);
    std::vector<RawSocket> clients;
    for (size_t index = 0; index < kXirClientLimit; ++index) {
        clients.push_back(Connect());
        ExpectServed(clients.back());
    }

    for (int index = 0; index < 3; ++index) {
        EXPECT_TRUE(Connect().WaitClosed());
    }
    EXPECT_THAT(server.errors.Lines(), ElementsAre(HasSubstr("refused: 64 are connected")));  // once

    clients.pop_back();
    ASSERT_TRUE(server.connections.Wait(kXirClientLimit + 1));
    ExpectServed(Connect());
    ExpectServed(clients.front());
}

TEST_F(XirCommonRpcServer, ANewcomerGetsThePlaceOfTheClientThatHasBeenSilentLongest) {
    Holder holder;
    Server server(kFile, path,
                  [&](unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure, void* closureData) {
                      if (method == kDisconnect) {
                          holder.Handler()(method, request, closure, closureData);
                      } else {
                          AnswerCode(0, closure, closureData);
                      }
                  });
    // The first two have been silent longer than the others, but something is owed to them.
    const RawSocket subscriber = Connect();
    Exchange(subscriber, kSubscribe, Subscription(kNotifyState));
    const RawSocket waiting = Connect();
    waiting.Send(Frame(kDisconnect, kRequest, 0, 9));
    const Held owed = holder.Take();
    const RawSocket unfinished = Connect();
    unfinished.Send({2, 0, 0, 0, 0});
    std::vector<RawSocket> served;
    while (served.size() < kXirClientLimit - 3) {
        served.push_back(Connect());
        ExpectServed(served.back());
    }
    EXPECT_TRUE(Connect().WaitClosed());

    // Refused until the silence has lasted long enough.
    const auto deadline = std::chrono::steady_clock::now() + 3 * kXirClientGrace;
    Bytes reply;
    while (reply.empty() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        reply = Exchange(Connect(), kTriggerEcall, kTrigger, 3);
    }

    EXPECT_EQ(Frame(kTriggerEcall, kReply, 0, 3, kZero), reply);
    EXPECT_TRUE(unfinished.WaitClosed());
    EXPECT_THAT(server.errors.Lines(),
                Contains(HasSubstr("disconnected: it has been silent, and another client needs its place")));
    owed.Answer(0);
    EXPECT_EQ(Frame(kDisconnect, kReply, 0, 9, kZero), waiting.ReceiveFrame());
    server.NotifyState(3);
    EXPECT_FALSE(subscriber.ReceiveFrame().empty());
    for (const RawSocket& client : served) {
        ExpectServed(client);
    }
}

TEST_F(XirCommonRpcServer, AServerWithoutDescriptorsAcceptsAgainWhenThereAreSome) {
    Server server(kFile, path);
    RawSocket waiting(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    rlimit before = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    const rlimit none = {static_cast<rlim_t>(waiting.Fd()), before.rlim_max};

    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(0, connect(waiting.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_TRUE(server.errors.Wait(1));
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));

    ExpectServed(waiting);
    EXPECT_THAT(server.errors.Lines(), ElementsAre(HasSubstr("cannot accept a client: ")));
}

TEST_F(XirCommonRpcServer, ClientsThatComeAndGoAreReportedByName) {
    Server server(kFile, path);
    {
        const RawSocket first = Connect();
        ASSERT_TRUE(server.connections.Wait(1));
        const RawSocket second = Connect();
        ASSERT_TRUE(server.connections.Wait(2));
    }
    ASSERT_TRUE(server.connections.Wait(4));

    EXPECT_THAT(server.connections.Lines(),
                testing::UnorderedElementsAre("+local#1", "+local#2", "-local#1", "-local#2"));
    EXPECT_THAT(server.errors.Lines(), IsEmpty());
}

// --- Addresses.

TEST_F(XirCommonRpcServer, ATcpServerIsReachedThroughTheLoopbackAddressOnly) {
    const uint16_t port = FreePort();
    Server server(kTcp, std::to_string(port));
    ASSERT_TRUE(server.IsBound());
    RawSocket other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);  // this machine, too, but another address

    EXPECT_EQ(-1, connect(other.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(ECONNREFUSED, errno);

    const RawSocket client = RawSocket::ConnectTcp(port);
    ExpectServed(client);
    EXPECT_THAT(server.connections.Lines(), ElementsAre(StartsWith("+127.0.0.1:")));
}

TEST_F(XirCommonRpcServer, ATcpPortCanBeBoundAgainAtOnce) {
    const uint16_t port = FreePort();
    for (int round = 0; round < 3; ++round) {
        RawSocket client;  // outlives the server, which closes first: so it is the server's end that lingers
        Server server(kTcp, std::to_string(port));
        ASSERT_TRUE(server.IsBound()) << round;
        client = RawSocket::ConnectTcp(port);
        ExpectServed(client);
    }
}

TEST_F(XirCommonRpcServer, APortInUseCannotBeBound) {
    const uint16_t port = FreePort();
    Server first(kTcp, std::to_string(port));
    ASSERT_TRUE(first.IsBound());

    EXPECT_FALSE(Server(kTcp, std::to_string(port)).IsBound());
}

TEST_F(XirCommonRpcServer, AnAddressThatCannotBeOneMakesNoServer) {
    for (const char* bad : {"", "0", "65536", "5x", "-5", "x", "127.0.0.1:5", ":5"}) {
        EXPECT_FALSE(Server(kTcp, bad).IsBound()) << bad;
    }
    EXPECT_FALSE(Server(kFile, "").IsBound());
    EXPECT_FALSE(Server(kFile, std::string(108, 'p')).IsBound());
    EXPECT_FALSE(Server(kFile, folder.File("absent/socket")).IsBound());
    EXPECT_FALSE(Server(2, path).IsBound());
}

TEST_F(XirCommonRpcServer, ALocalSocketBelongsToItsOwnerAlone) {
    const mode_t before = umask(0);
    Server server(kFile, path);
    umask(before);

    struct stat status = {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 0777U);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
}

TEST_F(XirCommonRpcServer, AStaleSocketIsReplaced) {
    RawSocket::ListenLocal(path).Close();
    ASSERT_TRUE(std::filesystem::exists(path));

    Server server(kFile, path);

    ASSERT_TRUE(server.IsBound());
    ExpectServed(Connect());
}

TEST_F(XirCommonRpcServer, ASocketInUseIsNotTakenAway) {
    Server first(kFile, path);

    EXPECT_FALSE(Server(kFile, path).IsBound());

    ExpectServed(Connect());
}

TEST_F(XirCommonRpcServer, AFileThatIsNoSocketIsLeftAlone) {
    std::ofstream(path) << "precious";

    EXPECT_FALSE(Server(kFile, path).IsBound());

    std::string content;
    std::ifstream(path) >> content;
    EXPECT_EQ("precious", content);
}

TEST_F(XirCommonRpcServer, TheSocketFileGoesWithTheServerUnlessItIsAnothers) {
    { Server server(kFile, path); }
    EXPECT_FALSE(std::filesystem::exists(path));

    {
        Server server(kFile, path);
        std::filesystem::remove(path);
        std::ofstream(path) << "anothers";
    }
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(XirCommonRpcServer, ATcpConnectionSendsAtOnceAndFindsItsPeerGone) {
    const uint16_t port = FreePort();
    Server server(kTcp, std::to_string(port));
    const RawSocket client = RawSocket::ConnectTcp(port);
    ExpectServed(client);
    sockaddr_in own = {};
    socklen_t size = sizeof own;
    ASSERT_EQ(0, getsockname(client.Fd(), reinterpret_cast<sockaddr*>(&own), &size));

    const auto options = TcpOptionsOfConnectionTo(ntohs(own.sin_port));

    EXPECT_NE(0, options.noDelay);
    EXPECT_NE(0, options.keepAlive);
    EXPECT_GT(options.userTimeoutMillis, 0);
}

TEST_F(XirCommonRpcServer, NoDescriptorIsPassedOnToChildPrograms) {
    Server server(kFile, path);
    ExpectServed(Connect());

    EXPECT_THAT(InheritableDescriptors(), IsEmpty());
}

// --- Ending inside callbacks, and hooks.

TEST_F(XirCommonRpcServer, AHandlerMayEndItsOwnServer) {
    std::atomic<bool> end{false};
    Server* ended = nullptr;
    Server server(kFile, path, [&](unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
        if (end) {
            xir_common_rpc_server_destroy(std::exchange(ended->server, nullptr), 0);
        }
        AnswerCode(0, closure, closureData);
    });
    ended = &server;
    const RawSocket client = Connect();
    ExpectServed(client);
    end = true;

    client.Send(Frame(kTriggerEcall, kRequest, 0, 1, kTrigger));
    client.Send(Frame(kTriggerEcall, kRequest, 0, 2, kTrigger));

    EXPECT_TRUE(client.WaitClosed());
    server.thread.Do([] {});
}

TEST_F(XirCommonRpcServer, TheInstalledHooksFrameEverything) {
    static std::atomic<int> serialized{0};
    static std::atomic<int> deserialized{0};
    serialized = deserialized = 0;
    Server server(kFile, path);
    server.thread.Do([&] {
        xir_common_rpc_server_set_rpc_protocol(
            server.server,
            [](const xir_common_rpc_header* header, ProtobufCBuffer* out) {
                ++serialized;
                return xir_common_rpc_server_serialize(header, out);
            },
            [](const ProtobufCServiceDescriptor* service, const uint8_t* bytes, size_t length,
               xir_common_rpc_header* header, size_t* consumed) {
                ++deserialized;
                return xir_common_rpc_deserialize(service, bytes, length, header, consumed);
            });
    });

    ExpectServed(Connect());

    EXPECT_EQ(1, serialized);
    EXPECT_EQ(1, deserialized);
}

TEST_F(XirCommonRpcServer, ConfiguringNothingIsRefused) {
    Server server(kFile, path);

    EXPECT_EQ(-1, xir_common_rpc_server_set_error_handler(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_server_set_rpc_protocol(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_server_set_rpc_protocol(server.server, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_server_configure_threading(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_server_register_connection_callback(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_server_destroy(nullptr, 0));
    EXPECT_EQ(nullptr, xir_common_rpc_server_new(kFile, nullptr, nullptr, nullptr, nullptr));
}
