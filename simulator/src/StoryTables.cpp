// The stories of calls and devices. Verbs first: each is one thing that happens to the unit. Then the tables.
//
// Lines of one who are expected in the order of the table; between different ones the order is free, because they come
// from different threads.
#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

#include "Module.h"
#include "Story.h"
#include "StoryParts.h"

namespace {

using namespace std::chrono_literals;

// --- Verbs ----------------------------------------------------------------------------------------------------------

void SensorLosesInterrupt(StoryWorld& world) {
    world.module.SensorBecomes(SensorStatus::NoInterrupt);
}

/// An interrupt of the button, after which each look at the line finds the next level; the last one stays. Levels that
/// went by the clock would be others on a machine that is busy.
void Twitch(StoryWorld& world, std::vector<std::string> levels) {
    const auto next = std::make_shared<std::atomic<size_t>>(0);
    world.module.attributes.OnRead(line::kButton, [next, levels = std::move(levels)] {
        return levels.at(std::min(next->fetch_add(1), levels.size() - 1));
    });
    world.module.ButtonPress();
}

void BounceButton(StoryWorld& world) {
    Twitch(world, {"0\n"});
}

void TouchButton(StoryWorld& world) {
    Twitch(world, {"1\n", "0\n"});
}

void SwitchOnPolling(StoryWorld& world) {
    world.module.root.WriteFile(
        file::kConfiguration,
        R"({"EcallButtonPullingDetectionMode": true, "EcallButtonPressMinimalTimeForTrigMs": 1000})");
    SwitchOn(world);
}

void RaiseDtr(StoryWorld& world) {
    world.module.DtrBecomes(true);
}

void DropDtr(StoryWorld& world) {
    world.module.DtrBecomes(false);
}

void EcallServiceDies(StoryWorld& world) {
    world.peer.Stop();
}

/// It is busy with itself until it is told to dial.
void EcallServiceStarts(StoryWorld& world) {
    world.peer.With([](EcallService& service) { service.timings.starting = kNoLimit; });
    StartEcallService(world);
}

void EcallServiceDials(StoryWorld& world) {
    world.peer.Happen(EcallEvent::TimeUp);
}

const Expected kLedDark{Who::Led, "dark"};
const Expected kSpurious{Who::Trace, "spurious signal on ecall-nrqst ==> do nothing"};

/// The second command is sent because DTR is not asserted.
Scene LostInterrupt(std::string tell) {
    return {.tell = std::move(tell),
            .act = SensorLosesInterrupt,
            .expected = {{Who::Trace, "AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == true ==> try a recovery"},
                         {Who::Trace, "GpioRecoveryThread - Enter"},
                         {Who::Trace, "GpioRecoveryThread - Exit"},
                         {Who::Kernel, "INVALID_NO_IRQ"},
                         {Who::Kernel, "recovery request on eth0: command 44"},
                         {Who::Kernel, "recovery request on eth0: command 43"}},
            .never = {kNoCall}};
}

// --- Tables ---------------------------------------------------------------------------------------------------------

Story Crash() {
    return {.name = "crash",
            .about = "the airbag sensor reports a crash: an automatic emergency call, from 1 kHz to the idle unit",
            .scenes = {SwitchOnScene(),
                       CrashScene(),
                       HangUpScene(),
                       {.tell = "The airbag sensor is back at 10 Hz: the unit may call again.",
                        .act = SensorAt10Hz,
                        .expected = {{Who::Trace, "AIRBAG_SENSOR_NORMAL_MODE_10HZ"},
                                     {Who::Trace, "CanTriggerAutoEcall=1"},
                                     kListening},
                        .never = {kNoCall}}}};
}

Story Sos() {
    return {.name = "sos",
            .about = "the driver holds the eCall button: a manual emergency call",
            .scenes = {SwitchOnScene(),
                       CallScene("The driver holds the eCall button.", HoldButton, false),
                       {.tell = "The driver lets go of the button: the call goes on.",
                        .act = ReleaseButton,
                        .expected = {},
                        .never = {{Who::Rpc, "ExpectCallback"}},
                        .lasts = 500ms},
                       HangUpScene()}};
}

Story Bounce() {
    return {.name = "bounce",
            .about = "the button bounces, and is only touched: no call",
            .scenes = {SwitchOnScene(),
                       {.tell = "The button bounces: an interrupt, but the line is already back.",
                        .act = BounceButton,
                        .expected = {kSpurious, kListening},
                        .never = {kNoCall}},
                       {.tell = "The button is touched, and released before the 100 ms that count have passed.",
                        .act = TouchButton,
                        .expected = {kSpurious, kListening},
                        .never = {kNoCall}},
                       {.tell = "The next event comes by the same road, and no call stands before it.",
                        .act = SensorAt10Hz,
                        .expected = {{Who::Trace, "AIRBAG_SENSOR_NORMAL_MODE_10HZ"}, kListening},
                        .never = {kNoCall, kLedActive}}}};
}

Story LongPress() {
    Scene switchOn = SwitchOnScene();
    switchOn.tell = "The unit is switched on. It watches the button by reading its line; a press counts after 1 s.";
    switchOn.act = SwitchOnPolling;
    switchOn.expected.insert(switchOn.expected.begin(), {Who::Trace, "start the Ecall button detection thread"});
    return {.name = "long-press",
            .about = "the button is watched by reading its line, and held: a manual call, asked for again and again",
            .scenes = {std::move(switchOn),
                       {.tell = "The button is touched, and released before the second has passed.",
                        .act = TouchButton,
                        .expected = {kSpurious},
                        .never = {kNoCall}},
                       CallScene("The driver holds the eCall button.", HoldButton, false),
                       {.tell = "The driver does not let go: the unit asks again, once a second. There is one call.",
                        .act = nullptr,
                        .expected = {{Who::Rpc, "-> triggerEcall automatic=0"},
                                     {Who::Rpc, "<- triggerEcall responsecode="},
                                     {Who::Rpc, "-> triggerEcall automatic=0"},
                                     {Who::Rpc, "<- triggerEcall responsecode="}},
                        .never = {{Who::Rpc, "call Dialing"}, kRelayOff}},
                       {.tell = "The driver lets go of the button.",
                        .act = ReleaseButton,
                        .expected = {},
                        .never = {{Who::Rpc, "ExpectCallback"}},
                        .lasts = 2s},
                       HangUpScene()}};
}

Story SelfTest() {
    return {.name = "selftest",
            .about = "the eCall service asks for a self-test: loudspeaker, airbag sensor and antenna are measured",
            .scenes = {SwitchOnScene(),
                       {.tell = "The eCall service asks for a self-test.",
                        .act = AskForSelfTest,
                        .expected = {{Who::Rpc, "<= Available_Idle, call Inactive, audio Muted, self-test Requested"},
                                     {Who::Rpc,
                                      "-> updateSelfTestAllDevicesState fwImageIntegrity=Success(0) "
                                      "cellularAntennaConnection=Success(0)"},
                                     {Who::Rpc, "<= Available_Idle, call Inactive, audio Muted, self-test Success"},
                                     {Who::Trace, "request the self-test"},
                                     {Who::Trace, "UTA_AUDIO_SPEAKER_CONNECTED"},
                                     {Who::Trace, "rtaDetectorOperability = TSelfTestDeviceState_Success"},
                                     {Who::Trace, "cellularAntennaConnection = TSelfTestDeviceState_Success"},
                                     {Who::Antenna, "antenna detection on"},
                                     {Who::Antenna, "antenna detection off"},
                                     kRelayOn,
                                     kRelayOff},
                        .never = {kNoCall}}}};
}

Story PeerRestart() {
    return {.name = "peer-restart",
            .about = "the eCall service restarts in mid-call, and the unit follows it again",
            .scenes = {SwitchOnScene(),
                       CrashScene(),
                       {.tell = "The eCall service dies in mid-call.",
                        .act = EcallServiceDies,
                        .expected = {{Who::Unit, "IEcallApp stopped"}},
                        .never = {kLedIdle, kRelayOff},
                        .lasts = 1s},
                       {.tell = "It starts again, and the unit subscribes again.",
                        .act = EcallServiceStarts,
                        .expected = {{Who::Rpc, "client connected"},
                                     {Who::Rpc, "-> subscribe messageid=18 clientName=\"EcallAppClient\""}},
                        .never = {kNoCall, kLedIdle, kRelayOff}},
                       {.tell = "It dials again.",
                        .act = EcallServiceDials,
                        .expected = {{Who::Rpc, "<= ActiveAutomaticECall, call Dialing, audio Muted"},
                                     {Who::Rpc, "<= ActiveAutomaticECall, call Connected_Voice, audio VoiceCall"},
                                     {Who::Script, "launch-audio-for-ecall.sh start"}},
                        .never = {kNoCall, kLedIdle, kRelayOff}},
                       HangUpScene()}};
}

Story LostIrq() {
    return {.name = "lost-irq",
            .about = "the airbag sensor's interrupt is lost: the unit recovers it, each time",
            .scenes = {SwitchOnScene(), LostInterrupt("The interrupt of the airbag sensor is lost."),
                       LostInterrupt("It is lost once more: the first recovery was not the last."), CrashScene(),
                       HangUpScene()}};
}

Story Dtr() {
    return {.name = "dtr",
            .about = "the serial line's DTR switches the LED",
            .scenes = {SwitchOnScene(),
                       {.tell = "DTR is dropped.",
                        .act = DropDtr,
                        .expected = {{Who::Trace, "xgold_serial usif2 DTR is inactivated"}, kListening, kLedDark},
                        .lasts = 1s},
                       {.tell = "DTR is raised.",
                        .act = RaiseDtr,
                        .expected = {{Who::Trace, "xgold_serial usif2 DTR is activated"}, kListening, kLedIdle},
                        .never = {kNoCall},
                        .lasts = 1s}}};
}

}  // namespace

const std::vector<Story>& Stories() {
    static const std::vector<Story> stories = [] {
        std::vector<Story> all{Crash(), Sos(), LongPress(), Bounce(), SelfTest(), PeerRestart(), LostIrq(), Dtr()};
        for (const auto& more : {PositionStories(), ParameterStories()}) {
            all.insert(all.end(), more.begin(), more.end());
        }
        return all;
    }();
    return stories;
}
