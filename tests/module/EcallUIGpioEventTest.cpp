// From kernel events to emergency calls, on the whole unit.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

namespace {

constexpr char kAutomaticCall[] = "automatic=1";
constexpr char kManualCall[] = "automatic=0";
constexpr char kPress[] = "EVENT=ECALL ACTIVATED";

/// Sends an event of some device and waits until it was handled; answers a mark before it.
uint64_t Announce(Unit& unit, const std::string& text) {
    const uint64_t mark = unit.journal.Mark();
    unit.module.uevents.Send({"change@/devices/any", "ACTION=change", text});
    const Entry seen = unit.journal.Await(IsTraced("NbReadyDescriptor = 1 "), mark);
    unit.AwaitIdleEventThread(seen.seq);
    return mark;
}

/// What the event unit has said since the mark.
Texts Said(Unit& unit, uint64_t from) {
    return unit.journal.Texts(
        {.kind = Kind::Trace,
         .also = [](const Entry& entry) { return entry.subject.ends_with("EcallUIGpioEvent.cpp"); }},
        from);
}

/// The same for one event, without the lines of the loop itself.
Texts SaidOfEvent(Unit& unit, uint64_t from) {
    Texts said = Said(unit, from);
    std::erase_if(said, [](const std::string& line) {
        return line.starts_with("NbReadyDescriptor") || line.starts_with("Wait for an event");
    });
    return said;
}

Texts AntennaWrites(Unit& unit, uint64_t from = 0) {
    Texts writes = Writes(unit.module, from);
    std::erase_if(writes, [](const std::string& write) { return !write.starts_with("dev/"); });
    return writes;
}
const Texts kSelectAntenna = {"dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi"};

// ---- InitGpio ----

TEST(EcallUIGpioEvent, StartDrivesAntennaAndLedLine) {
    Unit unit;

    unit.StartAlone();

    EXPECT_THAT(AntennaWrites(unit),
                ElementsAre("dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = lo",
                            "dev/vantu_gpio_num = gpio_05", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = lo"));
    EXPECT_THAT(WritesBelow(unit.module, unit.module.devices.led),
                ElementsAre("ExternalGpio_enable = DTR", "ExternalGpio_active_low = 0"));
    EXPECT_THAT(Said(unit, 0), IsSupersetOf({"InitGpio - Enter", "InitGpio - exit"}));
}

TEST(EcallUIGpioEvent, StartSelectsTheAntennaThatWasSelected) {
    Unit unit;
    SaveState(unit.module, {.antennaSelected = true, .antennaDetection = true, .canTrigger = true});

    unit.StartAlone(
        {{"GpioForEnablingEcallLedControlUsed", "\"IGN\""}, {"GpioForEnablingEcallLedControlActiveLow", "true"}});

    EXPECT_THAT(AntennaWrites(unit),
                ElementsAre("dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi",
                            "dev/vantu_gpio_num = gpio_05", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = lo"));
    EXPECT_EQ("1 0 1", StateFile(unit.module));
    EXPECT_THAT(WritesBelow(unit.module, unit.module.devices.led),
                ElementsAre("ExternalGpio_enable = IGN", "ExternalGpio_active_low = 0"));
}

bool HasEventThread(const ModuleProcess& process) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process.Pid()) + "/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        if (name == "Thread_GPIO_UEV") {
            return true;
        }
    }
    return false;
}

TEST(EcallUIGpioEvent, EitherInputAloneNeedsTheThreadAndNoneDoesNot) {
    for (const auto& [sensor, button, expected] :
         {std::tuple{"true", "false", true}, {"false", "true", true}, {"false", "false", false}}) {
        Unit unit;
        Configure(unit.module, {{"ConnectEcallService", "false"},
                                {"GpioInputPwm_ENS_Used", sensor},
                                {"GpioInputButton_nRQST_Used", button}});
        unit.module.StartService();
        unit.journal.Await(IsTraced("InitGpio - exit"));

        EXPECT_EQ(expected, HasEventThread(unit.module.Service())) << sensor << " " << button;
        EXPECT_EQ(std::string(button) == "true" ? 1U : 0U,
                  expected
                      ? (unit.AwaitIdleEventThread(), unit.journal.Count(IsTraced("ConfigureEcallButtonNrqst - Exit")))
                      : 0U);
    }
}

// ---- The devices behind the events ----

TEST(EcallUIGpioEvent, DetectorMeasuresEverySecondAndRepeats) {
    Unit unit;

    unit.StartAlone();

    EXPECT_THAT(WritesBelow(unit.module, unit.module.devices.sensor),
                ElementsAre("pwm_poll = 1000", "pwm_event_repeat = 1"));
    EXPECT_EQ("read-write sync", unit.journal.Await(IsOpened(unit.module.Sensor("pwm_poll"))).text);
    EXPECT_THAT(Said(unit, 0),
                IsSupersetOf({"Thread_GPIO_UEVNET - Enter", "ConfigureEcallEns - Enter", "ConfigureEcallEns - Exit"}));
}

TEST(EcallUIGpioEvent, DetectorThatIsMissingIsSaidTwice) {
    Unit unit;
    unit.module.attributes.Remove(unit.module.devices.sensor);

    unit.StartAlone();

    const Texts said = HardwareMessages(unit.module);
    EXPECT_EQ(2, std::ranges::count(said, "Unable to find devices 5"));
    EXPECT_THAT(said, IsSupersetOf({"Unable to open pwm_poll : errno = No such file or directory",
                                    "Unable to open pwm_event_repeat : errno = No such file or directory",
                                    "ConfigureEcallEns - Exit", "ecallEns_PwmRta = -1 ==> do nothing"}));
    EXPECT_EQ("Unable to open pwm_poll : errno = No such file or directory\n",
              unit.journal.Await(IsInSyslog("pwm_poll")).text);
}

TEST(EcallUIGpioEvent, DetectorThatDoesNotTakeItsSettingsIsUsedAllTheSame) {
    Unit unit;
    unit.module.attributes.AddFault(unit.module.Sensor("pwm_poll"), Use::Open, Fault::Error(EACCES));
    unit.module.attributes.AddFault(unit.module.Sensor("pwm_event_repeat"), Use::Write, Fault::Error(EIO));

    unit.StartAlone();

    EXPECT_THAT(Said(unit, 0),
                AllOf(Contains("Unable to open pwm_poll : errno = Permission denied"),
                      Not(Contains(HasSubstr("pwm_event_repeat"))), Contains("ConfigureEcallEns - Exit")));
}

TEST(EcallUIGpioEvent, ButtonIsSetUpWithItsInterruptOff) {
    Unit unit;

    unit.StartAlone();

    EXPECT_THAT(WritesBelow(unit.module, unit.module.devices.buttonInterrupt),
                ElementsAre("irq_enable = 0", "active_low = 0", "debounce_cnt = 10", "irq_enable = 1"));
    EXPECT_EQ("read-write sync", unit.journal.Await(IsOpened(unit.module.ButtonInterrupt("irq_enable"))).text);
    EXPECT_THAT(Said(unit, 0), IsSupersetOf({"ConfigureEcallButtonNrqst - Enter : ActiveLow=0",
                                             "Set the active state into /sys/devices/ecall_isr.xxx/active_low",
                                             "Set the debouce_cnt to 10 into /sys/devices/ecall_isr.xxx/debounce_cnt",
                                             "ConfigureEcallButtonNrqst - Exit"}));
}

TEST(EcallUIGpioEvent, ButtonMayBeActiveLow) {
    Unit unit;
    unit.module.SetButton(true);

    unit.StartAlone({{"GpioInputButton_nRQST_ActiveLow", "true"}});

    EXPECT_THAT(WritesBelow(unit.module, unit.module.devices.buttonInterrupt),
                ElementsAre("irq_enable = 0", "active_low = 1", "debounce_cnt = 10", "irq_enable = 1"));
    EXPECT_THAT(Said(unit, 0), Contains("ConfigureEcallButtonNrqst - Enter : ActiveLow=1"));
}

struct SetUpFailure {
    const char* name;
    const char* attribute;
    Use use;
    unsigned nth;
    const char* message;
    std::size_t writesBefore;

