// What the service does with each state that the eCall service tells it: its log line by line, its console byte by
// byte, the self-tests it starts; and that neither a restarted peer nor a handler that blocks takes a crash away from
// it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "EcallPeer.h"
#include "Module.h"
#include "ServiceWorld.h"

using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr seconds kRequestLimit{30};
constexpr EcallState kIdle{3, 0, 5, 0, 0, 2};

Match IsScript(std::string partOfText) {
    Match match = IsKind(Kind::Script);
    match.contains = std::move(partOfText);
    return match;
}

/// The end of a notification's handling; trace file and console come by different roads.
const Match kExits[] = {IsTraced("SetGpioServiceState - exit"), IsWithinConsoleLine("SetGpioServiceState - exit")};

/// The service with its eCall service, after start-up.
class EcallUIAppNotify : public testing::Test {
  protected:
    void StartUp() {
        ASSERT_TRUE(service.Start());
        module.StartService();
        for (const Match& exit : kExits) {
            journal.AwaitCount(2, exit);
        }
        journal.Await(IsTraced("Wait for an event"));
    }
    /// Notifies the state and waits until it has been dealt with. Answers the number of the first entry that belongs to
    /// it.
    uint64_t Notify(const EcallState& state) {
        const uint64_t mark = journal.Mark();
        service.SetState(state);
        for (const Match& exit : kExits) {
            journal.Await(exit, mark);
        }
        return mark;
    }
    /// The lines that a notified state leaves in the trace.
    std::vector<std::string> TraceOf(const EcallState& state) {
        return journal.Texts(IsKind(Kind::Trace), Notify(state));
    }
    /// Of them, those of the unit under test. The bare file name shows that they are no reports of failures.
    std::vector<std::string> FieldsOf(const EcallState& state) { return Fields(Notify(state)); }
    std::vector<std::string> Fields(uint64_t mark) {
        Match ofThisUnit = IsKind(Kind::Trace);
        ofThisUnit.subject = "EcallUIAppNotify.cpp";
        return journal.Texts(ofThisUnit, mark);
    }
    size_t SelfTestReports() { return service.Requests(EcallMethod::UpdateSelfTestAllDevicesState); }

    Module module;
    Journal& journal = module.journal;
    EcallPeer service{journal};
};

TEST_F(EcallUIAppNotify, EveryNotificationIsLoggedFieldByField) {
    StartUp();

    const uint64_t mark = Notify({101, 1, 4, 5, 2, 1});

    EXPECT_THAT(Fields(mark),
                ElementsAre("cbCnt = 5 ", "service state    : TEcallappServiceState_ActiveAutomaticECall (101) ",
                            "network State    : TNetworkState_LimitedService (4) ",
                            "call State       : TEcallappCallState_Connected_Data_TransferingMsd (5) ",
                            "audio out State  : TAudioOutState_VoiceCall (2) ",
                            "self test State  : TSelfTestState_Failure (1) ",
                            "simProfileState State  : TSimProfileState_Glonass (1) "));
    EXPECT_THAT(journal.Texts(IsKind(Kind::Trace), mark), Contains("SetGpioServiceState - Enter, serviceState = 101"));
}

TEST_F(EcallUIAppNotify, TheConsoleShowsTheSameLinesEachEndedByLineFeedAndReturn) {
    // No delayed switch-off of the relay among the lines.
    module.root.WriteFile(file::kConfiguration, R"({"AudioRelayUsed": false})");
    StartUp();

    Notify({3, 0, 5, 2, 0, 2});

    EXPECT_THAT(module.Service().Output(), HasSubstr("dispatchNonRpcMessage - notification received (method_index=18)\n"
                                                     "cbCnt = 4 \n\n\r"
                                                     "service state    : TEcallappServiceState_Available_Idle (3) \n\r"
                                                     "network State    : TNetworkState_CsFullService (5) \n\r"
                                                     "call State       : TEcallappCallState_Dialing (2) \n\r"
                                                     "audio out State  : TAudioOutState_Muted (0) \n\r"
                                                     "self test State  : TSelfTestState_Unknown (2) \n\r"
                                                     "simProfileState State  : TSimProfileState_Commercial (0) \n\r"
                                                     "SetGpioServiceState - Enter, serviceState = 3\n\r"));
}

