// The client against a real server, and against peers that do not behave.
#include "UiClient.h"

#include <gmock/gmock.h>

#include <future>
#include <list>
#include <thread>

#include "Failure.h"
#include "RawPeer.h"
#include "UiFields.h"
#include "UiPeer.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using namespace std::chrono_literals;

constexpr UiLimits kLong{.connect = 60s, .reply = 60s, .micTest = 60s};

const std::string kVersionReply = VersionReply(0, 1, "com.vantu.ecalluiapp.iecalluiapp");

const ConfigurationField& Field(const char* name) {
    return FieldNamed(name);
}

struct Outcome {
    ExitStatus status = kDone;
    std::string text;
};

Outcome OutcomeOf(const std::function<void()>& run) {
    try {
        run();
    } catch (const Failure& failure) {
        return {failure.status, failure.what()};
    }
    return {};
}

/// A service with a client that is connected to it.
struct Served {
    UiPeer peer;
    UiClient client{peer.Url(), kLong};

    Served() { client.Connect(); }
};

/// A client of a peer that does step by step what the test says, on a thread of its own.
struct Misled {
    explicit Misled(const std::function<void(RawPeer& peer)>& steps) : thread([this, steps] { steps(peer); }) {}
    ~Misled() { thread.join(); }

    RawPeer peer;
    std::thread thread;
};

void AnswerWhoIsThere(RawPeer& peer) {
    peer.Accept();
    peer.Serve(kVersionReply);
}

}  // namespace

// A service that is as it should be.

TEST(UiClient, ReadsAParameterOfEachType) {
    Served served;
    served.peer.Hold("EcallButtonUsed", false);
    served.peer.Hold("LedPwmPeriodMs", int32_t{-7});
    served.peer.Hold("GpioForEnablingEcallLedControlUsed", std::string("RTS"));

    EXPECT_EQ(UiValue(false), served.client.Get(Field("EcallButtonUsed")));
    EXPECT_EQ(UiValue(true), served.client.Get(Field("GpioIrqRecovery")));
    EXPECT_EQ(UiValue(int32_t{-7}), served.client.Get(Field("LedPwmPeriodMs")));
    EXPECT_EQ(UiValue(std::string("RTS")), served.client.Get(Field("GpioForEnablingEcallLedControlUsed")));
}

TEST(UiClient, SetsAParameterOfEachTypeWithTheOneMemberThatCounts) {
    Served served;

    served.client.Set(Field("EcallButtonUsed"), true);
    served.client.Set(Field("LedPwmPeriodMs"), int32_t{20});
    served.client.Set(Field("GpioForEnablingEcallLedControlUsed"), std::string("RTS"));

    EXPECT_EQ((PeerRequest{kUiSet, SetRequest(19, true)}), served.peer.server.WaitFor(kUiSet, 1));
    EXPECT_EQ((PeerRequest{kUiSet, SetRequest(7, int32_t{20})}), served.peer.server.WaitFor(kUiSet, 2));
    EXPECT_EQ((PeerRequest{kUiSet, SetRequest(22, std::string("RTS"))}), served.peer.server.WaitFor(kUiSet, 3));
    EXPECT_EQ(UiValue(int32_t{20}), served.client.Get(Field("LedPwmPeriodMs")));
}

TEST(UiClient, AsksForTheVersionsAndTheMicrophoneTest) {
    Served served;

    EXPECT_EQ("0.1.0-r1, V0.22", served.client.Version());
    EXPECT_EQ("com.vantu.ecalluiapp.iecalluiapp", served.client.InterfaceVersion().name);
    EXPECT_EQ(1U, served.client.InterfaceVersion().major);
    EXPECT_EQ(7U, served.client.InterfaceVersion().minor);
    EXPECT_EQ(12.5F, served.client.MicTest());
}

TEST(UiClient, AFailedMicrophoneTestShowsTheServicesAnswer) {
    Served served;
    served.peer.server.Answer(kUiMicTest, ProtoBytes().Number(1, 4294967280).Float(2, 0).bytes);

    const Outcome outcome = OutcomeOf([&] { served.client.MicTest(); });

    EXPECT_EQ(kRefused, outcome.status);
    EXPECT_EQ("the microphone test failed: the service answered -16", outcome.text);
}

TEST(UiClient, AnAnswerThatIsNoSuccessIsAFailureOfEveryRequest) {
    Served served;
    served.peer.server.Answer(kUiGet, GetReply(int32_t{5}, 3));
    served.peer.server.Answer(kUiSet, ProtoBytes().Number(1, 4).bytes);
    served.peer.server.Answer(kUiVersion, ProtoBytes().Number(1, 5).Text(2, "").bytes);

    EXPECT_EQ("reading LedPwmPeriodMs failed: the service answered 3",
              OutcomeOf([&] { served.client.Get(Field("7")); }).text);
    EXPECT_EQ("setting LedPwmPeriodMs failed: the service answered 4",
              OutcomeOf([&] { served.client.Set(Field("7"), int32_t{1}); }).text);
    EXPECT_EQ("asking for the version failed: the service answered 5",
              OutcomeOf([&] { served.client.Version(); }).text);
}

