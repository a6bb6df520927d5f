#include "EcallService.h"

#include <gmock/gmock.h>

#include "MessageBlank.h"
#include "MessageText.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

const ProtobufCMethodDescriptor& Descriptor(EcallMethod method) {
    return com__vantu__ecallapp__iecall_app__descriptor.methods[static_cast<size_t>(method)];
}

/// A request that can be filled in, and its reply as text.
struct Question {
    EcallMethod method;
    MessageBlank request;

    explicit Question(EcallMethod asked) : method(asked), request(*Descriptor(asked).input) {}

    std::string AskOf(EcallService& service) const {
        MessageBlank reply(*Descriptor(method).output);
        EcallServe(service, method, request.Get(), reply.Get());
        return MessageText(&reply.Get());
    }
};

std::string Ask(EcallService& service, EcallMethod method) {
    return Question(method).AskOf(service);
}

std::string Trigger(EcallService& service, bool automatic) {
    Question question(EcallMethod::TriggerEcall);
    question.request.As<Com__Vantu__Ecallapp__TriggerEcallRequest>().automatic = automatic ? 1 : 0;
    return question.AskOf(service);
}

std::string GetParam(EcallService& service, uint32_t number) {
    Question question(EcallMethod::GetCfgParameter);
    MessageSetEnums(question.request.Get(), std::array<uint32_t, 1>{number});
    return question.AskOf(service);
}

std::string SetParam(EcallService& service, uint32_t number, int32_t value) {
    Question question(EcallMethod::SetCfgParameter);
    std::string text("text");
    MessageSetEnums(question.request.Get(), std::array<uint32_t, 1>{number});
    auto& record = question.request.As<Com__Vantu__Ecallapp__SetCfgParameterRequest>();
    record.paramvalue->intvalue = value;
    record.paramvalue->strvalue = text.data();
    return question.AskOf(service);
}

std::string Report(EcallService& service, uint32_t speaker) {
    Question question(EcallMethod::UpdateSelfTestAllDevicesState);
    std::array<uint32_t, kSelfTestDevices> report{};
    report.fill(ecall::kDeviceNotHandled);
    report.at(10) = speaker;
    auto& record = question.request.As<Com__Vantu__Ecallapp__UpdateSelfTestAllDevicesStateRequest>();
    MessageSetEnums(record.selftestalldevicesstate->base, report);
    return question.AskOf(service);
}

void Locate(EcallService& service, uint64_t time) {
    Question question(EcallMethod::UpdateGnssLocation);
    question.request.As<Com__Vantu__Ecallapp__UpdateGnssLocationRequest>().location->utctime = time;
    question.AskOf(service);
}

std::string Position(EcallService& service, int32_t index) {
    Question question(EcallMethod::GetGnssLocationHistory);
    question.request.As<Com__Vantu__Ecallapp__GetGnssLocationHistoryRequest>().index = index;
    return question.AskOf(service);
}

std::string Msd(EcallService& service, uint32_t index) {
    Question question(EcallMethod::GetMsdHistory);
    question.request.As<Com__Vantu__Ecallapp__GetMsdHistoryRequest>().historyindnumber = index;
    return question.AskOf(service);
}

/// A service whose calls wait in every phase, to be led on by TimeUp.
EcallService Idle() {
    return {};
}

void Pass(EcallService& service, int phases) {
    for (int phase = 0; phase < phases; ++phase) {
        EcallHappen(service, EcallEvent::TimeUp);
    }
}

TEST(EcallService, ATriggerIsAcceptedAndStartsACall) {
    EcallService service = Idle();

    EXPECT_EQ("responsecode=0", Trigger(service, true));

    EXPECT_EQ(EcallState({.serviceState = 101, .audioOutState = ecall::kVoicePrompt}), service.state);
}

TEST(EcallService, PhasesWithoutTimeArePassedAtOnce) {
    EcallService service = Idle();
    service.timings = {.voice = kNoLimit};

    Trigger(service, false);

    EXPECT_EQ(EcallState({.serviceState = 100, .callState = ecall::kVoice, .audioOutState = ecall::kVoiceCall}),
              service.state);
}

