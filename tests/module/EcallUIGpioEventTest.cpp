// From kernel events to emergency calls, on the whole unit.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>

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

constexpr char kPress[] = "EVENT=ECALL ACTIVATED";

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
    EXPECT_LT(unit.journal.All(IsWritten(line::kAntennaValue)).back().seq,
              unit.journal.Await(IsWritten(unit.module.Led("ExternalGpio_enable"))).seq);
    const Match ofInitGpio{.kind = Kind::Trace, .also = [](const Entry& entry) {
                               return entry.text.starts_with("InitGpio") ||
                                      entry.subject.ends_with("EcallUIGpioAnt.cpp");
                           }};
    EXPECT_THAT(unit.journal.Texts(ofInitGpio),
                ElementsAre("InitGpio - Enter", "gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_07 (ANT_SEL_GPIO) configured at lo level", "GpioAntWrite - Exit : ret = 0",
                            "gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_05 (ANT_DET_CTL_GPIO) configured at lo level", "GpioAntWrite - Exit : ret = 0",
                            "InitGpio - exit"));
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

TEST(EcallUIGpioEvent, ThreadThatCannotBeStartedIsSaidAndTheOutputsAreSetAllTheSame) {
    Module module;

    const Performed performed = Perform(module, {"fail pthread_create " + std::to_string(EAGAIN), "InitGpio"});

    EXPECT_THAT(performed.messages,
                Contains("Thread_GPIO_UEVNET not started, error = Resource temporarily unavailable"));
    EXPECT_EQ("InitGpio - exit", performed.messages.back());
    EXPECT_EQ("lo", module.Attribute(line::kAntennaValue));
    EXPECT_EQ("DTR", module.Attribute(module.Led("ExternalGpio_enable")));
    module.journal.Await(IsInSyslog("Thread_GPIO_UEVNET not started, error = Resource temporarily unavailable"));
}

TEST(EcallUIGpioEvent, ThreadSetsItsDevicesUpInOrderAndThenWaits) {
    Unit unit;

    unit.StartAlone();

    Texts said = Said(unit, 0);
    std::erase_if(said, [](const std::string& line) { return line.starts_with("InitGpio"); });
    EXPECT_THAT(said, ElementsAre("Thread_GPIO_UEVNET - Enter", "ConfigureEcallEns - Enter", "ConfigureEcallEns - Exit",
                                  "ConfigureEcallButtonNrqst - Enter : ActiveLow=0",
                                  "Set the active state into /sys/devices/ecall_isr.xxx/active_low",
                                  "Set the debouce_cnt to 10 into /sys/devices/ecall_isr.xxx/debounce_cnt",
                                  "ConfigureEcallButtonNrqst - Exit", "Wait for an event (blocking wait) "));
    const Entry status = unit.journal.Await(IsRead(unit.module.Sensor("pwm_status")));
    EXPECT_GT(status.seq, unit.journal.Await(IsWritten(unit.module.Sensor("pwm_event_repeat"))).seq);
    EXPECT_LT(status.seq, unit.journal.Await(IsWritten(unit.module.ButtonInterrupt("irq_enable"))).seq);
}

// ---- The devices behind the events ----

/// How the attributes of a device were opened, in order.
Texts OpenedBelow(Unit& unit, const std::string& directory, const std::string& but) {
    return unit.journal.Texts({.kind = Kind::Open, .also = [&](const Entry& entry) {
                                   return entry.subject.starts_with(directory) && entry.subject != but;
                               }});
}

TEST(EcallUIGpioEvent, DetectorMeasuresEverySecondAndRepeats) {
    Unit unit;

    unit.StartAlone();

    EXPECT_THAT(WritesBelow(unit.module, unit.module.devices.sensor),
                ElementsAre("pwm_poll = 1000", "pwm_event_repeat = 1"));
    EXPECT_THAT(OpenedBelow(unit, unit.module.devices.sensor, unit.module.Sensor("pwm_status")),
                ElementsAre("read-write sync", "read-write sync"));
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
    EXPECT_EQ(Texts(4, "read-write sync"), OpenedBelow(unit, unit.module.devices.buttonInterrupt, ""));
}

