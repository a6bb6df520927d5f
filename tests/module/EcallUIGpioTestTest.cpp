// The self-test: what it finds at loudspeaker, crash sensor and antenna, and what it reports.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>

#include "EcallPeer.h"
#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kReport[] = "updateSelfTestAllDevicesState";

/// A module whose eCall service is there; its relay switches without script.
struct World {
    Module module;
    EcallPeer peer{module.journal};

    World() {
        Configure(module, {{"EcallMicrophoneSource", "0"}});
        EXPECT_TRUE(peer.Start());
    }
    /// Runs one self-test; answers what it said. Reading a line before marks its begin in the journal.
    Texts RunSelfTest() {
        Texts messages = Perform(module, {"connect", "GpioRead 3", "RunSelfTest"}).messages;
        messages.erase(messages.begin(), std::ranges::find(messages, "GpioRead - Exit : ret = 1") + 1);
        return messages;
    }
    uint64_t Begin() const { return module.journal.Await(IsRead(line::kBatteryPresent)).seq + 1; }
    /// The results as they were reported.
    std::array<uint32_t, kSelfTestDevices> Reported() {
        std::array<uint32_t, kSelfTestDevices> results{};
        peer.With([&](EcallService& service) { results = service.selfTest; });
        return results;
    }
};

// In field order.
constexpr std::size_t kAntenna = 1;
constexpr std::size_t kSensor = 7;
constexpr std::size_t kSpeakerConnection = 10;
constexpr std::size_t kSpeakerOperability = 11;
constexpr uint32_t kSuccess = 0;
constexpr uint32_t kFailed = 1;
constexpr uint32_t kNotHandled = 2;

TEST(EcallUIGpioTest, HealthyModulePasses) {
    World world;

    const Texts messages = world.RunSelfTest();

    EXPECT_THAT(world.Reported(), ElementsAre(kSuccess, kSuccess, kNotHandled, kNotHandled, kNotHandled, kNotHandled,
                                              kNotHandled, kSuccess, kNotHandled, kNotHandled, kSuccess, kSuccess,
                                              kNotHandled, kNotHandled, kNotHandled));
    EXPECT_EQ(1U, world.peer.Requests(EcallMethod::UpdateSelfTestAllDevicesState));
    EXPECT_THAT(messages, AllOf(Contains("Speaker Status = UTA_AUDIO_SPEAKER_CONNECTED"),
                                Contains("rtaDetectorOperability = TSelfTestDeviceState_Success"),
                                Contains("cellularAntennaConnection = TSelfTestDeviceState_Success")));
    EXPECT_EQ("RunSelfTest - Enter", messages.front());
    EXPECT_EQ("RunSelfTest - Exit", messages.back());
}

TEST(EcallUIGpioTest, DevicesAreTestedInOrder) {
    World world;

    world.RunSelfTest();

    // Relay on around the speaker's diagnosis, then the sensor, then the antenna's supply around its measurement.
    Texts steps;
    for (const Entry& entry : world.module.journal.All({}, world.Begin())) {
        const bool isStep = entry.kind == Kind::Write || entry.kind == Kind::Read ||
                            (entry.kind == Kind::RpcRequest && entry.subject == kReport);
        if (isStep) {
            steps.push_back(entry.subject.substr(entry.subject.rfind('/') + 1) +
                            (entry.kind == Kind::Write ? " = " + entry.text : ""));
        }
    }
    EXPECT_THAT(steps,
                ElementsAre("value = 1", "fda803-speaker", "pwm_status", "vantu_gpio_num = gpio_05",
                            "vantu_gpio_dir = out", "vantu_gpio_value = hi", "out_temp_battemp1_raw",
                            "vantu_gpio_num = gpio_05", "vantu_gpio_dir = out", "vantu_gpio_value = lo", kReport));
    const Entry supplied = world.module.journal.Await(IsWritten(line::kAntennaValue, "hi"));
    const Entry measured = world.module.journal.Await(IsOpened(line::kAdc1));
    EXPECT_GE(measured.time - supplied.time, 300ms);
}

struct Speaker {
    const char* name;
    const char* status;
    const char* message;

    friend void PrintTo(const Speaker& speaker, std::ostream* out) { *out << speaker.name; }
};

class EcallUIGpioTestSpeaker : public testing::TestWithParam<Speaker> {};

