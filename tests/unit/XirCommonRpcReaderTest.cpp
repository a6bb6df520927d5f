// Who reads the connection: the dispatch thread, or, while that is inside a handler, a caller that waits.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "XirCommonRpcWorld.h"
#include "xir_stream.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr int32_t kFile = XIR_COMMON_RPC_TRANSPORT_FILE;
constexpr uint8_t kReply = 0;
constexpr uint8_t kNotification = 2;

Bytes Code(uint8_t responsecode) {
    return {0x08, responsecode};
}

Bytes State(uint32_t callState) {
    return Frame(kNotifyState, kNotification, 0, 0, StatePayload(callState));
}

std::string StateLine(uint32_t callState) {
    return "method=18 kind=2 callState=" + std::to_string(callState);
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A request that no socket takes whole, and its exchange.
constexpr size_t kLongText = 1'000'000;

int64_t CallLong(Client& client) {
    std::string text(kLongText, 'x');
    Com__Vantu__Ecallapp__TCfgParamValue value = COM__VANTU__ECALLAPP__TCFG_PARAM_VALUE__INIT;
    value.strvalue = text.data();
    Com__Vantu__Ecallapp__SetCfgParameterRequest request = COM__VANTU__ECALLAPP__SET_CFG_PARAMETER_REQUEST__INIT;
    request.paramvalue = &value;
    return Call(client).Start(10, request.base).Wait();
}

/// A client whose notification handler stays inside at call state 1 until it is let out.
class XirCommonRpcReader : public testing::Test {
  protected:
    XirCommonRpcReader() {
        client.OnMessage([this](const xir_common_rpc_header& header) {
            const auto* update = reinterpret_cast<const Com__Vantu__Ecallapp__NotifyNotifyStateUpdate*>(header.message);
            if (update->ecallappstate->callstate == 1) {
                inside.Raise();
                EXPECT_TRUE(out.Wait(inside.Count()));
            }
        });
        peer = listener.Accept();
        EXPECT_TRUE(client.WaitConnected());
        client.thread.Do([] {});  // it has left the connection's callback, which is a handler too
    }
    ~XirCommonRpcReader() override { LetOut(); }

    /// Gets the dispatch thread into its handler.
    void Block() {
        const int before = inside.Count();
        peer.Send(State(1));
        ASSERT_TRUE(inside.Wait(before + 1));
    }
    void LetOut() {
        while (out.Count() < inside.Count()) {
            out.Raise();
        }
    }
    void Reply(const Bytes& request, uint8_t responsecode) const {
        peer.Send(Frame(MethodOf(request), kReply, 0, IdOf(request), Code(responsecode)));
    }

    TemporaryFolder folder;
    std::string path = folder.File("socket");
    RawSocket listener = RawSocket::ListenLocal(path);
    RawSocket peer;
    Signal inside;
    Signal out;
    Client client{kFile, path};
};

}  // namespace

TEST_F(XirCommonRpcReader, ACallMadeWhileAHandlerIsStuckGetsItsReply) {
    Block();
    for (uint8_t code = 1; code <= 5; ++code) {
        Caller caller([&] { EXPECT_EQ(code, CallTrigger(client)); });
        Reply(peer.ReceiveFrame(), code);
    }
}

