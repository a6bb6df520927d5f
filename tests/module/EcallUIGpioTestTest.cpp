// The self-test: what it finds at loudspeaker, crash sensor and antenna, and what it reports.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "EcallPeer.h"
#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kReport[] = "updateSelfTestAllDevicesState";

/// A module whose eCall service is there; its relay switches without script.
struct World {
    Module module;
    EcallPeer peer{module.journal};
    Texts sleeps;  ///< of the last self-test

    World() {
        Configure(module, {{"EcallMicrophoneSource", "0"}});
        EXPECT_TRUE(peer.Start());
    }
    /// Runs one self-test; answers what it said. Reading a line before marks its begin in the journal.
    Texts RunSelfTest() {
        Performed performed = Perform(module, {"connect", "GpioRead 3", "RunSelfTest"});
        sleeps = std::move(performed.sleeps);
        Texts messages = std::move(performed.messages);
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

/// What a self-test itself says, and what it does to relay and supply.
Texts OfTheDevices(Texts messages) {
    constexpr std::array kBegins = {"RunSelfTest", "ControlAudioRelay (", "Speaker ",  "rtaDetector",
                                    "ecall_pwm_",  "gpio_05 (",           "cellularAn"};
    std::erase_if(messages, [&](const std::string& message) {
        return std::ranges::none_of(kBegins, [&](const char* begin) { return message.starts_with(begin); });
    });
    return messages;
}

TEST(EcallUIGpioTest, HealthyModulePasses) {
    World world;

    const Texts messages = world.RunSelfTest();

    EXPECT_THAT(world.Reported(), ElementsAre(kSuccess, kSuccess, kNotHandled, kNotHandled, kNotHandled, kNotHandled,
                                              kNotHandled, kSuccess, kNotHandled, kNotHandled, kSuccess, kSuccess,
                                              kNotHandled, kNotHandled, kNotHandled));
    EXPECT_EQ(1U, world.peer.Requests(EcallMethod::UpdateSelfTestAllDevicesState));
    EXPECT_THAT(OfTheDevices(messages),
                ElementsAre("RunSelfTest - Enter", "ControlAudioRelay (SetRelayOn=1) - Enter",
                            "Speaker Status = UTA_AUDIO_SPEAKER_CONNECTED", "ControlAudioRelay (SetRelayOn=0) - Enter",
                            "rtaDetectorOperability = TSelfTestDeviceState_Success",
                            "gpio_05 (ANT_DET_CTL_GPIO) configured at hi level",
                            "cellularAntennaConnection = TSelfTestDeviceState_Success",
                            "gpio_05 (ANT_DET_CTL_GPIO) configured at lo level", "RunSelfTest - Exit"));
    EXPECT_THAT(world.sleeps, ElementsAre("slept 300 ms"));
}

TEST(EcallUIGpioTest, DevicesAreTestedInOrder) {
    World world;

    world.RunSelfTest();

    // Relay on around the speaker's diagnosis, then the sensor, then the antenna's supply around its measurement.
    Texts steps;
    for (const Entry& entry : world.module.journal.All({}, world.Begin())) {
        const bool isDelayedSwitchOff = entry.subject == line::kRelay && entry.text == "0";
        const bool isStep = !isDelayedSwitchOff && (entry.kind == Kind::Write || entry.kind == Kind::Read ||
                                                    (entry.kind == Kind::RpcRequest && entry.subject == kReport));
        if (isStep) {
            steps.push_back(entry.subject.substr(entry.subject.rfind('/') + 1) +
                            (entry.kind == Kind::Write ? " = " + entry.text : ""));
        }
    }
    EXPECT_THAT(steps,
                ElementsAre("value = 1", "fda803-speaker", "pwm_status", "vantu_gpio_num = gpio_05",
                            "vantu_gpio_dir = out", "vantu_gpio_value = hi", "out_temp_battemp1_raw",
                            "vantu_gpio_num = gpio_05", "vantu_gpio_dir = out", "vantu_gpio_value = lo", kReport));
    const Entry on = world.module.journal.Await(IsWritten(line::kRelay, "1"), world.Begin());
    for (const Entry& off : world.module.journal.All(IsWritten(line::kRelay, "0"), on.seq)) {
        EXPECT_GE(off.time - on.time, 5s);
    }
    const Entry supplied = world.module.journal.Await(IsWritten(line::kAntennaValue, "hi"));
    const Entry measured = world.module.journal.Await(IsOpened(line::kAdc1));
    EXPECT_GE(measured.time - supplied.time, 300ms);
}

TEST(EcallUIGpioTest, SupplyOfTheAntennaIsInTheStateWhileItIsOn) {
    World world;
    SaveState(world.module, {.antennaSelected = true});

    world.module.StartService();
    world.module.journal.Await(IsTraced("InitGpio - exit"));
    world.peer.RequestSelfTest();
    world.module.journal.Await(IsTraced("RunSelfTest - Exit"));

    EXPECT_THAT(world.module.journal.Texts(IsTraced("NEW UI STATE")),
                ElementsAre("NEW UI STATE : EcallAntennaSelected=1, EcallAntennaDetectionActivated=1, "
                            "CanTriggerAutoEcall=1",
                            "NEW UI STATE : EcallAntennaSelected=1, EcallAntennaDetectionActivated=0, "
                            "CanTriggerAutoEcall=1"));
    EXPECT_EQ("1 0 1", StateFile(world.module));
    EXPECT_THAT(world.module.journal.Texts(IsKind(Kind::Console)), Not(Contains(HasSubstr("locked"))));
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
    std::size_t reads = 0;
    world.module.attributes.OnRead(world.module.Sensor("pwm_status"), [&reads] {
        return std::string(std::array{"0\n", "1\n", "4\n", "9\n", "0\n"}.at(reads++ % 5));
    });

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(kFailed, world.Reported()[kSensor]);
    EXPECT_EQ(5U, reads);
    const Texts said = OfTheDevices(messages);
    ASSERT_LT(9U, said.size());
    EXPECT_THAT(Texts(said.begin() + 4, said.begin() + 9),
                ElementsAre("ecall_pwm_status = 0, rtaDetectorOperability = TSelfTestDeviceState_Failed",
                            "ecall_pwm_status = 1, rtaDetectorOperability = TSelfTestDeviceState_Failed",
                            "ecall_pwm_status = 4, rtaDetectorOperability = TSelfTestDeviceState_Failed",
                            "ecall_pwm_status = 9, rtaDetectorOperability = TSelfTestDeviceState_Failed",
                            "ecall_pwm_status = 0, rtaDetectorOperability = TSelfTestDeviceState_Failed"));
    EXPECT_THAT(world.sleeps, ElementsAre("slept 500 ms", "slept 500 ms", "slept 500 ms", "slept 500 ms",
                                          "slept 500 ms", "slept 300 ms"));
}

struct Antenna {
    const char* name;
    const char* thresholdMv;
    const char* microvolts;
    uint32_t expected;

    friend void PrintTo(const Antenna& antenna, std::ostream* out) { *out << antenna.name; }
};

class EcallUIGpioTestAntenna : public testing::TestWithParam<Antenna> {};

TEST_P(EcallUIGpioTestAntenna, IsJudgedByItsThreshold) {
    World world;
    Configure(world.module,
              {{"EcallMicrophoneSource", "0"}, {"EcallAntennaDetectionThresholdMv", GetParam().thresholdMv}});
    world.module.SetAttribute(line::kAdc1, GetParam().microvolts);

    const Texts messages = world.RunSelfTest();

    EXPECT_EQ(GetParam().expected, world.Reported()[kAntenna]);
    EXPECT_THAT(messages,
                Contains(GetParam().expected == kSuccess ? "cellularAntennaConnection = TSelfTestDeviceState_Success"
                                                         : "cellularAntennaConnection = TSelfTestDeviceState_Failed"));
}

INSTANTIATE_TEST_SUITE_P(All, EcallUIGpioTestAntenna,
                         testing::Values(Antenna{"AtTheThreshold", "900", "900999", kSuccess},
                                         Antenna{"AboveIt", "900", "901000", kFailed},
                                         Antenna{"AtAnother", "1500", "1500000", kSuccess},
                                         Antenna{"AboveAnother", "1500", "1501000", kFailed},
                                         Antenna{"NegativeReading", "900", "-1000", kFailed},
                                         Antenna{"NegativeThreshold", "-1", "2500000", kSuccess}),
                         [](const auto& tested) { return tested.param.name; });

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
    EXPECT_THAT(world.sleeps, IsEmpty());
}

TEST(EcallUIGpioTest, ReportThatIsRefusedIsSaid) {
    World world;
    // No delayed switch-off of the relay among the messages.
    Configure(world.module, {{"EcallMicrophoneSource", "0"}, {"AudioRelayUsed", "false"}});
    world.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {.code = 7});

    const Texts messages = world.RunSelfTest();

    ASSERT_LE(2U, messages.size());
    EXPECT_THAT(Texts(messages.end() - 2, messages.end()),
                ElementsAre("srvcResult ERROR  = 7 !!!!!!", "RunSelfTest - Exit"));
    EXPECT_EQ(1U, world.peer.Requests(EcallMethod::UpdateSelfTestAllDevicesState));
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