TEST(UiClient, ARestartedServiceIsConnectedToAgain) {
    Served served;
    EXPECT_EQ(0U, served.client.Losses());

    served.peer.server.Stop();
    const Outcome outcome = OutcomeOf([&] {
        for (;;) {
            served.client.Get(Field("7"));
        }
    });
    served.peer.server.Start();
    served.client.Connect();

    EXPECT_EQ(kNoService, outcome.status);
    EXPECT_EQ(1U, served.client.Losses());
    EXPECT_EQ(UiValue(int32_t{10}), served.client.Get(Field("7")));
}

// Nobody there, or somebody else.

TEST(UiClient, WithoutAServiceTheUrlAndTheRemedyAreSaid) {
    const ScratchSocket nobody;
    for (const std::string& url : {nobody.Url(), std::string("xirtcp://127.0.0.1:1")}) {
        const Outcome outcome = OutcomeOf([&] { UiClient(url, {.connect = 200ms}).Connect(); });

        EXPECT_EQ(kNoService, outcome.status);
        EXPECT_THAT(outcome.text, AllOf(StartsWith("no service at " + url + ": is it running? (cannot connect: ")));
    }
}

TEST(UiClient, WhatIsNoUrlIsRefusedAtOnce) {
    for (const char* url :
         {"", "127.0.0.1:50101", "XIRTCP://127.0.0.1:50101", "xirtcp://", "xirfile://", "http://x/"}) {
        const Outcome outcome = OutcomeOf([&] { UiClient client(url); });
        EXPECT_EQ(kMisused, outcome.status) << url;
        EXPECT_THAT(outcome.text, StartsWith("\"" + std::string(url) + "\" is no URL of a service")) << url;
    }
    for (const char* url :
         {"xirtcp://nowhere", "xirtcp://127.0.0.1:", "xirtcp://127.0.0.1:99999", "xirtcp://host.local:7"}) {
        const Outcome outcome = OutcomeOf([&] { UiClient client(url); });
        EXPECT_EQ(kMisused, outcome.status) << url;
        EXPECT_THAT(outcome.text, StartsWith("\"" + std::string(url) + "\" names no address")) << url;
    }
}

TEST(UiClient, AnotherServiceIsNamed) {
    UiPeer peer;
    peer.server.Answer(kUiInterfaceVersion, VersionReply(0, 1, "com.vantu.other"));
    UiClient client(peer.Url(), kLong);

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kOtherPeer, outcome.status);
    EXPECT_EQ("at " + peer.Url() +
                  " another service listens, \"com.vantu.other\" instead of \"com.vantu.ecalluiapp.iecalluiapp\": give "
                  "this one's address with --url",
              outcome.text);
}

TEST(UiClient, TheECallServiceIsNotMistakenForTheOwnOne) {
    ServerPeer ecall;
    UiClient client(ecall.Url(), kLong);

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kOtherPeer, outcome.status) << outcome.text;
}

TEST(UiClient, AnotherMajorVersionIsRefused) {
    UiPeer peer;
    peer.server.Answer(kUiInterfaceVersion, VersionReply(0, 2, "com.vantu.ecalluiapp.iecalluiapp"));
    UiClient client(peer.Url(), kLong);

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kOtherPeer, outcome.status);
    EXPECT_EQ("the service at " + peer.Url() +
                  " speaks version 2.7 of the interface, this program version 1: use the program that came with the "
                  "service",
              outcome.text);
}

TEST(UiClient, APeerThatRefusesToSayWhoItIsIsNotTheService) {
    UiPeer peer;
    peer.server.Answer(kUiInterfaceVersion, VersionReply(7, 1, "com.vantu.ecalluiapp.iecalluiapp"));
    UiClient client(peer.Url(), kLong);

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kOtherPeer, outcome.status);
    EXPECT_THAT(outcome.text, HasSubstr("asking for the interface's version failed: the service answered 7"));
}

// Peers that misbehave.

