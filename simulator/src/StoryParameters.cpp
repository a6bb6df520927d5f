// The stories of people at work on the module: the client program sets parameters of the running service and lets it
// test its microphone. What it prints is in the account.
#include <algorithm>
#include <sstream>
#include <utility>

#include "Module.h"
#include "Story.h"
#include "StoryParts.h"

namespace {

using namespace std::chrono_literals;

// --- Verbs ----------------------------------------------------------------------------------------------------------

/// Types a command line of the client program and waits for its end.
void Type(StoryWorld& world, const std::vector<std::string>& words) {
    std::string line = "$ ecalluictl";
    for (const std::string& word : words) {
        line += " " + word;
    }
    world.module.journal.Note(line);
    world.module.Start(Module::ToolProgram(), words).WaitForEnd();
}

/// Tells what the service's file holds of a field.
void LookUpInFile(StoryWorld& world, const std::string& key) {
    std::istringstream file(world.module.root.ReadFile(file::kConfiguration).value_or(""));
    const std::string member = "\"" + key + "\"";
    std::string found = "nothing of " + key;
    for (std::string line; std::getline(file, line);) {
        found = line.find(member) == std::string::npos ? found : line;
    }
    std::erase(found, '\t');
    world.module.journal.Note("The configuration file holds " + found);
}

void LookAtAll(StoryWorld& world) {
    Type(world, {"list"});
}

void MakeLedBrighter(StoryWorld& world) {
    Type(world, {"set", "LedEcallIdleBrightness1PerCent", "50", "LedEcallActiveBlicking12PeriodInMs=500"});
    LookUpInFile(world, "LedEcallIdleBrightness1PerCent");
    LookUpInFile(world, "LedEcallActiveBlicking12PeriodInMs");
}

void SetTooBright(StoryWorld& world) {
    Type(world, {"set", "LedPwmPeriodMs", "20", "LedEcallIdleBrightness1PerCent", "150"});
    LookUpInFile(world, "LedPwmPeriodMs");
}

void MeasureMicrophone(StoryWorld& world) {
    world.module.SetScript(file::kMicrophoneTestScript,
                           {.duration = 500ms, .commands = "echo 12.5 > /tmp/ecall_analog_mic_test_result.txt"});
    Type(world, {"mic-test"});
}

void FailToMeasure(StoryWorld& world) {
    world.module.SetScript(file::kMicrophoneTestScript, {.exitStatus = 1});
    Type(world, {"mic-test"});
}

void SwitchToAnalog(StoryWorld& world) {
    Type(world, {"set", "EcallMicrophoneSource", "0"});
    LookUpInFile(world, "EcallMicrophoneSource");
}

void SwitchToDigital(StoryWorld& world) {
    Type(world, {"set", "EcallMicrophoneSource", "1"});
    LookUpInFile(world, "EcallMicrophoneSource");
}

void LetGoAndHangUp(StoryWorld& world) {
    ReleaseButton(world);
    AnsweringPointHangsUp(world);
}

// --- Scenes ---------------------------------------------------------------------------------------------------------

const Expected kDone{Who::Tool, "exited 0"};
const Expected kAudioScript{Who::Script, "launch-audio-for-ecall.sh"};

Expected InFile(const std::string& member) {
    return {Who::Story, "The configuration file holds " + member};
}

/// A scene that shows this of the LED where the defaults would show that.
Scene Instead(Scene scene, const Expected& usual, const char* shown) {
    for (Expected& expected : scene.expected) {
        if (expected.who == usual.who && expected.text == usual.text) {
            expected.text = shown;
        }
    }
    return scene;
}

Scene Without(Who who, Scene scene) {
    std::erase_if(scene.expected, [who](const Expected& expected) { return expected.who == who; });
    return scene;
}

Scene WithoutAudioScript(Scene scene) {
    scene.never.push_back(kAudioScript);
    return Without(Who::Script, std::move(scene));
}

Scene ManualCallScene() {
    return CallScene("The driver holds the eCall button.", HoldButton, false);
}

/// The antenna stays selected after the first call.
Scene SecondManualCallScene() {
    return Without(Who::Antenna, ManualCallScene());
}

Scene EndOfManualCallScene() {
    Scene scene = HangUpScene();
    scene.tell = "The driver has let go of the button; the answering point hangs up.";
    scene.act = LetGoAndHangUp;
    return scene;
}

/// The service hands the source on to the eCall service.
Scene SourceScene(std::string tell, void (*act)(StoryWorld&), const std::string& before, const std::string& after) {
    return {.tell = std::move(tell),
            .act = act,
            .expected = {{Who::Tool, "EcallMicrophoneSource: " + before + " -> " + after},
                         kDone,
                         InFile("\"EcallMicrophoneSource\":" + after),
                         {Who::Rpc,
                          "-> setCfgParameter cfgParamName=APP_AUDIO_CONFIG_NUMBER(53) boolValue=0 intValue=" + after},
                         {Who::Rpc, "<- setCfgParameter responsecode=0"}},
            .never = {kNoCall}};
}

// --- Tables ---------------------------------------------------------------------------------------------------------

Story Setting() {
    return {
        .name = "parameters",
        .about = "ecalluictl lists and sets parameters: the file changes at once, the LED with its next pattern",
        .scenes = {
            SwitchOnScene(),
            {.tell = "What can be set, and what is it now?",
             .act = LookAtAll,
             .expected = {{Who::Tool, "LedEcallIdleBrightness1PerCent           number   %      25     25"},
                          {Who::Tool, "LedEcallActiveBlicking12PeriodInMs       number   ms     1000   1000"},
                          kDone},
             .never = {kNoCall}},
            {.tell =
                 "The LED is to be brighter when idle, and to blink faster in a call. It shows what it shows, for now.",
             .act = MakeLedBrighter,
             .expected = {{Who::Tool, "LedEcallIdleBrightness1PerCent: 25 -> 50 %"},
                          {Who::Tool, "LedEcallActiveBlicking12PeriodInMs: 1000 -> 500 ms"},
                          kDone,
                          InFile("\"LedEcallIdleBrightness1PerCent\":50,"),
                          InFile("\"LedEcallActiveBlicking12PeriodInMs\":500,")},
             .never = {kNoCall, {Who::Led, ""}},
             .lasts = 1s},
            {.tell = "150 % is refused, and the good value beside it is not sent either.",
             .act = SetTooBright,
             .expected = {{Who::Tool, "LedEcallIdleBrightness1PerCent may be 0 to 100 %, not 150"},
                          {Who::Tool, "exited 2"},
                          InFile("\"LedPwmPeriodMs\":10,")},
             .never = {kNoCall}},
            Instead(CrashScene(), kLedActive, "90 % / 0 %, every 500 ms"),
            Instead(HangUpScene(), kLedIdle, "50 %, steady"),
        }};
}

Story MicrophoneTest() {
    return {.name = "mic-test",
            .about = "the analog microphone is tested by its script: once it measures, once it fails",
            .scenes = {SwitchOnScene(),
                       {.tell = "Somebody asks for the test, and the script measures.",
                        .act = MeasureMicrophone,
                        .expected = {{Who::Script, "ecall_analog_mic_test.sh"}, {Who::Tool, "12.5"}, kDone},
                        .never = {kNoCall}},
                       {.tell = "Once more, but the script fails.",
                        .act = FailToMeasure,
                        .expected = {{Who::Script, "ecall_analog_mic_test.sh"},
                                     {Who::Tool, "the microphone test failed: the service answered -16"},
                                     {Who::Tool, "exited 1"}},
                        .never = {kNoCall}}}};
}

Story MicrophoneSource() {
    return {
        .name = "mic-source",
        .about = "the microphone is switched to analog: the next call runs without the audio script; and back again",
        .scenes = {SwitchOnScene(), SourceScene("The analog microphone shall be used.", SwitchToAnalog, "1", "0"),
                   WithoutAudioScript(ManualCallScene()), WithoutAudioScript(EndOfManualCallScene()),
                   SourceScene("The external digital one again.", SwitchToDigital, "0", "1"), SecondManualCallScene(),
                   EndOfManualCallScene()}};
}

}  // namespace

std::vector<Story> ParameterStories() {
    return {Setting(), MicrophoneTest(), MicrophoneSource()};
}
