// The client against a bare socket that speaks the documented bytes, the wrong ones included.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include "XirCommonRpcWorld.h"
#include "xir_client.h"

using std::chrono::milliseconds;
using std::chrono::steady_clock;
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
const Bytes kZero = {0x08, 0x00};  // responsecode = 0

Bytes Code(uint8_t responsecode) {
    return {0x08, responsecode};
}

/// The frames that the peer sends, as one piece.
Bytes Joined(const std::vector<Bytes>& frames) {
    Bytes all;
    for (const Bytes& frame : frames) {
        all.insert(all.end(), frame.begin(), frame.end());
    }
    return all;
}

class XirCommonRpcClient : public testing::Test {
  protected:
    /// Takes the client's next connection.
    void Accept() {
        peer = listener.Accept();
        ASSERT_TRUE(peer.IsOpen());
    }
    void Connect() {
        ASSERT_NO_FATAL_FAILURE(Accept());
        ASSERT_TRUE(client.WaitConnected());
    }
    /// Takes the client's next request and answers it.
    void Answer(const Bytes& payload = kZero, uint8_t status = 0) {
        const Bytes request = peer.ReceiveFrame();
        ASSERT_GE(request.size(), 12U);
        peer.Send(Frame(MethodOf(request), kReply, status, IdOf(request), payload));
    }
    /// Proves that all before has been read and handled: a whole exchange, and then, as its reply may have overtaken
    /// notifications, a whole turn of the dispatch thread.
    void Settle() {
        Caller caller([this] { EXPECT_EQ(0, CallCancel(client)); });
        Answer();
        caller.Join();
        client.thread.Do([] {});
        client.thread.Do([] {});
    }
    /// Subscribes, with this answer to it.
    void Subscribe(const Bytes& payload, uint32_t messageId = kNotifyState) {
        Caller caller([&] { CallSubscribe(client, messageId); });
        Answer(payload);
    }
    void Unsubscribe(const Bytes& payload) {
        Caller caller([&] { CallUnsubscribe(client); });
        Answer(payload);
    }
    /// Ends the connection, and takes the next one.
    void Reconnect() {
        const int before = client.opened.Count();
        peer.Close();
        ASSERT_NO_FATAL_FAILURE(Accept());
        ASSERT_TRUE(client.opened.Wait(before + 1));
    }

    TemporaryFolder folder;
    std::string path = folder.File("socket");
    RawSocket listener = RawSocket::ListenLocal(path);
    RawSocket peer;
    Client client{kFile, path};
};

}  // namespace

TEST_F(XirCommonRpcClient, ARequestIsWrittenAsDocumented) {
    Connect();
    Caller caller([this] { EXPECT_EQ(0, CallTrigger(client)); });

    const Bytes request = peer.ReceiveFrame();

    EXPECT_EQ(Frame(kTriggerEcall, kRequest, 0, IdOf(request), {0x08, 0x01}), request);
    peer.Send(Frame(kTriggerEcall, kReply, 0, IdOf(request), kZero));
}

TEST_F(XirCommonRpcClient, EachRequestHasAnIdOfItsOwn) {
    Connect();
    std::vector<uint32_t> ids;
    for (int round = 0; round < 3; ++round) {
        Caller caller([this] { CallTrigger(client); });
        const Bytes request = peer.ReceiveFrame();
        ids.push_back(IdOf(request));
        peer.Send(Frame(kTriggerEcall, kReply, 0, IdOf(request), kZero));
    }

    EXPECT_THAT(ids, ElementsAre(1, 2, 3));
}

TEST_F(XirCommonRpcClient, TheResponsecodeReachesTheCaller) {
    Connect();
    Caller caller([this] { EXPECT_EQ(42, CallTrigger(client)); });

    Answer(Code(42));
}

TEST_F(XirCommonRpcClient, AReplyWithAStatusIsAMissingResponse) {
    Connect();
    for (const uint8_t status : Bytes{1, 2, 3}) {
        Caller caller([this] { EXPECT_EQ(Call::kMissing, CallTrigger(client)); });
        Answer({}, status);
    }
    EXPECT_THAT(client.errors.Lines(), IsEmpty());
}