TEST(EcallService, WhatItRefusesGetsCodeOne) {
    EcallService service = Idle();

    EXPECT_EQ("responsecode=1", Ask(service, EcallMethod::UserRequestCancelEcall));
    EXPECT_EQ("responsecode=1", Ask(service, EcallMethod::DisconnectEcall));
}

TEST(EcallService, SetByHandItsStateStandsStill) {
    EcallService service = Idle();
    service.byHand = true;
    service.state.serviceState = 50;

    EXPECT_EQ("responsecode=0", Trigger(service, true));

    EXPECT_EQ(50U, service.state.serviceState);
}

TEST(EcallService, TheStateIsAnsweredAsItIs) {
    EcallService service = Idle();
    service.state.callState = 9;

    EXPECT_EQ(
        "responsecode=0 serviceState=Available_Idle(3) simProfileState=Commercial(0) networkState=CsFullService(5) "
        "callState=?(9) audioOutState=Muted(0) selfTestState=Unknown(2)",
        Ask(service, EcallMethod::RequestState));
}

TEST(EcallService, EveryParameterHasADefault) {
    EcallService service = Idle();

    EXPECT_EQ("responsecode=0 boolValue=0 intValue=0 StrValue=\"ecall_trigger.wav\"", GetParam(service, 0));
    EXPECT_EQ("responsecode=0 boolValue=0 intValue=0 StrValue=\"112\"", GetParam(service, 10));
    EXPECT_EQ("responsecode=0 boolValue=1 intValue=0 StrValue=\"\"", GetParam(service, 47));
    EXPECT_EQ("responsecode=0 boolValue=0 intValue=0 StrValue=\"\"", GetParam(service, 53));
}

TEST(EcallService, AParameterKeepsWhatItIsSetTo) {
    EcallService service = Idle();

    EXPECT_EQ("responsecode=0", SetParam(service, 53, 1));

    EXPECT_EQ("responsecode=0 boolValue=0 intValue=1 StrValue=\"text\"", GetParam(service, 53));
}

TEST(EcallService, ParametersEndAt53) {
    EcallService service = Idle();

    EXPECT_THAT(GetParam(service, 54), StartsWith("responsecode=2"));
    EXPECT_THAT(GetParam(service, 0xFFFFFFFF), StartsWith("responsecode=2"));
    EXPECT_EQ("responsecode=2", SetParam(service, 54, 1));
}

TEST(EcallService, ParametersRuleTheCall) {
    EcallService service = Idle();
    SetParam(service, 37, 0);  // a value without its boolean: manual calls cannot be cancelled
    Trigger(service, false);

    EXPECT_EQ("responsecode=1", Ask(service, EcallMethod::UserRequestCancelEcall));
}

TEST(EcallService, AReportAnswersARequestedSelfTest) {
    EcallService service = Idle();
    service.state.selfTestState = ecall::kSelfTestRequested;

    EXPECT_EQ("responsecode=0", Report(service, 0));

    EXPECT_EQ(ecall::kSelfTestSuccess, service.state.selfTestState);
    EXPECT_THAT(Ask(service, EcallMethod::GetSelfTestAllDevicesState), HasSubstr("loudspeakerConnection=Success(0)"));
    EXPECT_THAT(Ask(service, EcallMethod::GetSelfTestAllDevicesState), HasSubstr("simPresent=NotHandled(2)"));
}

TEST(EcallService, AFailedDeviceFailsTheSelfTest) {
    EcallService service = Idle();
    service.state.selfTestState = ecall::kSelfTestRequested;

    Report(service, ecall::kDeviceFailed);

    EXPECT_EQ(ecall::kSelfTestFailed, service.state.selfTestState);
}

TEST(EcallService, AReportThatNobodyAskedForChangesNoState) {
    EcallService service = Idle();

    Report(service, ecall::kDeviceFailed);

    EXPECT_EQ(ecall::kSelfTestUnknown, service.state.selfTestState);
}