TEST_P(EcallUIGpioTestSpeaker, ThatIsNotConnectedFails) {
    World world;
    world.module.SetAttribute(line::kSpeaker, GetParam().status);

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(kFailed, world.Reported()[kSpeakerConnection]);
    EXPECT_EQ(kFailed, world.Reported()[kSpeakerOperability]);
    EXPECT_EQ(kSuccess, world.Reported()[kSensor]);
    EXPECT_THAT(messages, Contains(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(All, EcallUIGpioTestSpeaker,
                         testing::Values(Speaker{"Disconnected", "1\n",
                                                 "Speaker Status = UTA_AUDIO_SPEAKER_DISCONNECTED"},
                                         Speaker{"Short", "2\n", "Speaker Status = UTA_AUDIO_SPEAKER_SHORTCIRCUIT"},
                                         Speaker{"Invalid", "3\n", "Speaker invalid Status = 3"}),
                         [](const auto& tested) { return tested.param.name; });

TEST(EcallUIGpioTest, SpeakerWithoutDiagnosisFails) {
    World world;
    world.module.attributes.SetMissing(line::kSpeaker);

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(kFailed, world.Reported()[kSpeakerConnection]);
    EXPECT_EQ(kFailed, world.Reported()[kSpeakerOperability]);
    EXPECT_THAT(messages, Contains("UtaGetAudioFda803SpeakerStatus, error = " + std::to_string(ENOENT)));
}

TEST(EcallUIGpioTest, SensorInEmergencyPasses) {
    World world;
    world.module.SetSensor(SensorStatus::Emergency);

    world.RunSelfTest();

    EXPECT_EQ(kSuccess, world.Reported()[kSensor]);
}

TEST(EcallUIGpioTest, SensorThatAnswersAtTheFifthAttemptPasses) {
    World world;
    int reads = 0;
    world.module.attributes.OnRead(world.module.Sensor("pwm_status"),
                                   [&reads] { return std::string(++reads < 5 ? "1\n" : "2\n"); });

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(kSuccess, world.Reported()[kSensor]);
    EXPECT_EQ(4, std::ranges::count(messages,
                                    "ecall_pwm_status = 1, rtaDetectorOperability = "
                                    "TSelfTestDeviceState_Failed"));
}

TEST(EcallUIGpioTest, SensorThatNeverAnswersFailsAfterFiveWaits) {
    World world;
    world.module.SetSensor(SensorStatus::Invalid);

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(kFailed, world.Reported()[kSensor]);
    EXPECT_EQ(5, std::ranges::count(messages,
                                    "ecall_pwm_status = 0, rtaDetectorOperability = "
                                    "TSelfTestDeviceState_Failed"));
    const auto reads = world.module.journal.All(IsRead(world.module.Sensor("pwm_status")));
    ASSERT_EQ(5U, reads.size());
    const Entry antenna = world.module.journal.Await(IsWritten(line::kAntennaNumber));
    for (std::size_t i = 1; i < reads.size(); ++i) {
        EXPECT_GE(reads[i].time - reads[i - 1].time, 500ms);
    }
    EXPECT_GE(antenna.time - reads[4].time, 500ms);
}

TEST(EcallUIGpioTest, AntennaAtTheThresholdPassesAndAboveItFails) {
    for (const auto& [microvolts, expected] :
         {std::pair{"900999", kSuccess}, {"901000", kFailed}, {"-1000", kFailed}}) {
        World world;
        world.module.SetAttribute(line::kAdc1, microvolts);

        const Texts messages = world.RunSelfTest();

        EXPECT_EQ(expected, world.Reported()[kAntenna]) << microvolts;
        EXPECT_THAT(messages,
                    Contains(expected == kSuccess ? "cellularAntennaConnection = TSelfTestDeviceState_Success"
                                                  : "cellularAntennaConnection = TSelfTestDeviceState_Failed"));
    }
}

TEST(EcallUIGpioTest, AntennaThatCannotBeMeasuredFails) {
    World world;
    world.module.attributes.SetMissing(line::kAdc1);

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(kFailed, world.Reported()[kAntenna]);
    EXPECT_THAT(messages, Contains("cellularAntennaConnection = TSelfTestDeviceState_Failed"));
    EXPECT_EQ("lo", world.module.Attribute(line::kAntennaValue));
}

TEST(EcallUIGpioTest, AntennaThatCannotBeSuppliedFailsUnmeasured) {
    World world;
    world.module.attributes.AddFault(line::kAntennaNumber, Use::Write, Fault::AtMost(0).Once());

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(kFailed, world.Reported()[kAntenna]);
    EXPECT_THAT(messages, Not(Contains(HasSubstr("AdcRead"))));
    EXPECT_THAT(messages, Not(Contains(HasSubstr("cellularAntennaConnection"))));
    EXPECT_THAT(world.module.journal.Texts(IsWritten(line::kAntennaValue)), ElementsAre("hi", "lo"));
}

TEST(EcallUIGpioTest, ReportThatIsRefusedIsSaid) {
    World world;
    world.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {.code = 7});

    const Texts messages = world.RunSelfTest();

    EXPECT_THAT(messages, Contains("srvcResult ERROR  = 7 !!!!!!"));
    EXPECT_EQ("RunSelfTest - Exit", messages.back());
    world.module.journal.Await(IsInSyslog("srvcResult ERROR  = 7 !!!!!!"));
}

TEST(EcallUIGpioTest, ReportWithoutEcallServiceIsSaid) {
    Module module;
    Configure(module, {{"EcallMicrophoneSource", "0"}});

    const Performed performed = Perform(module, {"RunSelfTest"});

    EXPECT_THAT(performed.messages, Contains("srvcResult ERROR  = -12 !!!!!!"));
}

// ---- On the whole service ----

TEST(EcallUIGpioTest, ServiceTestsItselfWhenTheEcallServiceAsks) {
    World world;
    world.module.StartService();
    world.module.journal.Await(IsTraced("InitGpio - exit"));

    world.peer.RequestSelfTest();

    ASSERT_TRUE(world.peer.AwaitRequests(EcallMethod::UpdateSelfTestAllDevicesState, 1));
    EXPECT_THAT(world.Reported(), ElementsAre(kSuccess, kSuccess, kNotHandled, kNotHandled, kNotHandled, kNotHandled,
                                              kNotHandled, kSuccess, kNotHandled, kNotHandled, kSuccess, kSuccess,
                                              kNotHandled, kNotHandled, kNotHandled));
}

}  // namespace
