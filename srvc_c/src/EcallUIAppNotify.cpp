// The eCall service's states. Of all that is logged here, only the self-test state and the hand-over to the outputs
// act.
//
// A self-test is requested once for each change into "requested": the last state seen is what tells a change from a
// repetition, so it is remembered for every value, out-of-range ones included.

#include "EcallUIAppNotify.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <span>

#include "EcallUIGpioState.h"
#include "EcallUIShared.h"
#include "Trace.h"

namespace {

struct StateName {
    uint32_t value;
    const char* name;
};

/// One enumeration of the state record as the log shows it.
struct StateField {
    const char* label;       ///< opens the line of a known value
    const char* errorLabel;  ///< and of any other
    const char* enumName;
    std::span<const StateName> names;
};

constexpr std::array kServiceStates{
    StateName{0, "Disabled"},
    StateName{1, "Broken"},
    StateName{2, "Initializing"},
    StateName{3, "Available_Idle"},
    StateName{4, "Available_Idle_TestMode"},
    StateName{100, "ActiveManualECall"},
    StateName{101, "ActiveAutomaticECall"},
    StateName{102, "ActiveManualTestECall"},
    StateName{103, "ActiveAutomaticTestECall"},
    StateName{104, "ExpectCallback"},
    StateName{105, "ActiveManualECallAwaitingT1Expiry"},
    StateName{106, "ActiveManualTestECallAwaitingT1Expiry"},
};
constexpr std::array kNetworkStates{
    StateName{0, "Disabled"},    StateName{1, "OutOfCoverage"},  StateName{2, "Searching"},
    StateName{3, "DormantMode"}, StateName{4, "LimitedService"}, StateName{5, "CsFullService"},
};
// The service has one more call state, 7 (MSD transfer failed); the log takes it for an error.
constexpr std::array kCallStates{
    StateName{0, "Inactive"},
    StateName{1, "Ringing"},
    StateName{2, "Dialing"},
    StateName{3, "Connected_Voice"},
    StateName{4, "Connected_Data_WaitingMsdRequest"},
    StateName{5, "Connected_Data_TransferingMsd"},
    StateName{6, "Connected_Data_LLACKReceived"},
};
constexpr std::array kAudioOutStates{StateName{0, "Muted"}, StateName{1, "PlayingVoicePrompt"},
                                     StateName{2, "VoiceCall"}};
// The log's own names for 0 and 1; the schema says Success and Failed.
constexpr std::array kSelfTestStates{StateName{0, "Ok"}, StateName{1, "Failure"}, StateName{2, "Unknown"}};
constexpr std::array kSimProfileStates{StateName{0, "Commercial"}, StateName{1, "Glonass"}};

constexpr StateField kServiceState{"service state    : ", "service state    : ", "TEcallappServiceState",
                                   kServiceStates};
constexpr StateField kNetworkState{"network State    : ", "network state    : ", "TNetworkState", kNetworkStates};
constexpr StateField kCallState{"call State       : ", "call state       : ", "TEcallappCallState", kCallStates};
constexpr StateField kAudioOutState{"audio out State  : ", "audio out state  : ", "TAudioOutState", kAudioOutStates};
constexpr StateField kSelfTestState{"self test State  : ", "self test state  : ", "TSelfTestState", kSelfTestStates};
constexpr StateField kSimProfileState{"simProfileState State  : ", "simProfileState state  : ", "TSimProfileState",
                                      kSimProfileStates};

/// valueOnError: the number that the line of an unknown value shows.
void LogField(const StateField& field, uint32_t value, uint32_t valueOnError) {
    const auto known = std::find_if(field.names.begin(), field.names.end(),
                                    [value](const StateName& candidate) { return candidate.value == value; });
    if (known != field.names.end()) {
        EcallUITrace("%s%s_%s (%d) ", field.label, field.enumName, known->name, value);
    } else {
        EcallUITrace("%sERROR (value = %d) ", field.errorLabel, valueOnError);
    }
}

void LogField(const StateField& field, uint32_t value) {
    LogField(field, value, value);
}

/// The count steps once for each output of the line, so console and file show different numbers: a line that reached
/// only the system log is seen as a single step.
void LogCount() {
    static std::atomic<uint32_t> cbCnt{0};
    EcallUITrace("cbCnt = %d \n", cbCnt.fetch_add(1, std::memory_order_relaxed));
}

void FollowSelfTestState(uint32_t selfTestState) {
    if (selfTestState != TSelfTestState_Requested) {
        LogField(kSelfTestState, selfTestState);
    } else if (LastSelfTestState != TSelfTestState_Requested) {
        EcallUITrace(
            "self test State  : TSelfTestState_Requested (3) ==> request the self-test if not already started");
        SelfTestRequest = 1;
    } else {
        EcallUITrace("self test State  : TSelfTestState_Requested (3) ==> same value than previously ==> do nothing");
    }
    LastSelfTestState = selfTestState;
}

}  // namespace

int EcallStateNotification(const TEcallappState* state) {
    LogCount();
    LogField(kServiceState, state->serviceState);
    LogField(kNetworkState, state->networkState);
    LogField(kCallState, state->callState, state->networkState);  // an unknown call state shows the network state
    LogField(kAudioOutState, state->audioOutState);
    FollowSelfTestState(state->selfTestState);
    LogField(kSimProfileState, state->simProfileState);
    SetGpioServiceState(state);
    return 0;
}
