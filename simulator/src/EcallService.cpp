// A handler fills the payload of its reply and answers the responsecode; EcallServe does what all replies share. The
// table of handlers is in the order of the methods' numbers.
#include "EcallService.h"

#include <algorithm>
#include <bit>

#include "MessageBlank.h"
#include "MessageText.h"

namespace {

template <typename T>
const T& As(const ProtobufCMessage& message) {
    return reinterpret_cast<const T&>(message);
}

template <typename T>
T& As(ProtobufCMessage& message) {
    return reinterpret_cast<T&>(message);
}

/// A reply's text field borrows the service's text; nobody writes through the pointer.
char* Borrow(const std::string& text) {
    return const_cast<char*>(text.c_str());
}

uint32_t Code(EcallAnswer answer) {
    return answer == EcallAnswer::Refused ? kEcallRefused : kEcallOk;
}

EcallPlan Plan(const EcallService& service) {
    const auto flag = [&](unsigned number) { return service.params.at(number).boolValue; };
    return {
        .msdFails = service.msdFails,
        .manualCanCancel =
            flag(COM__VANTU__ECALLAPP__TECALL_CFG_PARAM_NAME__TEcallCfgParamName_EGTS_ECALL_MANUAL_CAN_CANCEL),
        .restoreContext =
            flag(COM__VANTU__ECALLAPP__TECALL_CFG_PARAM_NAME__TEcallCfgParamName_APP_RESTORE_CONTEXT_ON_BOOT),
        .leaveTestAfterCall = flag(
            COM__VANTU__ECALLAPP__TECALL_CFG_PARAM_NAME__TEcallCfgParamName_APP_EXIT_TESTMODE_AFTER_ECALL_DEACTIVATION)};
}

template <typename T>
void KeepNewest(std::deque<T>& list, T value, size_t kept) {
    list.push_front(std::move(value));
    list.resize(std::min(list.size(), kept));
}

void StoreMsd(EcallService& service) {
    std::string msd =
        std::string(service.life.automatic ? "automatic" : "manual") + (service.life.test ? " test call" : " call");
    if (!service.before.empty()) {
        msd += ", " + MessageText(&service.before.front().base);
    }
    const int32_t kept =
        service.params[COM__VANTU__ECALLAPP__TECALL_CFG_PARAM_NAME__TEcallCfgParamName_ERA_NUMBER_OF_MSD_STORED]
            .intValue;
    KeepNewest(service.msds, std::move(msd), static_cast<size_t>(std::max(kept, 0)));
}

/// The one place where the life changes.
void EnterLife(EcallService& service, const EcallLife& next) {
    if (next.phase == EcallPhase::Triggered) {
        service.after.clear();
    }
    if (next.phase == EcallPhase::TransferringMsd) {
        StoreMsd(service);
    }
    service.life = next;
    ++service.steps;
    EcallShow(next, service.state);
}

uint32_t Happen(EcallService& service, EcallEvent event) {
    return Code(EcallHappen(service, event));
}

uint32_t TriggerEcall(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage&) {
    const bool automatic = As<Com__Vantu__Ecallapp__TriggerEcallRequest>(request).automatic != 0;
    return Happen(service, automatic ? EcallEvent::TriggerAutomatic : EcallEvent::TriggerManual);
}

template <EcallEvent event>
uint32_t MakeHappen(EcallService& service, const ProtobufCMessage&, ProtobufCMessage&) {
    return Happen(service, event);
}

/// Vehicle data, a version or a subscription: taken note of (the journal shows it), nothing depends on it here.
uint32_t TakeNote(EcallService&, const ProtobufCMessage&, ProtobufCMessage&) {
    return kEcallOk;
}

uint32_t GetSelfTest(EcallService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    auto& result = *As<Com__Vantu__Ecallapp__GetSelfTestAllDevicesStateResponse>(reply).selftestalldevicesstate;
    MessageSetEnums(result.base, service.selfTest);
    return kEcallOk;
}

/// A report answers a requested self-test; devices that are not handled by the reporter keep their last result.
uint32_t UpdateSelfTest(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage&) {
    const auto& update = As<Com__Vantu__Ecallapp__UpdateSelfTestAllDevicesStateRequest>(request);
    std::array<uint32_t, kSelfTestDevices> report{};
    MessageGetEnums(update.selftestalldevicesstate->base, report);
    for (size_t device = 0; device < kSelfTestDevices; ++device) {
        if (report.at(device) != ecall::kDeviceNotHandled) {
            service.selfTest.at(device) = report.at(device);
        }
    }
    const bool failed = std::ranges::count(report, ecall::kDeviceFailed) > 0;
    if (service.state.selfTestState == ecall::kSelfTestRequested && !service.byHand) {
        service.state.selfTestState = failed ? ecall::kSelfTestFailed : ecall::kSelfTestSuccess;
    }
    return kEcallOk;
}

uint32_t UpdateGnssLocation(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage&) {
    Com__Vantu__Ecallapp__TGnssLocation location =
        *As<Com__Vantu__Ecallapp__UpdateGnssLocationRequest>(request).location;
    location.base = PROTOBUF_C_MESSAGE_INIT(location.base.descriptor);  // its unknown fields end with the request
    KeepNewest(IsEcallActive(service.life.phase) ? service.after : service.before, location, kPositionsKept);
    return kEcallOk;
}

uint32_t RequestState(EcallService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    EcallFillState(service.state, As<Com__Vantu__Ecallapp__RequestStateResponse>(reply).ecallappstate->base);
    return kEcallOk;
}

uint32_t ParamNumber(const ProtobufCMessage& request) {
    std::array<uint32_t, 1> number{};
    MessageGetEnums(request, number);
    return number.front();
}

uint32_t GetCfgParameter(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage& reply) {
    const uint32_t number = ParamNumber(request);
    if (number >= kEcallParamCount) {
        return kEcallNoSuchOne;
    }
    const EcallParam& param = service.params.at(number);
    auto& value = *As<Com__Vantu__Ecallapp__GetCfgParameterResponse>(reply).paramvalue;
    value.boolvalue = param.boolValue ? 1 : 0;
    value.intvalue = param.intValue;
    value.strvalue = Borrow(param.strValue);
    return kEcallOk;
}

uint32_t SetCfgParameter(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage&) {
    const auto& set = As<Com__Vantu__Ecallapp__SetCfgParameterRequest>(request);
    const uint32_t number = ParamNumber(request);
    if (number >= kEcallParamCount) {
        return kEcallNoSuchOne;
    }
    service.params.at(number) = {.boolValue = set.paramvalue->boolvalue != 0,
                                 .intValue = set.paramvalue->intvalue,
                                 .strValue = set.paramvalue->strvalue};
    return kEcallOk;
}

/// Index -1 is the newest position before the crash, -2 the one before it; 0 the newest after it, and so on.
uint32_t GetGnssLocationHistory(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage& reply) {
    const int32_t index = As<Com__Vantu__Ecallapp__GetGnssLocationHistoryRequest>(request).index;
    auto& history = *As<Com__Vantu__Ecallapp__GetGnssLocationHistoryResponse>(reply).ecallgnsslocationhistory;
    history.totalgnsslocationstoredbeforecrash = static_cast<uint32_t>(service.before.size());
    history.totalgnsslocationstoredaftercrash = static_cast<uint32_t>(service.after.size());
    history.index = index;
    const auto& side = index < 0 ? service.before : service.after;
    const size_t place =
        index < 0 ? static_cast<size_t>(-(static_cast<int64_t>(index) + 1)) : static_cast<size_t>(index);
    if (place >= side.size()) {
        return kEcallNoSuchOne;
    }
    *history.data = side.at(place);
    return kEcallOk;
}

uint32_t GetMsdHistory(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage& reply) {
    const uint32_t index = As<Com__Vantu__Ecallapp__GetMsdHistoryRequest>(request).historyindnumber;
    auto& history = *As<Com__Vantu__Ecallapp__GetMsdHistoryResponse>(reply).ecallmsdhistory;
    history.totalmsdstored = static_cast<uint32_t>(service.msds.size());
    history.index = index;
    if (index >= service.msds.size()) {
        return kEcallNoSuchOne;
    }
    history.info = Borrow(service.msds.at(index));
    return kEcallOk;
}

uint32_t GetOperatingMode(EcallService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    auto& mode = As<Com__Vantu__Ecallapp__GetOperatingModeResponse>(reply).mode;
    const EcallPhase phase = service.life.phase;
    if (phase == EcallPhase::TestIdle || (service.life.test && IsEcallActive(phase))) {
        mode = COM__VANTU__ECALLAPP__TECALL_OPERATING_MODE__TEcallOperatingMode_Test;
    } else if (IsEcallActive(phase)) {
        mode = COM__VANTU__ECALLAPP__TECALL_OPERATING_MODE__TEcallOperatingMode_EmergencyCall;
    } else {
        mode = COM__VANTU__ECALLAPP__TECALL_OPERATING_MODE__TEcallOperatingMode_EcallEra;
    }
    return kEcallOk;
}

uint32_t GetSimInfo(EcallService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    auto& info = *As<Com__Vantu__Ecallapp__GetSimInfoResponse>(reply).siminfo;
    info.simpresent = service.sim.present ? 1 : 0;
    info.ecallcapable = service.sim.ecallCapable ? 1 : 0;
    info.ecalltestnumber = Borrow(service.sim.testNumber);
    info.ecallreconfigurenumber = Borrow(service.sim.reconfigureNumber);
    info.ecalldualprofileenable = service.sim.dualProfile ? 1 : 0;
    info.ecallcurrentprofile = service.sim.profile;
    return kEcallOk;
}

uint32_t GetVersion(EcallService&, const ProtobufCMessage&, ProtobufCMessage& reply) {
    static const std::string version("virtual module 1.0");
    As<Com__Vantu__Ecallapp__GetVersionResponse>(reply).strversion = Borrow(version);
    return kEcallOk;
}

uint32_t Subscribe(EcallService&, const ProtobufCMessage& request, ProtobufCMessage&) {
    const uint32_t id = As<Com__Vantu__Ms__Protobuf__SubscribeRequest>(request).messageid;
    return id == static_cast<uint32_t>(EcallMethod::NotifyNotifyState) ? kEcallOk : kEcallNoSuchOne;
}

uint32_t GetIEcallAppVersion(EcallService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    auto& version = As<Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse>(reply);
    version.major = service.identity.major;
    version.minor = service.identity.minor;
    version.name = Borrow(service.identity.name);
    return kEcallOk;
}

using Handler = uint32_t (*)(EcallService& service, const ProtobufCMessage& request, ProtobufCMessage& reply);

constexpr std::array<Handler, kEcallMethodCount> kHandlers{
    TriggerEcall,                           // 0
    MakeHappen<EcallEvent::UserCancel>,     // 1
    MakeHappen<EcallEvent::Disconnect>,     // 2
    TakeNote,                               // 3 updateVehicleConfig
    TakeNote,                               // 4 updateVehicleState
    GetSelfTest,                            // 5
    UpdateSelfTest,                         // 6
    UpdateGnssLocation,                     // 7
    RequestState,                           // 8
    GetCfgParameter,                        // 9
    SetCfgParameter,                        // 10
    GetGnssLocationHistory,                 // 11
    GetMsdHistory,                          // 12
    MakeHappen<EcallEvent::EnterTestMode>,  // 13
    MakeHappen<EcallEvent::LeaveTestMode>,  // 14
    GetOperatingMode,                       // 15
    GetSimInfo,                             // 16
    GetVersion,                             // 17
    nullptr,                                // 18 notifyNotifyState
    Subscribe,                              // 19
    Subscribe,                              // 20 unsubscribe
    GetIEcallAppVersion,                    // 21
};

}  // namespace

