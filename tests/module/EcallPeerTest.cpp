// The simulated eCall service, seen by a client that knows nothing but the bytes on the wire.
#include "EcallPeer.h"

#include <gmock/gmock.h>

#include "MessageBlank.h"
#include "WireClient.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class EcallClient : public WireClient {
  public:
    EcallClient() : WireClient(kEcallPort, com__vantu__ecallapp__iecall_app__descriptor) {}

    uint32_t Trigger(bool automatic) {
        Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
        request.automatic = automatic ? 1 : 0;
        return Ask(EcallMethod::TriggerEcall, request.base);
    }

    void Subscribe() {
        AskFor(EcallMethod::Subscribe, 18);
        EXPECT_EQ(kReply, Read().kind);
    }
};

/// The notified states, each as "service call audio", until the given service state comes.
std::vector<std::string> NotifiedUntil(EcallClient& client, uint32_t last) {
    std::vector<std::string> states;
    for (;;) {
        const Frame frame = client.Read();
        if (frame.kind != kNotification) {
            return states;
        }
        auto* update = com__vantu__ecallapp__notify_notify_state_update__unpack(nullptr, frame.payload.size(),
                                                                                frame.payload.data());
        std::array<uint32_t, 6> state{};
        MessageGetEnums(update->ecallappstate->base, state);
        com__vantu__ecallapp__notify_notify_state_update__free_unpacked(update, nullptr);
        states.push_back(std::to_string(state[0]) + " " + std::to_string(state[3]) + " " + std::to_string(state[4]));
        if (state[0] == last) {
            return states;
        }
    }
}

/// A service in which each phase of a call lasts until an event.
EcallService Waiting() {
    EcallService service;
    service.timings = {.starting = 0ms,
                       .prompt = kNoLimit,
                       .dialling = kNoLimit,
                       .msdRequest = kNoLimit,
                       .msdTransfer = kNoLimit,
                       .llack = kNoLimit,
                       .voice = kNoLimit,
                       .expectCallback = kNoLimit,
                       .ringing = kNoLimit};
    return service;
}

class EcallPeerTest : public testing::Test {
  protected:
    Journal journal;
    EcallPeer peer{journal, Waiting()};

    void SetUp() override { ASSERT_TRUE(peer.Start()); }
};

TEST_F(EcallPeerTest, ARequestIsAnsweredUnderItsId) {
    EcallClient client;

    const uint32_t id = client.Ask(EcallMethod::RequestState);

    const Frame reply = client.Read();
    EXPECT_EQ(kReply, reply.kind);
    EXPECT_EQ(8, reply.method);
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(id, reply.id);
    EXPECT_EQ((Bytes{8, 0, 18, 12, 8, 3, 16, 0, 24, 5, 32, 0, 40, 0, 48, 2}), reply.payload);
}

TEST_F(EcallPeerTest, BothDirectionsAreInTheJournalWithTheirFields) {
    EcallClient client;
    client.Subscribe();

    client.Trigger(true);
    client.Read();
    NotifiedUntil(client, 101);

    const Entry connected = journal.Await(IsKind(Kind::RpcConnect));
    EXPECT_EQ("connected", connected.text);
    std::vector<std::string> entries;
    for (const Entry& entry : journal.All({}, connected.seq + 1)) {
        entries.push_back(std::string(KindName(entry.kind)) + " " + entry.subject + " " + entry.text);
    }
    EXPECT_THAT(
        entries,
        ElementsAre("RpcRequest subscribe messageid=18 clientName=\"WireClient\"", "RpcReply subscribe responsecode=0",
                    "RpcRequest triggerEcall automatic=1", "RpcReply triggerEcall responsecode=0",
                    "RpcNotify notifyNotifyState serviceState=ActiveAutomaticECall(101) "
                    "simProfileState=Commercial(0) networkState=CsFullService(5) callState=Inactive(0) "
                    "audioOutState=PlayingVoicePrompt(1) selfTestState=Unknown(2)"));
}

