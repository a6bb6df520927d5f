// The cases, as time lines: service state, call state, audio (m muted, p prompt, v voice) and phase.
//
// 1. An emergency call that goes well (active: 100 manual, 101 automatic):
//
//      3    | active                                                                          | 104      | 3
//      0    | 0         | 2        | 4          | 5            | 6     | 3     | 0            | 0        | 0
//      m    | p         | m        | m          | m            | m     | v     | p            | m        | m
//      Idle | Triggered | Dialling | WaitingMsd | Transferring | Llack | Voice | Ending       | Expect.. | Idle
//
// 2. The MSD is never acknowledged: Transferring is followed by VoiceWithoutMsd (call state 7) instead of Llack.
// 3. The answering point calls back: ExpectCallback - Ringing (104, call state 1, p) - Voice (active) - Ending - ...
// 4. A test call (active: 102, 103) starts in TestIdle (4), expects no call back: Ending - Idle or TestIdle.
// 5. The user cancels a manual call before it is answered: Dialling - Ending - Idle. A crash is not cancelled.
// 6. The service restarts in a call: Starting (2) - Triggered again, or Idle when the context is not restored.
//
// The one thing that is easy to get wrong: a trigger while a call runs is accepted (the occupants are being helped),
// but it starts nothing. Refusing it would make the unit try again and again.
#include "EcallLife.h"

