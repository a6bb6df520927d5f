// What goes over the bus to the converter and the amplifier.
#include <gmock/gmock.h>

#include <cerrno>

#include "GpioTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kBus[] = "/dev/i2c-2";

Texts Transfers(Module& module) {
    return module.journal.Texts(IsKind(Kind::I2c));
}

TEST(EcallUIGpioI2c, ConverterIsConfiguredStartedAndRead) {
    Module module;
    module.ioctls.SetConverterInput(1, 0x1234);

    const Performed performed = Perform(module, {"ReadAds1015AdcInput 1"});

    EXPECT_THAT(performed.results, ElementsAre("ReadAds1015AdcInput 1 = 0 13312"));  // 0x34 << 8
    EXPECT_THAT(Transfers(module), ElementsAre("write 0x90 flags 0x0000: 01 55 83", "write 0x90 flags 0x0000: 01 00",
                                               "write 0x91 flags 0x4000: 00; read 0x91 flags 0x0001: 12 34"));
    EXPECT_THAT(performed.messages,
                ElementsAre("ReadAds1015AdcInput - Enter", "ReadAds1015AdcInput - data[0] = 0x55, data[1] = 0x83",
                            "ReadAds1015AdcInput - exit (ret=0), data[0]=0x12 data[1]=0x34, *pVal = 13312 "));
}

TEST(EcallUIGpioI2c, ConversionGetsItsTime) {
    Module module;

    const Performed performed = Perform(module, {"ReadAds1015AdcInput 0"});

    EXPECT_THAT(performed.sleeps, ElementsAre("slept 100 ms"));
    const auto transfers = module.journal.All(IsKind(Kind::I2c));
    ASSERT_EQ(3U, transfers.size());
    EXPECT_GE(transfers[2].time - transfers[1].time, std::chrono::milliseconds(100));
}

TEST(EcallUIGpioI2c, EveryChannelHasItsConfiguration) {
    Module module;

    Perform(module, {"ReadAds1015AdcInput 0", "ReadAds1015AdcInput 2", "ReadAds1015AdcInput 3"});

    const Texts transfers = Transfers(module);
    ASSERT_EQ(9U, transfers.size());
    EXPECT_EQ("write 0x90 flags 0x0000: 01 45 83", transfers[0]);
    EXPECT_EQ("write 0x90 flags 0x0000: 01 65 83", transfers[3]);
    EXPECT_EQ("write 0x90 flags 0x0000: 01 75 83", transfers[6]);
}

TEST(EcallUIGpioI2c, BusIsClosedAfterEachOperation) {
    Module module;

    const Performed performed =
        Perform(module, {"descriptors", "ReadAds1015AdcInput 0", "SetAudioAmplifier 1", "descriptors"});

    EXPECT_EQ(performed.results.front(), performed.results.back());
    EXPECT_EQ(6U, Transfers(module).size());
}

struct ConverterFailure {
    const char* name;
    const char* request;
    std::size_t transfers;

    friend void PrintTo(const ConverterFailure& failure, std::ostream* out) { *out << failure.name; }
};

class EcallUIGpioI2cFailure : public testing::TestWithParam<ConverterFailure> {};

TEST_P(EcallUIGpioI2cFailure, GivesNoValue) {
    Module module;
    module.ioctls.AddFault(GetParam().request, Fault::Error(EIO));

    const Performed performed = Perform(module, {"ReadAds1015AdcInput 0"});

    EXPECT_THAT(performed.results, ElementsAre("ReadAds1015AdcInput 0 = 1 -1"));
    EXPECT_EQ(GetParam().transfers, Transfers(module).size());
    EXPECT_THAT(performed.messages,
                ElementsAre("ReadAds1015AdcInput - Enter", "ReadAds1015AdcInput - data[0] = 0x45, data[1] = 0x83",
                            "Unable to send data", "ads1015WriteRegister to Config register",
                            "ReadAds1015AdcInput - exit (ret=1), data[0]=0x45 data[1]=0x83, *pVal = 0 "));
    module.journal.Await(IsInSyslog("ads1015WriteRegister to Config register"));
}

INSTANTIATE_TEST_SUITE_P(All, EcallUIGpioI2cFailure,
                         testing::Values(ConverterFailure{"Configuration", "*: 01 45 83", 1},
                                         ConverterFailure{"Start", "*: 01 00", 2},
                                         ConverterFailure{"Reading", "*read 0x91*", 3}),
                         [](const auto& tested) { return tested.param.name; });