TEST_F(EcallUIAppNotify, TheCountStepsOnceForTheConsoleAndOnceForTheFile) {
    StartUp();

    Notify(kIdle);

    const std::string console = module.Service().Output();
    const std::string file = *module.root.ReadFile(file::kTrace);
    for (const std::string number : {"0", "2", "4"}) {
        EXPECT_THAT(console, HasSubstr("cbCnt = " + number + " \n\n\r"));
    }
    for (const std::string number : {"1", "3", "5"}) {
        EXPECT_THAT(console, Not(HasSubstr("cbCnt = " + number + " ")));
        EXPECT_THAT(file, HasSubstr(" : cbCnt = " + number + " \n\n"));
    }
}

struct Row {
    EcallState state;
    const char* line;
};

TEST_F(EcallUIAppNotify, EveryValueHasItsNameAndEveryOtherItsErrorLine) {
    const Row rows[] = {
        {{0, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_Disabled (0) "},
        {{1, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_Broken (1) "},
        {{2, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_Initializing (2) "},
        {{3, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_Available_Idle (3) "},
        {{4, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_Available_Idle_TestMode (4) "},
        {{100, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_ActiveManualECall (100) "},
        {{101, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_ActiveAutomaticECall (101) "},
        {{102, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_ActiveManualTestECall (102) "},
        {{103, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_ActiveAutomaticTestECall (103) "},
        {{104, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_ExpectCallback (104) "},
        {{105, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_ActiveManualECallAwaitingT1Expiry (105) "},
        {{106, 0, 5, 0, 0, 2}, "service state    : TEcallappServiceState_ActiveManualTestECallAwaitingT1Expiry (106) "},
        {{5, 0, 5, 0, 0, 2}, "service state    : ERROR (value = 5) "},
        {{107, 0, 5, 0, 0, 2}, "service state    : ERROR (value = 107) "},
        {{3, 0, 0, 0, 0, 2}, "network State    : TNetworkState_Disabled (0) "},
        {{3, 0, 1, 0, 0, 2}, "network State    : TNetworkState_OutOfCoverage (1) "},
        {{3, 0, 2, 0, 0, 2}, "network State    : TNetworkState_Searching (2) "},
        {{3, 0, 3, 0, 0, 2}, "network State    : TNetworkState_DormantMode (3) "},
        {{3, 0, 4, 0, 0, 2}, "network State    : TNetworkState_LimitedService (4) "},
        {{3, 0, 5, 0, 0, 2}, "network State    : TNetworkState_CsFullService (5) "},
        {{3, 0, 6, 0, 0, 2}, "network state    : ERROR (value = 6) "},
        {{3, 0, 5, 0, 0, 2}, "call State       : TEcallappCallState_Inactive (0) "},
        {{3, 0, 5, 1, 0, 2}, "call State       : TEcallappCallState_Ringing (1) "},
        {{3, 0, 5, 2, 0, 2}, "call State       : TEcallappCallState_Dialing (2) "},
        {{3, 0, 5, 3, 0, 2}, "call State       : TEcallappCallState_Connected_Voice (3) "},
        {{3, 0, 5, 4, 0, 2}, "call State       : TEcallappCallState_Connected_Data_WaitingMsdRequest (4) "},
        {{3, 0, 5, 5, 0, 2}, "call State       : TEcallappCallState_Connected_Data_TransferingMsd (5) "},
        {{3, 0, 5, 6, 0, 2}, "call State       : TEcallappCallState_Connected_Data_LLACKReceived (6) "},
        {{3, 0, 2, 7, 0, 2}, "call state       : ERROR (value = 2) "},
        {{3, 0, 5, 9, 0, 2}, "call state       : ERROR (value = 5) "},
        {{3, 0, 5, 0, 0, 2}, "audio out State  : TAudioOutState_Muted (0) "},
        {{3, 0, 5, 0, 1, 2}, "audio out State  : TAudioOutState_PlayingVoicePrompt (1) "},
        {{3, 0, 5, 0, 2, 2}, "audio out State  : TAudioOutState_VoiceCall (2) "},
        {{3, 0, 5, 0, 3, 2}, "audio out state  : ERROR (value = 3) "},
        {{3, 0, 5, 0, 0, 0}, "self test State  : TSelfTestState_Ok (0) "},
        {{3, 0, 5, 0, 0, 1}, "self test State  : TSelfTestState_Failure (1) "},
        {{3, 0, 5, 0, 0, 2}, "self test State  : TSelfTestState_Unknown (2) "},
        {{3, 0, 5, 0, 0, 4}, "self test state  : ERROR (value = 4) "},
        {{3, 0, 5, 0, 0, 0xffffffff}, "self test state  : ERROR (value = -1) "},
        {{3, 0, 5, 0, 0, 2}, "simProfileState State  : TSimProfileState_Commercial (0) "},
        {{3, 1, 5, 0, 0, 2}, "simProfileState State  : TSimProfileState_Glonass (1) "},
        {{3, 2, 5, 0, 0, 2}, "simProfileState state  : ERROR (value = 2) "},
    };
    StartUp();

    for (const Row& row : rows) {
        const auto fields = FieldsOf(row.state);
        EXPECT_THAT(fields, Contains(row.line));
        EXPECT_EQ(7U, fields.size());
    }
}

TEST_F(EcallUIAppNotify, AnUnknownServiceStateIsHandedOnToTheOutputs) {
    StartUp();

    const auto trace = TraceOf({50, 0, 5, 0, 0, 2});

    EXPECT_THAT(trace, Contains("service state    : ERROR (value = 50) "));
    EXPECT_THAT(trace, Contains("SetGpioServiceState - Enter, serviceState = 50"));
    EXPECT_THAT(trace, Contains("SetGpioServiceState - bad parameter: serviceState = 50"));
}

// --- Self-tests ---

const char* const kRequested =
    "self test State  : TSelfTestState_Requested (3) ==> request the self-test if not already started";
const char* const kRepeated =
    "self test State  : TSelfTestState_Requested (3) ==> same value than previously ==> do nothing";

TEST_F(EcallUIAppNotify, ASelfTestIsRequestedOnceForEachChangeIntoRequested) {
    StartUp();

    EXPECT_THAT(FieldsOf({3, 0, 5, 0, 0, 3}), Contains(kRequested));
    EXPECT_TRUE(service.AwaitRequests(EcallMethod::UpdateSelfTestAllDevicesState, 1));
    AwaitSleep(module.Service(), "SelfTest");  // only now the flag of this request is taken back
    EXPECT_THAT(FieldsOf({4, 0, 5, 0, 0, 3}), Contains(kRepeated));
    EXPECT_THAT(TraceOf({3, 0, 5, 0, 0, 0}), Contains("self test State  : TSelfTestState_Ok (0) "));
    EXPECT_EQ(1U, SelfTestReports());
    EXPECT_THAT(TraceOf({3, 0, 5, 0, 0, 3}), Contains(kRequested));

    EXPECT_TRUE(service.AwaitRequests(EcallMethod::UpdateSelfTestAllDevicesState, 2));
    EXPECT_EQ(2U, journal.Count(IsTraced(kRequested)));
    EXPECT_EQ(1U, journal.Count(IsTraced(kRepeated)));
}

TEST_F(EcallUIAppNotify, AnUnknownSelfTestStateInBetweenMakesANewRequest) {
    StartUp();

    EXPECT_THAT(TraceOf({3, 0, 5, 0, 0, 3}), Contains(kRequested));
    EXPECT_THAT(TraceOf({3, 0, 5, 0, 0, 7}), Contains("self test state  : ERROR (value = 7) "));
    EXPECT_THAT(TraceOf({3, 0, 5, 0, 0, 3}), Contains(kRequested));
}

TEST_F(EcallUIAppNotify, TheVeryFirstRecordCanRequestASelfTest) {
    service.SetState({3, 0, 5, 0, 0, 3});

    StartUp();

    EXPECT_EQ(1U, journal.Count(IsTraced(kRequested)));
    EXPECT_EQ(1U, journal.Count(IsTraced(kRepeated)));
    EXPECT_TRUE(service.AwaitRequests(EcallMethod::UpdateSelfTestAllDevicesState, 1));
}

// --- The road of a crash stays open ---

TEST_F(EcallUIAppNotify, ARestartedServiceIsFollowedAgain) {
    StartUp();

    service.Stop();
    ASSERT_TRUE(service.Start());
    ASSERT_TRUE(service.AwaitRequests(EcallMethod::Subscribe, 2));

    EXPECT_THAT(TraceOf({101, 0, 5, 2, 0, 2}),
                Contains("service state    : TEcallappServiceState_ActiveAutomaticECall (101) "));
    EXPECT_THAT(module.Service().Output(), HasSubstr("connectionStatusCbFn - CLOSED"));
    const uint64_t mark = journal.Mark();
    module.SensorBecomes(SensorStatus::Emergency);
    journal.Await(IsTraced("Auto Ecall triggered"), mark);
}

TEST_F(EcallUIAppNotify, ASilentServiceDelaysTheNextEventByTheRequestLimitOnly) {
    StartUp();
    service.AnswerAll({.held = true});
    module.SensorBecomes(SensorStatus::Emergency);
    const Entry asked = journal.Await(IsRpcRequest("triggerEcall"));

    module.SensorBecomes(SensorStatus::Normal);
    const Entry next =
        journal.Await(IsTraced("ecall-ens AIRBAG_SENSOR_NORMAL_MODE_10HZ"), asked.seq, kRequestLimit + seconds(15));

    EXPECT_GT(next.time - asked.time, kRequestLimit / 2);  // it does wait; the peer may see the request late
    EXPECT_LE(next.time - asked.time, kRequestLimit + seconds(10));
    EXPECT_EQ(0U, journal.Count(IsTraced("Auto Ecall triggered")));
    service.Release();
    service.AnswerAll({});
    module.SensorBecomes(SensorStatus::Emergency);
    journal.Await(IsTraced("Auto Ecall triggered"), next.seq);
}

TEST_F(EcallUIAppNotify, ANotificationThatOvertakesTheReplyDoesNotHoldTheTriggerBack) {
    StartUp();
    service.Answer(EcallMethod::TriggerEcall, {.notifyFirst = true});

    module.SensorBecomes(SensorStatus::Emergency);
    const Entry asked = journal.Await(IsRpcRequest("triggerEcall"));
    const Entry triggered = journal.Await(IsTraced("Auto Ecall triggered"));
    journal.Await(IsTraced("serviceState = 101"));

    EXPECT_LT(triggered.time - asked.time, seconds(10));
    const Entry notified = journal.Await(IsKind(Kind::RpcNotify), asked.seq);
    const Entry replied = journal.Await(IsReplyTo("triggerEcall"), asked.seq);
    EXPECT_LT(notified.seq, replied.seq);
}

TEST_F(EcallUIAppNotify, AnAudioScriptThatNeverEndsDoesNotKeepACrashFromBeingReported) {
    StartUp();
    ScriptBehaviour endless;
    endless.hangs = true;
    module.SetScript(file::kAudioScript, endless);
    const uint64_t mark = journal.Mark();
    service.SetState({100, 0, 5, 3, 2, 2});  // its handler starts the script and waits for its end
    journal.Await(IsScript("begin"), mark);

    module.SensorBecomes(SensorStatus::Emergency);

    const Entry asked = journal.Await(IsRpcRequest("triggerEcall"), mark);
    const Entry triggered = journal.Await(IsTraced("Auto Ecall triggered"), mark);
    EXPECT_LT(triggered.time - asked.time, seconds(10));
    EXPECT_EQ(0U, journal.Count(IsScript("end"), mark));
    EXPECT_EQ(0U, journal.Count(IsTraced("SetGpioServiceState - exit"), mark));
}

}  // namespace