namespace {

EcallDecision Stay(const EcallLife& life, EcallAnswer answer) {
    return {answer, life};
}

EcallDecision Enter(EcallLife life, EcallPhase phase) {
    life.phase = phase;
    return {EcallAnswer::Done, life};
}

EcallDecision StartCall(EcallLife life, bool automatic, bool test) {
    life.automatic = automatic;
    life.test = test;
    life.answered = false;
    life.cutOff = false;
    return Enter(life, EcallPhase::Triggered);
}

EcallDecision StartAgain(EcallLife life, const EcallPlan& plan) {
    const bool running = life.phase == EcallPhase::Starting
                             ? life.cutOff
                             : IsEcallActive(life.phase) && life.phase != EcallPhase::Ending;
    life.cutOff = running && plan.restoreContext;
    return Enter(life, EcallPhase::Starting);
}

EcallDecision InStarting(const EcallLife& life, EcallEvent event, const EcallPlan& plan) {
    switch (event) {
        case EcallEvent::TimeUp:
            return life.cutOff ? StartCall(life, life.automatic, life.test) : Enter(life, EcallPhase::Idle);
        case EcallEvent::Restart:
            return StartAgain(life, plan);
        case EcallEvent::TriggerManual:
        case EcallEvent::TriggerAutomatic:
        case EcallEvent::UserCancel:
        case EcallEvent::Disconnect:
        case EcallEvent::CallBack:
        case EcallEvent::EnterTestMode:
        case EcallEvent::LeaveTestMode:
            break;
    }
    return Stay(life, EcallAnswer::Refused);
}

EcallDecision InIdle(const EcallLife& life, EcallEvent event, const EcallPlan& plan) {
    switch (event) {
        case EcallEvent::TriggerManual:
        case EcallEvent::TriggerAutomatic:
            return StartCall(life, event == EcallEvent::TriggerAutomatic, false);
        case EcallEvent::EnterTestMode:
            return Enter(life, EcallPhase::TestIdle);
        case EcallEvent::Restart:
            return StartAgain(life, plan);
        case EcallEvent::UserCancel:
        case EcallEvent::Disconnect:
        case EcallEvent::CallBack:  // a call from outside is not ours to take unless a call back is expected
            return Stay(life, EcallAnswer::Refused);
        case EcallEvent::TimeUp:
        case EcallEvent::LeaveTestMode:
            break;
    }
    return Stay(life, EcallAnswer::NoMeaning);
}

EcallDecision InTestIdle(const EcallLife& life, EcallEvent event, const EcallPlan& plan) {
    switch (event) {
        case EcallEvent::TriggerManual:
        case EcallEvent::TriggerAutomatic:
            return StartCall(life, event == EcallEvent::TriggerAutomatic, true);
        case EcallEvent::LeaveTestMode:
            return Enter(life, EcallPhase::Idle);
        case EcallEvent::Restart:
            return StartAgain(life, plan);
        case EcallEvent::UserCancel:
        case EcallEvent::Disconnect:
        case EcallEvent::CallBack:
            return Stay(life, EcallAnswer::Refused);
        case EcallEvent::TimeUp:
        case EcallEvent::EnterTestMode:
            break;
    }
    return Stay(life, EcallAnswer::NoMeaning);
}

EcallDecision Connect(EcallLife life) {
    life.answered = true;
    return Enter(life, EcallPhase::WaitingMsdRequest);
}

bool CanCancel(const EcallLife& life, const EcallPlan& plan) {
    return plan.manualCanCancel && !life.automatic && !life.answered;
}

/// Where a call that has ended leads. One that nobody answered is not called back.
EcallPhase AfterEnding(const EcallLife& life, const EcallPlan& plan) {
    if (life.test) {
        return plan.leaveTestAfterCall ? EcallPhase::Idle : EcallPhase::TestIdle;
    }
    return life.answered ? EcallPhase::ExpectCallback : EcallPhase::Idle;
}

/// An active phase; timeUp is what its end by time leads to.
EcallDecision InCall(const EcallLife& life, EcallEvent event, const EcallPlan& plan, const EcallDecision& timeUp) {
    switch (event) {
        case EcallEvent::TimeUp:
            return timeUp;
        case EcallEvent::UserCancel:
            return CanCancel(life, plan) ? Enter(life, EcallPhase::Ending) : Stay(life, EcallAnswer::Refused);
        case EcallEvent::Disconnect:
            return Enter(life, EcallPhase::Ending);
        case EcallEvent::Restart:
            return StartAgain(life, plan);
        case EcallEvent::TriggerManual:
        case EcallEvent::TriggerAutomatic:
            return Stay(life, EcallAnswer::NoMeaning);
        case EcallEvent::CallBack:
        case EcallEvent::EnterTestMode:
        case EcallEvent::LeaveTestMode:
            break;
    }
    return Stay(life, EcallAnswer::Refused);
}

EcallDecision InEnding(const EcallLife& life, EcallEvent event, const EcallPlan& plan) {
    switch (event) {
        case EcallEvent::TimeUp:
            return Enter(life, AfterEnding(life, plan));
        case EcallEvent::TriggerManual:
        case EcallEvent::TriggerAutomatic:  // the old call is over: this is a new one
            return StartCall(life, event == EcallEvent::TriggerAutomatic, life.test);
        case EcallEvent::Restart:
            return StartAgain(life, plan);
        case EcallEvent::UserCancel:
        case EcallEvent::Disconnect:
            return Stay(life, EcallAnswer::NoMeaning);
        case EcallEvent::CallBack:
        case EcallEvent::EnterTestMode:
        case EcallEvent::LeaveTestMode:
            break;
    }
    return Stay(life, EcallAnswer::Refused);
}

EcallDecision InExpectCallback(const EcallLife& life, EcallEvent event, const EcallPlan& plan) {
    switch (event) {
        case EcallEvent::TimeUp:
            return Enter(life, EcallPhase::Idle);
        case EcallEvent::CallBack:
            return Enter(life, EcallPhase::Ringing);
        case EcallEvent::TriggerManual:
        case EcallEvent::TriggerAutomatic:
            return StartCall(life, event == EcallEvent::TriggerAutomatic, false);
        case EcallEvent::Restart:
            return StartAgain(life, plan);
        case EcallEvent::UserCancel:
        case EcallEvent::Disconnect:
        case EcallEvent::EnterTestMode:
        case EcallEvent::LeaveTestMode:
            break;
    }
    return Stay(life, EcallAnswer::Refused);
}

EcallDecision InRinging(const EcallLife& life, EcallEvent event, const EcallPlan& plan) {
    switch (event) {
        case EcallEvent::TimeUp:  // an expected call back is answered by the unit itself
            return Enter(life, EcallPhase::Voice);
        case EcallEvent::Disconnect:
            return Enter(life, EcallPhase::ExpectCallback);
        case EcallEvent::Restart:
            return StartAgain(life, plan);
        case EcallEvent::TriggerManual:
        case EcallEvent::TriggerAutomatic:
        case EcallEvent::CallBack:
            return Stay(life, EcallAnswer::NoMeaning);
        case EcallEvent::UserCancel:
        case EcallEvent::EnterTestMode:
        case EcallEvent::LeaveTestMode:
            break;
    }
    return Stay(life, EcallAnswer::Refused);
}

/// How a phase of the call shows on the wire.
struct EcallShown {
    bool active;  ///< serviceState is one of 100 to 103; otherwise serviceState holds
    uint32_t serviceState;
    uint32_t callState;  ///< TEcallappCallState
    uint32_t audioOutState;
};

EcallShown Shown(EcallPhase phase) {
    using namespace ecall;
    switch (phase) {
        case EcallPhase::Starting:
            return {false, kInitializing, kInactive, kMuted};
        case EcallPhase::Idle:
            return {false, kIdle, kInactive, kMuted};
        case EcallPhase::TestIdle:
            return {false, kIdleTestMode, kInactive, kMuted};
        case EcallPhase::Triggered:
            return {true, 0, kInactive, kVoicePrompt};
        case EcallPhase::Dialling:
            return {true, 0, kDialing, kMuted};
        case EcallPhase::WaitingMsdRequest:
            return {true, 0, kWaitingMsdRequest, kMuted};
        case EcallPhase::TransferringMsd:
            return {true, 0, kTransferingMsd, kMuted};
        case EcallPhase::LlackReceived:
            return {true, 0, kLlackReceived, kMuted};
        case EcallPhase::Voice:
            return {true, 0, kVoice, kVoiceCall};
        case EcallPhase::VoiceWithoutMsd:
            return {true, 0, kVoiceMsdFailed, kVoiceCall};
        case EcallPhase::Ending:
            return {true, 0, kInactive, kVoicePrompt};
        case EcallPhase::ExpectCallback:
            return {false, kExpectCallback, kInactive, kMuted};
        case EcallPhase::Ringing:
            return {false, kExpectCallback, kRinging, kVoicePrompt};
    }
    return {};
}

}  // namespace

