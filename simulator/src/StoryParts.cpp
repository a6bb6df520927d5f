#include "StoryParts.h"

#include <stdexcept>
#include <utility>

#include "Module.h"

using namespace std::chrono_literals;

/// The eCall service first: the unit waits for it.
void StartEcallService(StoryWorld& world) {
    if (!world.peer.Start()) {
        throw std::runtime_error("the eCall service's port cannot be bound");
    }
}

void SwitchOn(StoryWorld& world) {
    StartEcallService(world);
    world.module.StartService();
}

void SensorAt10Hz(StoryWorld& world) {
    world.module.SensorBecomes(SensorStatus::Normal);
}

void SensorAt1kHz(StoryWorld& world) {
    world.module.SensorBecomes(SensorStatus::Emergency);
}

void HoldButton(StoryWorld& world) {
    world.module.attributes.OnRead(line::kButton, nullptr);  // an earlier scene may have led the looks
    world.module.ButtonPress();
}

void ReleaseButton(StoryWorld& world) {
    world.module.ButtonRelease();
}

void AnsweringPointHangsUp(StoryWorld& world) {
    world.peer.Happen(EcallEvent::Disconnect);
}

void AskForSelfTest(StoryWorld& world) {
    world.peer.RequestSelfTest();
}

Scene SwitchOnScene() {
    return {
        .tell = "The eCall service is idle, the airbag sensor sends 10 Hz. The unit is switched on.",
        .act = SwitchOn,
        .expected = {{Who::Rpc, "client connected"},
                     {Who::Rpc, "-> getIEcallAppVersion"},
                     {Who::Rpc, "-> subscribe messageid=18 clientName=\"EcallAppClient\""},
                     {Who::Rpc, "-> requestState"},
                     {Who::Rpc, "-> getCfgParameter cfgParamName=APP_AUDIO_CONFIG_NUMBER(53)"},
                     {Who::Rpc, "-> setCfgParameter cfgParamName=APP_AUDIO_CONFIG_NUMBER(53) boolValue=0 intValue=1"},
                     {Who::Rpc, "-> requestState"},
                     kLedIdle,
                     kLocked,
                     kListening},
        .never = {kNoCall},
    };
}

Scene CallScene(std::string tell, void (*act)(StoryWorld&), bool automatic) {
    const std::string state = std::string("<= Active") + (automatic ? "Automatic" : "Manual") + "ECall, ";
    return {.tell = std::move(tell),
            .act = act,
            .expected = {kAntennaSelected,
                         {Who::Rpc, std::string("-> triggerEcall automatic=") + (automatic ? "1" : "0")},
                         {Who::Rpc, "<- triggerEcall responsecode=0"},
                         {Who::Rpc, state + "call Inactive, audio PlayingVoicePrompt"},
                         {Who::Rpc, state + "call Dialing, audio Muted"},
                         {Who::Rpc, state + "call Connected_Data_WaitingMsdRequest, audio Muted"},
                         {Who::Rpc, state + "call Connected_Data_TransferingMsd, audio Muted"},
                         {Who::Rpc, state + "call Connected_Data_LLACKReceived, audio Muted"},
                         {Who::Rpc, state + "call Connected_Voice, audio VoiceCall"},
                         {Who::Script, "launch-audio-for-ecall.sh start"},
                         kRelayOn,
                         kLedActive,
                         kUnlocked,
                         kListening},
            .never = {kRelayOff},
            .lasts = 4s};
}

Scene CrashScene() {
    Scene scene = CallScene("Crash! The airbag sensor goes to 1 kHz.", SensorAt1kHz, true);
    scene.expected.insert(scene.expected.begin(), {{Who::Trace, "AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ"},
                                                   {Who::Trace, "Auto Ecall triggered"},
                                                   {Who::Trace, "CanTriggerAutoEcall=0"}});
    return scene;
}

Scene HangUpScene() {
    return {
        .tell = "The answering point has understood and hangs up.",
        .act = AnsweringPointHangsUp,
        .expected = {{Who::Rpc, "ECall, call Inactive, audio PlayingVoicePrompt"},
                     {Who::Rpc, "<= ExpectCallback, call Inactive, audio Muted"},
                     kServiceIdle,
                     {Who::Script, "launch-audio-for-ecall.sh stop"},
                     kLedIdle,
                     kLocked,
                     kRelayOff},
        .never = {kNoCall},
    };
}
