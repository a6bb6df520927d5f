// Lines and devices through their attribute files.
#include <gmock/gmock.h>

#include <cerrno>

#include "GpioTest.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

// ---- Paths ----

TEST(EcallUIGpio, EveryRowHasItsPath) {
    Module module;

    const Performed performed =
        Perform(module, {"GpioGetDevicePath 0 128", "GpioGetDevicePath 1 128", "GpioGetDevicePath 2 128",
                         "GpioGetDevicePath 3 128", "GpioGetDevicePath 4 128", "GpioGetDevicePath 5 128",
                         "GpioGetDevicePath 6 128", "GpioGetDevicePath 7 128", "GpioGetDevicePath 8 128",
                         "GpioGetDevicePath 9 128", "GpioGetDevicePath 10 128", "GpioGetDevicePath 11 128",
                         "GpioGetDevicePath 12 128", "GpioGetDevicePath 13 128", "GpioGetDevicePath 14 128",
                         "GpioGetDevicePath 15 128"});

    EXPECT_THAT(performed.results,
                ElementsAre("GpioGetDevicePath 0 128 = 0 /sys/class/ecall_gpio/sos-button-det/value",
                            "GpioGetDevicePath 1 128 = 0 /sys/class/ecall_gpio/gnss-system-on/value",
                            "GpioGetDevicePath 2 128 = 0 /sys/class/ecall_gpio/gnss-ant-det/value",
                            "GpioGetDevicePath 3 128 = 0 /sys/class/ecall_gpio/bat-present/value",
                            "GpioGetDevicePath 4 128 = 0 /sys/class/ecall_gpio/ecall-nrqst/value",
                            "GpioGetDevicePath 5 128 = 0 /sys/devices/vantu_pwm.0",
                            "GpioGetDevicePath 6 128 = 0 /sys/class/ecall_gpio/lte-ecall-relay/value",
                            "GpioGetDevicePath 7 128 = 0 /sys/class/ecall_gpio/UNUSE_GPIO22/value",
                            "GpioGetDevicePath 8 128 = 0 /sys/class/ecall_gpio/ecall-nlock/value",
                            "GpioGetDevicePath 9 128 = 0 /sys/class/ecall_gpio/amp-nstby/value",
                            "GpioGetDevicePath 10 128 = 0 /sys/class/ecall_gpio/gnss-on-off/value",
                            "GpioGetDevicePath 11 128 = 0 /sys/class/ecall_gpio/gnss-boot-sel/value",
                            "GpioGetDevicePath 12 128 = 0 /sys/class/ecall_gpio/amp-hwmute/value",
                            "GpioGetDevicePath 13 128 = 0 /sys/devices/vantu_pwm_led.1",
                            "GpioGetDevicePath 14 128 = 0 /sys/devices/ecall_isr.2",
                            "GpioGetDevicePath 15 128 = -1 untouched"));
}

TEST(EcallUIGpio, PathOfALineMayJustFillItsBuffer) {
    Module module;  // the path of line 4 has 39 characters

    const Performed performed =
        Perform(module, {"GpioGetDevicePath 4 40", "GpioGetDevicePath 4 39", "GpioGetDevicePath 4 38"});

    EXPECT_THAT(performed.results, ElementsAre("GpioGetDevicePath 4 40 = 0 /sys/class/ecall_gpio/ecall-nrqst/value",
                                               "GpioGetDevicePath 4 39 = 0 /sys/class/ecall_gpio/ecall-nrqst/valu",
                                               "GpioGetDevicePath 4 38 = -1 untouched"));
}

TEST(EcallUIGpio, DevicePathFitsOneByteLessOnceItIsKnown) {
    Module module;  // the path of device 5 has 24 characters

    const Performed performed =
        Perform(module, {"GpioGetDevicePath 5 23", "GpioGetDevicePath 5 24", "GpioGetDevicePath 5 25"});
    const Performed unknown = Perform(module, {"GpioGetDevicePath 5 24"});

    // The first access keeps the path although it does not fit; from then on there must be room for its end.
    EXPECT_THAT(performed.results,
                ElementsAre("GpioGetDevicePath 5 23 = -1 untouched", "GpioGetDevicePath 5 24 = -1 untouched",
                            "GpioGetDevicePath 5 25 = 0 /sys/devices/vantu_pwm.0"));
    EXPECT_THAT(unknown.results, ElementsAre("GpioGetDevicePath 5 24 = 0 /sys/devices/vantu_pwm."));
}

