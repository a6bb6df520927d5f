// The start-up stage that joins the service to the eCall service: what it asks, in which order, what it says, and when
// it ends the process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <set>

#include "EcallPeer.h"
#include "Module.h"
#include "ServiceWorld.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr uint32_t kAudioConfiguration = 53;

/// The bare file name shows that it is no report of a failure.
Match IsSaidAs(std::string wholeMessage) {
    Match match = IsTracedAs(std::move(wholeMessage));
    match.subject = "EcallUIAppConnect.cpp";
    return match;
}

class EcallUIAppConnect : public testing::Test {
  protected:
    /// The service starts with this microphone configured, and an eCall service that uses that one. Neither button nor
    /// sensor nor relay is used, so that no thread writes in between.
    void Start(int configured, int used) {
        module.root.WriteFile(file::kConfiguration,
                              R"({"GpioInputPwm_ENS_Used": false, "GpioInputButton_nRQST_Used": false, )"
                              R"("AudioRelayUsed": false, "EcallMicrophoneSource": )" +
                                  std::to_string(configured) + "}");
        service.With([used](EcallService& served) { served.params[kAudioConfiguration].intValue = used; });
        ASSERT_TRUE(service.Start());
        module.StartService();
    }
    void AwaitStartUp() {
        journal.AwaitCount(2, IsTraced("SetGpioServiceState - exit"));
        journal.AwaitCount(2, IsWithinConsoleLine("SetGpioServiceState - exit"));
    }
    /// The requests so far, by method.
    std::vector<std::string> Requests() {
        std::vector<std::string> methods;
        for (const Entry& entry : journal.All(IsKind(Kind::RpcRequest))) {
            methods.push_back(entry.subject);
        }
        return methods;
    }
    /// The process ended with status 1 after this message on console, system log and trace file.
    void ExpectEndWith(const std::string& message) {
        const auto status = module.Service().WaitForEnd();
        ASSERT_TRUE(status);
        EXPECT_EQ("exited 1", PrintStatus(*status));
        EXPECT_THAT(module.Service().Output(), HasSubstr(message + "\n\r"));
        journal.Await(IsInSyslogAs(message));
        const Entry traced = journal.Await(IsTracedAs(message));
        EXPECT_THAT(traced.bytes, HasSubstr("srvc_c/src/EcallUIAppConnect.cpp ("));
        EXPECT_THAT(module.Service().Output(), Not(HasSubstr("InitGpio")));
    }

    Module module;
    Journal& journal = module.journal;
    EcallPeer service{journal};
};

TEST_F(EcallUIAppConnect, AsksInThisOrder) {
    Start(1, 1);
    AwaitStartUp();

    EXPECT_THAT(Requests(),
                ElementsAre("getIEcallAppVersion", "subscribe", "requestState", "getCfgParameter", "requestState"));
    const Entry subscription = journal.Await(IsRpcRequest("subscribe"));
    EXPECT_THAT(subscription.text, HasSubstr("18"));
    EXPECT_THAT(subscription.text, HasSubstr("EcallAppClient"));
    EXPECT_THAT(journal.Await(IsRpcRequest("getCfgParameter")).text, HasSubstr("AUDIO_CONFIG_NUMBER"));
}

TEST_F(EcallUIAppConnect, EachStepFollowsTheEndOfTheOneBefore) {
    Start(1, 1);
    AwaitStartUp();

    const std::string trace = *module.root.ReadFile(file::kTrace);
    std::size_t place = 0;
    for (const char* step : {"cbCnt = 1 ", "SetGpioServiceState - exit",
                             "Ecall & EcallUI are using the same audio micro configuration (1)", "InitGpio - Enter",
                             "InitGpio - exit", "XirEcallapp_requestState ", "cbCnt = 3 "}) {
        place = trace.find(step, place);
        ASSERT_NE(std::string::npos, place) << step;
    }
}

TEST_F(EcallUIAppConnect, SaysOnTheConsoleHowTheConnectionComesAbout) {
    Start(1, 1);
    AwaitStartUp();

    const std::string console = module.Service().Output();
    EXPECT_THAT(console, HasSubstr("XirEcallapp_createProxy - dispatchThread started "));
    EXPECT_THAT(console, HasSubstr("Connecting... (srvcUrl=xirtcp://127.0.0.1:50911)\n"));
    EXPECT_THAT(console, HasSubstr("connectionStatusCbFn - OPENED"));
    EXPECT_THAT(console, HasSubstr("Connected. (srvcUrl=xirtcp://127.0.0.1:50911)\n"));
    EXPECT_THAT(console, HasSubstr("SendSubscribeRequest send subscription message to server side (msgId=18)\n"));
    EXPECT_THAT(console, HasSubstr("SendSubscribeRequest- subscription response = 0\n"));
    EXPECT_LT(console.find("SendSubscribeRequest send"), console.find("SendSubscribeRequest- subscription"));
}