TEST(EcallUIGpioEvent, ButtonDeviceThatIsMissingIsSaidAndTheSensorIsHeardAllTheSame) {
    Unit unit;
    unit.module.attributes.Remove(unit.module.devices.buttonInterrupt);

    unit.StartAlone();

    EXPECT_THAT(Said(unit, 0), AllOf(Contains("Unable to open /sys/devices/ecall_isr.xxx/irq_enable"),
                                     Not(Contains("ConfigureEcallButtonNrqst - Exit"))));
    const uint64_t mark = unit.Announce("EVENT=NORMAL");
    EXPECT_THAT(SaidOfEvent(unit, mark),
                Contains("ecall-ens AIRBAG_SENSOR_NORMAL_MODE_10HZ ==> sensor detected (PWM 10 Hz)"));
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
    EXPECT_LT(unit.journal.Await(IsWritten(line::kAntennaValue, "hi")).seq,
              unit.journal.Await(IsRpcRequest("triggerEcall")).seq);
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

    const uint64_t mark = unit.Announce("EVENT=EMERGENCY");

    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_THAT(AntennaWrites(unit, mark), IsEmpty());
    EXPECT_EQ(1U, unit.journal.Count(IsTraced("SetUIStateAndUnlock - Enter"), mark));  // to disarm
}

TEST(EcallUIGpioEvent, CallIsRequestedEvenIfTheAntennaCannotBeSelected) {
    Unit unit;
    unit.Start();
    unit.module.attributes.AddFault(line::kAntennaNumber, Use::Open, Fault::Error(EIO));

    unit.Announce("EVENT=EMERGENCY");

    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_EQ("0 0 0", StateFile(unit.module));
}

TEST(EcallUIGpioEvent, SecondEmergencyCallsOnlyAfterANormalSignal) {
    Unit unit;
    unit.Start();

    unit.Announce("EVENT=EMERGENCY");
    const uint64_t repeated = unit.Announce("EVENT=EMERGENCY");
    EXPECT_EQ(1U, unit.Triggers().size());
    EXPECT_THAT(SaidOfEvent(unit, repeated),
                ElementsAre("ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)",
                            "ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)"));

    const uint64_t normal = unit.Announce("EVENT=NORMAL");
    EXPECT_EQ("1 0 1", StateFile(unit.module));
    EXPECT_THAT(SaidOfEvent(unit, normal),
                ElementsAre("ecall-ens ==> sensor detected (PWM 10 Hz)",
                            "ecall-ens AIRBAG_SENSOR_NORMAL_MODE_10HZ ==> sensor detected (PWM 10 Hz)"));
    unit.Announce("EVENT=EMERGENCY");
    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall, kAutomaticCall));
}

TEST(EcallUIGpioEvent, RefusedCallStaysArmedForTheNextEmergency) {
    Unit unit;
    unit.Start();
    unit.peer.Answer(EcallMethod::TriggerEcall, {.code = 1});

    const uint64_t refused = unit.Announce("EVENT=EMERGENCY");
    EXPECT_THAT(SaidOfEvent(unit, refused), Not(Contains(HasSubstr("Auto Ecall triggered"))));
    EXPECT_THAT(SaidOfEvent(unit, refused), Contains("XirEcallapp_triggerEcall error :  srvcResult = 1"));
    unit.journal.Await(IsInSyslog("XirEcallapp_triggerEcall error :  srvcResult = 1"), refused);
    EXPECT_EQ("1 0 1", StateFile(unit.module));

    unit.peer.Answer(EcallMethod::TriggerEcall, {});
    unit.Announce("EVENT=EMERGENCY");
    EXPECT_EQ(2U, unit.Triggers().size());
    EXPECT_EQ("1 0 0", StateFile(unit.module));
}

TEST(EcallUIGpioEvent, EmergencyWhileTheEcallServiceIsGoneStaysArmed) {
    Unit unit;
    unit.Start();
    unit.peer.Stop();

    const uint64_t missed = unit.Announce("EVENT=EMERGENCY");
    EXPECT_EQ("1 0 1", StateFile(unit.module));
    EXPECT_THAT(SaidOfEvent(unit, missed), Contains("XirEcallapp_triggerEcall error :  srvcResult = -12"));

    ASSERT_TRUE(unit.peer.Start());
    ASSERT_TRUE(unit.peer.AwaitRequests(EcallMethod::Subscribe, 2));
    unit.Notify(4, 0);  // the unit reads again only once it takes itself for connected
    unit.Announce("EVENT=EMERGENCY");
    EXPECT_THAT(unit.Triggers(), ElementsAre(kAutomaticCall));
    EXPECT_EQ("1 0 0", StateFile(unit.module));
}