TEST(EcallService, PositionsAreKeptOnBothSidesOfACrash) {
    EcallService service = Idle();
    Locate(service, 1);
    Locate(service, 2);
    Trigger(service, true);
    Locate(service, 3);

    const std::string counts =
        "responsecode=0 totalGnssLocationStoredBeforeCrash=2 totalGnssLocationStoredAfterCrash=1 ";
    EXPECT_THAT(Position(service, -1), StartsWith(counts + "index=-1 isValid=0 utcTime=2"));
    EXPECT_THAT(Position(service, -2), StartsWith(counts + "index=-2 isValid=0 utcTime=1"));
    EXPECT_THAT(Position(service, 0), StartsWith(counts + "index=0 isValid=0 utcTime=3"));
    EXPECT_THAT(Position(service, 1), StartsWith("responsecode=2"));
    EXPECT_THAT(Position(service, INT32_MIN), StartsWith("responsecode=2"));
}

TEST(EcallService, OnlySoManyPositionsAreKept) {
    EcallService service = Idle();
    for (uint64_t time = 0; time <= kPositionsKept; ++time) {
        Locate(service, time);
    }

    EXPECT_EQ(kPositionsKept, service.before.size());
    EXPECT_EQ(kPositionsKept, service.before.front().utctime);
}

TEST(EcallService, EveryCallLeavesItsMsd) {
    EcallService service = Idle();
    EXPECT_EQ("responsecode=2 totalMsdStored=0 index=0 info=null", Msd(service, 0));
    Trigger(service, true);

    Pass(service, 3);

    EXPECT_EQ("responsecode=0 totalMsdStored=1 index=0 info=\"automatic call\"", Msd(service, 0));
}

TEST(EcallService, TheOperatingModeFollowsTheCall) {
    EcallService service = Idle();
    EXPECT_EQ("responsecode=0 mode=EcallEra(1)", Ask(service, EcallMethod::GetOperatingMode));
    EXPECT_EQ("responsecode=0", Ask(service, EcallMethod::SwitchToTestMode));
    EXPECT_EQ("responsecode=0 mode=Test(0)", Ask(service, EcallMethod::GetOperatingMode));
    EXPECT_EQ("responsecode=0", Ask(service, EcallMethod::SwitchFromTestMode));
    Trigger(service, true);

    EXPECT_EQ("responsecode=0 mode=EmergencyCall(2)", Ask(service, EcallMethod::GetOperatingMode));
    EXPECT_EQ("responsecode=1", Ask(service, EcallMethod::SwitchToTestMode));
}

TEST(EcallService, ItSaysWhoItIs) {
    EcallService service = Idle();

    EXPECT_EQ("responsecode=0 major=2 minor=0 name=\"com.vantu.ecallapp.iecallapp\"",
              Ask(service, EcallMethod::GetIEcallAppVersion));
    EXPECT_EQ("responsecode=0 strVersion=\"virtual module 1.0\"", Ask(service, EcallMethod::GetVersion));
    EXPECT_EQ(
        "responsecode=0 simPresent=1 ecallCapable=1 ecallTestNumber=\"+33100000000\" "
        "ecallReconfigureNumber=\"+33100000001\" ecallDualProfileEnable=0 ecallCurrentProfile=0",
        Ask(service, EcallMethod::GetSimInfo));
}

TEST(EcallService, OnlyTheStateCanBeSubscribed) {
    EcallService service = Idle();
    Question question(EcallMethod::Subscribe);
    std::string name("someone");
    auto& request = question.request.As<Com__Vantu__Ms__Protobuf__SubscribeRequest>();
    request.clientname = name.data();

    request.messageid = 18;
    EXPECT_EQ("responsecode=0", question.AskOf(service));
    request.messageid = 17;
    EXPECT_EQ("responsecode=2", question.AskOf(service));
}

TEST(EcallService, VehicleDataIsTakenNoteOf) {
    EcallService service = Idle();

    EXPECT_EQ("responsecode=0", Ask(service, EcallMethod::UpdateVehicleConfig));
    EXPECT_EQ("responsecode=0", Ask(service, EcallMethod::UpdateVehicleState));
}

TEST(EcallService, MethodsGoByTheSchemasNames) {
    EXPECT_STREQ("triggerEcall", EcallMethodName(EcallMethod::TriggerEcall));
    EXPECT_STREQ("notifyNotifyState", EcallMethodName(EcallMethod::NotifyNotifyState));
    EXPECT_STREQ("getIEcallAppVersion", EcallMethodName(EcallMethod::GetIEcallAppVersion));
}

}  // namespace
