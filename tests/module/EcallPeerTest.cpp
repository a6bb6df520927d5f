// The simulated eCall service, seen by a client that knows nothing but the bytes on the wire.
#include "EcallPeer.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>

#include "MessageBlank.h"
#include "MessageText.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kReply = 0, kRequest = 1, kNotification = 2;
constexpr size_t kHeaderSize = 12;

struct Frame {
    uint16_t method = 0;
    uint8_t kind = 0;
    uint8_t status = 0;
    uint32_t id = 0;
    Bytes payload;
};

uint32_t Number(const Bytes& bytes, size_t at, size_t count) {
    uint32_t value = 0;
    for (size_t byte = 0; byte < count; ++byte) {
        value |= static_cast<uint32_t>(bytes.at(at + byte)) << (8 * byte);
    }
    return value;
}

std::string Text(const Frame& frame, const ProtobufCMessageDescriptor& descriptor) {
    ProtobufCMessage* message =
        protobuf_c_message_unpack(&descriptor, nullptr, frame.payload.size(), frame.payload.data());
    std::string text = MessageText(message);
    protobuf_c_message_free_unpacked(message, nullptr);
    return text;
}

class RawClient {
  public:
    RawClient() : descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kEcallPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        isConnected = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawClient() { close(descriptor); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool IsConnected() const { return isConnected; }

    /// Sends a request and answers its id.
    uint32_t Ask(EcallMethod method, const ProtobufCMessage& request) {
        Bytes payload(protobuf_c_message_get_packed_size(&request));
        protobuf_c_message_pack(&request, payload.data());
        const auto size = static_cast<uint8_t>(payload.size());
        const auto index = static_cast<uint8_t>(method);
        Bytes frame{size, 0, 0, 0, index, 0, kRequest, 0, ++lastId, 0, 0, 0};
        frame.insert(frame.end(), payload.begin(), payload.end());
        EXPECT_EQ(static_cast<ssize_t>(frame.size()), send(descriptor, frame.data(), frame.size(), MSG_NOSIGNAL));
        return lastId;
    }

    uint32_t Ask(EcallMethod method) {
        const auto& service = com__vantu__ecallapp__iecall_app__descriptor;
        const MessageBlank request(*service.methods[static_cast<size_t>(method)].input);
        return Ask(method, request.Get());
    }

    uint32_t Trigger(bool automatic) {
        Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
        request.automatic = automatic ? 1 : 0;
        return Ask(EcallMethod::TriggerEcall, request.base);
    }

    void Subscribe() {
        Com__Vantu__Ms__Protobuf__SubscribeRequest request = COM__VANTU__MS__PROTOBUF__SUBSCRIBE_REQUEST__INIT;
        std::string name("RawClient");
        request.messageid = 18;
        request.clientname = name.data();
        Ask(EcallMethod::Subscribe, request.base);
        EXPECT_EQ(kReply, Read().kind);
    }

    /// The next frame, whatever it is.
    Frame Read() {
        const Bytes header = ReadBytes(kHeaderSize);
        if (header.size() < kHeaderSize) {
            ADD_FAILURE() << "no frame came";
            return {};
        }
        return {.method = static_cast<uint16_t>(Number(header, 4, 2)),
                .kind = header[6],
                .status = header[7],
                .id = Number(header, 8, 4),
                .payload = ReadBytes(Number(header, 0, 4))};
    }

    /// That many bytes; fewer when the peer closes or nothing comes for a long time.
    Bytes ReadBytes(size_t count) {
        Bytes bytes;
        while (bytes.size() < count && IsReadable(Journal::kLimit)) {
            Bytes piece(count - bytes.size());
            const ssize_t got = recv(descriptor, piece.data(), piece.size(), 0);
            if (got <= 0) {
                break;
            }
            bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
        }
        return bytes;
    }

    bool IsReadable(std::chrono::milliseconds limit) const {
        pollfd wait{.fd = descriptor, .events = POLLIN, .revents = 0};
        return poll(&wait, 1, static_cast<int>(limit.count())) == 1;
    }

    /// True when the peer has closed the connection.
    bool IsClosed() {
        uint8_t byte = 0;
        return IsReadable(Journal::kLimit) && recv(descriptor, &byte, 1, 0) <= 0;
    }

  private:
    int descriptor;
    bool isConnected = false;
    uint8_t lastId = 0;
};

/// The notified states, each as "service call audio", until the given service state comes.
std::vector<std::string> NotifiedUntil(RawClient& client, uint32_t last) {
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
    RawClient client;

    const uint32_t id = client.Ask(EcallMethod::RequestState);

    const Frame reply = client.Read();
    EXPECT_EQ(kReply, reply.kind);
    EXPECT_EQ(8, reply.method);
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(id, reply.id);
    EXPECT_EQ((Bytes{8, 0, 18, 12, 8, 3, 16, 0, 24, 5, 32, 0, 40, 0, 48, 2}), reply.payload);
}

TEST_F(EcallPeerTest, BothDirectionsAreInTheJournalWithTheirFields) {
    RawClient client;
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
        ElementsAre("RpcRequest subscribe messageid=18 clientName=\"RawClient\"", "RpcReply subscribe responsecode=0",
                    "RpcRequest triggerEcall automatic=1", "RpcReply triggerEcall responsecode=0",
                    "RpcNotify notifyNotifyState serviceState=ActiveAutomaticECall(101) "
                    "simProfileState=Commercial(0) networkState=CsFullService(5) callState=Inactive(0) "
                    "audioOutState=PlayingVoicePrompt(1) selfTestState=Unknown(2)"));
}