    friend void PrintTo(const SetUpFailure& failure, std::ostream* out) { *out << failure.name; }
};

class EcallUIGpioEventButton : public testing::TestWithParam<SetUpFailure> {};

TEST_P(EcallUIGpioEventButton, SetUpThatFailsEndsThere) {
    const SetUpFailure& failure = GetParam();
    Unit unit;
    const Fault fault = failure.use == Use::Open ? Fault::Error(EACCES) : Fault::Error(EIO);
    unit.module.attributes.AddFault(unit.module.ButtonInterrupt(failure.attribute), failure.use,
                                    fault.FromThe(failure.nth));

    unit.StartAlone();

    EXPECT_THAT(Said(unit, 0), AllOf(Contains(failure.message), Not(Contains("ConfigureEcallButtonNrqst - Exit"))));
    EXPECT_EQ(failure.writesBefore, WritesBelow(unit.module, unit.module.devices.buttonInterrupt).size());
    unit.journal.Await(IsInSyslog(failure.message));
}

#define ISR "/sys/devices/ecall_isr.xxx/"
INSTANTIATE_TEST_SUITE_P(
    All, EcallUIGpioEventButton,
    testing::Values(SetUpFailure{"OffOpen", "irq_enable", Use::Open, 1, "Unable to open " ISR "irq_enable", 0},
                    SetUpFailure{"OffWrite", "irq_enable", Use::Write, 1,
                                 "Unable to write 0 in " ISR "irq_enable, error = Input/output error", 0},
                    SetUpFailure{"LevelOpen", "active_low", Use::Open, 1,
                                 "Unable to open " ISR "active_low, error = Permission denied", 1},
                    SetUpFailure{"LevelWrite", "active_low", Use::Write, 1,
                                 "Unable to write 0 in " ISR "active_low, error = Input/output error", 1},
                    SetUpFailure{"DebounceOpen", "debounce_cnt", Use::Open, 1,
                                 "Unable to open " ISR "debounce_cnt, error = Permission denied", 2},
                    SetUpFailure{"DebounceWrite", "debounce_cnt", Use::Write, 1,
                                 "Unable to write 10 in " ISR "debounce_cnt, error = Input/output error", 2},
                    SetUpFailure{"OnOpen", "irq_enable", Use::Open, 2, "Unable to open " ISR "irq_enable", 3},
                    SetUpFailure{"OnWrite", "irq_enable", Use::Write, 2,
                                 "Unable to write 0 in " ISR "irq_enable, error = Input/output error", 3}),
    [](const auto& tested) { return tested.param.name; });

TEST(EcallUIGpioEvent, ButtonLevelThatCannotBeWrittenSaysZeroAlsoForOne) {
    Unit unit;
    unit.module.attributes.AddFault(unit.module.ButtonInterrupt("active_low"), Use::Write, Fault::Error(EIO));

    unit.StartAlone({{"GpioInputButton_nRQST_ActiveLow", "true"}});

    EXPECT_THAT(Said(unit, 0), Contains("Unable to write 0 in " ISR "active_low, error = Input/output error"));
}

// ---- The sensor at the start ----

TEST(EcallUIGpioEvent, NormalSensorAtTheStartArmsTheTrigger) {
    Unit unit;
    SaveState(unit.module, {.canTrigger = false});

    unit.Start();

    EXPECT_EQ("0 0 1", StateFile(unit.module));
    EXPECT_THAT(unit.Triggers(), IsEmpty());
}

TEST(EcallUIGpioEvent, EmergencyAtTheStartCallsAndDisarms) {
    Unit unit;
    unit.module.SetSensor(SensorStatus::Emergency);

    unit.Start();

    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_EQ("1 0 0", StateFile(unit.module));
    EXPECT_THAT(Said(unit, 0),
                IsSupersetOf({"ecallEns_PwmRta = AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> trigger an automatic ecall",
                              "Auto Ecall triggered ==> EcallUIState.CanTriggerAutoEcall = false"}));
}

TEST(EcallUIGpioEvent, EmergencyAtTheStartCountsAlsoWhenTheSensorIsNotUsed) {
    Unit unit;
    unit.module.SetSensor(SensorStatus::Emergency);

    unit.Start({{"GpioInputPwm_ENS_Used", "false"}});

    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
}

TEST(EcallUIGpioEvent, EmergencyAtTheStartThatWasCalledForBeforeIsLeftAlone) {
    Unit unit;
    SaveState(unit.module, {.canTrigger = false});
    unit.module.SetSensor(SensorStatus::Emergency);

    unit.Start();

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_THAT(Said(unit, 0), Contains("ecallEns_PwmRta = AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ, but "
                                        "CanTriggerAutoEcall == false ==> do nothing"));
}

TEST(EcallUIGpioEvent, EmergencyAtTheStartWithoutEcallServiceStaysArmed) {
    Unit unit;
    unit.module.SetSensor(SensorStatus::Emergency);

    unit.StartAlone();

    EXPECT_THAT(Said(unit, 0),
                AllOf(Contains("ecallEns_PwmRta = AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> trigger an automatic ecall"),
                      Not(Contains(HasSubstr("Auto Ecall triggered")))));
    EXPECT_EQ("1 0 1", StateFile(unit.module));  // the antenna was selected for it
}

TEST(EcallUIGpioEvent, OtherSensorStatusAtTheStartDoesNothing) {
    for (const SensorStatus status : {SensorStatus::Invalid, SensorStatus::NotDetected, SensorStatus::NoInterrupt}) {
        Unit unit;
        SaveState(unit.module, {.canTrigger = false});
        unit.module.SetSensor(status);

        unit.StartAlone();

        EXPECT_THAT(Said(unit, 0),
                    Contains("ecallEns_PwmRta = " + std::to_string(static_cast<int>(status)) + " ==> do nothing"));
        EXPECT_EQ("0 0 0", StateFile(unit.module));
    }
}

// ---- Sensor events ----

TEST(EcallUIGpioEvent, EmergencySelectsTheAntennaCallsAndDisarms) {
    Unit unit;
    unit.Start();

    const uint64_t mark = unit.journal.Mark();
    unit.module.SensorBecomes(SensorStatus::Emergency);

    const Entry disarmed =
        unit.journal.Await(IsTraced("Auto Ecall triggered ==> EcallUIState.CanTriggerAutoEcall = false"), mark);
    unit.AwaitIdleEventThread(disarmed.seq);
    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_EQ("1 0 0", StateFile(unit.module));
    const Entry call = unit.journal.Await(IsRpcRequest("triggerEcall"), mark);
    const Entry selected = unit.journal.Await(IsWritten(line::kAntennaValue, "hi"), mark);
    EXPECT_LT(selected.seq, call.seq);
    const Texts said = SaidOfEvent(unit, mark);
    ASSERT_GE(said.size(), 3U);
    EXPECT_EQ("ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)", said[0]);
    EXPECT_EQ("ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)", said[1]);
}

TEST(EcallUIGpioEvent, AntennaThatIsSelectedIsNotSelectedAgain) {
    Unit unit;
    SaveState(unit.module, {.antennaSelected = true});
    unit.Start();

    const uint64_t mark = Announce(unit, "EVENT=EMERGENCY");

    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_THAT(AntennaWrites(unit, mark), IsEmpty());
}

TEST(EcallUIGpioEvent, CallIsRequestedEvenIfTheAntennaCannotBeSelected) {
    Unit unit;
    unit.Start();
    unit.module.attributes.AddFault(line::kAntennaNumber, Use::Open, Fault::Error(EIO));

    Announce(unit, "EVENT=EMERGENCY");

    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_EQ("0 0 0", StateFile(unit.module));
}

TEST(EcallUIGpioEvent, SecondEmergencyCallsOnlyAfterANormalSignal) {
    Unit unit;
    unit.Start();

    Announce(unit, "EVENT=EMERGENCY");
    const uint64_t repeated = Announce(unit, "EVENT=EMERGENCY");
    EXPECT_EQ(1U, unit.Triggers().size());
    EXPECT_THAT(SaidOfEvent(unit, repeated),
                ElementsAre("ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)",
                            "ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)"));

    const uint64_t normal = Announce(unit, "EVENT=NORMAL");
    EXPECT_EQ("1 0 1", StateFile(unit.module));
    EXPECT_THAT(SaidOfEvent(unit, normal),
                ElementsAre("ecall-ens ==> sensor detected (PWM 10 Hz)",
                            "ecall-ens AIRBAG_SENSOR_NORMAL_MODE_10HZ ==> sensor detected (PWM 10 Hz)"));
    Announce(unit, "EVENT=EMERGENCY");
    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall, kAutomaticCall));
}