TEST_F(EcallUIAppConnect, AgreeingMicrophonesAreLeftAlone) {
    for (const int source : {0, 1}) {
        SCOPED_TRACE(source);
        const uint64_t mark = journal.Mark();
        Start(source, source);
        journal.Await(
            IsSaidAs("Ecall & EcallUI are using the same audio micro configuration (" + std::to_string(source) + ")"),
            mark);
        journal.AwaitCount(2, IsRpcRequest("requestState"), mark);
        EXPECT_EQ(0U, service.Requests(EcallMethod::SetCfgParameter));
        module.Service().Kill();
        service.Stop();
    }
}

TEST_F(EcallUIAppConnect, AnUnknownMicrophoneSourceAgreesWithEverything) {
    Start(2, 0);
    journal.Await(IsTracedAs("Ecall & EcallUI are using the same audio micro configuration (2)"));
    AwaitStartUp();

    EXPECT_EQ(0U, service.Requests(EcallMethod::SetCfgParameter));
}

struct Disagreement {
    const char* name;
    int configured;
    int used;
    const char* message;

    friend void PrintTo(const Disagreement& disagreement, std::ostream* out) { *out << disagreement.name; }
};

class EcallUIAppConnectDisagreement : public EcallUIAppConnect, public testing::WithParamInterface<Disagreement> {};

TEST_P(EcallUIAppConnectDisagreement, IsSettledByWritingTheParameter) {
    Start(GetParam().configured, GetParam().used);
    AwaitStartUp();

    EXPECT_EQ(1U, journal.Count(IsSaidAs(GetParam().message)));
    EXPECT_THAT(Requests(), ElementsAre("getIEcallAppVersion", "subscribe", "requestState", "getCfgParameter",
                                        "setCfgParameter", "requestState"));
    service.With([](EcallService& served) {
        EXPECT_EQ(GetParam().configured, served.params[kAudioConfiguration].intValue);
        EXPECT_FALSE(served.params[kAudioConfiguration].boolValue);
        EXPECT_EQ("", served.params[kAudioConfiguration].strValue);
    });
    EXPECT_EQ(0U, journal.Count(IsTraced("using the same audio micro configuration")));
}