TEST_F(XirCommonRpcReader, ACallThatWaitsAlreadyWhenTheHandlerBeginsGetsItsReply) {
    Caller caller([&] { EXPECT_EQ(7, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();
    caller.WaitAsleep();
    Block();

    Reply(request, 7);

    caller.Join();
    EXPECT_EQ(0, out.Count());
}

TEST_F(XirCommonRpcReader, AReplyThatCameTogetherWithTheNotificationIsFound) {
    // One receive brings both: the dispatch thread holds the reply in its buffer while it is stuck.
    Caller caller([&] { EXPECT_EQ(7, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();

    peer.Send(State(1) + Frame(kTriggerEcall, kReply, 0, IdOf(request), Code(7)));

    ASSERT_TRUE(inside.Wait());
    caller.Join();
    EXPECT_EQ(0, out.Count());
}

TEST_F(XirCommonRpcReader, EveryoneWhoWaitsIsServed) {
    Block();
    Caller trigger([&] { EXPECT_EQ(1, CallTrigger(client)); });
    const Bytes first = peer.ReceiveFrame();
    Caller cancel([&] { EXPECT_EQ(2, CallCancel(client)); });
    const Bytes second = peer.ReceiveFrame();
    Caller disconnect([&] { EXPECT_EQ(3, CallDisconnect(client)); });
    const Bytes third = peer.ReceiveFrame();
    trigger.WaitAsleep();
    cancel.WaitAsleep();
    disconnect.WaitAsleep();

    // Whoever reads passes the role on when it has its own reply.
    Reply(first, 1);
    trigger.Join();
    Reply(second, 2);
    cancel.Join();
    Reply(third, 3);
    disconnect.Join();
}

TEST_F(XirCommonRpcReader, TheReaderCompletesTheCallsOfOthersToo) {
    Block();
    Caller trigger([&] { EXPECT_EQ(1, CallTrigger(client)); });
    const Bytes first = peer.ReceiveFrame();
    trigger.WaitAsleep();  // it reads
    Caller cancel([&] { EXPECT_EQ(2, CallCancel(client)); });
    const Bytes second = peer.ReceiveFrame();

    Reply(second, 2);
    cancel.Join();
    Reply(first, 1);
}

TEST_F(XirCommonRpcReader, NotificationsReadByACallerAreDeliveredInOrderAfterTheHandler) {
    Block();
    Caller caller([&] { EXPECT_EQ(0, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();
    peer.Send(State(2) + State(3));
    peer.Send(State(4));
    Reply(request, 0);
    peer.Send(State(5));
    caller.Join();

    EXPECT_THAT(client.messages.Lines(), ElementsAre(StateLine(1)));  // the one that is stuck
    LetOut();

    peer.Send(State(6));
    ASSERT_TRUE(client.messages.Wait(6));
    EXPECT_THAT(client.messages.Lines(),
                ElementsAre(StateLine(1), StateLine(2), StateLine(3), StateLine(4), StateLine(5), StateLine(6)));
}

TEST_F(XirCommonRpcReader, AfterTheHandlerTheDispatchThreadReadsAgain) {
    Caller caller([&] { EXPECT_EQ(9, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();
    for (int round = 0; round < 20; ++round) {
        ASSERT_NO_FATAL_FAILURE(Block());
        LetOut();
        peer.Send(State(2));
        ASSERT_TRUE(client.messages.Wait(static_cast<size_t>(round) * 2 + 2));
    }

    Reply(request, 9);
}

TEST_F(XirCommonRpcReader, ALossWhileTheHandlerIsStuckCompletesTheCallAndIsReportedAfterwards) {
    Block();
    Caller caller([&] { EXPECT_EQ(Call::kMissing, CallTrigger(client)); });
    peer.ReceiveFrame();
    peer.Send(State(2));

    peer.Close();

    caller.Join();
    EXPECT_EQ(0, xir_common_rpc_client_is_connected(client.client));
    EXPECT_EQ(Call::kMissing, CallTrigger(client));
    EXPECT_EQ(0, client.closed.Count());
    LetOut();
    ASSERT_TRUE(client.closed.Wait());
    EXPECT_THAT(client.messages.Lines(), ElementsAre(StateLine(1), StateLine(2)));
    peer = listener.Accept();
    EXPECT_TRUE(client.opened.Wait(2));
}

TEST_F(XirCommonRpcReader, APeerThatBreaksTheFramingWhileTheHandlerIsStuckIsDropped) {
    Block();
    Caller caller([&] { EXPECT_EQ(Call::kMissing, CallTrigger(client)); });
    peer.ReceiveFrame();

    peer.Send(State(2) + Bytes(12, 0xff));

    caller.Join();
    EXPECT_TRUE(peer.WaitClosed());
    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("the peer breaks the framing")));
    LetOut();
    ASSERT_TRUE(client.closed.Wait());
    EXPECT_THAT(client.messages.Lines(), ElementsAre(StateLine(1), StateLine(2)));
}

TEST_F(XirCommonRpcReader, AFloodWhileTheHandlerIsStuckEndsTheConnection) {
    Block();
    Caller caller([&] { EXPECT_EQ(Call::kMissing, CallTrigger(client)); });
    peer.ReceiveFrame();
    Bytes chunk;
    size_t frames = 0;
    while (chunk.size() < 64'000) {
        chunk = std::move(chunk) + State(2);
        ++frames;
    }

    size_t sent = 0;
    while (client.errors.Lines().empty() && sent < 3 * kXirQueueLimit) {
        peer.Send(chunk);
        sent += chunk.size();
    }

    caller.Join();
    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("too many messages wait for the dispatch thread")));
    EXPECT_GT(sent, kXirQueueLimit);
    LetOut();
    ASSERT_TRUE(client.closed.Wait());  // and what was kept has been delivered
    EXPECT_GT(client.messages.Lines().size(), kXirQueueLimit / chunk.size() * frames - frames);
}

TEST_F(XirCommonRpcReader, ALongRequestMadeWhileTheHandlerIsStuckIsWrittenByItsCaller) {
    Block();
    Caller caller([&] { EXPECT_EQ(3, CallLong(client)); });

    const Bytes frame = peer.ReceiveFrame();

    EXPECT_GT(frame.size(), kLongText);
    Reply(frame, 3);
}

TEST_F(XirCommonRpcReader, ALongRequestIsWrittenByTheOneWhoReadsAlreadyAndHadNothingToWrite) {
    Block();
    Caller reader([&] { EXPECT_EQ(1, CallTrigger(client)); });
    const Bytes first = peer.ReceiveFrame();
    reader.WaitAsleep();
    Caller caller([&] { EXPECT_EQ(3, CallLong(client)); });

    const Bytes frame = peer.ReceiveFrame();

    ASSERT_GT(frame.size(), kLongText);
    Reply(frame, 3);
    caller.Join();
    Reply(first, 1);
}

TEST_F(XirCommonRpcReader, ARequestGoesOutAtOnceAlthoughNobodyReads) {
    Block();
    Call call(client);
    const Com__Vantu__Ecallapp__DisconnectEcallRequest request = COM__VANTU__ECALLAPP__DISCONNECT_ECALL_REQUEST__INIT;

    call.Start(kDisconnect, request.base);

    const Bytes frame = peer.ReceiveFrame();
    EXPECT_EQ(kDisconnect, MethodOf(frame));
    Reply(frame, 4);
    EXPECT_EQ(4, call.Wait());
}

TEST_F(XirCommonRpcReader, ACallFromInsideAHandlerDoesNotHang) {
    Signal done;
    client.OnMessage([&](const xir_common_rpc_header&) {
        if (client.messages.Lines().size() == 1) {
            EXPECT_EQ(4, CallTrigger(client));
            EXPECT_EQ(5, CallCancel(client));
            done.Raise();
        }
    });
    peer.Send(State(2));
    const Bytes first = peer.ReceiveFrame();
    peer.Send(State(3));  // has to wait until the handler is done
    Reply(first, 4);
    Reply(peer.ReceiveFrame(), 5);

    ASSERT_TRUE(done.Wait());
    ASSERT_TRUE(client.messages.Wait(2));
    EXPECT_THAT(client.messages.Lines(), ElementsAre(StateLine(2), StateLine(3)));
}

TEST_F(XirCommonRpcReader, ACallFromTheDispatchThreadOutsideOfHandlersDoesNotHang) {
    Caller caller([&] { client.thread.Do([&] { EXPECT_EQ(6, CallTrigger(client)); }); });
    const Bytes request = peer.ReceiveFrame();
    peer.Send(State(2));
    Reply(request, 6);

    caller.Join();
    ASSERT_TRUE(client.messages.Wait(1));
    EXPECT_THAT(client.messages.Lines(), ElementsAre(StateLine(2)));
}

TEST_F(XirCommonRpcReader, ACompletionThatIsStuckHoldsBackNobodyElse) {
    struct Stuck {
        Signal inside;
        Signal out;
    } stuck;
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    client.Service()->invoke(
        client.Service(), kTriggerEcall, &request.base,
        [](const ProtobufCMessage*, void* context) {
            static_cast<Stuck*>(context)->inside.Raise();
            EXPECT_TRUE(static_cast<Stuck*>(context)->out.Wait());
        },
        &stuck);
    const Bytes first = peer.ReceiveFrame();
    Caller caller([&] { EXPECT_EQ(8, CallCancel(client)); });
    const Bytes second = peer.ReceiveFrame();
    caller.WaitAsleep();

    Reply(first, 0);
    ASSERT_TRUE(stuck.inside.Wait());
    Reply(second, 8);

    caller.Join();
    stuck.out.Raise();
    client.thread.Do([] {});  // it has left the completion
}

TEST_F(XirCommonRpcReader, AConnectionCallbackThatIsStuckHoldsBackNobody) {
    Signal inCallback;
    Signal outOfCallback;
    client.OnConnection([&](int32_t event) {
        if (event == XIR_COMMON_RPC_EVENT_OPENED) {
            inCallback.Raise();
            EXPECT_TRUE(outOfCallback.Wait());
        }
    });
    peer.Close();
    peer = listener.Accept();
    ASSERT_TRUE(inCallback.Wait());

    Caller caller([&] { EXPECT_EQ(2, CallTrigger(client)); });
    Reply(peer.ReceiveFrame(), 2);

    caller.Join();
    outOfCallback.Raise();
    client.thread.Do([] {});  // it has left the callback
}

TEST_F(XirCommonRpcReader, AParkedThreadHoldsBackNobody) {
    // A dispatch thread whose run failed does nothing for its client any more; callers then read for themselves.
    struct Parked {
        ProtobufCRPCDispatch* dispatch = protobuf_c_rpc_dispatch_new(nullptr);
        xir_common_rpc_client* client = nullptr;
        xir_common_osal_thread_handle handle = nullptr;
        uint8_t flag = 0;
        int64_t result = 0;
    } parked;
    const std::string other = folder.File("other");
    const RawSocket otherListener = RawSocket::ListenLocal(other);
    parked.client = xir_common_rpc_client_new(kFile, other.c_str(), &kEcallApp, parked.dispatch, nullptr);
    xir_common_osal_createThread(
        "parked", &parked, nullptr,
        [](xir_common_osal_thread_handle, void* context) {
            auto& self = *static_cast<Parked*>(context);
            xir_common_rpc_client_configure_threading(self.client, nullptr, self.handle);
            while (xir_common_rpc_client_is_connected(self.client) == 0) {
                protobuf_c_rpc_dispatch_run(self.dispatch);
            }
            return -4;
        },
        [](xir_common_osal_thread_handle, void* context) {
            protobuf_c_service_destroy(reinterpret_cast<ProtobufCService*>(static_cast<Parked*>(context)->client));
            return 0;
        },
        &parked.handle);
    const RawSocket connection = otherListener.Accept();
    while (xir_common_rpc_client_is_connected(parked.client) == 0) {
        std::this_thread::yield();
    }

    Caller caller([&] {
        auto* service = reinterpret_cast<ProtobufCService*>(parked.client);
        const Com__Vantu__Ecallapp__UserRequestCancelEcallRequest request =
            COM__VANTU__ECALLAPP__USER_REQUEST_CANCEL_ECALL_REQUEST__INIT;
        service->invoke(
            service, kUserRequestCancel, &request.base,
            [](const ProtobufCMessage* reply, void* context) {
                auto& self = *static_cast<Parked*>(context);
                self.result = reinterpret_cast<const Com__Vantu__Ms__Protobuf__VoidResponse*>(reply)->responsecode;
                xir_common_osal_notify_flag(self.handle, &self.flag);
            },
            &parked);
        xir_common_osal_wait_flag(parked.handle, &parked.flag);
    });
    const Bytes request = connection.ReceiveFrame();
    connection.Send(Frame(kUserRequestCancel, kReply, 0, IdOf(request), Code(4)));

    caller.Join();
    EXPECT_EQ(4, parked.result);
    xir_common_osal_releaseThread(parked.handle);
    protobuf_c_rpc_dispatch_free(parked.dispatch);
}

TEST_F(XirCommonRpcReader, EndingTheClientReleasesTheCallerThatReads) {
    auto ended = std::make_unique<Client>(kFile, path);
    const RawSocket connection = listener.Accept();
    Signal stuck;
    Signal go;
    ended->OnMessage([&](const xir_common_rpc_header&) {
        stuck.Raise();
        EXPECT_TRUE(go.Wait());
    });
    ASSERT_TRUE(ended->WaitConnected());
    connection.Send(State(2));
    ASSERT_TRUE(stuck.Wait());
    Caller reader([&called = *ended] { EXPECT_EQ(Call::kMissing, CallTrigger(called)); });
    Caller sleeper([&called = *ended] { EXPECT_EQ(Call::kMissing, CallCancel(called)); });
    connection.ReceiveFrame();
    connection.ReceiveFrame();  // both are sent: what sleeps now waits for its reply
    reader.WaitAsleep();
    sleeper.WaitAsleep();

    go.Raise();
    ended.reset();
}

TEST_F(XirCommonRpcReader, CallsFromManyThreadsAndStuckHandlersNeverHang) {
    // Everything at once, for the sanitizers and against lost wake-ups: the peer notifies before each reply, and the
    // handler waits each time until some call has returned.
    constexpr size_t kRounds = 300;
    Server* notifier = nullptr;
    Server server(kFile, folder.File("busy"),
                  [&](unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure, void* closureData) {
                      if (method != kSubscribe) {
                          notifier->NotifyState(3);
                      }
                      Server::AnswerZero(method, request, closure, closureData);
                  });
    notifier = &server;
    Client busy(kFile, folder.File("busy"));
    std::mutex mutex;
    std::condition_variable changed;
    int returned = 0;
    int handled = 0;
    busy.OnMessage([&](const xir_common_rpc_header&) {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, kPatience, [&] { return returned > handled; }));
        ++handled;
    });
    ASSERT_TRUE(busy.WaitConnected());
    ASSERT_EQ(0, CallSubscribe(busy));

    const auto work = [&](int64_t (*call)(Client&)) {
        return [&, call] {
            for (size_t round = 0; round < kRounds; ++round) {
                ASSERT_EQ(0, call(busy));
                const std::scoped_lock lock(mutex);
                ++returned;
                changed.notify_all();
            }
        };
    };
    Caller trigger(work(CallTrigger));
    Caller cancel(work(CallCancel));
    Caller disconnect(work(CallDisconnect));
    trigger.Join();
    cancel.Join();
    disconnect.Join();

    EXPECT_TRUE(busy.messages.Wait(3 * kRounds));
    EXPECT_EQ(3 * kRounds, busy.messages.Lines().size());
    busy.thread.Do([] {});  // it has left the last handler
}