TEST(EcallUIGpio, AttributePathIsComposedWhenItFits) {
    Module module;  // "/sys/devices/vantu_pwm_led.1" and "enable" have 28 and 6 characters

    const Performed performed =
        Perform(module, {"GpioGetDeviceFilePath 13 128 enable", "GpioGetDeviceFilePath 13 36 enable",
                         "GpioGetDeviceFilePath 13 35 enable", "GpioGetDeviceFilePath 13 34 enable",
                         "GpioGetDeviceFilePath 13 128", "GpioGetDeviceFilePath 99 128 enable",
                         "GpioGetDeviceFilePathNowhere"});

    EXPECT_THAT(
        performed.results,
        ElementsAre("GpioGetDeviceFilePath 13 128 enable = 0 /sys/devices/vantu_pwm_led.1/enable",
                    "GpioGetDeviceFilePath 13 36 enable = 0 /sys/devices/vantu_pwm_led.1/enable",
                    "GpioGetDeviceFilePath 13 35 enable = 0 /sys/devices/vantu_pwm_led.1/enabl",
                    "GpioGetDeviceFilePath 13 34 enable = -1 untouched", "GpioGetDeviceFilePath 13 128 = -1 untouched",
                    "GpioGetDeviceFilePath 99 128 enable = -1 untouched", "GpioGetDeviceFilePathNowhere = -1"));
}

TEST(EcallUIGpio, DeviceIsTheFirstEntryThatBeginsWithItsName) {
    Module module({.devices = {.sensor = "/sys/devices/vantu_pwm.7"}});
    module.attributes.Add("/sys/devices/vantu_pwm.3/pwm_status", "1\n");

    const Performed performed = Perform(module, {"GpioGetDevicePath 5 128", "GpioGetDevicePath 13 128"});

    EXPECT_THAT(performed.results, ElementsAre("GpioGetDevicePath 5 128 = 0 /sys/devices/vantu_pwm.7",
                                               "GpioGetDevicePath 13 128 = 0 /sys/devices/vantu_pwm_led.1"));
}

TEST(EcallUIGpio, DeviceMayHaveAnEmptySuffixAndAnyOther) {
    Module module({.devices = {.sensor = "/sys/devices/vantu_pwm.", .led = "/sys/devices/vantu_pwm_led.a b%s"}});

    const Performed performed = Perform(module, {"GpioGetDevicePath 5 128", "GpioGetDevicePath 13 128"});

    EXPECT_THAT(performed.results, ElementsAre("GpioGetDevicePath 5 128 = 0 /sys/devices/vantu_pwm.",
                                               "GpioGetDevicePath 13 128 = 0 /sys/devices/vantu_pwm_led.a b%s"));
}

TEST(EcallUIGpio, SensorIsNotMistakenForTheLed) {
    Module module;
    module.attributes.Remove(module.devices.sensor);

    const Performed performed = Perform(module, {"GpioGetDevicePath 5 128", "GpioGetDevicePath 13 128"});

    EXPECT_THAT(performed.results, ElementsAre("GpioGetDevicePath 5 128 = -1 untouched",
                                               "GpioGetDevicePath 13 128 = 0 /sys/devices/vantu_pwm_led.1"));
}

TEST(EcallUIGpio, DeviceWithoutItsDirectoryHasNoPath) {
    Module module;
    module.attributes.Remove("/sys/devices");

    const Performed performed = Perform(module, {"GpioGetDevicePath 5 128", "GpioGetDeviceFilePath 13 128 enable"});

    EXPECT_THAT(performed.results, ElementsAre("GpioGetDevicePath 5 128 = -1 untouched",
                                               "GpioGetDeviceFilePath 13 128 enable = -1 untouched"));
}

