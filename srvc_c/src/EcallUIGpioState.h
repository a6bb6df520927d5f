/// The outputs that follow the eCall service's state: amplifier, antenna, relay, LED and ECALL_nLOCK.
#ifndef ECALL_UI_GPIO_STATE_H
#define ECALL_UI_GPIO_STATE_H

#include <cstdint>

#include "EcallUIGpioLed.h"
#include "XirEcallapp.h"

/// Drives the outputs for a notified state, unless service state and audio state are what they were last time.
/// state: borrowed for the call. Blocks for the hardware and for the audio script. On the thread that delivers the
/// notifications, and on the main thread during start-up.
void SetGpioServiceState(const TEcallappState* state);

enum class OutputChange : uint8_t { Unchanged, Off, On };
enum class Phase : uint8_t { Unknown, Idle, Call };

/// What the outputs of one state shall be.
struct ServiceOutputs {
    Phase phase = Phase::Unknown;
    OutputChange amplifier = OutputChange::Unchanged;
    OutputChange antenna = OutputChange::Unchanged;
    OutputChange relay = OutputChange::Unchanged;
    LedPattern led = LedPattern::Unchanged;
};

/// The service states notified last.
struct ServiceHistory {
    uint32_t last = 0;
    uint32_t beforeLast = 0;
};

/// Decides without acting. A service state that does not exist gives the empty record.
ServiceOutputs DecideServiceOutputs(uint32_t serviceState, uint32_t audioOutState, const ServiceHistory& history);

#endif