EcallService::EcallService() {
    selfTest.fill(ecall::kDeviceNotHandled);
}

void EcallServe(EcallService& service, EcallMethod method, const ProtobufCMessage& request, ProtobufCMessage& reply) {
    constexpr unsigned kResponsecodeField = 1;
    const uint32_t code = kHandlers.at(static_cast<size_t>(method))(service, request, reply);
    MessageSetUnsigned(reply, kResponsecodeField, code);
}

EcallAnswer EcallHappen(EcallService& service, EcallEvent event) {
    if (service.byHand) {
        return EcallAnswer::NoMeaning;
    }
    EcallDecision decision = EcallDecide(service.life, event, Plan(service));
    const EcallAnswer answer = decision.answer;
    while (decision.answer == EcallAnswer::Done) {
        EnterLife(service, decision.next);
        if (EcallDuration(service.life.phase, service.timings) > std::chrono::milliseconds(0)) {
            break;
        }
        decision = EcallDecide(service.life, EcallEvent::TimeUp, Plan(service));
    }
    return answer;
}

void EcallFillState(const EcallState& state, ProtobufCMessage& message) {
    const auto values = std::bit_cast<std::array<uint32_t, 6>>(state);
    MessageSetEnums(message, values);
}

const char* EcallMethodName(EcallMethod method) {
    return com__vantu__ecallapp__iecall_app__descriptor.methods[static_cast<size_t>(method)].name;
}
