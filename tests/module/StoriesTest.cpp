// The stories must be able to fail: each is played here on a unit with one thing broken.
#include <gmock/gmock.h>

#include <functional>
#include <ostream>
#include <vector>

#include "EcallPeer.h"
#include "LocationPeer.h"
#include "Module.h"
#include "Story.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

/// Long enough for a scene on a loaded machine: what is awaited here does come, but for the one broken thing.
constexpr std::chrono::seconds kSceneLimit{10};

struct Stage {
    Module module;
    EcallPeer peer{module.journal, [] {
                       EcallService service;
                       service.timings = kTestPace;
                       service.timings.voice = kNoLimit;
                       return service;
                   }()};
    LocationPeer locations{module.journal};
    std::string account;
    std::function<void(const std::string& line)> onLine = [](const std::string&) {};

    bool Play(const char* name) { return Play(name, StoryTrack(*FindStory(name))); }

    bool Play(const char* name, const GpxTrack& track) {
        const Story& story = *FindStory(name);
        StoryWorld world{.module = module, .peer = peer, .locations = locations, .track = track};
        return PlayStory(story, world, module.journal, {.limit = kSceneLimit}, [this](const std::string& line) {
            account += line + "\n";
            onLine(line);
        });
    }
};

/// What is broken, in which story, and what its account says of that.
struct BrokenRow {
    const char* name;
    const char* story;
    void (*breakIt)(Stage& stage);
    std::vector<const char*> told;
};

void PrintTo(const BrokenRow& row, std::ostream* out) {
    *out << row.name;
}

class BrokenUnit : public testing::TestWithParam<BrokenRow> {};

TEST_P(BrokenUnit, FailsTheStory) {
    Stage stage;
    GetParam().breakIt(stage);

    EXPECT_FALSE(stage.Play(GetParam().story));

    for (const char* told : GetParam().told) {
        EXPECT_THAT(stage.account, HasSubstr(told));
    }
}

const RpcAnswering kRefused{.code = 1};

