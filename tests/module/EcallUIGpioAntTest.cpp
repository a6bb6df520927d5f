// The antenna lines behind their three character devices, and the analog inputs.
#include <gmock/gmock.h>

#include <cerrno>

#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(EcallUIGpioAnt, DetectionIsSuppliedAndCut) {
    Module module;

    const Performed performed = Perform(module, {"GpioAntWrite 5 1", "GpioAntWrite 5 0"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 5 1 = 0 detection 1 selected 0",
                                               "GpioAntWrite 5 0 = 0 detection 0 selected 0"));
    EXPECT_THAT(Writes(module),
                ElementsAre("dev/vantu_gpio_num = gpio_05", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi",
                            "dev/vantu_gpio_num = gpio_05", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = lo"));
    EXPECT_THAT(performed.messages,
                ElementsAre("gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_05 (ANT_DET_CTL_GPIO) configured at hi level", "GpioAntWrite - Exit : ret = 0",
                            "gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_05 (ANT_DET_CTL_GPIO) configured at lo level", "GpioAntWrite - Exit : ret = 0"));
    EXPECT_EQ("write sync", module.journal.Await(IsOpened(line::kAntennaNumber)).text);
    EXPECT_EQ("read-write", module.journal.Await(IsOpened(line::kAntennaDirection)).text);
    EXPECT_EQ("read-write", module.journal.Await(IsOpened(line::kAntennaValue)).text);
}

TEST(EcallUIGpioAnt, AntennaIsSelectedAndGivenBack) {
    Module module;

    const Performed performed = Perform(module, {"GpioAntWrite 7 1", "GpioAntWrite 7 0"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 7 1 = 0 detection 0 selected 1",
                                               "GpioAntWrite 7 0 = 0 detection 0 selected 0"));
    EXPECT_THAT(Writes(module),
                ElementsAre("dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi",
                            "dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = lo"));
    EXPECT_THAT(performed.messages,
                ElementsAre("gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_07 (ANT_SEL_GPIO) configured at hi level", "GpioAntWrite - Exit : ret = 0",
                            "gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_07 (ANT_SEL_GPIO) configured at lo level", "GpioAntWrite - Exit : ret = 0"));
}

TEST(EcallUIGpioAnt, AnyLevelButOneIsLow) {
    Module module;

    const Performed performed = Perform(module, {"GpioAntWrite 7 2"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 7 2 = 0 detection 0 selected 2"));
    EXPECT_EQ("lo", module.Attribute(line::kAntennaValue));
}

TEST(EcallUIGpioAnt, OtherLinesAreRefused) {
    Module module;

    const Performed performed = Perform(module, {"GpioAntWrite 6 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 6 1 = 1 detection 0 selected 0"));
    EXPECT_THAT(module.journal.All(IsKind(Kind::Open)), IsEmpty());
    EXPECT_THAT(performed.messages, ElementsAre("GpioAntWrite : bad Gpio (6)"));
    module.journal.Await(IsInSyslog("GpioAntWrite : bad Gpio (6)"));
    EXPECT_EQ("GpioAntWrite : bad Gpio (6)", module.journal.Await(IsKind(Kind::Syslog)).text);
}

TEST(EcallUIGpioAnt, NameThatIsNotTakenWholeIsAnErrorButTheLineIsDriven) {
    Module module;
    module.attributes.AddFault(line::kAntennaNumber, Use::Write, Fault::AtMost(6));

    const Performed performed = Perform(module, {"GpioAntWrite 7 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 7 1 = 1 detection 0 selected 1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("Unable to write value 'gpio_05', NbByteWrite = 6", "", "gpio_05 configured as an output",
                            "gpio_07 (ANT_SEL_GPIO) configured at hi level", "GpioAntWrite - Exit : ret = 1"));
    EXPECT_EQ("hi", module.Attribute(line::kAntennaValue));
    module.journal.Await(IsInSyslog("Unable to write value 'gpio_05', NbByteWrite = 6\n"));
}

TEST(EcallUIGpioAnt, DirectionThatIsNotTakenWholeIsAnErrorButTheLineIsDriven) {
    Module module;
    module.attributes.AddFault(line::kAntennaDirection, Use::Write, Fault::Error(EIO));

    const Performed performed = Perform(module, {"GpioAntWrite 5 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 5 1 = 1 detection 1 selected 0"));
    EXPECT_THAT(performed.messages,
                ElementsAre("gpio_05 selected", "Unable to write value 'out', NbByteWrite = -1", "",
                            "gpio_05 (ANT_DET_CTL_GPIO) configured at hi level", "GpioAntWrite - Exit : ret = 1"));
    module.journal.Await(IsInSyslog("Unable to write value 'out', NbByteWrite = -1\n"));
}

TEST(EcallUIGpioAnt, LevelThatIsNotTakenWholeLeavesTheStateAlone) {
    Module module;
    module.attributes.AddFault(line::kAntennaValue, Use::Write, Fault::AtMost(1));

    const Performed performed = Perform(module, {"GpioAntWrite 5 1", "GpioAntWrite 7 0"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 5 1 = 1 detection 0 selected 0",
                                               "GpioAntWrite 7 0 = 1 detection 0 selected 0"));
    EXPECT_THAT(performed.messages,
                ElementsAre("gpio_05 selected", "gpio_05 configured as an output",
                            "Unable to write value 'hi', NbByteWrite = 1", "", "GpioAntWrite - Exit : ret = 1",
                            "gpio_05 selected", "gpio_05 configured as an output",
                            "Unable to write value 'lo', NbByteWrite = 1", "", "GpioAntWrite - Exit : ret = 1"));
    module.journal.Await(IsInSyslog("Unable to write value 'lo', NbByteWrite = 1\n"));
    EXPECT_EQ("Unable to write value 'hi', NbByteWrite = 1\n", module.journal.Await(IsKind(Kind::Syslog)).text);
}

TEST(EcallUIGpioAnt, NameDeviceThatCannotBeOpenedEndsIt) {
    Module module;
    module.attributes.AddFault(line::kAntennaNumber, Use::Open, Fault::Error(EBUSY));

    const Performed performed = Perform(module, {"GpioAntWrite 7 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 7 1 = 1 detection 0 selected 0"));
    EXPECT_THAT(performed.messages,
                ElementsAre("Unable to open /dev/vantu_gpio_num file", "GpioAntWrite - Exit : ret = ECALLUI_ERROR"));
    EXPECT_EQ("Unable to open /dev/vantu_gpio_num file", module.journal.Await(IsKind(Kind::Syslog)).text);
    EXPECT_THAT(Writes(module), IsEmpty());
}

TEST(EcallUIGpioAnt, DirectionDeviceThatCannotBeOpenedEndsIt) {
    Module module;
    module.attributes.AddFault(line::kAntennaDirection, Use::Open, Fault::Error(EBUSY));

    const Performed performed = Perform(module, {"GpioAntWrite 7 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 7 1 = 1 detection 0 selected 0"));
    EXPECT_THAT(performed.messages, ElementsAre("gpio_05 selected", "Unable to open /dev/vantu_gpio_dir file",
                                                "GpioAntWrite - Exit : ret = ECALLUI_ERROR"));
    EXPECT_EQ("Unable to open /dev/vantu_gpio_dir file", module.journal.Await(IsKind(Kind::Syslog)).text);
    EXPECT_THAT(Writes(module), ElementsAre("dev/vantu_gpio_num = gpio_07"));
}

TEST(EcallUIGpioAnt, ValueDeviceThatCannotBeOpenedEndsItWithoutAnExitLine) {
    Module module;
    module.attributes.AddFault(line::kAntennaValue, Use::Open, Fault::Error(EBUSY));

    const Performed performed = Perform(module, {"GpioAntWrite 7 1"});

    EXPECT_THAT(performed.results, ElementsAre("GpioAntWrite 7 1 = 1 detection 0 selected 0"));
    EXPECT_THAT(performed.messages, ElementsAre("gpio_05 selected", "gpio_05 configured as an output",
                                                "Unable to open /dev/vantu_gpio_value"));
    EXPECT_EQ("Unable to open /dev/vantu_gpio_value", module.journal.Await(IsKind(Kind::Syslog)).text);
}

TEST(EcallUIGpioAnt, LinesDrivenAtOnceTakeTurnsAndAreStored) {
    Module module;
    module.attributes.AddFault("/dev/vantu_gpio_*", Use::Open, Fault::Slow(10ms));

    // The refused one must have let go of the state, or the others would wait for ever.
    const Performed performed = Perform(module, {"DriveAntennaLine 6 1", "at-once DriveAntennaLine 7 1"});

    EXPECT_THAT(performed.results, ElementsAre("DriveAntennaLine 6 1 = 1"));
    EXPECT_THAT(Writes(module),
                ElementsAre("dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi",
                            "dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi",
                            "dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi",
                            "dev/vantu_gpio_num = gpio_07", "dev/vantu_gpio_dir = out", "dev/vantu_gpio_value = hi"));
    EXPECT_EQ("1 0 1", StateFile(module));
}

TEST(EcallUIGpioAnt, NothingStaysOpen) {
    Module module;
    module.attributes.AddFault(line::kAntennaNumber, Use::Write, Fault::AtMost(0).FromThe(2).Once());
    module.attributes.AddFault(line::kAntennaDirection, Use::Open, Fault::Error(EACCES).FromThe(3).Once());
    module.attributes.AddFault(line::kAntennaValue, Use::Write, Fault::AtMost(0).FromThe(3).Once());
    module.attributes.AddFault(line::kAdc2, Use::Read, Fault::Error(EIO));

    // The first message makes the C library open the system log, which then stays open.
    const Performed performed =
        Perform(module, {"GpioAntWrite 6 1", "descriptors", "GpioAntWrite 5 1", "GpioAntWrite 7 1", "GpioAntWrite 5 1",
                         "GpioAntWrite 7 0", "AdcRead 1", "AdcRead 2", "descriptors"});

    EXPECT_EQ(performed.results.at(1), performed.results.back());
}

// ---- Analog inputs ----

TEST(EcallUIGpioAnt, InputsAreReadInMillivolts) {
    Module module;
    module.SetAttribute(line::kAdc1, "899999\n");
    module.SetAttribute(line::kAdc2, "1234567");
    module.SetAttribute(line::kAdc3, "-2500\n");

    const Performed performed = Perform(module, {"AdcRead 1", "AdcRead 2", "AdcRead 3"});

    EXPECT_THAT(performed.results, ElementsAre("AdcRead 1 = 899", "AdcRead 2 = 1234", "AdcRead 3 = -2"));
    EXPECT_THAT(performed.messages,
                ElementsAre("AdcRead - Enter : adc = 1",
                            "AdcRead - Exit : filename : "
                            "/sys/bus/iio/devices/iio:device0/out_temp_battemp1_raw : StrValue = 899999",
                            ",ValRet=899", "AdcRead - Enter : adc = 2",
                            "AdcRead - Exit : filename : "
                            "/sys/bus/iio/devices/iio:device0/out_temp_systemp2_raw : StrValue = 1234567,ValRet=1234",
                            "AdcRead - Enter : adc = 3",
                            "AdcRead - Exit : filename : "
                            "/sys/bus/iio/devices/iio:device0/out_temp_battemp0_raw : StrValue = -2500",
                            ",ValRet=-2"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Open)), ElementsAre("read", "read", "read"));
}

TEST(EcallUIGpioAnt, OnlySixteenBytesOfAnInputCount) {
    Module module;
    module.SetAttribute(line::kAdc2, "00000000001234567890");

    const Performed performed = Perform(module, {"AdcRead 2"});

    EXPECT_THAT(performed.results, ElementsAre("AdcRead 2 = 123"));
}

TEST(EcallUIGpioAnt, EmptyInputReadsZeroAndHugeOneTheLargest) {
    Module module;
    module.attributes.AddFault(line::kAdc1, Use::Read, Fault::AtMost(0));
    module.SetAttribute(line::kAdc2, "9999999999999999");

    const Performed performed = Perform(module, {"AdcRead 1", "AdcRead 2"});

    EXPECT_THAT(performed.results, ElementsAre("AdcRead 1 = 0", "AdcRead 2 = 2147483647"));
}

TEST(EcallUIGpioAnt, OtherInputsDoNotExist) {
    Module module;

    const Performed performed = Perform(module, {"AdcRead 0", "AdcRead 4"});

    EXPECT_THAT(performed.results, ElementsAre("AdcRead 0 = -1", "AdcRead 4 = -1"));
    EXPECT_THAT(performed.messages, ElementsAre("AdcRead - Enter : adc = 0", "AdcRead ERROR - adc = 0",
                                                "AdcRead - Enter : adc = 4", "AdcRead ERROR - adc = 4"));
    module.journal.Await(IsInSyslog("AdcRead ERROR - adc = 4"));
    EXPECT_EQ("AdcRead ERROR - adc = 0", module.journal.Await(IsKind(Kind::Syslog)).text);
}

TEST(EcallUIGpioAnt, InputThatIsMissingOrBrokenIsSaidSo) {
    Module module;
    module.attributes.SetMissing(line::kAdc1);
    module.attributes.AddFault(line::kAdc2, Use::Read, Fault::Error(EIO));

    const Performed performed = Perform(module, {"AdcRead 1", "AdcRead 2"});

    EXPECT_THAT(performed.results, ElementsAre("AdcRead 1 = -1", "AdcRead 2 = -1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("AdcRead - Enter : adc = 1",
                            "Unable to open /sys/bus/iio/devices/iio:device0/out_temp_battemp1_raw pin value file", "",
                            "AdcRead - Enter : adc = 2", "Unable to read adc value : NbByteRead =-1",
                            ", errno = Input/output error",
                            "AdcRead - Exit : filename : "
                            "/sys/bus/iio/devices/iio:device0/out_temp_systemp2_raw : StrValue = ,ValRet=-1"));
    EXPECT_EQ("Unable to open /sys/bus/iio/devices/iio:device0/out_temp_battemp1_raw pin value file\n",
              module.journal.Await(IsInSyslog("battemp1_raw")).text);
    EXPECT_EQ("Unable to read adc value : NbByteRead =-1\n, errno = Input/output error",
              module.journal.Await(IsInSyslog("adc value")).text);
    EXPECT_EQ("read", module.journal.Await(IsOpened(line::kAdc2)).text);
    EXPECT_EQ("Unable to open /sys/bus/iio/devices/iio:device0/out_temp_battemp1_raw pin value file\n",
              module.journal.Await(IsKind(Kind::Syslog)).text);
    module.journal.Await(IsInSyslog("Unable to read adc value : NbByteRead =-1\n, errno = Input/output error"));
}

TEST(EcallUIGpioAnt, OnlyFailuresReachTheSystemLog) {
    Module module;

    Perform(module, {"GpioAntWrite 5 1", "GpioAntWrite 7 0", "AdcRead 1", "AdcRead 4"});

    module.journal.Await(IsInSyslog("AdcRead ERROR"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Syslog)), ElementsAre("AdcRead ERROR - adc = 4"));
}

}  // namespace