TEST(EcallUIGpioEvent, RefusedCallStaysArmedForTheNextEmergency) {
    Unit unit;
    unit.Start();
    unit.peer.Answer(EcallMethod::TriggerEcall, {.code = 1});

    const uint64_t refused = Announce(unit, "EVENT=EMERGENCY");
    EXPECT_THAT(SaidOfEvent(unit, refused), Not(Contains(HasSubstr("Auto Ecall triggered"))));
    EXPECT_EQ("1 0 1", StateFile(unit.module));

    unit.peer.Answer(EcallMethod::TriggerEcall, {});
    Announce(unit, "EVENT=EMERGENCY");
    EXPECT_EQ(2U, unit.Triggers().size());
    EXPECT_EQ("1 0 0", StateFile(unit.module));
}

TEST(EcallUIGpioEvent, EmergencyWhileTheEcallServiceIsGoneStaysArmed) {
    Unit unit;
    unit.Start();
    unit.peer.Stop();

    Announce(unit, "EVENT=EMERGENCY");
    EXPECT_EQ("1 0 1", StateFile(unit.module));

    ASSERT_TRUE(unit.peer.Start());
    ASSERT_TRUE(unit.peer.AwaitRequests(EcallMethod::Subscribe, 2));  // the unit is back
    Announce(unit, "EVENT=EMERGENCY");
    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_EQ("1 0 0", StateFile(unit.module));
}