TEST(EcallUIGpio, DeviceKeepsItsPathAfterItIsGone) {
    Module module;
    // The directory goes while the probe reads a line after its first look.
    module.attributes.OnRead(line::kBatteryPresent, [&module] {
        module.attributes.Remove(module.devices.led);
        return "1\n";
    });

    ModuleProcess& probe = StartPerforming(module, {"GpioGetDevicePath 13 128", "GpioRead 3", "sleep 0",
                                                    "SetGpioEnableEcallLed 1", "GpioGetDevicePath 13 128"});
    EXPECT_EQ(0, probe.WaitForEnd());

    EXPECT_THAT(probe.Errors(), testing::HasSubstr("SetGpioEnableEcallLed 1 = 1\n"
                                                   "GpioGetDevicePath 13 128 = 0 /sys/devices/vantu_pwm_led.1\n"));
}

TEST(EcallUIGpio, DeviceThatComesLateIsFound) {
    Module module;
    module.attributes.Remove(module.devices.led);
    module.attributes.OnRead(line::kBatteryPresent, [&module] {
        module.attributes.Add("/sys/devices/vantu_pwm_led.9/enable", "0\n");
        return "1\n";
    });

    const Performed performed = Perform(module, {"GpioGetDevicePath 13 128", "GpioRead 3", "GpioGetDevicePath 13 128"});

    EXPECT_THAT(performed.results, ElementsAre("GpioGetDevicePath 13 128 = -1 untouched", "GpioRead 3 = 1",
                                               "GpioGetDevicePath 13 128 = 0 /sys/devices/vantu_pwm_led.9"));
}

TEST(EcallUIGpio, LongestPathThatIsKept) {
    // 13 characters of directory and 114 of name make 127: one more is found at every access anew, but never fits.
    const std::string kept = "/sys/devices/vantu_pwm." + std::string(104, 'k');
    const std::string tooLong = "/sys/devices/vantu_pwm_led." + std::string(101, 't');
    Module module({.devices = {.sensor = kept, .led = tooLong}});

    const Performed performed =
        Perform(module, {"GpioGetDevicePath 5 128", "GpioGetDevicePath 5 128", "GpioGetDevicePath 5 127",
                         "GpioGetDevicePath 13 200", "GpioGetDevicePath 13 128", "GpioGetDevicePath 13 127"});

    EXPECT_THAT(performed.results,
                ElementsAre("GpioGetDevicePath 5 128 = 0 " + kept, "GpioGetDevicePath 5 128 = 0 " + kept,
                            "GpioGetDevicePath 5 127 = -1 untouched", "GpioGetDevicePath 13 200 = 0 " + tooLong,
                            "GpioGetDevicePath 13 128 = 0 " + tooLong.substr(0, 127),
                            "GpioGetDevicePath 13 127 = -1 untouched"));
}

TEST(EcallUIGpio, ThreadsMayLookForADeviceAtOnce) {
    Module module;

    const Performed performed = Perform(module, {"at-once SetGpioEnableEcallLed 1", "GpioGetDevicePath 13 128"});

    EXPECT_THAT(performed.results, ElementsAre("GpioGetDevicePath 13 128 = 0 /sys/devices/vantu_pwm_led.1"));
    EXPECT_THAT(Writes(module), ElementsAre("vantu_pwm_led.1/enable = 1", "vantu_pwm_led.1/enable = 1",
                                            "vantu_pwm_led.1/enable = 1", "vantu_pwm_led.1/enable = 1"));
}

// ---- Reading lines ----

TEST(EcallUIGpio, LineIsReadAsItsFirstCharacter) {
    Module module;
    module.SetAttribute(line::kBatteryPresent, "1\n");
    module.SetAttribute(line::kGnssAntenna, "x");

    const Performed performed = Perform(module, {"GpioRead 3", "GpioRead 2"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead 3 = 1", "GpioRead 2 = 72"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead - Enter : GpioId = 3", "/sys/class/ecall_gpio/bat-present/value : StrValue = 1",
                            "", "GpioRead - Exit : ret = 1", "GpioRead - Enter : GpioId = 2",
                            "/sys/class/ecall_gpio/gnss-ant-det/value : StrValue = x", "GpioRead - Exit : ret = 72"));
    EXPECT_THAT(module.journal.Texts(IsOpened(line::kBatteryPresent)), ElementsAre("read"));
    EXPECT_THAT(Writes(module), IsEmpty());
}

