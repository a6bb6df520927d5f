#include "EcallUIGpioState.h"

#include <mutex>

#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioAnt.h"
#include "EcallUIGpioI2c.h"
#include "EcallUIGpioRelay.h"
#include "Trace.h"

namespace {

enum class RelayRule : uint8_t { Off, On, OffWhenMuted };

struct ServiceStateRow {
    uint32_t serviceState;
    Phase phase;
    OutputChange amplifier;
    RelayRule relay;
    LedPattern led;
};

constexpr auto kOff = OutputChange::Off;
constexpr auto kOn = OutputChange::On;

constexpr ServiceStateRow kServiceStates[] = {
    {TEcallappServiceState_Disabled, Phase::Idle, OutputChange::Unchanged, RelayRule::Off, LedPattern::Error},
    {TEcallappServiceState_Broken, Phase::Idle, OutputChange::Unchanged, RelayRule::Off, LedPattern::Error},
    {TEcallappServiceState_Initializing, Phase::Idle, OutputChange::Unchanged, RelayRule::Off, LedPattern::Error},
    {TEcallappServiceState_Available_Idle, Phase::Idle, kOff, RelayRule::OffWhenMuted, LedPattern::Idle},
    {TEcallappServiceState_Available_Idle_TestMode, Phase::Idle, kOff, RelayRule::OffWhenMuted, LedPattern::Idle},
    {TEcallappServiceState_ActiveManualECall, Phase::Call, kOn, RelayRule::On, LedPattern::Active},
    {TEcallappServiceState_ActiveAutomaticECall, Phase::Call, kOn, RelayRule::On, LedPattern::Active},
    {TEcallappServiceState_ActiveManualTestECall, Phase::Call, kOn, RelayRule::On, LedPattern::Active},
    {TEcallappServiceState_ActiveAutomaticTestECall, Phase::Call, kOn, RelayRule::On, LedPattern::Active},
    {TEcallappServiceState_ExpectCallback, Phase::Call, kOn, RelayRule::OffWhenMuted, LedPattern::Active},
    {TEcallappServiceState_ActiveManualECallAwaitingT1Expiry, Phase::Call, kOn, RelayRule::On, LedPattern::Active},
    {TEcallappServiceState_ActiveManualTestECallAwaitingT1Expiry, Phase::Call, kOn, RelayRule::On, LedPattern::Active},
};

// The main thread's start-up calls may overlap with the dispatch thread's notifications. One state is followed to its
// end before the next is looked at: so the same state is never followed twice, and its outputs never mix with
// another's. Taken before "State"; it may be held for as long as the audio script runs, so no one else takes it.
std::mutex Following;

// What was done last; guarded by Following.
uint32_t LastServiceState = 0;
uint32_t ServiceStateBeforeLast = 0;
uint32_t LastAudioOutState = 0;
bool IsAmplifierOn = false;

bool IsTestCall(uint32_t serviceState) {
    return serviceState == TEcallappServiceState_ActiveManualTestECall ||
           serviceState == TEcallappServiceState_ActiveAutomaticTestECall;
}

OutputChange DecideRelay(RelayRule rule, uint32_t audioOutState) {
    switch (rule) {
        case RelayRule::Off:
            return OutputChange::Off;
        case RelayRule::On:
            return OutputChange::On;
        case RelayRule::OffWhenMuted:
            break;
    }
    return audioOutState == TAudioOutState_Muted ? OutputChange::Off : OutputChange::Unchanged;
}

void SwitchAmplifier(OutputChange change) {
    if (change == OutputChange::On && EcallUI_Configuration.ConfigureExternalAudioAmp && !IsAmplifierOn) {
        SetAudioAmplifier(1);
        IsAmplifierOn = true;
    } else if (change == OutputChange::Off && IsAmplifierOn) {
        SetAudioAmplifier(0);
        IsAmplifierOn = false;
    }
}

void Apply(const ServiceOutputs& outputs) {
    SwitchAmplifier(outputs.amplifier);
    if (outputs.antenna == OutputChange::Off) {
        DriveAntennaLine(kAntSelectLine, 0);
    }
    if (outputs.relay != OutputChange::Unchanged) {
        ControlAudioRelay(outputs.relay == OutputChange::On);
    }
    ShowLedPattern(outputs.led);
}

void Remember(const TEcallappState& state) {
    LastAudioOutState = state.audioOutState;
    ServiceStateBeforeLast = LastServiceState;
    LastServiceState = state.serviceState;
}

/// A call needs the eCall antenna, also when nothing else of its state changed.
void SelectAntennaForCall() {
    EcallUIState state;
    GetUIStateAndLock(state, false);
    if (state.EcallAntennaSelected == 0) {
        DriveAntennaLine(kAntSelectLine, 1);
    }
}

void DriveNlock(Phase phase) {
    if (!EcallUI_Configuration.GpioOutputNlock_Used) {
        EcallUITrace("GpioOutputNlock_Used == false, do not set ECALL_nLOCK");
        return;
    }
    if (phase == Phase::Unknown) {
        return;
    }
    const bool isInverted = EcallUI_Configuration.GpioOutputNlockInvertedForRevARevB != 0;
    const bool isHigh = (phase == Phase::Idle) != isInverted;
    GpioWrite(kGpioEcallNlock, isHigh ? 1 : 0);
    EcallUITrace("GpioOutputNlockInvertedForRevARevB==%s ==> ECALL_nLOCK set to %d", isInverted ? "true" : "false",
                 isHigh ? 1 : 0);
}

void FollowState(const TEcallappState& state) {
    const ServiceOutputs outputs =
        DecideServiceOutputs(state.serviceState, state.audioOutState, {LastServiceState, ServiceStateBeforeLast});
    if (outputs.phase == Phase::Unknown) {
        EcallUITraceError("SetGpioServiceState - bad parameter: serviceState = %d", state.serviceState);
    }
    Apply(outputs);
    Remember(state);
    if (outputs.phase == Phase::Call) {
        SelectAntennaForCall();
    }
    DriveNlock(outputs.phase);
}

}  // namespace

ServiceOutputs DecideServiceOutputs(uint32_t serviceState, uint32_t audioOutState, const ServiceHistory& history) {
    for (const ServiceStateRow& row : kServiceStates) {
        if (row.serviceState == serviceState) {
            const bool isTestCallOver = serviceState == TEcallappServiceState_Available_Idle &&
                                        (IsTestCall(history.last) || IsTestCall(history.beforeLast));
            return {row.phase, row.amplifier, isTestCallOver ? kOff : OutputChange::Unchanged,
                    DecideRelay(row.relay, audioOutState), row.led};
        }
    }
    return {};
}

void SetGpioServiceState(const TEcallappState* state) {
    EcallUITrace("SetGpioServiceState - Enter, serviceState = %d", state->serviceState);
    const std::lock_guard following(Following);
    if (state->serviceState != LastServiceState || state->audioOutState != LastAudioOutState) {
        FollowState(*state);
    }
    EcallUITrace("SetGpioServiceState - exit");
}