EcallDecision EcallDecide(const EcallLife& life, EcallEvent event, const EcallPlan& plan) {
    const auto inCall = [&](const EcallDecision& timeUp) { return InCall(life, event, plan, timeUp); };
    switch (life.phase) {
        case EcallPhase::Starting:
            return InStarting(life, event, plan);
        case EcallPhase::Idle:
            return InIdle(life, event, plan);
        case EcallPhase::TestIdle:
            return InTestIdle(life, event, plan);
        case EcallPhase::Triggered:
            return inCall(Enter(life, EcallPhase::Dialling));
        case EcallPhase::Dialling:
            return inCall(Connect(life));
        case EcallPhase::WaitingMsdRequest:
            return inCall(Enter(life, EcallPhase::TransferringMsd));
        case EcallPhase::TransferringMsd:
            return inCall(Enter(life, plan.msdFails ? EcallPhase::VoiceWithoutMsd : EcallPhase::LlackReceived));
        case EcallPhase::LlackReceived:
            return inCall(Enter(life, EcallPhase::Voice));
        case EcallPhase::Voice:
        case EcallPhase::VoiceWithoutMsd:
            return inCall(Enter(life, EcallPhase::Ending));
        case EcallPhase::Ending:
            return InEnding(life, event, plan);
        case EcallPhase::ExpectCallback:
            return InExpectCallback(life, event, plan);
        case EcallPhase::Ringing:
            return InRinging(life, event, plan);
    }
    return Stay(life, EcallAnswer::Refused);
}

std::chrono::milliseconds EcallDuration(EcallPhase phase, const EcallTimings& timings) {
    switch (phase) {
        case EcallPhase::Starting:
            return timings.starting;
        case EcallPhase::Idle:
        case EcallPhase::TestIdle:
            return kNoLimit;
        case EcallPhase::Triggered:
        case EcallPhase::Ending:
            return timings.prompt;
        case EcallPhase::Dialling:
            return timings.dialling;
        case EcallPhase::WaitingMsdRequest:
            return timings.msdRequest;
        case EcallPhase::TransferringMsd:
            return timings.msdTransfer;
        case EcallPhase::LlackReceived:
            return timings.llack;
        case EcallPhase::Voice:
        case EcallPhase::VoiceWithoutMsd:
            return timings.voice;
        case EcallPhase::ExpectCallback:
            return timings.expectCallback;
        case EcallPhase::Ringing:
            return timings.ringing;
    }
    return kNoLimit;
}

bool IsEcallActive(EcallPhase phase) {
    return Shown(phase).active;
}

void EcallShow(const EcallLife& life, EcallState& state) {
    const EcallShown shown = Shown(life.phase);
    const uint32_t call =
        ecall::kActiveManualCall + (life.automatic ? ecall::kAutomatic : 0) + (life.test ? ecall::kTest : 0);
    state.serviceState = shown.active ? call : shown.serviceState;
    state.callState = shown.callState;
    state.audioOutState = shown.audioOutState;
}
