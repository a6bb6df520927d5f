/// The life of an emergency call, as the eCall application service lives it: a pure state machine, without clock,
/// socket or thread. EcallPeer feeds it events, shows its state on the wire and keeps its time.
#ifndef ECALL_LIFE_H
#define ECALL_LIFE_H

#include <chrono>

#include "EcallState.h"

enum class EcallPhase {
    Starting,  ///< just (re)started, not ready to call
    Idle,
    TestIdle,   ///< idle in test mode: the next call is a test call
    Triggered,  ///< the call is announced by a voice prompt
    Dialling,
    WaitingMsdRequest,  ///< connected, the answering point has not asked for the minimum set of data (MSD) yet
    TransferringMsd,
    LlackReceived,  ///< the link layer has acknowledged the MSD
    Voice,
    VoiceWithoutMsd,  ///< the MSD transfer failed, the occupants are heard all the same
    Ending,           ///< hung up; the end is announced by a voice prompt
    ExpectCallback,
    Ringing  ///< the answering point calls back
};

enum class EcallEvent {
    TimeUp,  ///< the phase has lasted its time (EcallDuration)
    TriggerManual,
    TriggerAutomatic,
    UserCancel,
    Disconnect,  ///< either side hangs up
    CallBack,    ///< the answering point calls
    EnterTestMode,
    LeaveTestMode,
    Restart  ///< the service's process has started again
};

enum class EcallAnswer { Done, NoMeaning, Refused };

/// What the service is set to; read at the moment of each event.
struct EcallPlan {
    bool msdFails = false;  ///< the answering point never acknowledges the MSD
    bool manualCanCancel = true;
    bool restoreContext = true;      ///< a call that a restart cut off is dialled again
    bool leaveTestAfterCall = true;  ///< a test call ends the test mode
};

/// How long each phase lasts when nothing else ends it. Zero: it is passed at once and never shown.
struct EcallTimings {
    std::chrono::milliseconds starting{0};
    std::chrono::milliseconds prompt{0};
    std::chrono::milliseconds dialling{0};
    std::chrono::milliseconds msdRequest{0};
    std::chrono::milliseconds msdTransfer{0};
    std::chrono::milliseconds llack{0};
    std::chrono::milliseconds voice{0};
    std::chrono::milliseconds expectCallback{0};
    std::chrono::milliseconds ringing{0};
};

/// A phase with this duration lasts until an event ends it.
constexpr std::chrono::milliseconds kNoLimit = std::chrono::milliseconds::max();

/// For tests: each phase is long enough to be told from the next in a journal, and no longer.
constexpr EcallTimings kTestPace{.starting = std::chrono::milliseconds(0),
                                 .prompt = std::chrono::milliseconds(20),
                                 .dialling = std::chrono::milliseconds(20),
                                 .msdRequest = std::chrono::milliseconds(20),
                                 .msdTransfer = std::chrono::milliseconds(20),
                                 .llack = std::chrono::milliseconds(20),
                                 .voice = std::chrono::milliseconds(20),
                                 .expectCallback = std::chrono::milliseconds(20),
                                 .ringing = std::chrono::milliseconds(20)};

/// For people who watch.
constexpr EcallTimings kHumanPace{.starting = std::chrono::milliseconds(0),
                                  .prompt = std::chrono::milliseconds(600),
                                  .dialling = std::chrono::milliseconds(900),
                                  .msdRequest = std::chrono::milliseconds(400),
                                  .msdTransfer = std::chrono::milliseconds(600),
                                  .llack = std::chrono::milliseconds(300),
                                  .voice = std::chrono::milliseconds(1500),
                                  .expectCallback = std::chrono::milliseconds(800),
                                  .ringing = std::chrono::milliseconds(600)};

struct EcallLife {
    EcallPhase phase = EcallPhase::Idle;
    bool automatic = false;  ///< of the call that runs, or ran last
    bool test = false;       ///< the same
    bool answered = false;   ///< the same: it was connected, so a call back may follow
    bool cutOff = false;     ///< Starting only: a restart has cut a call off, to be dialled again
};

struct EcallDecision {
    EcallAnswer answer;
    EcallLife next;  ///< equal to the life that was asked about unless the answer is Done
};

/// What the event does to the life.
EcallDecision EcallDecide(const EcallLife& life, EcallEvent event, const EcallPlan& plan);

/// How long the phase lasts by itself; kNoLimit for one that only an event ends.
std::chrono::milliseconds EcallDuration(EcallPhase phase, const EcallTimings& timings);

/// True from the trigger to the end of the last prompt.
bool IsEcallActive(EcallPhase phase);

/// Sets what the life determines of a wire record: serviceState, callState and audioOutState.
void EcallShow(const EcallLife& life, EcallState& state);

#endif