TEST(EcallUIGpioEvent, EmergencyOfASensorThatIsNotUsedDoesNothing) {
    Unit unit;
    unit.Start({{"GpioInputPwm_ENS_Used", "false"}});

    const uint64_t mark = Announce(unit, "EVENT=EMERGENCY");

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_THAT(SaidOfEvent(unit, mark), Contains("GpioInputPwm_ENS_Used == false ==> do nothing"));
}

TEST(EcallUIGpioEvent, EmergencyWithoutEcallServiceDoesNothing) {
    Unit unit;
    unit.StartAlone();

    const uint64_t mark = Announce(unit, "EVENT=EMERGENCY");

    EXPECT_THAT(SaidOfEvent(unit, mark), Contains("pProxyEcallapp == NULL ==> do nothing"));
    EXPECT_THAT(AntennaWrites(unit, mark), IsEmpty());
}

struct QuietEvent {
    const char* name;
    const char* text;
    Texts said;

    friend void PrintTo(const QuietEvent& event, std::ostream* out) { *out << event.name; }
};

class EcallUIGpioEventQuiet : public testing::TestWithParam<QuietEvent> {};

TEST_P(EcallUIGpioEventQuiet, IsOnlySaid) {
    Unit unit;
    unit.Start();

    const uint64_t mark = Announce(unit, GetParam().text);

    EXPECT_EQ(GetParam().said, SaidOfEvent(unit, mark));
    EXPECT_THAT(unit.journal.All(IsKind(Kind::Open), mark), IsEmpty());
    EXPECT_THAT(unit.journal.All(IsKind(Kind::RpcRequest), mark), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    All, EcallUIGpioEventQuiet,
    testing::Values(QuietEvent{"NotDetected",
                               "EVENT=SENSOR NOT DETECTED",
                               {"ecall-ens : sensor not detected (No PWM)",
                                "ecall-ens AIRBAG_SENSOR_NOT_DETECTED => sensor not detected (No PWM)"}},
                    QuietEvent{"Invalid",
                               "EVENT=INVALID",
                               {"ecall-ens : uevent INVALID", "ecall-ens NO_EVENT_ERROR ==> error sensor"}}),
    [](const auto& tested) { return tested.param.name; });

TEST(EcallUIGpioEvent, DatagramsAboutOtherThingsAreReceivedWithoutAWord) {
    Unit unit;
    unit.Start();

    const uint64_t mark = unit.journal.Mark();
    unit.module.uevents.Send({"add@/devices/usb1", "ACTION=add", "SUBSYSTEM=usb"});
    unit.module.uevents.Send({"add@/devices/usb2", "ACTION=add", "SUBSYSTEM=usb"});
    unit.module.uevents.Send({"change@/devices/any", "EVENT=SENSOR NOT DETECTED"});
    unit.AwaitIdleEventThread(unit.journal.Await(IsTraced("ecall-ens AIRBAG_SENSOR_NOT_DETECTED"), mark).seq);

    EXPECT_THAT(Said(unit, mark), ElementsAre("NbReadyDescriptor = 1 ", "ecall-ens : sensor not detected (No PWM)",
                                              "ecall-ens AIRBAG_SENSOR_NOT_DETECTED => sensor not detected (No PWM)",
                                              "Wait for an event (blocking wait) "));
}

TEST(EcallUIGpioEvent, ButtonGoesBeforeTheSensorInOneString) {
    Unit unit;
    unit.StartAlone({{"EcallButtonUsed", "false"}});

    const uint64_t mark = Announce(unit, "EVENT=NORMAL ECALL ACTIVATED");

    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED",
                            "EcallUI_Configuration.EcallButtonUsed == false ==> do nothing (QOR-726"));
}

TEST(EcallUIGpioEvent, OnlyTheFirst512BytesOfADatagramCount) {
    Unit unit;
    unit.Start();

    const uint64_t mark = unit.journal.Mark();
    unit.module.uevents.SendRaw(std::string(504, 'x') + "EMERGENCY" + std::string(300, 'y'));  // cut to "EMERGENC"
    unit.module.uevents.SendRaw(std::string(503, 'x') + "EMERGENCY" + std::string(300, 'y'));  // fits to the last byte
    unit.journal.Await(IsTraced("Auto Ecall triggered"), mark);

    EXPECT_EQ(1U, unit.Triggers().size());
    EXPECT_EQ(1U, unit.journal.Count(IsTraced("ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ"), mark));
}

// ---- Button ----