TEST_F(EcallPeerTest, ACallIsNotifiedPhaseByPhase) {
    peer.With([](EcallService& service) { service.timings = kTestPace; });
    RawClient client;
    client.Subscribe();

    client.Trigger(true);
    client.Read();

    EXPECT_THAT(NotifiedUntil(client, 3), ElementsAre("101 0 1", "101 2 0", "101 4 0", "101 5 0", "101 6 0", "101 3 2",
                                                      "101 0 1", "104 0 0", "3 0 0"));
}

TEST_F(EcallPeerTest, OnlySubscribersAreNotified) {
    RawClient stranger;
    RawClient subscriber;
    subscriber.Subscribe();

    peer.SetState({.serviceState = 1});
    EXPECT_THAT(NotifiedUntil(subscriber, 1), ElementsAre("1 0 0"));
    stranger.Ask(EcallMethod::RequestState);

    EXPECT_EQ(kReply, stranger.Read().kind);
}

TEST_F(EcallPeerTest, AStateSetByHandIsNotifiedAlsoWhenItIsTheSame) {
    RawClient client;
    client.Subscribe();

    peer.SetState({.serviceState = 50, .callState = 9, .audioOutState = 7});
    peer.SetState({.serviceState = 50, .callState = 9, .audioOutState = 7});
    peer.SetState({.serviceState = 3});

    EXPECT_THAT(NotifiedUntil(client, 3), ElementsAre("50 9 7", "50 9 7", "3 0 0"));
}

TEST_F(EcallPeerTest, ValuesBeyondEveryEnumerationGoOverTheWire) {
    RawClient client;

    peer.SetState({.serviceState = 0xFFFFFFFF});
    client.Ask(EcallMethod::RequestState);

    const std::string text = Text(client.Read(), com__vantu__ecallapp__request_state_response__descriptor);
    EXPECT_THAT(text, StartsWith("responsecode=0 serviceState=?(-1) "));
}

TEST_F(EcallPeerTest, TheAnsweringPointCanHangUpAndCallBack) {
    RawClient client;
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
    RawClient client;
    peer.Answer(EcallMethod::TriggerEcall, {.code = 77});

    client.Trigger(true);

    EXPECT_EQ("responsecode=77", Text(client.Read(), com__vantu__ms__protobuf__void_response__descriptor));
    EXPECT_EQ(EcallState{}, peer.State());
}

TEST_F(EcallPeerTest, ARefusedRequestIsAnsweredWithoutAMessage) {
    RawClient client;
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
    RawClient client;

    client.Ask(EcallMethod::NotifyNotifyState);

    EXPECT_EQ(3, client.Read().status);
}

TEST_F(EcallPeerTest, AHeldReplyWaitsForItsRelease) {
    RawClient client;
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
    RawClient client;
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
    RawClient client;
    client.Subscribe();
    peer.Answer(EcallMethod::TriggerEcall, {.notifyFirst = true});

    client.Trigger(true);

    EXPECT_EQ(kNotification, client.Read().kind);
    EXPECT_EQ(kReply, client.Read().kind);
}

TEST_F(EcallPeerTest, ASilentServiceAnswersNothingAndAnOrdinaryOneAgain) {
    RawClient client;
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
    RawClient client;

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
        RawClient client;
        peer.Answer(EcallMethod::RequestState, {.garbage = row.garbage});

        client.Ask(EcallMethod::RequestState);

        EXPECT_EQ(row.bytes, client.ReadBytes(row.bytes.size()));
    }
}

TEST_F(EcallPeerTest, RequestsAreCountedByMethod) {
    RawClient client;
    client.Ask(EcallMethod::RequestState);
    client.Ask(EcallMethod::RequestState);

    EXPECT_TRUE(peer.AwaitRequests(EcallMethod::RequestState, 2));

    EXPECT_EQ(2U, peer.Requests(EcallMethod::RequestState));
    EXPECT_EQ(0U, peer.Requests(EcallMethod::GetVersion));
    EXPECT_FALSE(peer.AwaitRequests(EcallMethod::RequestState, 3, 1ms));
}

TEST_F(EcallPeerTest, ASelfTestIsRequestedOnceAndAnsweredByAReport) {
    RawClient client;
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
    RawClient before;
    before.Ask(EcallMethod::RequestState);
    before.Read();

    peer.Stop();

    EXPECT_TRUE(before.IsClosed());
    EXPECT_FALSE(RawClient().IsConnected());
    EXPECT_FALSE(peer.IsRunning());
}

TEST_F(EcallPeerTest, ARestartedServiceDialsAgainAndHasForgottenItsSubscribers) {
    RawClient before;
    before.Subscribe();
    before.Trigger(true);
    before.Read();
    peer.Happen(EcallEvent::TimeUp);
    peer.With([](EcallService& service) { service.timings.starting = kNoLimit; });

    peer.Stop();
    ASSERT_TRUE(peer.Start());
    RawClient after;
    after.Subscribe();
    EXPECT_EQ(ecall::kInitializing, peer.State().serviceState);
    peer.Happen(EcallEvent::TimeUp);

    EXPECT_THAT(NotifiedUntil(after, 101), ElementsAre("101 0 1"));
}

TEST_F(EcallPeerTest, RepliesThatAreOwedEndWithTheService) {
    RawClient client;
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
        RawClient client;
        client.Ask(EcallMethod::RequestState);
        ASSERT_TRUE(peer.AwaitRequests(EcallMethod::RequestState, 1));
    }
    Match left = IsKind(Kind::RpcConnect);
    left.text = "disconnected";
    journal.Await(left);

    EXPECT_EQ(1U, peer.Release());

    peer.AnswerAll({});
    RawClient next;
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
    RawClient client;
    client.Ask(EcallMethod::GetVersion);
    EXPECT_THAT(Text(client.Read(), com__vantu__ecallapp__get_version_response__descriptor),
                StartsWith("responsecode=5"));
}

}  // namespace