TEST(EcallUIGpioEvent, EmergencyOfASensorThatIsNotUsedDoesNothing) {
    Unit unit;
    unit.Start({{"GpioInputPwm_ENS_Used", "false"}});

    const uint64_t mark = unit.Announce("EVENT=EMERGENCY");

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_THAT(AntennaWrites(unit, mark), IsEmpty());
    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)",
                            "ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)",
                            "GpioInputPwm_ENS_Used == false ==> do nothing"));
}

TEST(EcallUIGpioEvent, EmergencyWithoutEcallServiceDoesNothing) {
    Unit unit;
    unit.StartAlone();

    const uint64_t mark = unit.Announce("EVENT=EMERGENCY");

    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("ecall-ens : AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ (PWM = 1Khz)",
                            "ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)",
                            "pProxyEcallapp == NULL ==> do nothing"));
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
    unit.Start({{"AudioRelayUsed", "false"}});  // no delayed switch-off that may fall into the silence

    const uint64_t mark = unit.Announce(GetParam().text);

    EXPECT_EQ(GetParam().said, SaidOfEvent(unit, mark));
    EXPECT_THAT(unit.journal.All(IsKind(Kind::Open), mark), IsEmpty());
    EXPECT_EQ(0U, unit.journal.Count(IsTraced("ControlAudioRelay ("), mark));
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

    const uint64_t mark = unit.Announce("EVENT=NORMAL ECALL ACTIVATED");

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

    const uint64_t mark = unit.Announce(kPress);

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
    EXPECT_EQ(kSelectAntenna, AntennaWrites(unit, mark));
    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED",
                            "ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated"));
    const auto looks = unit.journal.All(IsRead(line::kButton), mark);
    ASSERT_EQ(2U, looks.size());
    EXPECT_GE(looks[1].time - looks[0].time, 200ms);
    EXPECT_LT(unit.journal.Await(IsWritten(line::kAntennaValue, "hi"), mark).seq,
              unit.journal.Await(IsRpcRequest("triggerEcall"), mark).seq);
    EXPECT_EQ("1 0 1", StateFile(unit.module));  // a manual call disarms nothing
}

TEST(EcallUIGpioEvent, PressMustLastAsLongAsConfigured) {
    Module module;
    Configure(module, {{"ConnectEcallService", "false"}, {"EcallButtonPressMinimalTimeForTrigMs", "250"}});
    StartPerforming(module, {"InitGpio", "stay"});
    module.journal.Await(IsTraced("Wait for an event (blocking wait) "));
    module.SetButton(true);

    module.uevents.Send({"change@/devices/any", kPress});

    module.journal.Await(IsTraced("==> Manual ecall activated"));
    module.journal.Await({.kind = Kind::Stderr, .contains = "slept "});  // comes by another road
    EXPECT_THAT(module.journal.Texts({.kind = Kind::Stderr, .contains = "slept "}), ElementsAre("slept 250 ms"));
}

TEST(EcallUIGpioEvent, PressLeavesAnAntennaThatIsSelected) {
    Unit unit;
    SaveState(unit.module, {.antennaSelected = true});
    unit.Start();
    unit.module.SetButton(true);

    const uint64_t mark = unit.Announce(kPress);

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
    EXPECT_THAT(AntennaWrites(unit, mark), IsEmpty());
}

TEST(EcallUIGpioEvent, ActiveLowPressCalls) {
    Unit unit;
    unit.Start({{"GpioInputButton_nRQST_ActiveLow", "true"}});
    unit.module.SetButton(true);
    unit.Announce(kPress);
    EXPECT_THAT(unit.Triggers(), IsEmpty());

    unit.module.SetButton(false);
    unit.Announce(kPress);

    EXPECT_THAT(unit.Triggers(), ElementsAre(kManualCall));
}

TEST(EcallUIGpioEvent, PressThatIsOverAtTheFirstLookIsSpurious) {
    Unit unit;
    unit.Start();
    unit.module.SetButton(false);

    const uint64_t mark = unit.Announce(kPress);

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

    const uint64_t mark = unit.Announce(kPress);

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_EQ(2U, unit.journal.Count(IsRead(line::kButton), mark));
    EXPECT_THAT(SaidOfEvent(unit, mark), Contains("spurious signal on ecall-nrqst ==> do nothing"));
}