TEST(EcallUIGpio, AtMostFourBytesOfALineAreRead) {
    Module module;
    module.SetAttribute(line::kBatteryPresent, "1234567");

    const Performed performed = Perform(module, {"GpioRead 3"});

    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead - Enter : GpioId = 3",
                            "/sys/class/ecall_gpio/bat-present/value : StrValue = 1234", "GpioRead - Exit : ret = 1"));
}

TEST(EcallUIGpio, ButtonIsReadWithoutAWord) {
    Module module;
    module.SetButton(true);

    const Performed performed = Perform(module, {"GpioRead 4"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead 4 = 1"));
    EXPECT_THAT(performed.messages, IsEmpty());
}

TEST(EcallUIGpio, ButtonThatCannotBeReadIsSaidSo) {
    Module module;
    module.attributes.AddFault(line::kButton, Use::Read, Fault::AtMost(0).Once());
    module.attributes.AddFault(line::kButton, Use::Open, Fault::Error(EACCES).FromThe(2));

    const Performed performed = Perform(module, {"GpioRead 4", "GpioRead 4"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead 4 = -1", "GpioRead 4 = -1"));
    EXPECT_THAT(performed.messages, ElementsAre("Unable to read pin value file : NbByteRead = 0", "",
                                                "Unable to open 4 pin value file", ""));
}

TEST(EcallUIGpio, LineThatGivesNoBytesCannotBeRead) {
    Module module;
    module.attributes.AddFault(line::kGnssAntenna, Use::Read, Fault::AtMost(0));

    const Performed performed = Perform(module, {"GpioRead 2"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead 2 = -1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead - Enter : GpioId = 2", "Unable to read pin value file : NbByteRead = 0", ""));
    module.journal.Await(IsInSyslog("Unable to read pin value file : NbByteRead = 0\n"));
}

TEST(EcallUIGpio, LineWhoseReadFailsReadsAsAnEmptyText) {
    Module module;
    module.attributes.AddFault(line::kGnssAntenna, Use::Read, Fault::Error(EIO));

    const Performed performed = Perform(module, {"GpioRead 2"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead 2 = -48"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead - Enter : GpioId = 2",
                            "/sys/class/ecall_gpio/gnss-ant-det/value : StrValue = ", "GpioRead - Exit : ret = -48"));
}

TEST(EcallUIGpio, LineThatIsMissingOrUnknownCannotBeRead) {
    Module module;
    module.attributes.SetMissing(line::kGnssAntenna);

    const Performed performed = Perform(module, {"GpioRead 2", "GpioRead 77"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead 2 = -1", "GpioRead 77 = -1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead - Enter : GpioId = 2", "Unable to open 2 pin value file", "",
                            "GpioRead - Enter : GpioId = 77", "Unable to open 77 pin value file", ""));
    module.journal.Await(IsInSyslog("Unable to open 77 pin value file\n"));
}

// ---- Writing lines ----

TEST(EcallUIGpio, LineTakesItsValueInOneSynchronousWrite) {
    Module module;

    const Performed performed = Perform(module, {"GpioWrite 8 1", "GpioWrite 8 0"});

    EXPECT_THAT(performed.results, ElementsAre("GpioWrite 8 1 = 0", "GpioWrite 8 0 = 0"));
    EXPECT_THAT(Writes(module), ElementsAre("ecall-nlock/value = 1", "ecall-nlock/value = 0"));
    EXPECT_THAT(module.journal.Texts(IsOpened(line::kNlock)), ElementsAre("read-write sync", "read-write sync"));
    EXPECT_THAT(
        performed.messages,
        ElementsAre("GpioWrite - Enter : GpioId = 8, value = 1 ",
                    "/sys/class/ecall_gpio/ecall-nlock/value : set to value = 1", "GpioWrite - Exit : ret = 0",
                    "GpioWrite - Enter : GpioId = 8, value = 0 ",
                    "/sys/class/ecall_gpio/ecall-nlock/value : set to value = 0", "GpioWrite - Exit : ret = 0"));
}

TEST(EcallUIGpio, ValueOfTwoCharactersIsWrittenAndCountsAsFailed) {
    Module module;

    const Performed performed = Perform(module, {"GpioWrite 6 10", "GpioWrite 6 255"});

    EXPECT_THAT(performed.results, ElementsAre("GpioWrite 6 10 = 1", "GpioWrite 6 255 = 1"));
    EXPECT_THAT(Writes(module), ElementsAre("lte-ecall-relay/value = 10", "lte-ecall-relay/value = 255"));
    EXPECT_THAT(
        performed.messages,
        ElementsAre("GpioWrite - Enter : GpioId = 6, value = 10 ",
                    "Unable to write value file : StrValue = 10, NbByteWrite = 2", "", "GpioWrite - Exit : ret = 1",
                    "GpioWrite - Enter : GpioId = 6, value = 255 ",
                    "Unable to write value file : StrValue = 255, NbByteWrite = 3", "", "GpioWrite - Exit : ret = 1"));
    module.journal.Await(IsInSyslog("Unable to write value file : StrValue = 10, NbByteWrite = 2\n"));
}

TEST(EcallUIGpio, LineThatRefusesItsValueIsSaidSo) {
    Module module;
    module.attributes.AddFault(line::kNlock, Use::Write, Fault::Error(EIO).Once());
    module.attributes.AddFault(line::kNlock, Use::Write, Fault::AtMost(0));

    const Performed performed = Perform(module, {"GpioWrite 8 1", "GpioWrite 8 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioWrite 8 1 = 1", "GpioWrite 8 1 = 1"));
    EXPECT_THAT(
        performed.messages,
        ElementsAre("GpioWrite - Enter : GpioId = 8, value = 1 ",
                    "Unable to write value file : StrValue = 1, NbByteWrite = -1", "", "GpioWrite - Exit : ret = 1",
                    "GpioWrite - Enter : GpioId = 8, value = 1 ",
                    "Unable to write value file : StrValue = 1, NbByteWrite = 0", "", "GpioWrite - Exit : ret = 1"));
    module.journal.Await(IsInSyslog("Unable to write value file : StrValue = 1, NbByteWrite = -1\n"));
}

TEST(EcallUIGpio, LineThatIsMissingOrUnknownCannotBeWritten) {
    Module module;
    module.attributes.SetMissing(line::kNlock);

    const Performed performed = Perform(module, {"GpioWrite 8 1", "GpioWrite 15 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioWrite 8 1 = 1", "GpioWrite 15 1 = 1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioWrite - Enter : GpioId = 8, value = 1 ", "Unable to open 8 pin value file", "",
                            "GpioWrite - Enter : GpioId = 15, value = 1 ", "Unable to open 15 pin value file", ""));
    module.journal.Await(IsInSyslog("Unable to open 8 pin value file\n"));
    module.journal.Await(IsInSyslog("Unable to open 15 pin value file\n"));
}

// ---- The sensor's status ----

TEST(EcallUIGpio, SensorStatusIsItsFirstCharacter) {
    Module module;
    module.SetSensor(SensorStatus::Emergency);

    const Performed performed = Perform(module, {"GpioRead_EcallEns"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead_EcallEns = 3"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead_EcallEns - Enter", "pwm_status = 3", "", "GpioRead_EcallEns - Exit : ret = 3"));
    EXPECT_THAT(module.journal.Texts(IsOpened(module.Sensor("pwm_status"))), ElementsAre("read"));
}

TEST(EcallUIGpio, SensorStatusThatIsNoDigitPassesAsItIs) {
    Module module;
    module.SetAttribute(module.Sensor("pwm_status"), "x");

    const Performed performed = Perform(module, {"GpioRead_EcallEns"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead_EcallEns = 72"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead_EcallEns - Enter", "pwm_status = x", "GpioRead_EcallEns - Exit : ret = 72"));
}

TEST(EcallUIGpio, AtMostFourBytesOfTheSensorStatusAreRead) {
    Module module;
    module.SetAttribute(module.Sensor("pwm_status"), "1234567");

    const Performed performed = Perform(module, {"GpioRead_EcallEns"});

    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead_EcallEns - Enter", "pwm_status = 1234", "GpioRead_EcallEns - Exit : ret = 1"));
}

TEST(EcallUIGpio, SensorThatGivesNoBytesCannotBeRead) {
    Module module;
    module.attributes.AddFault(module.Sensor("pwm_status"), Use::Read, Fault::AtMost(0));

    const Performed performed = Perform(module, {"GpioRead_EcallEns"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead_EcallEns = -1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead_EcallEns - Enter", "Unable to read pin value file : NbByteRead = 0", ""));
    module.journal.Await(IsInSyslog("Unable to read pin value file : NbByteRead = 0\n"));
}

TEST(EcallUIGpio, SensorWhoseReadFailsReadsAsAnEmptyText) {
    Module module;
    module.attributes.AddFault(module.Sensor("pwm_status"), Use::Read, Fault::Error(EIO));

    const Performed performed = Perform(module, {"GpioRead_EcallEns"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead_EcallEns = -48"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead_EcallEns - Enter", "pwm_status = ", "GpioRead_EcallEns - Exit : ret = -48"));
}

void ExpectSensorNotOpened(Module& module) {
    const Performed performed = Perform(module, {"GpioRead_EcallEns"});

    EXPECT_THAT(performed.results, ElementsAre("GpioRead_EcallEns = -1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("GpioRead_EcallEns - Enter", "Unable to open /sys/devices/vantu_pwm.xxx/pwm_status file"));
    const Entry said = module.journal.Await(IsInSyslog("Unable to open"));
    EXPECT_EQ("Unable to open /sys/devices/vantu_pwm.xxx/pwm_status file\n", said.text);
}

TEST(EcallUIGpio, SensorThatIsMissingIsToldToTheSystemLogWithALineEnd) {
    Module module;
    module.attributes.Remove(module.devices.sensor);

    ExpectSensorNotOpened(module);
}

TEST(EcallUIGpio, SensorThatCannotBeOpenedIsToldAsAMissingOne) {
    Module module;
    module.attributes.AddFault(module.Sensor("pwm_status"), Use::Open, Fault::Error(EACCES));

    ExpectSensorNotOpened(module);
}

TEST(EcallUIGpio, SensorWhosePathLeavesNoRoomForItsAttributeIsToldAsAMissingOne) {
    // The attribute's path would have 129 characters.
    Module module({.devices = {.sensor = "/sys/devices/vantu_pwm." + std::string(95, 'k')}});

    ExpectSensorNotOpened(module);
}

// ---- The external enable line of the LED ----

TEST(EcallUIGpio, ExternalLineIsNamedAndAlwaysActiveHigh) {
    Module module;

    const Performed performed = Perform(module, {"ExternalGpio_enable 1 0", "ExternalGpio_enable DTR 1"});

    EXPECT_THAT(WritesBelow(module, module.devices.led),
                ElementsAre("ExternalGpio_enable = 1", "ExternalGpio_active_low = 0", "ExternalGpio_enable = DTR",
                            "ExternalGpio_active_low = 0"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Open)), AllOf(SizeIs(4), Each("read-write sync")));
    EXPECT_THAT(performed.messages, IsEmpty());
}

TEST(EcallUIGpio, ExternalLineWithoutANameIsStillGivenItsPolarity) {
    Module module;
    Configure(module, {{"GpioForEnablingEcallLedControlUsed", "\"\""},
                       {"GpioInputPwm_ENS_Used", "false"},
                       {"GpioInputButton_nRQST_Used", "false"}});

    const Performed performed = Perform(module, {"InitGpio"});

    EXPECT_THAT(WritesBelow(module, module.devices.led), ElementsAre("ExternalGpio_active_low = 0"));
    EXPECT_THAT(performed.messages, Not(Contains(StartsWith("Unable"))));
}

TEST(EcallUIGpio, ExternalLineThatCannotBeNamedIsLeftAlone) {
    Module module;
    module.attributes.AddFault(module.Led("ExternalGpio_enable"), Use::Open, Fault::Error(EACCES).Once());
    module.attributes.AddFault(module.Led("ExternalGpio_enable"), Use::Write, Fault::AtMost(2).Once());

    const Performed performed = Perform(module, {"ExternalGpio_enable DTR 0", "ExternalGpio_enable DTR 0"});

    EXPECT_THAT(performed.messages,
                ElementsAre("Unable to open pwm led ExternalGpio_enable file",
                            "Unable to write pwm led /sys/devices/vantu_pwm_led.1/ExternalGpio_enable file : value = "
                            "DTR in ",
                            ""));
    EXPECT_THAT(module.journal.All(IsOpened(module.Led("ExternalGpio_active_low"))), IsEmpty());
    module.journal.Await(IsInSyslog("Unable to open pwm led ExternalGpio_enable file"));
    module.journal.Await(IsInSyslog(
        "Unable to write pwm led /sys/devices/vantu_pwm_led.1/ExternalGpio_enable file : value = DTR in \n"));
}

TEST(EcallUIGpio, PolarityWhosePathIsTooLongCannotBeSet) {
    // The paths of its two attributes would have 127 and 131 characters.
    Module module({.devices = {.led = "/sys/devices/vantu_pwm_led." + std::string(80, 'k')}});

    const Performed performed = Perform(module, {"ExternalGpio_enable DTR 0"});

    EXPECT_THAT(WritesBelow(module, module.devices.led), ElementsAre("ExternalGpio_enable = DTR"));
    EXPECT_THAT(performed.messages, ElementsAre("Unable to open pwm led ExternalGpio_enable file"));
}

TEST(EcallUIGpio, PolarityThatCannotBeSetIsSaidSo) {
    Module module;
    module.attributes.AddFault(module.Led("ExternalGpio_active_low"), Use::Open, Fault::Error(EACCES).Once());
    module.attributes.AddFault(module.Led("ExternalGpio_active_low"), Use::Write, Fault::AtMost(0).Once());

    const Performed performed = Perform(module, {"ExternalGpio_enable DTR 0", "ExternalGpio_enable DTR 0"});

    EXPECT_THAT(performed.messages,
                ElementsAre("Unable to open pwm led ExternalGpio_enable file",
                            "Unable to write pwm led /sys/devices/vantu_pwm_led.1/ExternalGpio_active_low file : value "
                            "= 0 in ",
                            ""));
}

// ---- All of them ----

TEST(EcallUIGpio, OnlyFailuresReachTheSystemLog) {
    Module module;

    Perform(module, {"GpioRead 3", "GpioWrite 8 1", "GpioRead_EcallEns", "ExternalGpio_enable DTR 0", "GpioRead 77"});

    module.journal.Await(IsInSyslog("Unable to open 77 pin value file"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Syslog)), ElementsAre("Unable to open 77 pin value file\n"));
}

TEST(EcallUIGpio, NothingStaysOpen) {
    Module module;
    module.attributes.AddFault(line::kGnssAntenna, Use::Read, Fault::AtMost(0));
    module.attributes.AddFault(line::kNlock, Use::Write, Fault::Error(EIO));
    module.attributes.AddFault(module.Sensor("pwm_status"), Use::Read, Fault::AtMost(0).Once());
    module.attributes.AddFault(module.Led("ExternalGpio_enable"), Use::Write, Fault::AtMost(0).Once());
    module.attributes.AddFault(module.Led("ExternalGpio_active_low"), Use::Write, Fault::AtMost(0).Once());

    // The first message makes the C library open the system log, which then stays open.
    const Performed performed = Perform(
        module, {"GpioRead 77", "descriptors", "GpioRead 3", "GpioRead 2", "GpioWrite 6 1", "GpioWrite 8 1",
                 "GpioRead_EcallEns", "GpioRead_EcallEns", "ExternalGpio_enable DTR 0", "ExternalGpio_enable DTR 0",
                 "ExternalGpio_enable DTR 0", "GpioGetDevicePath 14 128", "GpioGetDevicePath 14 9", "descriptors"});

    EXPECT_EQ(performed.results.at(1), performed.results.back());
}

}  // namespace