TEST_F(EcallPeerTest, ACallIsNotifiedPhaseByPhase) {
    peer.With([](EcallService& service) { service.timings = kTestPace; });
    EcallClient client;
    client.Subscribe();

    client.Trigger(true);
    client.Read();

    EXPECT_THAT(NotifiedUntil(client, 3), ElementsAre("101 0 1", "101 2 0", "101 4 0", "101 5 0", "101 6 0", "101 3 2",
                                                      "101 0 1", "104 0 0", "3 0 0"));
}

TEST_F(EcallPeerTest, OnlySubscribersAreNotified) {
    EcallClient stranger;
    EcallClient subscriber;
    subscriber.Subscribe();

    peer.SetState({.serviceState = 1});
    EXPECT_THAT(NotifiedUntil(subscriber, 1), ElementsAre("1 0 0"));
    stranger.Ask(EcallMethod::RequestState);

    EXPECT_EQ(kReply, stranger.Read().kind);
}

TEST_F(EcallPeerTest, AStateSetByHandIsNotifiedAlsoWhenItIsTheSame) {
    EcallClient client;
    client.Subscribe();

    peer.SetState({.serviceState = 50, .callState = 9, .audioOutState = 7});
    peer.SetState({.serviceState = 50, .callState = 9, .audioOutState = 7});
    peer.SetState({.serviceState = 3});

    EXPECT_THAT(NotifiedUntil(client, 3), ElementsAre("50 9 7", "50 9 7", "3 0 0"));
}

TEST_F(EcallPeerTest, ValuesBeyondEveryEnumerationGoOverTheWire) {
    EcallClient client;

    peer.SetState({.serviceState = 0xFFFFFFFF});
    client.Ask(EcallMethod::RequestState);

    const std::string text = Text(client.Read(), com__vantu__ecallapp__request_state_response__descriptor);
    EXPECT_THAT(text, StartsWith("responsecode=0 serviceState=?(-1) "));
}

TEST_F(EcallPeerTest, TheAnsweringPointCanHangUpAndCallBack) {
    EcallClient client;
    client.Subscribe();
    client.Trigger(false);
    client.Read();

    EXPECT_EQ(EcallAnswer::Done, peer.Happen(EcallEvent::TimeUp));
    EXPECT_EQ(EcallAnswer::Done, peer.Happen(EcallEvent::TimeUp));
    EXPECT_EQ(EcallAnswer::Done, peer.Happen(EcallEvent::Disconnect));
    EXPECT_EQ(EcallAnswer::Done, peer.Happen(EcallEvent::TimeUp));
    EXPECT_EQ(EcallAnswer::Done, peer.Happen(EcallEvent::CallBack));
    EXPECT_EQ(EcallAnswer::Done, peer.Happen(EcallEvent::Disconnect));
    EXPECT_EQ(EcallAnswer::Done, peer.Happen(EcallEvent::TimeUp));

    EXPECT_THAT(NotifiedUntil(client, 3),
                ElementsAre("100 0 1", "100 2 0", "100 4 0", "100 0 1", "104 0 0", "104 1 1", "104 0 0", "3 0 0"));
}

TEST_F(EcallPeerTest, AChosenCodeIsAnsweredAndTheRequestHasNoEffect) {
    EcallClient client;
    peer.Answer(EcallMethod::TriggerEcall, {.code = 77});

    client.Trigger(true);

    EXPECT_EQ("responsecode=77", Text(client.Read(), com__vantu__ms__protobuf__void_response__descriptor));
    EXPECT_EQ(EcallState{}, peer.State());
}

TEST_F(EcallPeerTest, ARefusedRequestIsAnsweredWithoutAMessage) {
    EcallClient client;
    peer.Answer(EcallMethod::TriggerEcall, {.missing = true});

    const uint32_t id = client.Trigger(true);

    const Frame reply = client.Read();
    EXPECT_EQ(kReply, reply.kind);
    EXPECT_EQ(3, reply.status);
    EXPECT_EQ(id, reply.id);
    EXPECT_TRUE(reply.payload.empty());
    EXPECT_EQ(EcallState{}, peer.State());
}