TEST_F(XirCommonRpcClient, RepliesMayComeInAnyOrder) {
    Connect();
    Caller trigger([this] { EXPECT_EQ(1, CallTrigger(client)); });
    const Bytes first = peer.ReceiveFrame();
    Caller cancel([this] { EXPECT_EQ(2, CallCancel(client)); });
    const Bytes second = peer.ReceiveFrame();

    peer.Send(Frame(kUserRequestCancel, kReply, 0, IdOf(second), Code(2)));
    cancel.Join();
    peer.Send(Frame(kTriggerEcall, kReply, 0, IdOf(first), Code(1)));
}

TEST_F(XirCommonRpcClient, AReplyThatNobodyWaitsForIsDroppedInSilence) {
    Connect();
    Caller caller([this] { EXPECT_EQ(0, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();

    peer.Send(Frame(kTriggerEcall, kReply, 0, IdOf(request) + 1000, Code(9)));
    peer.Send(Frame(77, kReply, 0, IdOf(request) + 1000, Code(9)));
    peer.Send(Frame(kTriggerEcall, kReply, 0, IdOf(request), kZero));
    caller.Join();

    EXPECT_THAT(client.errors.Lines(), IsEmpty());
    EXPECT_THAT(client.messages.Lines(), IsEmpty());
}

TEST_F(XirCommonRpcClient, ASecondReplyToOneRequestIsDropped) {
    Connect();
    Caller caller([this] { EXPECT_EQ(1, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();

    peer.Send(Joined({Frame(kTriggerEcall, kReply, 0, IdOf(request), Code(1)),
                      Frame(kTriggerEcall, kReply, 0, IdOf(request), Code(2))}));
    caller.Join();

    Settle();
    EXPECT_THAT(client.errors.Lines(), IsEmpty());
}

TEST_F(XirCommonRpcClient, AReplyThatCannotBeUnpackedIsAMissingResponse) {
    Connect();
    Caller caller([this] { EXPECT_EQ(Call::kMissing, CallTrigger(client)); });

    Answer({0xff});
    caller.Join();

    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("reply of method 0 cannot be unpacked")));
    Settle();
}

TEST_F(XirCommonRpcClient, FramesMayArriveByteByByte) {
    Connect();
    Caller caller([this] { EXPECT_EQ(0, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();

    for (const uint8_t byte : Joined({Frame(kNotifyState, kNotification, 0, 0, StatePayload(4)),
                                      Frame(kTriggerEcall, kReply, 0, IdOf(request), kZero)})) {
        peer.Send({byte});
    }
    caller.Join();
    ASSERT_TRUE(client.messages.Wait(1));

    EXPECT_THAT(client.messages.Lines(), ElementsAre("method=18 kind=2 callState=4"));
}

TEST_F(XirCommonRpcClient, ManyFramesMayArriveAtOnceAndKeepTheirOrder) {
    Connect();
    std::vector<Bytes> frames;
    std::vector<std::string> expected;
    for (int index = 0; index < 3000; ++index) {  // far more than one receive takes
        frames.push_back(Frame(kNotifyState, kNotification, 0, 0, StatePayload(static_cast<uint32_t>(index) % 8)));
        expected.push_back("method=18 kind=2 callState=" + std::to_string(index % 8));
    }

    peer.Send(Joined(frames));
    Settle();

    EXPECT_EQ(expected, client.messages.Lines());
}

TEST_F(XirCommonRpcClient, AMessageThatIsNoReplyReachesTheCallbackWithItsKind) {
    Connect();

    peer.Send(Frame(kTriggerEcall, kRequest, 0, 5, {0x08, 0x01}));
    Settle();

    EXPECT_THAT(client.messages.Lines(), ElementsAre("method=0 kind=1"));
}

TEST_F(XirCommonRpcClient, ANotificationOfAnUnknownMethodHasNoMessage) {
    bool hasMessage = true;
    client.OnMessage([&](const xir_common_rpc_header& header) { hasMessage = header.message != nullptr; });
    Connect();

    peer.Send(Frame(99, kNotification, 0, 0, {1, 2, 3}));
    Settle();

    EXPECT_THAT(client.messages.Lines(), ElementsAre("method=99 kind=2"));
    EXPECT_FALSE(hasMessage);
}

TEST_F(XirCommonRpcClient, ANotificationThatCannotBeUnpackedIsReportedAndTheNextOneDelivered) {
    Connect();

    peer.Send(Frame(kNotifyState, kNotification, 0, 0, {0xff}));
    peer.Send(Frame(kNotifyState, kNotification, 0, 0, StatePayload(2)));
    Settle();

    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("message of method 18 cannot be unpacked")));
    EXPECT_THAT(client.messages.Lines(), ElementsAre("method=18 kind=2 callState=2"));
}

TEST_F(XirCommonRpcClient, APeerThatBreaksTheFramingIsDroppedAndConnectedAgain) {
    const Bytes kBroken[] = {
        Frame(0, 3, 0, 1),                                            // no such kind
        Frame(0, kReply, 4, 1),                                       // no such status
        Frame(0, kNotification, 0, 1),                                // a notification with an id
        {0x01, 0x00, 0x10, 0x00, 0, 0, kReply, 0, 1, 0, 0, 0},        // 1 MiB and 1 byte
        {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0, 0, 0, 0}  // noise
    };
    Connect();
    size_t errors = 0;
    for (const Bytes& broken : kBroken) {
        Caller caller([this] { EXPECT_EQ(Call::kMissing, CallTrigger(client)); });
        peer.ReceiveFrame();

        peer.Send(broken);

        caller.Join();
        ASSERT_TRUE(client.errors.Wait(++errors));
        EXPECT_THAT(client.errors.Lines().back(), HasSubstr("the peer breaks the framing"));
        EXPECT_TRUE(peer.WaitClosed());
        // It connects again by itself, perhaps before the test comes here.
        ASSERT_NO_FATAL_FAILURE(Accept());
        ASSERT_TRUE(client.opened.Wait(static_cast<int>(errors) + 1));
    }
    Settle();
}

TEST_F(XirCommonRpcClient, AReplyOfAnotherMethodThanTheRequestBreaksTheConnection) {
    Connect();
    Caller caller([this] { EXPECT_EQ(Call::kMissing, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();

    peer.Send(Frame(kGetVersion, kReply, 0, IdOf(request), {0x08, 0x00, 0x12, 0x00}));

    caller.Join();
    EXPECT_TRUE(peer.WaitClosed());
    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("the peer breaks the framing")));
}

TEST_F(XirCommonRpcClient, ALossCompletesEveryCallInFlightOnce) {
    Connect();
    Call trigger(client);
    Call cancel(client);
    Com__Vantu__Ecallapp__TriggerEcallRequest triggerRequest = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    Com__Vantu__Ecallapp__UserRequestCancelEcallRequest cancelRequest =
        COM__VANTU__ECALLAPP__USER_REQUEST_CANCEL_ECALL_REQUEST__INIT;
    trigger.Start(kTriggerEcall, triggerRequest.base);
    cancel.Start(kUserRequestCancel, cancelRequest.base);
    peer.ReceiveFrame();
    peer.ReceiveFrame();

    peer.Close();

    EXPECT_EQ(Call::kMissing, trigger.Wait());
    EXPECT_EQ(Call::kMissing, cancel.Wait());
    ASSERT_TRUE(client.closed.Wait());
    EXPECT_EQ(1, trigger.Completions());
    EXPECT_EQ(1, cancel.Completions());
    EXPECT_THAT(client.errors.Lines(), IsEmpty());  // a peer that ends in order is no error
}

TEST_F(XirCommonRpcClient, AReplyThatTheLossFollowsAtOnceIsStillDelivered) {
    Connect();
    Caller caller([this] { EXPECT_EQ(7, CallTrigger(client)); });
    const Bytes request = peer.ReceiveFrame();

    peer.Send(Joined({Frame(kNotifyState, kNotification, 0, 0, StatePayload(6)),
                      Frame(kTriggerEcall, kReply, 0, IdOf(request), Code(7))}));
    peer.Close();

    caller.Join();
    ASSERT_TRUE(client.closed.Wait());
    EXPECT_THAT(client.messages.Lines(), ElementsAre("method=18 kind=2 callState=6"));
}

TEST_F(XirCommonRpcClient, WithoutAConnectionACallIsMissingAtOnceAndNothingIsSent) {
    Client lonely(kFile, folder.File("nobody"));
    Call call(lonely);
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;

    call.Start(kTriggerEcall, request.base);

    EXPECT_EQ(1, call.Completions());  // before any waiting
    EXPECT_EQ(Call::kMissing, call.Wait());
}

TEST_F(XirCommonRpcClient, ARequestThatDoesNotFitAFrameIsMissingAndReported) {
    Connect();
    std::string text(kXirFramePayloadLimit, 'x');
    Com__Vantu__Ecallapp__TPropulsionStorageType propulsion = COM__VANTU__ECALLAPP__TPROPULSION_STORAGE_TYPE__INIT;
    Com__Vantu__Ecallapp__TVehicleConfig config = COM__VANTU__ECALLAPP__TVEHICLE_CONFIG__INIT;
    config.vin = text.data();
    config.audiotuningset = text.data();
    config.propulsionstoragetype = &propulsion;
    Com__Vantu__Ecallapp__UpdateVehicleConfigRequest request =
        COM__VANTU__ECALLAPP__UPDATE_VEHICLE_CONFIG_REQUEST__INIT;
    request.vehicleconfig = &config;

    EXPECT_EQ(Call::kMissing, Call(client).Start(3, request.base).Wait());

    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("request of method 3 is too long")));
    Settle();
}

TEST_F(XirCommonRpcClient, WhatThePeerDoesNotReadAtOnceFollowsLater) {
    Connect();
    std::string text(1'000'000, 'x');
    Com__Vantu__Ecallapp__TCfgParamValue value = COM__VANTU__ECALLAPP__TCFG_PARAM_VALUE__INIT;
    value.strvalue = text.data();
    Com__Vantu__Ecallapp__SetCfgParameterRequest request = COM__VANTU__ECALLAPP__SET_CFG_PARAMETER_REQUEST__INIT;
    request.paramvalue = &value;
    std::vector<std::unique_ptr<Call>> calls;
    for (int index = 0; index < 3; ++index) {  // more than a socket takes
        calls.push_back(std::make_unique<Call>(client));
        calls.back()->Start(10, request.base);
    }

    for (size_t index = 0; index < calls.size(); ++index) {
        const Bytes frame = peer.ReceiveFrame();
        EXPECT_GT(frame.size(), text.size());
        peer.Send(Frame(10, kReply, 0, IdOf(frame), Code(static_cast<uint8_t>(index))));
    }

    for (size_t index = 0; index < calls.size(); ++index) {
        EXPECT_EQ(static_cast<int64_t>(index), calls[index]->Wait());
    }
}

TEST_F(XirCommonRpcClient, RequestsThatThePeerNeverReadsAreRefusedAboveFourMebibytes) {
    Connect();
    std::string text(1'000'000, 'x');
    Com__Vantu__Ecallapp__TCfgParamValue value = COM__VANTU__ECALLAPP__TCFG_PARAM_VALUE__INIT;
    value.strvalue = text.data();
    Com__Vantu__Ecallapp__SetCfgParameterRequest request = COM__VANTU__ECALLAPP__SET_CFG_PARAMETER_REQUEST__INIT;
    request.paramvalue = &value;
    std::vector<std::unique_ptr<Call>> calls;

    while (client.errors.Lines().empty() && calls.size() < 50) {
        calls.push_back(std::make_unique<Call>(client));
        calls.back()->Start(10, request.base);
    }

    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("the peer does not read")));
    EXPECT_EQ(1, calls.back()->Completions());
    EXPECT_EQ(Call::kMissing, calls.back()->Wait());
    EXPECT_EQ(0, calls.front()->Completions());
    peer.Close();
    for (const auto& call : calls) {
        EXPECT_EQ(Call::kMissing, call->Wait());
        EXPECT_EQ(1, call->Completions());
    }
}

TEST_F(XirCommonRpcClient, EndingTheClientCompletesItsCallsOnce) {
    auto ended = std::make_unique<Client>(kFile, path);
    RawSocket first = listener.Accept();
    RawSocket second = listener.Accept();
    ASSERT_TRUE(ended->WaitConnected());
    std::vector<std::unique_ptr<Call>> calls;
    std::vector<std::unique_ptr<Caller>> callers;
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    for (int index = 0; index < 4; ++index) {
        calls.push_back(std::make_unique<Call>(*ended));
        calls.back()->Start(kTriggerEcall, request.base);
        callers.push_back(
            std::make_unique<Caller>([&call = *calls.back()] { EXPECT_EQ(Call::kMissing, call.Wait()); }));
        callers.back()->WaitAsleep();
    }

    ended.reset();

    callers.clear();
    for (const auto& call : calls) {
        EXPECT_EQ(1, call->Completions());
    }
}

// --- Connecting.

TEST_F(XirCommonRpcClient, AFailedAttemptIsReportedOnceAndRepeatedUntilItSucceeds) {
    const std::string late = folder.File("late");
    Client waiting(kFile, late);
    ASSERT_TRUE(waiting.errors.Wait(1));
    std::this_thread::sleep_for(milliseconds{200});  // some more attempts

    EXPECT_THAT(waiting.errors.Lines(), ElementsAre(StartsWith("-2: cannot connect: ")));
    EXPECT_EQ(0, xir_common_rpc_client_is_connected(waiting.client));
    const RawSocket lateListener = RawSocket::ListenLocal(late);
    const RawSocket connection = lateListener.Accept();
    EXPECT_TRUE(waiting.WaitConnected());
}

namespace {

/// The pauses between the attempts of a new client, seen by a peer that takes each connection only to drop it.
std::vector<steady_clock::duration> PausesOfANewClient(const std::string& path, size_t count) {
    const RawSocket listener = RawSocket::ListenLocal(path);
    const Client client(kFile, path);
    std::vector<steady_clock::duration> pauses;
    std::optional<steady_clock::time_point> last;
    while (pauses.size() < count) {
        const RawSocket peer = listener.Accept();
        EXPECT_TRUE(peer.IsOpen());
        const auto now = steady_clock::now();  // before the drop: no pause looks shorter than it was
        if (last) {
            pauses.push_back(now - *last);
        }
        last = now;
    }
    return pauses;
}

}  // namespace

TEST_F(XirCommonRpcClient, PausesBetweenAttemptsDoubleUpToASecond) {
    const milliseconds kPauses[] = {milliseconds{50},  milliseconds{100},  milliseconds{200}, milliseconds{400},
                                    milliseconds{800}, milliseconds{1000}, milliseconds{1000}};
    // More than this is a busy machine's doing. A connection that it keeps alive for a second begins the pauses anew.
    constexpr milliseconds kHeldUp{400};
    constexpr int kTries = 10;
    std::vector<steady_clock::duration> pauses;
    bool heldUp = true;
    for (int attempt = 0; heldUp && attempt < kTries; ++attempt) {
        pauses = PausesOfANewClient(folder.File("try" + std::to_string(attempt)), std::size(kPauses));
        heldUp = false;
        for (size_t index = 0; index < std::size(kPauses); ++index) {
            heldUp = heldUp || pauses[index] < kPauses[index] || pauses[index] > kPauses[index] + kHeldUp;
        }
    }
    EXPECT_FALSE(heldUp) << testing::PrintToString(pauses);
}

TEST_F(XirCommonRpcClient, AConnectionThatLivedForASecondBeginsThePausesAnew) {
    constexpr int kDrops = 5;  // the next pause would be the longest
    constexpr auto kShort = kXirLongestBackOff * 3 / 4;
    constexpr int kTries = 10;  // a busy machine may hold it up
    int connections = 1;
    ASSERT_NO_FATAL_FAILURE(Accept());
    const auto drop = [&] {
        const auto lost = steady_clock::now();
        peer.Close();
        Accept();
        ++connections;
        return steady_clock::now() - lost;
    };
    auto pause = steady_clock::duration::max();
    for (int attempt = 0; pause >= kShort && attempt < kTries; ++attempt) {
        for (int index = 0; index < kDrops; ++index) {
            ASSERT_NO_FATAL_FAILURE(drop());
        }
        ASSERT_TRUE(client.opened.Wait(connections));
        std::this_thread::sleep_for(milliseconds{1000});
        pause = drop();
        ASSERT_FALSE(HasFatalFailure());
    }

    EXPECT_LT(pause, kShort);
}

TEST_F(XirCommonRpcClient, OpenedAndClosedAreReportedForEachConnection) {
    Connect();
    EXPECT_NE(0, xir_common_rpc_client_is_connected(client.client));

    Reconnect();

    EXPECT_EQ(1, client.closed.Count());
    EXPECT_EQ(2, client.opened.Count());
    Settle();
}

TEST_F(XirCommonRpcClient, AnAddressThatCannotBeOneMakesNoClient) {
    ProtobufCRPCDispatch* dispatch = protobuf_c_rpc_dispatch_new(nullptr);
    const auto make = [&](int32_t transport, const std::string& address) {
        xir_common_rpc_client* made =
            xir_common_rpc_client_new(transport, address.c_str(), &kEcallApp, dispatch, nullptr);
        if (made != nullptr) {
            protobuf_c_service_destroy(reinterpret_cast<ProtobufCService*>(made));
        }
        return made != nullptr;
    };

    for (const char* good : {"127.0.0.1:50911", "localhost:1", "[::1]:65535", "5", "10.0.0.1:80"}) {
        EXPECT_TRUE(make(kTcp, good)) << good;
    }
    for (const char* bad : {"", ":", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1:5x", "host:80", ":80",
                            "::1:80", "[]:80", "[::1]", "nonsense", "-5", "127.0.0.1 :5"}) {
        EXPECT_FALSE(make(kTcp, bad)) << bad;
    }
    EXPECT_TRUE(make(kFile, std::string(107, 'p')));
    EXPECT_FALSE(make(kFile, std::string(108, 'p')));
    EXPECT_FALSE(make(kFile, ""));
    EXPECT_FALSE(make(2, "127.0.0.1:50911"));
    EXPECT_EQ(nullptr, xir_common_rpc_client_new(kTcp, nullptr, &kEcallApp, dispatch, nullptr));
    EXPECT_EQ(nullptr, xir_common_rpc_client_new(kTcp, "5", nullptr, dispatch, nullptr));
    EXPECT_EQ(nullptr, xir_common_rpc_client_new(kTcp, "5", &kEcallApp, nullptr, nullptr));
    protobuf_c_rpc_dispatch_free(dispatch);
}

TEST_F(XirCommonRpcClient, ATcpConnectionSendsAtOnceAndFindsItsPeerGone) {
    const uint16_t port = FreePort();
    const RawSocket tcpListener = RawSocket::ListenTcp(port);
    Client tcp(kTcp, "127.0.0.1:" + std::to_string(port));
    const RawSocket connection = tcpListener.Accept();
    ASSERT_TRUE(tcp.WaitConnected());

    const auto options = TcpOptionsOfConnectionTo(port);

    EXPECT_NE(0, options.noDelay);
    EXPECT_NE(0, options.keepAlive);
    EXPECT_GT(options.userTimeoutMillis, 0);
    EXPECT_LT(options.userTimeoutMillis, 30'000);
}

TEST_F(XirCommonRpcClient, NoDescriptorIsPassedOnToChildPrograms) {
    Connect();

    EXPECT_THAT(InheritableDescriptors(), IsEmpty());
}

// --- Subscriptions after a reconnection.

TEST_F(XirCommonRpcClient, AnAcknowledgedSubscriptionIsRepeatedBeforeAnythingElse) {
    Connect();
    Subscribe(kZero);

    peer.Close();
    ASSERT_NO_FATAL_FAILURE(Accept());
    const Bytes repeated = peer.ReceiveFrame();
    ASSERT_TRUE(client.opened.Wait(2));
    Caller caller([this] { EXPECT_EQ(0, CallTrigger(client)); });

    // messageid = 18, clientName = "tester"
    EXPECT_EQ(Frame(kSubscribe, kRequest, 0, IdOf(repeated), {0x08, 18, 0x12, 6, 't', 'e', 's', 't', 'e', 'r'}),
              repeated);
    peer.Send(Frame(kSubscribe, kReply, 0, IdOf(repeated), kZero));
    Answer();
    caller.Join();
    EXPECT_THAT(client.errors.Lines(), IsEmpty());
}

TEST_F(XirCommonRpcClient, EverySubscriptionIsRepeatedAfterEveryReconnection) {
    Connect();
    Subscribe(kZero, 18);
    Subscribe(kZero, 3);

    for (int round = 0; round < 3; ++round) {
        Reconnect();
        const Bytes first = peer.ReceiveFrame();
        const Bytes second = peer.ReceiveFrame();
        EXPECT_EQ(kSubscribe, MethodOf(first));
        EXPECT_EQ(kSubscribe, MethodOf(second));
        EXPECT_EQ(3, first.at(13));
        EXPECT_EQ(18, second.at(13));
    }
}

TEST_F(XirCommonRpcClient, ASubscriptionThatWasRefusedIsNotRepeated) {
    Connect();
    Subscribe(Code(5));

    Reconnect();

    Settle();  // its request is the first one
}

TEST_F(XirCommonRpcClient, ASubscriptionWithoutAReplyIsNotRepeated) {
    Connect();
    Caller caller([this] { EXPECT_EQ(Call::kMissing, CallSubscribe(client)); });
    peer.ReceiveFrame();

    Reconnect();
    caller.Join();

    Settle();
}

TEST_F(XirCommonRpcClient, AWithdrawnSubscriptionIsNotRepeated) {
    Connect();
    Subscribe(kZero);
    Unsubscribe(kZero);

    Reconnect();

    Settle();
}

TEST_F(XirCommonRpcClient, ASubscriptionWithdrawnWhileTheConnectionIsLostIsNotRepeated) {
    Connect();
    Subscribe(kZero);
    Caller caller([this] { EXPECT_EQ(Call::kMissing, CallUnsubscribe(client)); });
    peer.ReceiveFrame();

    Reconnect();
    caller.Join();

    Settle();
}

TEST_F(XirCommonRpcClient, ASubscriptionWithdrawnBeforeItsRepetitionIsAnsweredIsNotRepeatedAgain) {
    Connect();
    Subscribe(kZero);
    Reconnect();
    const Bytes repeated = peer.ReceiveFrame();
    Unsubscribe(kZero);

    peer.Send(Frame(kSubscribe, kReply, 0, IdOf(repeated), kZero));
    Settle();
    Reconnect();

    Settle();  // its request is the first one
    EXPECT_THAT(client.errors.Lines(), IsEmpty());
}

TEST_F(XirCommonRpcClient, ASubscriptionWhoseWithdrawalWasRefusedIsRepeated) {
    Connect();
    Subscribe(kZero);
    Unsubscribe(Code(1));

    Reconnect();

    EXPECT_EQ(kSubscribe, MethodOf(peer.ReceiveFrame()));
}

TEST_F(XirCommonRpcClient, ARepetitionThatIsRefusedIsReportedAndTriedAgainNextTime) {
    Connect();
    Subscribe(kZero);

    Reconnect();
    Answer(Code(9));
    ASSERT_TRUE(client.errors.Wait(1));
    Reconnect();

    EXPECT_THAT(client.errors.Lines(), ElementsAre(HasSubstr("subscription to 18 was refused after the reconnection")));
    EXPECT_EQ(kSubscribe, MethodOf(peer.ReceiveFrame()));
}

// --- Hooks.

TEST_F(XirCommonRpcClient, TheInstalledHooksFrameEverything) {
    static std::atomic<int> serialized{0};
    static std::atomic<int> deserialized{0};
    serialized = deserialized = 0;
    client.thread.Do([this] {
        xir_common_rpc_client_set_rpc_protocol(
            client.client,
            [](const xir_common_rpc_header* header, ProtobufCBuffer* out) {
                ++serialized;
                return xir_common_rpc_client_serialize(header, out);
            },
            [](const ProtobufCServiceDescriptor* service, const uint8_t* bytes, size_t length,
               xir_common_rpc_header* header, size_t* consumed) {
                ++deserialized;
                return xir_common_rpc_deserialize(service, bytes, length, header, consumed);
            });
    });
    Connect();

    Settle();

    EXPECT_EQ(1, serialized);
    EXPECT_EQ(1, deserialized);
}

TEST_F(XirCommonRpcClient, ConfiguringNothingIsRefused) {
    EXPECT_EQ(-1, xir_common_rpc_client_set_error_handler(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_client_set_rpc_protocol(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_client_set_rpc_protocol(client.client, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_client_configure_threading(nullptr, nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_client_register_nonrpcmsg_callback(nullptr, nullptr));
    EXPECT_EQ(-1, xir_common_rpc_client_register_connection_callback(nullptr, nullptr));
    EXPECT_EQ(0, xir_common_rpc_client_is_connected(nullptr));
}