INSTANTIATE_TEST_SUITE_P(
    Stories, BrokenUnit,
    testing::Values(
        BrokenRow{"ALedThatCannotBeSwitchedOn",
                  "dtr",
                  [](Stage& stage) {
                      stage.module.attributes.AddFault(stage.module.Led("enable"), Use::Write, Fault::Error(EIO));
                  },
                  {"  expected, but missing:\n    led: 25 %, steady\n"}},
        BrokenRow{"ARelayThatIsNotThere",
                  "crash",
                  [](Stage& stage) { stage.module.attributes.SetMissing(line::kRelay); },
                  {"  expected, but missing:\n    relay: audio relay on\n"}},
        BrokenRow{"ACallThatIsNeverTriggered",
                  "crash",
                  [](Stage& stage) { stage.peer.Answer(EcallMethod::TriggerEcall, kRefused); },
                  {"    rpc: <- triggerEcall responsecode=0\n"}},
        BrokenRow{"AButtonThatCannotBeRead",
                  "sos",
                  [](Stage& stage) { stage.module.attributes.SetMissing(line::kButton); },
                  {"    rpc: -> triggerEcall automatic=0\n"}},
        BrokenRow{"APollingThatSeesNoButton",
                  "long-press",
                  [](Stage& stage) { stage.module.attributes.SetMissing(line::kButton); },
                  {"    trace: spurious signal on ecall-nrqst ==> do nothing\n"}},
        BrokenRow{"AnAntennaThatIsNotSelectedForTheCall",
                  "crash",
                  [](Stage& stage) {
                      stage.module.attributes.AddFault(line::kAntennaValue, Use::Write, Fault::Error(EIO).FromThe(3));
                  },
                  {"  expected, but missing:\n    antenna: eCall antenna selected\n"}},
        BrokenRow{"ACallThatNobodyAskedFor",
                  "bounce",
                  [](Stage& stage) { stage.module.SetSensor(SensorStatus::Emergency); },
                  {"  must not come, but came:\n    rpc: -> triggerEcall automatic=1\n"}},
        BrokenRow{"AnAntennaThatIsNotConnected",
                  "selftest",
                  [](Stage& stage) { stage.module.SetAttribute(line::kAdc1, "2500000\n"); },
                  {"    trace: cellularAntennaConnection = TSelfTestDeviceState_Success\n"}},
        BrokenRow{"ARecoveryThatFails",
                  "lost-irq",
                  [](Stage& stage) { stage.module.ioctls.AddFault("eth0 command 44", Fault::Error(EIO)); },
                  {"IOCTL ERROR (1)"}},
        BrokenRow{"PositionsThatAreNotSubscribedTo",
                  "drive",
                  [](Stage& stage) { stage.locations.Answer(LocationMethod::Subscribe, kRefused); },
                  {"    location: <- subscribe responsecode=0\n"}},
        BrokenRow{"APositionThatTheEcallServiceNeverTook",
                  "drive",
                  [](Stage& stage) { stage.peer.Answer(EcallMethod::UpdateGnssLocation, kRefused); },
                  {"The eCall service's last position before the crash: none\n", "    story: : on the track\n"}},
        BrokenRow{"AReportOnTheReceptionThatIsRefused",  // then the next one is not made
                  "tunnel",
                  [](Stage& stage) { stage.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, kRefused); },
                  {"    rpc: -> updateSelfTestAllDevicesState gnssParametersIntegrity=Failed(1) "
                   "gnssAntennaConnection=Failed(1) gnssReceiverOperability=Success(0)\n"}},
        BrokenRow{"AParameterThatDoesNotReachTheFile",
                  "parameters",
                  [](Stage& stage) { stage.module.root.MakeReadOnly("/data/etc/ecall"); },
                  {"tool     LedEcallIdleBrightness1PerCent: 25 -> 50 %\n",
                   "  expected, but missing:\n    story: The configuration file holds "
                   "\"LedEcallIdleBrightness1PerCent\":50,\n"}},
        BrokenRow{"AMicrophoneThatLeavesNoResult",
                  "mic-test",
                  [](Stage& stage) { stage.module.root.MakeReadOnly("/tmp"); },
                  {"  expected, but missing:\n    tool: 12.5\n"}},
        BrokenRow{"AnAudioScriptThatIsNotThereWithTheDigitalMicrophone",
                  "mic-source",
                  [](Stage& stage) { stage.module.RemoveScript(file::kAudioScript); },
                  {"EcallMicrophoneSource: 0 -> 1\n",
                   "  expected, but missing:\n    script: launch-audio-for-ecall.sh start\n"}},
        BrokenRow{"AUnitThatIsNeverNotified",
                  "peer-restart",
                  [](Stage& stage) { stage.peer.Answer(EcallMethod::Subscribe, kRefused); },
                  {"    led: 90 % / 0 %, every 1000 ms\n"}}),
    [](const testing::TestParamInfo<BrokenRow>& row) { return row.param.name; });

TEST(Stories, APositionThatIsNotOnTheTrackIsNoticed) {
    Stage stage;
    stage.onLine = [&stage](const std::string& line) {
        if (line.find("Crash!") != std::string::npos) {
            Match forwarded = IsRpcRequest("updateGnssLocation");
            forwarded.contains = " latitude=1.5 ";
            stage.locations.Park();
            stage.locations.Send({.latitude = 1.5, .valid = true});
            stage.module.journal.Await(forwarded);
        }
    };

    EXPECT_FALSE(stage.Play("drive"));

    EXPECT_THAT(stage.account, HasSubstr("position 1.5000 N 0.0000 E, 0 km/h, heading 0°: not on the track\n"));
    EXPECT_THAT(stage.account, HasSubstr("    story: : on the track\n"));
}

/// North from the equator by a tenth of a degree.
GpxTrack Northward(std::chrono::milliseconds length) {
    TrackPoint from;
    from.time = std::chrono::sys_days(std::chrono::year(2026) / std::chrono::May / 4) + 700ms;
    TrackPoint to;
    to.place.latitude = 0.1;
    to.time = from.time + length;
    return {.points = {from, to}};
}

TEST(Stories, ATrackThatEndsBetweenTwoSecondsIsDrivenToItsEnd) {
    Stage stage;

    EXPECT_TRUE(stage.Play("drive", Northward(3500ms))) << stage.account;

    EXPECT_THAT(stage.account, HasSubstr("position 0.1000 N 0.0000 E, 0 km/h, heading 0°: on the track\n"));
}

TEST(Stories, ATrackOfManyYearsIsNotSearchedThrough) {
    Stage stage;

    EXPECT_TRUE(stage.Play("drive", Northward(std::chrono::years(5000)))) << stage.account;
}

}  // namespace