TEST(EcallUIGpioEvent, PressThatLastsCalls) {
    Unit unit;
    unit.Start({{"EcallButtonPressMinimalTimeForTrigMs", "200"}});
    unit.module.SetButton(true);

    const uint64_t mark = Announce(unit, kPress);

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
    EXPECT_EQ(kSelectAntenna, AntennaWrites(unit, mark));
    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED",
                            "ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated"));
    const auto looks = unit.journal.All(IsRead(line::kButton), mark);
    ASSERT_EQ(2U, looks.size());
    EXPECT_GE(looks[1].time - looks[0].time, 200ms);
    EXPECT_EQ("1 0 1", StateFile(unit.module));  // a manual call disarms nothing
}

TEST(EcallUIGpioEvent, ActiveLowPressCalls) {
    Unit unit;
    unit.Start({{"GpioInputButton_nRQST_ActiveLow", "true"}});
    unit.module.SetButton(true);
    Announce(unit, kPress);
    EXPECT_THAT(unit.Triggers(), IsEmpty());

    unit.module.SetButton(false);
    Announce(unit, kPress);

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
}

TEST(EcallUIGpioEvent, PressThatIsOverAtTheFirstLookIsSpurious) {
    Unit unit;
    unit.Start();
    unit.module.SetButton(false);

    const uint64_t mark = Announce(unit, kPress);

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_EQ(1U, unit.journal.Count(IsRead(line::kButton), mark));
    EXPECT_THAT(SaidOfEvent(unit, mark), ElementsAre("uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED",
                                                     "spurious signal on ecall-nrqst ==> do nothing"));
}

TEST(EcallUIGpioEvent, PressThatIsOverAtTheSecondLookIsSpurious) {
    Unit unit;
    unit.Start();
    int looks = 0;
    unit.module.attributes.OnRead(line::kButton, [&looks] { return std::string(looks++ == 0 ? "1\n" : "0\n"); });

    const uint64_t mark = Announce(unit, kPress);

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_EQ(2U, unit.journal.Count(IsRead(line::kButton), mark));
    EXPECT_THAT(SaidOfEvent(unit, mark), Contains("spurious signal on ecall-nrqst ==> do nothing"));
}

TEST(EcallUIGpioEvent, ButtonThatCannotBeReadIsSpurious) {
    for (const char* activeLow : {"false", "true"}) {
        Unit unit;
        unit.module.attributes.SetMissing(line::kButton);
        unit.Start({{"GpioInputButton_nRQST_ActiveLow", activeLow}});

        const uint64_t mark = Announce(unit, kPress);

        EXPECT_THAT(unit.Triggers(), IsEmpty());
        EXPECT_THAT(SaidOfEvent(unit, mark), Contains("spurious signal on ecall-nrqst ==> do nothing"));
    }
}

TEST(EcallUIGpioEvent, PressIsLeftToThePollingWhereThatIsOn) {
    Unit unit;
    unit.Start({{"EcallButtonPullingDetectionMode", "true"}, {"EcallButtonUsed", "false"}});
    const uint64_t mark = Announce(unit, kPress);

    EXPECT_THAT(unit.journal.All(IsRead(line::kButton), mark), IsEmpty());
    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED",
                            "ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> do nothing (QOR-726"));
}

TEST(EcallUIGpioEvent, PressOfAButtonThatIsNotUsedDoesNothing) {
    Unit unit;
    unit.Start({{"EcallButtonUsed", "false"}});
    unit.module.SetButton(true);

    const uint64_t mark = Announce(unit, kPress);

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_THAT(unit.journal.All(IsRead(line::kButton), mark), IsEmpty());
    EXPECT_THAT(SaidOfEvent(unit, mark),
                Contains("EcallUI_Configuration.EcallButtonUsed == false ==> do nothing (QOR-726"));
}

TEST(EcallUIGpioEvent, PressWithoutEcallServiceDoesNothing) {
    Unit unit;
    unit.StartAlone();
    unit.module.SetButton(true);

    const uint64_t mark = Announce(unit, kPress);

    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED",
                            "ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated",
                            "pProxyEcallapp == NULL ==> do nothing"));
    EXPECT_THAT(AntennaWrites(unit, mark), IsEmpty());
}

TEST(EcallUIGpioEvent, RefusedManualCallIsNotLookedAt) {
    Unit unit;
    unit.Start();
    unit.peer.Answer(EcallMethod::TriggerEcall, {.missing = true});
    unit.module.SetButton(true);

    const uint64_t mark = Announce(unit, kPress);

    EXPECT_EQ(1U, unit.Triggers().size());
    EXPECT_EQ("ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated", SaidOfEvent(unit, mark).back());
}

// ---- DTR ----

TEST(EcallUIGpioEvent, DtrSwitchesTheLed) {
    Unit unit;
    unit.Start();

    const uint64_t on = Announce(unit, "EVENT=DTR ACTIVATED");
    const uint64_t off = Announce(unit, "EVENT=DTR INACTIVATED");

    EXPECT_THAT(unit.journal.Texts(IsWritten(unit.module.Led("enable")), on, off), ElementsAre("1"));
    EXPECT_THAT(unit.journal.Texts(IsWritten(unit.module.Led("enable")), off), ElementsAre("0"));
    const Texts said = SaidOfEvent(unit, on);
    EXPECT_THAT(said, ElementsAre("uevent_hdlr ==> DTR is activated", "xgold_serial usif2 DTR is activated ",
                                  "uevent_hdlr ==> DTR is inactivated", "xgold_serial usif2 DTR is inactivated "));
}

// ---- A lost interrupt ----

