// The stories must be able to fail: each is played here on a unit with one thing broken.
#include <gmock/gmock.h>

#include <functional>

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

    bool Play(const char* name) {
        const Story& story = *FindStory(name);
        StoryWorld world{.module = module, .peer = peer, .locations = locations, .track = StoryTrack(story)};
        return PlayStory(story, world, module.journal, {.limit = kSceneLimit}, [this](const std::string& line) {
            account += line + "\n";
            onLine(line);
        });
    }
};

TEST(Stories, ALedThatCannotBeSwitchedOnIsMissed) {
    Stage stage;
    stage.module.attributes.AddFault(stage.module.Led("enable"), Use::Write, Fault::Error(EIO));

    EXPECT_FALSE(stage.Play("dtr"));

    EXPECT_THAT(stage.account, HasSubstr("  expected, but missing:\n    led: 25 %, steady\n"));
}

TEST(Stories, ARelayThatIsNotThereIsMissed) {
    Stage stage;
    stage.module.attributes.SetMissing(line::kRelay);

    EXPECT_FALSE(stage.Play("crash"));

    EXPECT_THAT(stage.account, HasSubstr("  expected, but missing:\n    relay: audio relay on\n"));
}

TEST(Stories, ACallThatIsNeverTriggeredIsMissed) {
    Stage stage;
    stage.peer.Answer(EcallMethod::TriggerEcall, {.code = 1});

    EXPECT_FALSE(stage.Play("crash"));

    EXPECT_THAT(stage.account, HasSubstr("    rpc: <- triggerEcall responsecode=0\n"));
}

TEST(Stories, AButtonThatCannotBeReadMakesNoCall) {
    Stage stage;
    stage.module.attributes.SetMissing(line::kButton);

    EXPECT_FALSE(stage.Play("sos"));

    EXPECT_THAT(stage.account, HasSubstr("    rpc: -> triggerEcall automatic=0\n"));
}

TEST(Stories, APollingThatSeesNoButtonIsMissed) {
    Stage stage;
    stage.module.attributes.SetMissing(line::kButton);

    EXPECT_FALSE(stage.Play("long-press"));

    EXPECT_THAT(stage.account, HasSubstr("    trace: spurious signal on ecall-nrqst ==> do nothing\n"));
}

TEST(Stories, AnAntennaThatIsNotSelectedForTheCallIsMissed) {
    Stage stage;
    stage.module.attributes.AddFault(line::kAntennaValue, Use::Write, Fault::Error(EIO).FromThe(3));

    EXPECT_FALSE(stage.Play("crash"));

    EXPECT_THAT(stage.account, HasSubstr("  expected, but missing:\n    antenna: eCall antenna selected\n"));
}

TEST(Stories, ACallThatNobodyAskedForIsNoticed) {
    Stage stage;
    stage.module.SetSensor(SensorStatus::Emergency);

    EXPECT_FALSE(stage.Play("bounce"));

    EXPECT_THAT(stage.account, HasSubstr("  must not come, but came:\n    rpc: -> triggerEcall automatic=1\n"));
}

TEST(Stories, AnAntennaThatIsNotConnectedFailsTheSelfTestsStory) {
    Stage stage;
    stage.module.SetAttribute(line::kAdc1, "2500000\n");

    EXPECT_FALSE(stage.Play("selftest"));

    EXPECT_THAT(stage.account, HasSubstr("    trace: cellularAntennaConnection = TSelfTestDeviceState_Success\n"));
}

TEST(Stories, ARecoveryThatFailsIsMissed) {
    Stage stage;
    stage.module.ioctls.AddFault("eth0 command 44", Fault::Error(EIO));

    EXPECT_FALSE(stage.Play("lost-irq"));

    EXPECT_THAT(stage.account, HasSubstr("IOCTL ERROR (1)"));
}

TEST(Stories, PositionsThatAreNotSubscribedToAreMissed) {
    Stage stage;
    stage.locations.Answer(LocationMethod::Subscribe, {.code = 1});

    EXPECT_FALSE(stage.Play("drive"));

    EXPECT_THAT(stage.account, HasSubstr("    location: <- subscribe responsecode=0\n"));
}

TEST(Stories, APositionThatTheEcallServiceNeverTookIsMissed) {
    Stage stage;
    stage.peer.Answer(EcallMethod::UpdateGnssLocation, {.code = 1});

    EXPECT_FALSE(stage.Play("drive"));

    EXPECT_THAT(stage.account, HasSubstr("The eCall service's last position before the crash: none\n"));
    EXPECT_THAT(stage.account, HasSubstr("    story: : on the track\n"));
}

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

TEST(Stories, AReportOnTheReceptionThatIsRefusedLeavesTheNextOneOut) {
    Stage stage;
    stage.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {.code = 1});

    EXPECT_FALSE(stage.Play("tunnel"));

    EXPECT_THAT(stage.account, HasSubstr("    rpc: -> updateSelfTestAllDevicesState gnssParametersIntegrity=Failed(1) "
                                         "gnssAntennaConnection=Failed(1) gnssReceiverOperability=Success(0)\n"));
}

TEST(Stories, AParameterThatDoesNotReachTheFileIsMissed) {
    Stage stage;
    stage.module.root.MakeReadOnly("/data/etc/ecall");

    EXPECT_FALSE(stage.Play("parameters"));

    EXPECT_THAT(stage.account, HasSubstr("tool     LedEcallIdleBrightness1PerCent: 25 -> 50 %\n"));
    EXPECT_THAT(stage.account, HasSubstr("  expected, but missing:\n    story: The configuration file holds "
                                         "\"LedEcallIdleBrightness1PerCent\":50,\n"));
}

TEST(Stories, AMicrophoneThatLeavesNoResultIsMissed) {
    Stage stage;
    stage.module.root.MakeReadOnly("/tmp");

    EXPECT_FALSE(stage.Play("mic-test"));

    EXPECT_THAT(stage.account, HasSubstr("  expected, but missing:\n    tool: 12.5\n"));
}

TEST(Stories, AnAudioScriptThatIsNotThereIsMissedWithTheDigitalMicrophone) {
    Stage stage;
    stage.module.RemoveScript(file::kAudioScript);

    EXPECT_FALSE(stage.Play("mic-source"));

    EXPECT_THAT(stage.account, HasSubstr("EcallMicrophoneSource: 0 -> 1\n"));
    EXPECT_THAT(stage.account, HasSubstr("  expected, but missing:\n    script: launch-audio-for-ecall.sh start\n"));
}

TEST(Stories, AUnitThatIsNeverNotifiedIsMissed) {
    Stage stage;
    stage.peer.Answer(EcallMethod::Subscribe, {.code = 1});

    EXPECT_FALSE(stage.Play("peer-restart"));

    EXPECT_THAT(stage.account, HasSubstr("    led: 90 % / 0 %, every 1000 ms\n"));
}

}  // namespace