TEST(EcallUIGpioI2c, ConverterWithoutBusGivesNoValue) {
    Module module;
    module.root.Remove(kBus);

    const Performed performed = Perform(module, {"ReadAds1015AdcInput 0"});

    EXPECT_THAT(performed.results, ElementsAre("ReadAds1015AdcInput 0 = 1 -1"));
    EXPECT_THAT(performed.messages, ElementsAre("ReadAds1015AdcInput - Enter",
                                                "Unable to open i2c control file ==> ReadAds1015AdcInput - Exit"));
    module.journal.Await(IsInSyslog("Unable to open i2c control file ==> ReadAds1015AdcInput - Exit"));
}

TEST(EcallUIGpioI2c, TransferWithoutDataIsRefused) {
    Module module;

    const Performed performed = Perform(module, {"I2cWriteRegisterWithoutData", "I2cReadRegisterWithoutData"});

    EXPECT_THAT(performed.results, ElementsAre("I2cWriteRegisterWithoutData = 1", "I2cReadRegisterWithoutData = 1"));
    EXPECT_THAT(performed.messages, ElementsAre("Invalid parameters", "Invalid parameters"));
    module.journal.AwaitCount(2, IsInSyslog("Invalid parameters"));
    EXPECT_THAT(Transfers(module), IsEmpty());
}

// ---- Amplifier ----

TEST(EcallUIGpioI2c, AmplifierIsSwitchedOn) {
    Module module;

    const Performed performed = Perform(module, {"SetAudioAmplifier 1"});

    EXPECT_THAT(performed.results, ElementsAre("SetAudioAmplifier 1 = 0"));
    EXPECT_THAT(Writes(module), ElementsAre("amp-nstby/value = 1", "amp-hwmute/value = 1"));
    EXPECT_THAT(Transfers(module), ElementsAre("write 0x72 flags 0x0000: 01 41", "write 0x72 flags 0x0000: 08 e1",
                                               "write 0x72 flags 0x0000: 0e 07"));
    EXPECT_LT(module.journal.Await(IsWritten(line::kAmplifierMute)).seq, module.journal.Await(IsKind(Kind::I2c)).seq);
}

TEST(EcallUIGpioI2c, AmplifierIsSwitchedOff) {
    Module module;

    const Performed performed = Perform(module, {"SetAudioAmplifier 0"});

    EXPECT_THAT(performed.results, ElementsAre("SetAudioAmplifier 0 = 0"));
    EXPECT_THAT(Writes(module), ElementsAre("amp-nstby/value = 0", "amp-hwmute/value = 0"));
    EXPECT_THAT(Transfers(module), ElementsAre("write 0x72 flags 0x0000: 01 40", "write 0x72 flags 0x0000: 08 c0",
                                               "write 0x72 flags 0x0000: 0e 09"));
}

TEST(EcallUIGpioI2c, AmplifierGetsItsOtherRegistersWhenOneFails) {
    for (const char* failing : {"01 41", "08 e1", "0e 07"}) {
        Module module;
        module.ioctls.AddFault(std::string("write 0x72*: ") + failing, Fault::Error(ENXIO));

        const Performed performed = Perform(module, {"SetAudioAmplifier 1"});

        EXPECT_THAT(performed.results, ElementsAre("SetAudioAmplifier 1 = 1")) << failing;
        EXPECT_EQ(3U, Transfers(module).size()) << failing;
        EXPECT_EQ(1, std::ranges::count(performed.messages, "Unable to send data")) << failing;
        module.journal.Await(IsInSyslog("Unable to send data"));
    }
}

TEST(EcallUIGpioI2c, AmplifierSaysEachRegisterThatFails) {
    Module module;
    module.ioctls.AddFault("write 0x72*", Fault::Error(ENXIO));

    const Performed performed = Perform(module, {"SetAudioAmplifier 0"});

    EXPECT_THAT(performed.results, ElementsAre("SetAudioAmplifier 0 = 1"));
    EXPECT_EQ(3, std::ranges::count(performed.messages, "Unable to send data"));
}

TEST(EcallUIGpioI2c, AmplifierWithoutBusIsNotDriven) {
    Module module;
    module.root.Remove(kBus);

    const Performed performed = Perform(module, {"SetAudioAmplifier 1"});

    EXPECT_THAT(performed.results, ElementsAre("SetAudioAmplifier 1 = 1"));
    EXPECT_THAT(performed.messages, ElementsAre("Unable to open i2c control file"));
    module.journal.Await(IsInSyslog("Unable to open i2c control file"));
    EXPECT_THAT(Writes(module), IsEmpty());
    EXPECT_THAT(Transfers(module), IsEmpty());
}

}  // namespace