TEST(EcallUIGpioEvent, LostInterruptIsRecoveredOnceAtATime) {
    Unit unit;
    unit.Start();

    const uint64_t first = Announce(unit, "EVENT=INVALID_NO_IRQ");
    const uint64_t second = Announce(unit, "EVENT=INVALID_NO_IRQ");  // while the first recovery waits its second

    EXPECT_THAT(SaidOfEvent(unit, first),
                Contains("ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == true ==> try a recovery"));
    EXPECT_THAT(SaidOfEvent(unit, second),
                ElementsAre("ecall-ens : NO_IRQ", "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ",
                            "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == false, do nothing"));
    unit.journal.Await(IsTraced("GpioRecoveryThread - Exit"), first);
    EXPECT_THAT(unit.journal.Texts(IsKind(Kind::NetIoctl)), ElementsAre("command 44", "command 43"));

    Announce(unit, "EVENT=INVALID_NO_IRQ");
    unit.journal.AwaitCount(2, IsTraced("GpioRecoveryThread - Exit"), first);
    EXPECT_EQ(4U, unit.journal.Count(IsKind(Kind::NetIoctl)));
}

TEST(EcallUIGpioEvent, RecoveryThatTheDriverRefusesIsNeverTriedAgain) {
    Unit unit;
    unit.Start();
    unit.module.ioctls.AddFault("eth0 command 44", Fault::Error(EIO).Once());

    const uint64_t first = Announce(unit, "EVENT=INVALID_NO_IRQ");
    unit.journal.Await(IsTraced("IOCTL ERROR (1) ==> GpioRecoveryThread - Exit"), first);
    const uint64_t second = Announce(unit, "EVENT=INVALID_NO_IRQ");

    EXPECT_THAT(SaidOfEvent(unit, second),
                Contains("ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == false, do nothing"));
    EXPECT_EQ(1U, unit.journal.Count(IsKind(Kind::NetIoctl)));
}

TEST(EcallUIGpioEvent, LostInterruptIsLeftAloneWhereRecoveryIsOff) {
    Unit unit;
    unit.Start({{"GpioIrqRecovery", "false"}});

    const uint64_t mark = Announce(unit, "EVENT=INVALID_NO_IRQ");

    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("ecall-ens : NO_IRQ", "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ",
                            "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == false, do nothing"));
    EXPECT_THAT(unit.journal.All(IsKind(Kind::NetIoctl)), IsEmpty());
}

// ---- The socket ----

/// The number of a process that has just been; the next ones come right after it.
uint32_t LatestProcess() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
    return static_cast<uint32_t>(child);
}

/// Takes the netlink ports of the processes to come: whoever binds its own process number then fails.
class PortTaker {
  public:
    explicit PortTaker(uint32_t count) {
        const uint32_t latest = LatestProcess();
        for (uint32_t i = 1; i <= count; ++i) {
            const int taker = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
            sockaddr_nl address{};
            address.nl_family = AF_NETLINK;
            address.nl_pid = latest + i;
            EXPECT_EQ(0, bind(taker, reinterpret_cast<const sockaddr*>(&address), sizeof address));
            takers.push_back(taker);
        }
    }
    ~PortTaker() { std::ranges::for_each(takers, close); }
    PortTaker(const PortTaker&) = delete;
    PortTaker& operator=(const PortTaker&) = delete;

  private:
    std::vector<int> takers;
};

TEST(EcallUIGpioEvent, WithoutItsSocketTheServiceEnds) {
    Unit unit;
    const PortTaker taker(200);
    Configure(unit.module, {{"ConnectEcallService", "false"}});

    unit.module.StartService();

    const std::optional<int> status = unit.module.Service().WaitForEnd();
    ASSERT_TRUE(status.has_value()) << unit.journal.Dump();
    EXPECT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(1, WEXITSTATUS(*status));
    EXPECT_THAT(unit.module.Service().Output(), HasSubstr("nuevent bind fail\n\r"));
    unit.journal.Await(IsInSyslog("nuevent bind fail"));
    EXPECT_THAT(HardwareMessages(unit.module), Contains("nuevent bind fail"));
}