TEST(UiClient, ASilentPeerIsGivenUpAndConnectedToAgain) {
    std::promise<void> isGivenUp;
    Misled misled([&](RawPeer& peer) {
        AnswerWhoIsThere(peer);
        peer.Receive();
        isGivenUp.get_future().wait();
        AnswerWhoIsThere(peer);
        peer.Serve(GetReply(int32_t{33}));
    });
    UiClient client(misled.peer.Url(), {.connect = 60s, .reply = 60s, .micTest = 200ms});
    client.Connect();

    const Outcome outcome = OutcomeOf([&] { client.MicTest(); });

    isGivenUp.set_value();
    EXPECT_EQ(kNoService, outcome.status);
    EXPECT_THAT(outcome.text, StartsWith("no reply to runAnalogMicTest from " + misled.peer.Url() + " within 0.2 s: "));
    EXPECT_EQ(1U, client.Losses());
    client.Connect();
    EXPECT_EQ(UiValue(int32_t{33}), client.Get(Field("7")));
}

TEST(UiClient, APeerThatNeverSaysWhoItIsIsGivenUp) {
    const RawPeer listensOnly;
    UiClient client(listensOnly.Url(), {.connect = 60s, .reply = 200ms, .micTest = 60s});

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kNoService, outcome.status);
    EXPECT_THAT(outcome.text,
                StartsWith("no reply to getIEcallUIAppVersion from " + listensOnly.Url() + " within 0.2 s: "));
}

TEST(UiClient, APeerThatGoesAwayDuringARequestIsReported) {
    Misled misled([](RawPeer& peer) {
        AnswerWhoIsThere(peer);
        peer.Receive();
        peer.Drop();
    });
    UiClient client(misled.peer.Url(), kLong);
    client.Connect();

    const Outcome outcome = OutcomeOf([&] { client.Version(); });

    EXPECT_EQ(kNoService, outcome.status);
    EXPECT_EQ("the connection to " + misled.peer.Url() + " was lost during getUiVersion: is the service still running?",
              outcome.text);
}

TEST(UiClient, AServiceThatEndsTheConnectionAtOnceMayHaveTooManyClients) {
    Misled misled([](RawPeer& peer) {
        peer.Accept();
        peer.Drop();
    });
    UiClient client(misled.peer.Url(), kLong);

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kNoService, outcome.status);
    EXPECT_EQ("the service at " + misled.peer.Url() +
                  " ended the connection at once: does it have 64 clients already? End one of them; or see whether it "
                  "is still running",
              outcome.text);
}

TEST(UiClient, ANewcomerToAServerThatIsFullIsToldSo) {
    constexpr uint16_t kNotifyState = 18;
    constexpr uint16_t kSubscribe = 19;
    ServerPeer full;  // any server, because it is not even asked who it is; a subscriber keeps its place
    std::list<RawClient> subscribers;
    for (int i = 0; i < 64; ++i) {
        subscribers.emplace_back(full.SocketPath())
            .Call(kSubscribe, ProtoBytes().Number(1, kNotifyState).Text(2, "subscriber").bytes);
    }
    UiClient client(full.Url(), kLong);

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kNoService, outcome.status);
    EXPECT_THAT(outcome.text, HasSubstr("does it have 64 clients already?"));
}

TEST(UiClient, APeerThatBreaksTheFramingIsNotTheService) {
    Misled misled([](RawPeer& peer) {
        peer.Accept();
        const RawFrame request = peer.Receive();
        peer.Send({request.method, 77, 0, request.id, ""});
    });
    UiClient client(misled.peer.Url(), kLong);

    const Outcome outcome = OutcomeOf([&] { client.Connect(); });

    EXPECT_EQ(kOtherPeer, outcome.status);
    EXPECT_THAT(outcome.text, HasSubstr("does not talk as the service does (the peer breaks the framing)"));
}

TEST(UiClient, AReplyThatCannotBeUnpackedIsNotTheServices) {
    Misled misled([](RawPeer& peer) {
        AnswerWhoIsThere(peer);
        peer.Serve("\xff");
    });
    UiClient client(misled.peer.Url(), kLong);
    client.Connect();

    const Outcome outcome = OutcomeOf([&] { client.Get(Field("7")); });

    EXPECT_EQ(kOtherPeer, outcome.status);
    EXPECT_THAT(outcome.text, HasSubstr("(reply of method 0 cannot be unpacked)"));
}

TEST(UiClient, ARequestThatThePeerDoesNotKnowIsRefused) {
    Misled misled([](RawPeer& peer) {
        AnswerWhoIsThere(peer);
        const RawFrame request = peer.Receive();
        peer.Send({request.method, kReply, 1, request.id, ""});
    });
    UiClient client(misled.peer.Url(), kLong);
    client.Connect();

    const Outcome outcome = OutcomeOf([&] { client.MicTest(); });

    EXPECT_EQ(kRefused, outcome.status);
    EXPECT_THAT(outcome.text, StartsWith("the service at " + misled.peer.Url() + " refused runAnalogMicTest"));
}