TEST_F(EcallPeerTest, NobodyCanAskForTheNotification) {
    EcallClient client;

    client.Ask(EcallMethod::NotifyNotifyState);

    EXPECT_EQ(3, client.Read().status);
}

TEST_F(EcallPeerTest, AHeldReplyWaitsForItsRelease) {
    EcallClient client;
    client.Subscribe();
    peer.Answer(EcallMethod::TriggerEcall, {.held = true});

    const uint32_t held = client.Trigger(true);
    EXPECT_THAT(NotifiedUntil(client, 101), ElementsAre("101 0 1"));
    client.Ask(EcallMethod::RequestState);
    EXPECT_EQ(8, client.Read().method);
    EXPECT_EQ(1U, peer.Release());

    EXPECT_EQ(held, client.Read().id);
    EXPECT_EQ(0U, peer.Release());
}

TEST_F(EcallPeerTest, ADelayedReplyComesByItself) {
    EcallClient client;
    peer.Answer(EcallMethod::RequestState, {.delay = 50ms});
    const auto start = std::chrono::steady_clock::now();

    const uint32_t id = client.Ask(EcallMethod::RequestState);
    journal.Await(IsRpcRequest("requestState"));
    peer.SetState({.serviceState = 1});

    const Frame reply = client.Read();
    EXPECT_EQ(id, reply.id);
    EXPECT_THAT(Text(reply, com__vantu__ecallapp__request_state_response__descriptor),
                HasSubstr("serviceState=Available_Idle(3)"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
}

TEST_F(EcallPeerTest, ANotificationCanOvertakeTheReply) {
    EcallClient client;
    client.Subscribe();
    peer.Answer(EcallMethod::TriggerEcall, {.notifyFirst = true});

    client.Trigger(true);

    EXPECT_EQ(kNotification, client.Read().kind);
    EXPECT_EQ(kReply, client.Read().kind);
}

TEST_F(EcallPeerTest, ASilentServiceAnswersNothingAndAnOrdinaryOneAgain) {
    EcallClient client;
    peer.AnswerAll({.held = true});
    client.Ask(EcallMethod::RequestState);
    ASSERT_TRUE(peer.AwaitRequests(EcallMethod::RequestState, 1));

    peer.AnswerAll({});
    const uint32_t second = client.Ask(EcallMethod::RequestState);

    EXPECT_EQ(second, client.Read().id);
    EXPECT_FALSE(client.IsReadable(0ms));
}

TEST_F(EcallPeerTest, ItCanBeAnotherServiceOrAnotherVersion) {
    peer.With([](EcallService& service) { service.identity = {.name = "com.vantu.other", .major = 3, .minor = 1}; });
    EcallClient client;

    client.Ask(EcallMethod::GetIEcallAppVersion);

    EXPECT_EQ("responsecode=0 major=3 minor=1 name=\"com.vantu.other\"",
              Text(client.Read(), com__vantu__ms__protobuf__get_remote_version_response__descriptor));
}

TEST_F(EcallPeerTest, GarbageTakesTheReplysPlace) {
    struct Row {
        RpcGarbage garbage;
        Bytes bytes;
    };
    const Row rows[] = {
        {RpcGarbage::NoFrame, {4, 0, 0, 0, 8, 0, 0xEE, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
        {RpcGarbage::BadPayload, {4, 0, 0, 0, 8, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
        {RpcGarbage::TooLong, {0, 0, 0x20, 0, 8, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
        {RpcGarbage::CutOff, {16, 0, 0, 0, 8, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}},
    };
    for (const Row& row : rows) {
        EcallClient client;
        peer.Answer(EcallMethod::RequestState, {.garbage = row.garbage});

        client.Ask(EcallMethod::RequestState);

        EXPECT_EQ(row.bytes, client.ReadBytes(row.bytes.size()));
    }
}

TEST_F(EcallPeerTest, RequestsAreCountedByMethod) {
    EcallClient client;
    client.Ask(EcallMethod::RequestState);
    client.Ask(EcallMethod::RequestState);

    EXPECT_TRUE(peer.AwaitRequests(EcallMethod::RequestState, 2));

    EXPECT_EQ(2U, peer.Requests(EcallMethod::RequestState));
    EXPECT_EQ(0U, peer.Requests(EcallMethod::GetVersion));
    EXPECT_FALSE(peer.AwaitRequests(EcallMethod::RequestState, 3, 1ms));
}

TEST_F(EcallPeerTest, ASelfTestIsRequestedOnceAndAnsweredByAReport) {
    EcallClient client;
    client.Subscribe();

    peer.RequestSelfTest();

    EXPECT_THAT(Text(client.Read(), com__vantu__ecallapp__notify_notify_state_update__descriptor),
                HasSubstr("selfTestState=Requested(3)"));
    client.Ask(EcallMethod::UpdateSelfTestAllDevicesState);
    EXPECT_EQ(kReply, client.Read().kind);
    EXPECT_THAT(Text(client.Read(), com__vantu__ecallapp__notify_notify_state_update__descriptor),
                HasSubstr("selfTestState=Success(0)"));
}

TEST_F(EcallPeerTest, AStoppedServiceIsGone) {
    EcallClient before;
    before.Ask(EcallMethod::RequestState);
    before.Read();

    peer.Stop();

    EXPECT_TRUE(before.IsClosed());
    EXPECT_FALSE(EcallClient().IsConnected());
    EXPECT_FALSE(peer.IsRunning());
}

TEST_F(EcallPeerTest, ARestartedServiceDialsAgainAndHasForgottenItsSubscribers) {
    EcallClient before;
    before.Subscribe();
    before.Trigger(true);
    before.Read();
    peer.Happen(EcallEvent::TimeUp);
    peer.With([](EcallService& service) { service.timings.starting = kNoLimit; });

    peer.Stop();
    ASSERT_TRUE(peer.Start());
    EcallClient after;
    after.Subscribe();
    EXPECT_EQ(ecall::kInitializing, peer.State().serviceState);
    peer.Happen(EcallEvent::TimeUp);

    EXPECT_THAT(NotifiedUntil(after, 101), ElementsAre("101 0 1"));
}

TEST_F(EcallPeerTest, RepliesThatAreOwedEndWithTheService) {
    EcallClient client;
    peer.Answer(EcallMethod::RequestState, {.held = true});
    peer.Answer(EcallMethod::GetVersion, {.delay = 10min});
    client.Ask(EcallMethod::RequestState);
    client.Ask(EcallMethod::GetVersion);
    ASSERT_TRUE(peer.AwaitRequests(EcallMethod::GetVersion, 1));

    peer.Stop();

    EXPECT_TRUE(client.IsClosed());
    EXPECT_EQ(0U, peer.Release());
}

TEST_F(EcallPeerTest, AReplyForAClientThatHasLeftIsDropped) {
    peer.Answer(EcallMethod::RequestState, {.held = true});
    {
        EcallClient client;
        client.Ask(EcallMethod::RequestState);
        ASSERT_TRUE(peer.AwaitRequests(EcallMethod::RequestState, 1));
    }
    Match left = IsKind(Kind::RpcConnect);
    left.text = "disconnected";
    journal.Await(left);

    EXPECT_EQ(1U, peer.Release());

    peer.AnswerAll({});
    EcallClient next;
    next.Ask(EcallMethod::RequestState);
    EXPECT_EQ(0, next.Read().status);
}

TEST_F(EcallPeerTest, TwoCannotHaveOneAddress) {
    EcallPeer second(journal);

    EXPECT_FALSE(second.Start());

    EXPECT_FALSE(second.IsRunning());
}

TEST_F(EcallPeerTest, WhatIsSetWhileItIsStoppedHoldsFromItsStartOn) {
    peer.Stop();
    peer.SetState({.serviceState = 4});
    peer.Answer(EcallMethod::GetVersion, {.code = 5});

    ASSERT_TRUE(peer.Start());

    EXPECT_EQ(4U, peer.State().serviceState);
    EcallClient client;
    client.Ask(EcallMethod::GetVersion);
    EXPECT_THAT(Text(client.Read(), com__vantu__ecallapp__get_version_response__descriptor),
                StartsWith("responsecode=5"));
}

}  // namespace