TEST(EcallUIGpioEvent, ButtonThatCannotBeReadIsSpurious) {
    for (const char* activeLow : {"false", "true"}) {
        Unit unit;
        unit.module.attributes.SetMissing(line::kButton);
        unit.Start({{"GpioInputButton_nRQST_ActiveLow", activeLow}});

        const uint64_t mark = unit.Announce(kPress);

        EXPECT_THAT(unit.Triggers(), IsEmpty());
        EXPECT_THAT(SaidOfEvent(unit, mark), Contains("spurious signal on ecall-nrqst ==> do nothing"));
    }
}

TEST(EcallUIGpioEvent, PressIsLeftToThePollingWhereThatIsOn) {
    Unit unit;
    unit.Start({{"EcallButtonPullingDetectionMode", "true"}, {"EcallButtonUsed", "false"}});
    const uint64_t mark = unit.Announce(kPress);

    // Had this thread looked at the line, it would have found no press and said so.
    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("uevent_hdlr ==> ecall-nrqst BUTTON_MANUAL_ECALL_ACTIVATED",
                            "ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> do nothing (QOR-726"));
}

TEST(EcallUIGpioEvent, PressOfAButtonThatIsNotUsedDoesNothing) {
    Unit unit;
    unit.Start({{"EcallButtonUsed", "false"}});
    unit.module.SetButton(true);

    const uint64_t mark = unit.Announce(kPress);

    EXPECT_THAT(unit.Triggers(), IsEmpty());
    EXPECT_THAT(unit.journal.All(IsRead(line::kButton), mark), IsEmpty());
    EXPECT_THAT(SaidOfEvent(unit, mark),
                Contains("EcallUI_Configuration.EcallButtonUsed == false ==> do nothing (QOR-726"));
}

TEST(EcallUIGpioEvent, PressWithoutEcallServiceDoesNothing) {
    Unit unit;
    unit.StartAlone();
    unit.module.SetButton(true);

    const uint64_t mark = unit.Announce(kPress);

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

    const uint64_t mark = unit.Announce(kPress);

    EXPECT_EQ(1U, unit.Triggers().size());
    EXPECT_EQ("ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated", SaidOfEvent(unit, mark).back());
}

// ---- DTR ----

TEST(EcallUIGpioEvent, DtrSwitchesTheLed) {
    Unit unit;
    unit.Start();

    const uint64_t on = unit.Announce("EVENT=DTR ACTIVATED");
    const uint64_t off = unit.Announce("EVENT=DTR INACTIVATED");

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
    unit.module.ioctls.AddFault("*command 44", Fault::Slow(24h));  // the first recovery never gets further

    const uint64_t first = unit.Announce("EVENT=INVALID_NO_IRQ");
    unit.journal.Await(IsKind(Kind::NetIoctl), first);
    const uint64_t second = unit.Announce("EVENT=INVALID_NO_IRQ");

    EXPECT_THAT(SaidOfEvent(unit, second),
                ElementsAre("ecall-ens : NO_IRQ", "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ",
                            "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == false, do nothing"));
    EXPECT_EQ(1U, unit.journal.Count(IsTraced("GpioRecoveryThread - Enter")));
}

TEST(EcallUIGpioEvent, LostInterruptIsRecoveredAgainAfterARecovery) {
    Unit unit;
    unit.Start();

    for (std::size_t recoveries = 1; recoveries <= 2; ++recoveries) {
        const uint64_t mark = unit.Announce("EVENT=INVALID_NO_IRQ");

        EXPECT_THAT(SaidOfEvent(unit, mark),
                    ElementsAre("ecall-ens : NO_IRQ", "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ",
                                "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == true ==> try a recovery"));
        unit.journal.Await(IsTraced("GpioRecoveryThread - Exit"), mark);
        EXPECT_THAT(unit.journal.Texts(IsKind(Kind::NetIoctl), mark), ElementsAre("command 44", "command 43"));
    }
}