INSTANTIATE_TEST_SUITE_P(
    Each, EcallUIAppConnectDisagreement,
    testing::Values(Disagreement{"AnalogWanted", 0, 1,
                                 "DEFAULT_ANALOG_MIC ==> set the Ecall APP_AUDIO_CONFIG_NUMBER configuration"},
                    Disagreement{"AnalogWantedInsteadOfAnUnknown", 0, 5,
                                 "DEFAULT_ANALOG_MIC ==> set the Ecall APP_AUDIO_CONFIG_NUMBER configuration"},
                    Disagreement{"DigitalWanted", 1, 0,
                                 "EXTERNAL_DIGITAL_MIC ==> set the Ecall APP_AUDIO_CONFIG_NUMBER configuration"},
                    Disagreement{"DigitalWantedInsteadOfAnUnknown", 1, -1,
                                 "EXTERNAL_DIGITAL_MIC ==> set the Ecall APP_AUDIO_CONFIG_NUMBER configuration"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(EcallUIAppConnect, TheClosingPullIsAnnouncedWithALineEndOfItsOwnOnTheConsole) {
    Start(1, 1);
    AwaitStartUp();

    EXPECT_THAT(module.Service().Output(), HasSubstr("\rXirEcallapp_requestState \n\n\rcbCnt = 2 \n"));
    EXPECT_THAT(*module.root.ReadFile(file::kTrace),
                testing::ContainsRegex("EcallUIAppConnect.cpp \\( *[0-9]+\\) : XirEcallapp_requestState \n[^\n]"));
}

TEST_F(EcallUIAppConnect, WithoutTheEcallServiceNothingIsAsked) {
    module.root.WriteFile(file::kConfiguration, R"({"ConnectEcallService": false})");
    ASSERT_TRUE(service.Start());

    module.StartService();
    journal.Await(IsTraced("InitGpio - exit"));
    journal.Await(IsTraced("Wait for an event"));
    module.SensorBecomes(SensorStatus::Emergency);
    journal.Await(IsTraced("pProxyEcallapp == NULL ==> do nothing"));

    EXPECT_EQ(0U, journal.Count(IsKind(Kind::RpcConnect)));
    EXPECT_EQ(0U, journal.Count(IsTraced("XirEcallapp_requestState")));
    EXPECT_THAT(module.Service().Output(), Not(HasSubstr("Connecting...")));
}

TEST_F(EcallUIAppConnect, WaitsForAnEcallServiceThatComesLater) {
    module.StartService();
    journal.Await(
        IsOnConsole("XirEcallapp_createProxy - dispatchThread started Connecting... "
                    "(srvcUrl=xirtcp://127.0.0.1:50911)"));

    ASSERT_TRUE(service.Start());

    AwaitStartUp();
}

TEST_F(EcallUIAppConnect, AFailedPullLeavesNothingToHandOver) {
    service.Answer(EcallMethod::RequestState, {.missing = true});
    Start(1, 1);
    journal.AwaitCount(2, IsRpcRequest("requestState"));
    service.SetState({3, 0, 5, 0, 0, 2});
    journal.Await(IsOnConsole("SetGpioServiceState - exit"));

    EXPECT_THAT(module.Service().Output(), HasSubstr("cbCnt = 0 \n"));
    EXPECT_EQ(1U, journal.Count(IsOnConsole("SetGpioServiceState - exit")));
}

TEST_F(EcallUIAppConnect, AStateThatComesWithABadResponsecodeCounts) {
    service.Answer(EcallMethod::RequestState, {.code = 5});
    Start(1, 1);
    AwaitStartUp();

    EXPECT_EQ(2U, journal.Count(IsTracedAs("service state    : TEcallappServiceState_Disabled (0) ")));
}

TEST_F(EcallUIAppConnect, ARefusedSubscriptionDoesNotStopTheStart) {
    service.Answer(EcallMethod::Subscribe, {.code = 1});
    Start(1, 1);
    AwaitStartUp();

    EXPECT_THAT(module.Service().Output(), HasSubstr("SendSubscribeRequest- subscription response = 1\n"));
    journal.Await(IsInSyslog("XirEcallapp_registerNotifyState error :  srvcResult = 1"));
    EXPECT_EQ(1U, journal.Count(IsTracedAs("XirEcallapp_registerNotifyState error :  srvcResult = 1")));
}

TEST_F(EcallUIAppConnect, AnotherServiceAtTheAddressEndsTheProcess) {
    service.With([](EcallService& served) { served.identity.name = "com.vantu.location"; });
    Start(1, 1);

    ExpectEndWith("XirEcallapp_createProxy error :  srvcResult = -13, pProxyEcallapp = 0x0 ");
}

TEST_F(EcallUIAppConnect, AnotherMajorVersionEndsTheProcess) {
    service.With([](EcallService& served) { served.identity.major = 3; });
    Start(1, 1);

    ExpectEndWith("XirEcallapp_createProxy error :  srvcResult = -14, pProxyEcallapp = 0x0 ");
    EXPECT_THAT(Requests(), ElementsAre("getIEcallAppVersion"));
}

TEST_F(EcallUIAppConnect, AnUnreadableMicrophoneParameterEndsTheProcess) {
    service.Answer(EcallMethod::GetCfgParameter, {.code = 3});
    Start(1, 1);

    ExpectEndWith("XirEcallapp_getCfgParameter error :  srvcResult = 3");
    EXPECT_THAT(Requests(), ElementsAre("getIEcallAppVersion", "subscribe", "requestState", "getCfgParameter"));
}

TEST_F(EcallUIAppConnect, AMissingReplyToTheMicrophoneParameterEndsTheProcess) {
    service.Answer(EcallMethod::GetCfgParameter, {.missing = true});
    Start(1, 1);

    ExpectEndWith("XirEcallapp_getCfgParameter error :  srvcResult = -12");
}

TEST_F(EcallUIAppConnect, AnUnwritableMicrophoneParameterEndsTheProcess) {
    service.Answer(EcallMethod::SetCfgParameter, {.code = 4});
    Start(1, 0);

    ExpectEndWith("XirEcallapp_setCfgParameter error :  srvcResult = 4");
    EXPECT_THAT(Requests(),
                ElementsAre("getIEcallAppVersion", "subscribe", "requestState", "getCfgParameter", "setCfgParameter"));
}

}  // namespace
