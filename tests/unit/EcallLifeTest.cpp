#include "EcallLife.h"

#include <gmock/gmock.h>

#include <vector>

namespace {

using enum EcallPhase;
using testing::ElementsAre;

struct Shown {
    uint32_t service, call, audio;
    bool operator==(const Shown&) const = default;
};

void PrintTo(const Shown& shown, std::ostream* out) {
    *out << "(" << shown.service << ", " << shown.call << ", " << shown.audio << ")";
}

/// A life that is led by events.
struct Led {
    EcallLife life;
    EcallPlan plan;

    EcallAnswer After(EcallEvent event) {
        const EcallDecision decision = EcallDecide(life, event, plan);
        life = decision.next;
        return decision.answer;
    }

    Shown Wire() const {
        EcallState state{};
        EcallShow(life, state);
        return {state.serviceState, state.callState, state.audioOutState};
    }

    /// What is shown from now on, phase by phase, until nothing ends by itself any more.
    std::vector<Shown> Rest() {
        std::vector<Shown> shown{Wire()};
        while (EcallDuration(life.phase, kTestPace) != kNoLimit) {
            After(EcallEvent::TimeUp);
            shown.push_back(Wire());
        }
        return shown;
    }
};

Led In(EcallPhase phase) {
    Led led;
    led.life.phase = phase;
    led.life.answered = phase != Triggered && phase != Dialling;
    return led;
}

const std::vector<EcallPhase> kAllPhases{
    Starting,        Idle,          TestIdle, Triggered,       Dialling, WaitingMsdRequest,
    TransferringMsd, LlackReceived, Voice,    VoiceWithoutMsd, Ending,   ExpectCallback,
    Ringing};

TEST(EcallLife, AnAutomaticCallRunsFromTheTriggerToIdle) {
    Led led;

    EXPECT_EQ(EcallAnswer::Done, led.After(EcallEvent::TriggerAutomatic));

    EXPECT_THAT(led.Rest(),
                ElementsAre(Shown{101, 0, 1}, Shown{101, 2, 0}, Shown{101, 4, 0}, Shown{101, 5, 0}, Shown{101, 6, 0},
                            Shown{101, 3, 2}, Shown{101, 0, 1}, Shown{104, 0, 0}, Shown{3, 0, 0}));
}

TEST(EcallLife, AManualCallShowsAsManual) {
    Led led;

    led.After(EcallEvent::TriggerManual);

    EXPECT_EQ((Shown{100, 0, 1}), led.Wire());
}

TEST(EcallLife, AFailedMsdStillLeadsToVoice) {
    Led led = In(TransferringMsd);
    led.plan.msdFails = true;

    led.After(EcallEvent::TimeUp);

    EXPECT_EQ((Shown{100, 7, 2}), led.Wire());
}

TEST(EcallLife, ACallBackIsAnsweredWithVoice) {
    Led led = In(ExpectCallback);
    led.life.automatic = true;

    led.After(EcallEvent::CallBack);

    EXPECT_THAT(led.Rest(),
                ElementsAre(Shown{104, 1, 1}, Shown{101, 3, 2}, Shown{101, 0, 1}, Shown{104, 0, 0}, Shown{3, 0, 0}));
}

TEST(EcallLife, ATestCallExpectsNoCallBack) {
    Led led;
    led.After(EcallEvent::EnterTestMode);

    led.After(EcallEvent::TriggerAutomatic);

    EXPECT_THAT(led.Rest(), ElementsAre(Shown{103, 0, 1}, Shown{103, 2, 0}, Shown{103, 4, 0}, Shown{103, 5, 0},
                                        Shown{103, 6, 0}, Shown{103, 3, 2}, Shown{103, 0, 1}, Shown{3, 0, 0}));
}

TEST(EcallLife, ATestCallReturnsToTestModeWhenTheModeIsKept) {
    Led led;
    led.plan.leaveTestAfterCall = false;
    led.After(EcallEvent::EnterTestMode);

    led.After(EcallEvent::TriggerManual);

    EXPECT_EQ((Shown{102, 0, 1}), led.Wire());
    EXPECT_EQ((Shown{4, 0, 0}), led.Rest().back());
}

TEST(EcallLife, AManualCallCanBeCancelledUntilItIsAnswered) {
    for (const EcallPhase phase : {Triggered, Dialling}) {
        Led led = In(phase);

        EXPECT_EQ(EcallAnswer::Done, led.After(EcallEvent::UserCancel));

        EXPECT_THAT(led.Rest(), ElementsAre(Shown{100, 0, 1}, Shown{3, 0, 0}));
    }
    for (const EcallPhase phase : {WaitingMsdRequest, TransferringMsd, LlackReceived, Voice, VoiceWithoutMsd}) {
        EXPECT_EQ(EcallAnswer::Refused, In(phase).After(EcallEvent::UserCancel));
    }
}

TEST(EcallLife, ACrashCannotBeCancelled) {
    Led led = In(Dialling);
    led.life.automatic = true;

    EXPECT_EQ(EcallAnswer::Refused, led.After(EcallEvent::UserCancel));

    EXPECT_EQ(Dialling, led.life.phase);
}

TEST(EcallLife, NoManualCallCanBeCancelledWhenThePlanForbidsIt) {
    Led led = In(Dialling);
    led.plan.manualCanCancel = false;

    EXPECT_EQ(EcallAnswer::Refused, led.After(EcallEvent::UserCancel));
}

TEST(EcallLife, ATriggerDuringACallIsAcceptedAndChangesNothing) {
    for (const EcallPhase phase : kAllPhases) {
        if (!IsEcallActive(phase) || phase == Ending) {
            continue;
        }
        Led led = In(phase);

        EXPECT_EQ(EcallAnswer::NoMeaning, led.After(EcallEvent::TriggerAutomatic));

        EXPECT_EQ(phase, led.life.phase);
        EXPECT_FALSE(led.life.automatic);
    }
}

TEST(EcallLife, ATriggerAfterTheCallStartsANewOne) {
    for (const EcallPhase phase : {Ending, ExpectCallback}) {
        Led led = In(phase);

        EXPECT_EQ(EcallAnswer::Done, led.After(EcallEvent::TriggerAutomatic));

        EXPECT_EQ((Shown{101, 0, 1}), led.Wire());
    }
}

TEST(EcallLife, ATriggerWhileStartingIsRefused) {
    EXPECT_EQ(EcallAnswer::Refused, In(Starting).After(EcallEvent::TriggerAutomatic));
}

TEST(EcallLife, ARestartInACallDialsAgain) {
    for (const EcallPhase phase : kAllPhases) {
        Led led = In(phase);
        led.life.automatic = true;

        EXPECT_EQ(EcallAnswer::Done, led.After(EcallEvent::Restart));
        EXPECT_EQ((Shown{2, 0, 0}), led.Wire());
        led.After(EcallEvent::TimeUp);

        const bool cutOff = IsEcallActive(phase) && phase != Ending;
        EXPECT_EQ(cutOff ? (Shown{101, 0, 1}) : (Shown{3, 0, 0}), led.Wire());
    }
}

TEST(EcallLife, ASecondRestartDoesNotForgetTheCall) {
    Led led = In(Voice);
    led.After(EcallEvent::Restart);

    led.After(EcallEvent::Restart);
    led.After(EcallEvent::TimeUp);

    EXPECT_EQ(Triggered, led.life.phase);
}

TEST(EcallLife, ARestartWithoutContextForgetsTheCall) {
    Led led = In(Voice);
    led.plan.restoreContext = false;

    led.After(EcallEvent::Restart);
    led.After(EcallEvent::TimeUp);

    EXPECT_EQ(Idle, led.life.phase);
}

TEST(EcallLife, WhatIsNotDoneChangesNothing) {
    for (const EcallPhase phase : kAllPhases) {
        for (int event = 0; event <= static_cast<int>(EcallEvent::Restart); ++event) {
            const EcallDecision decision = EcallDecide(In(phase).life, static_cast<EcallEvent>(event), {});

            EXPECT_TRUE(decision.answer == EcallAnswer::Done || decision.next.phase == phase);
        }
    }
}

}  // namespace