TEST(EcallUIGpioEvent, RecoveryThatCannotBeStartedIsTriedAtTheNextEvent) {
    Module module;
    Configure(module, {{"ConnectEcallService", "false"}});
    const std::string noThread = "fail pthread_create " + std::to_string(EAGAIN);
    StartPerforming(module, {"InitGpio", noThread, "stay"});
    module.journal.Await(IsTraced("Wait for an event (blocking wait) "));
    module.journal.Await({.kind = Kind::Stderr, .text = noThread + " = done"});

    module.uevents.Send({"change@/devices/any", "EVENT=INVALID_NO_IRQ"});
    module.uevents.Send({"change@/devices/any", "EVENT=INVALID_NO_IRQ"});

    constexpr char kNotStarted[] = "GpioRecoveryThread not started, error = Resource temporarily unavailable";
    EXPECT_EQ(kNotStarted, module.journal.AwaitCount(2, IsTraced("GpioRecoveryThread"))[1].text);
    module.journal.Await(IsInSyslog(kNotStarted));
    EXPECT_THAT(module.journal.All(IsKind(Kind::NetIoctl)), IsEmpty());
}

TEST(EcallUIGpioEvent, RecoveryThatTheDriverRefusesIsNeverTriedAgain) {
    Unit unit;
    unit.Start();
    unit.module.ioctls.AddFault("eth0 command 44", Fault::Error(EIO).Once());

    const uint64_t first = unit.Announce("EVENT=INVALID_NO_IRQ");
    unit.journal.Await(IsTraced("IOCTL ERROR (1) ==> GpioRecoveryThread - Exit"), first);
    const uint64_t second = unit.Announce("EVENT=INVALID_NO_IRQ");

    EXPECT_THAT(SaidOfEvent(unit, second),
                Contains("ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == false, do nothing"));
    EXPECT_EQ(1U, unit.journal.Count(IsKind(Kind::NetIoctl)));
}

TEST(EcallUIGpioEvent, LostInterruptIsLeftAloneWhereRecoveryIsOff) {
    Unit unit;
    unit.Start({{"GpioIrqRecovery", "false"}});

    const uint64_t mark = unit.Announce("EVENT=INVALID_NO_IRQ");

    EXPECT_THAT(SaidOfEvent(unit, mark),
                ElementsAre("ecall-ens : NO_IRQ", "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ",
                            "ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == false, do nothing"));
    EXPECT_THAT(unit.journal.All(IsKind(Kind::NetIoctl)), IsEmpty());
}

// ---- The sensor's error report ----

TEST(EcallUIGpioEvent, SensorErrorIsReportedOnceASelfTestStateIsKnown) {
    Module module;
    EcallPeer peer(module.journal);
    ASSERT_TRUE(peer.Start());
    Configure(module, {{"AudioRelayUsed", "false"}});  // no delayed switch-off among the messages

    const Performed performed = Perform(module, {"connect", "SendRtaDetectorErrorStatus 1", "LastSelfTestState 0",
                                                 "SendRtaDetectorErrorStatus 1", "SendRtaDetectorErrorStatus 0"});

    const auto report = [](const std::string& sensor) {
        return "fwImageIntegrity=NotHandled(2) cellularAntennaConnection=NotHandled(2) simPresent=NotHandled(2) "
               "cellularReceiverOperability=NotHandled(2) gnssParametersIntegrity=NotHandled(2) "
               "gnssAntennaConnection=NotHandled(2) gnssReceiverOperability=NotHandled(2) rtaDetectorOperability=" +
               sensor +
               " microphoneConnection=NotHandled(2) microphoneOperability=NotHandled(2) "
               "loudspeakerConnection=NotHandled(2) loudspeakerOperability=NotHandled(2) "
               "backupBatteryLevel=NotHandled(2) statusIndicatorOperability=NotHandled(2) uimOperability=NotHandled(2)";
    };
    EXPECT_THAT(module.journal.Texts(IsRpcRequest("updateSelfTestAllDevicesState")),
                ElementsAre(report("Failed(1)"), report("Success(0)")));
    EXPECT_THAT(
        Texts(performed.messages.end() - 7, performed.messages.end()),
        ElementsAre("SendRtaDetectorErrorStatus - Enter (RtaDetectorError=1)", " ==> do nothing",
                    "SendRtaDetectorErrorStatus - Exit", "SendRtaDetectorErrorStatus - Enter (RtaDetectorError=1)",
                    "SendRtaDetectorErrorStatus - Exit", "SendRtaDetectorErrorStatus - Enter (RtaDetectorError=0)",
                    "SendRtaDetectorErrorStatus - Exit"));
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