/// A copy of the service's event socket; -1 when there is none.
int CopyEventSocket(const ModuleProcess& service) {
    const int process = static_cast<int>(syscall(SYS_pidfd_open, service.Pid(), 0));
    int found = -1;
    for (int fd = 0; fd < 64 && found < 0; ++fd) {
        const int copy = static_cast<int>(syscall(SYS_pidfd_getfd, process, fd, 0));
        int protocol = 0;
        socklen_t size = sizeof protocol;
        int domain = 0;
        const bool isEventSocket =
            copy >= 0 && getsockopt(copy, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_NETLINK &&
            getsockopt(copy, SOL_SOCKET, SO_PROTOCOL, &protocol, &size) == 0 && protocol == NETLINK_KOBJECT_UEVENT;
        if (isEventSocket) {
            found = copy;
        } else if (copy >= 0) {
            close(copy);
        }
    }
    close(process);
    return found;
}

TEST(EcallUIGpioEvent, SocketHearsAllGroupsUnderTheProcessNumber) {
    Unit unit;
    unit.StartAlone();

    const int copy = CopyEventSocket(unit.module.Service());

    sockaddr_nl address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(0, getsockname(copy, reinterpret_cast<sockaddr*>(&address), &size));
    EXPECT_EQ(0xFFFFFFFFU, address.nl_groups);
    EXPECT_EQ(static_cast<uint32_t>(unit.module.Service().Pid()), address.nl_pid);
    close(copy);
}

TEST(EcallUIGpioEvent, ReceiveBufferIsAsLargeAsTheSystemGrants) {
    Unit unit;
    unit.StartAlone();
    const int copy = CopyEventSocket(unit.module.Service());
    int granted = 0;
    socklen_t size = sizeof granted;
    ASSERT_EQ(0, getsockopt(copy, SOL_SOCKET, SO_RCVBUF, &granted, &size));

    // Whatever this process may have, the service has.
    const int own = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    const int wish = 128 * 1024 * 1024;
    if (setsockopt(own, SOL_SOCKET, SO_RCVBUFFORCE, &wish, sizeof wish) != 0) {
        ASSERT_EQ(0, setsockopt(own, SOL_SOCKET, SO_RCVBUF, &wish, sizeof wish));
    }
    int expected = 0;
    ASSERT_EQ(0, getsockopt(own, SOL_SOCKET, SO_RCVBUF, &expected, &size));
    EXPECT_EQ(expected, granted);
    close(own);
    close(copy);
}

void SendOtherEvents(Unit& unit, int count) {
    const std::string datagram = "change@/devices/other" + std::string(1, '\0') + "ACTION=change" + '\0';
    for (int i = 0; i < count; ++i) {
        unit.module.uevents.SendRaw(datagram);
    }
}

/// Repeats an event, as the sensor's driver does, until the service has heard it: one alone may fall into an overflow.
void AnnounceUntilHeard(Unit& unit, const std::string& text, const std::string& message) {
    const uint64_t mark = unit.journal.Mark();
    do {
        unit.module.uevents.Send({"change@/devices/any", text});
    } while (!unit.journal.WaitFor(IsTraced(message), mark, 100ms));
}

constexpr char kOverflow[] = "uevent_hdlr: Error recvmsg: 105";  // ENOBUFS

TEST(EcallUIGpioEvent, BurstAroundAnEmergencyNeverSwallowsItSilently) {
    Unit unit;
    unit.Start();

    const uint64_t mark = unit.journal.Mark();
    SendOtherEvents(unit, 5000);
    unit.module.SensorBecomes(SensorStatus::Emergency);
    SendOtherEvents(unit, 5000);
    AnnounceUntilHeard(unit, "EVENT=SENSOR NOT DETECTED", "AIRBAG_SENSOR_NOT_DETECTED");

    const std::size_t overflows = unit.journal.Count(IsTraced(kOverflow), mark);
    const std::size_t calls = unit.Triggers(mark).size();
    EXPECT_TRUE(calls == 1 || (calls == 0 && overflows > 0)) << calls << " calls, " << overflows << " overflows";
}

/// More small events than the service's receive buffer can hold: each takes more than half a KiB of it.
int EventsBeyondTheBuffer(const ModuleProcess& service) {
    const int copy = CopyEventSocket(service);
    int granted = 0;
    socklen_t size = sizeof granted;
    EXPECT_EQ(0, getsockopt(copy, SOL_SOCKET, SO_RCVBUF, &granted, &size));
    close(copy);
    return granted / 512;
}

TEST(EcallUIGpioEvent, OverflowIsOneReceiveErrorAndTheThreadGoesOn) {
    Unit unit;
    unit.Start();
    const uint64_t mark = unit.journal.Mark();

    // What came first is in the buffer, however much comes behind it.
    unit.module.Service().Signal(SIGSTOP);
    unit.module.SensorBecomes(SensorStatus::Emergency);
    SendOtherEvents(unit, EventsBeyondTheBuffer(unit.module.Service()));
    unit.module.Service().Signal(SIGCONT);

    const Entry overflow = unit.journal.Await(IsTraced(kOverflow), mark);
    unit.journal.Await(IsTraced("ecall-ens NO_EVENT_ERROR ==> error sensor"), overflow.seq);
    unit.journal.Await(IsInSyslog(kOverflow), mark);
    unit.journal.Await(IsTraced("Auto Ecall triggered"), mark);
    AnnounceUntilHeard(unit, "EVENT=NORMAL", "AIRBAG_SENSOR_NORMAL_MODE_10HZ");
    AnnounceUntilHeard(unit, "EVENT=EMERGENCY", "Auto Ecall triggered");
    EXPECT_THAT(unit.Triggers(mark), ElementsAre(kAutomaticCall, kAutomaticCall));
    EXPECT_EQ(1U, unit.journal.Count(IsTraced(kOverflow), mark));
}

/// Tries to send an emergency without any capability; answers the errno of each way.
std::vector<int> Forge(uint32_t servicePort) {
    const std::string datagram = "change@/devices/vantu_pwm.0" + std::string(1, '\0') + "EVENT=EMERGENCY" + '\0';
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2] = {};
    EXPECT_EQ(0, syscall(SYS_capset, &header, none));
    const int forger = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT);
    std::vector<int> errors;
    for (const auto& [port, groups] : {std::pair{0U, 1U}, {servicePort, 0U}, {servicePort, 1U}}) {
        sockaddr_nl target{};
        target.nl_family = AF_NETLINK;
        target.nl_pid = port;
        target.nl_groups = groups;
        const ssize_t sent = sendto(forger, datagram.data(), datagram.size(), 0,
                                    reinterpret_cast<const sockaddr*>(&target), sizeof target);
        errors.push_back(sent < 0 ? errno : 0);
    }
    close(forger);
    return errors;
}

TEST(EcallUIGpioEvent, ProcessWithoutPrivilegeCannotForgeAnEvent) {
    Unit unit;
    unit.Start();
    const uint64_t mark = unit.journal.Mark();

    std::vector<int> errors;
    std::thread([&] { errors = Forge(static_cast<uint32_t>(unit.module.Service().Pid())); }).join();

    EXPECT_THAT(errors, ElementsAre(EPERM, EPERM, EPERM));
    Announce(unit, "EVENT=SENSOR NOT DETECTED");
    EXPECT_THAT(unit.Triggers(mark), IsEmpty());
    EXPECT_EQ(1U, unit.journal.Count(IsTraced("NbReadyDescriptor = 1 "), mark));
}

// ---- Receiving and waiting that fail ----

/// Starts the event thread in the probe, with one system call that will fail once, and sends it an event.
Texts SaidAfterFailure(const std::string& failure) {
    Module module;
    Configure(module, {{"ConnectEcallService", "false"}});
    StartPerforming(module, {failure, "InitGpio", "stay"});
    module.journal.Await(IsTraced("Wait for an event (blocking wait) "));
    module.uevents.Send({"change@/devices/any", "EVENT=SENSOR NOT DETECTED"});
    module.uevents.Send({"change@/devices/any", "EVENT=DTR ACTIVATED"});
    module.journal.Await({.kind = Kind::Trace, .also = [](const Entry& entry) {
                              return entry.text == "SetGpioEnableEcallLed - exit" ||
                                     entry.text == "Thread_GPIO_UEVNET - exit";
                          }});
    return HardwareMessages(module);
}

TEST(EcallUIGpioEvent, FailedReceptionIsAnErrorAndTheThreadGoesOn) {
    EXPECT_THAT(SaidAfterFailure("fail recvmsg " + std::to_string(EIO)),
                AllOf(IsSupersetOf({"uevent_hdlr: Error recvmsg: 5", "ecall-ens NO_EVENT_ERROR ==> error sensor"}),
                      Contains("xgold_serial usif2 DTR is activated ")));
}

TEST(EcallUIGpioEvent, ReceptionThatWouldBlockIsAnExpectedError) {
    EXPECT_THAT(SaidAfterFailure("fail recvmsg " + std::to_string(EAGAIN)),
                AllOf(IsSupersetOf({"uevent_hdlr: Expected Error", "ecall-ens NO_EVENT_ERROR ==> error sensor"}),
                      Not(Contains(HasSubstr("Error recvmsg"))), Contains("xgold_serial usif2 DTR is activated ")));
}

TEST(EcallUIGpioEvent, EndOfTheDataIsAnErrorAndTheThreadGoesOn) {
    EXPECT_THAT(SaidAfterFailure("fail recvmsg " + std::to_string(ENODATA)),
                AllOf(IsSupersetOf({"uevent_hdlr: lcm_uevent_hdlr: EOF", "ecall-ens NO_EVENT_ERROR ==> error sensor"}),
                      Contains("xgold_serial usif2 DTR is activated ")));
}

TEST(EcallUIGpioEvent, InterruptedWaitIsTakenUpAgain) {
    EXPECT_THAT(SaidAfterFailure("fail select " + std::to_string(EINTR)),
                AllOf(Contains("select() error == EINTR"), Contains("xgold_serial usif2 DTR is activated "),
                      Not(Contains("Thread_GPIO_UEVNET - exit"))));
}

TEST(EcallUIGpioEvent, WaitThatEndsWithoutTheSocketReadyIsAnError) {
    EXPECT_THAT(SaidAfterFailure("fail select " + std::to_string(ENODATA)),
                AllOf(IsSupersetOf({"NbReadyDescriptor = 0 ", "ecall-ens NO_EVENT_ERROR ==> error sensor"}),
                      Contains("xgold_serial usif2 DTR is activated ")));
}

TEST(EcallUIGpioEvent, WaitThatFailsForGoodEndsTheThread) {
    const Texts said = SaidAfterFailure("fail select " + std::to_string(ENOMEM));

    EXPECT_THAT(said, AllOf(Contains("select() error Cannot allocate memory"), Contains("Thread_GPIO_UEVNET - exit"),
                            Not(Contains("xgold_serial usif2 DTR is activated "))));
}

// ---- The sensor's error report ----

TEST(EcallUIGpioEvent, SensorErrorIsReportedOnceASelfTestStateIsKnown) {
    Module module;
    EcallPeer peer(module.journal);
    ASSERT_TRUE(peer.Start());

    const Performed performed = Perform(module, {"connect", "SendRtaDetectorErrorStatus 1", "LastSelfTestState 0",
                                                 "SendRtaDetectorErrorStatus 1", "SendRtaDetectorErrorStatus 0"});

    const Texts reports = module.journal.Texts(IsRpcRequest("updateSelfTestAllDevicesState"));
    ASSERT_EQ(2U, reports.size());
    EXPECT_THAT(reports[0],
                AllOf(HasSubstr("fwImageIntegrity=NotHandled(2)"), HasSubstr("rtaDetectorOperability=Failed(1)"),
                      HasSubstr("loudspeakerConnection=NotHandled(2)"), HasSubstr("uimOperability=NotHandled(2)")));
    EXPECT_THAT(reports[1], HasSubstr("rtaDetectorOperability=Success(0)"));
    EXPECT_EQ(1, std::ranges::count(performed.messages, " ==> do nothing"));
    EXPECT_THAT(performed.messages, IsSupersetOf({"SendRtaDetectorErrorStatus - Enter (RtaDetectorError=1)",
                                                  "SendRtaDetectorErrorStatus - Enter (RtaDetectorError=0)",
                                                  "SendRtaDetectorErrorStatus - Exit"}));
}

TEST(EcallUIGpioEvent, SensorErrorThatIsRefusedOrHasNoServiceIsSaid) {
    Module module;
    EcallPeer peer(module.journal);
    ASSERT_TRUE(peer.Start());
    peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {.code = 9});

    const Performed refused = Perform(module, {"connect", "LastSelfTestState 0", "SendRtaDetectorErrorStatus 1"});
    const Performed alone = Perform(module, {"LastSelfTestState 0", "SendRtaDetectorErrorStatus 1"});

    EXPECT_THAT(refused.messages, Contains("srvcResult ERROR  = 9 !!!!!!"));
    EXPECT_THAT(alone.messages, ElementsAre("SendRtaDetectorErrorStatus - Enter (RtaDetectorError=1)",
                                            " ==> do nothing", "SendRtaDetectorErrorStatus - Exit"));
}

}  // namespace
