// The writes that program the LED, in their order, and what is said when one fails.
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "GpioTest.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

Texts LedWrites(Module& module) {
    return WritesBelow(module, module.devices.led);
}

TEST(EcallUIGpioLed, SteadyPatternUsesOneConfiguration) {
    Module module;

    const Performed performed = Perform(module, {"SetGpioEcallLed 500 100 7 0"});

    EXPECT_THAT(performed.results, ElementsAre("SetGpioEcallLed 500 100 7 0 = 0"));
    EXPECT_THAT(LedWrites(module), ElementsAre("enable = 0", "cfg = 1", "cfg1_period = 500000000",
                                               "cfg1_duty = 499999999", "toggle = 0", "enable = 1"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Open)), AllOf(SizeIs(6), Each("read-write sync")));
    EXPECT_THAT(performed.messages,
                ElementsAre("SetGpioEcallLed - Enter : PeriodMs=500, Brightness1PerCent=100, Brightness2PerCent=7, "
                            "Blicking12PeriodInMs=0",
                            "Brightness1PerCent = 100, PeriodNs = 500000000, cfg 1 DutyNs = 499999999",
                            "SetGpioEcallLed - exit"));
}

TEST(EcallUIGpioLed, BlinkingPatternTogglesBetweenTwoConfigurations) {
    Module module;

    const Performed performed = Perform(module, {"SetGpioEcallLed 10 90 0 1000"});

    EXPECT_THAT(performed.results, ElementsAre("SetGpioEcallLed 10 90 0 1000 = 0"));
    EXPECT_THAT(LedWrites(module), ElementsAre("enable = 0", "cfg = 1", "cfg1_period = 10000000", "cfg1_duty = 9000000",
                                               "cfg2_period = 10000000", "cfg2_duty = 1", "toggle_time = 1000",
                                               "toggle = 1", "enable = 1"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Open)), AllOf(SizeIs(9), Each("read-write sync")));
    EXPECT_THAT(performed.messages,
                ElementsAre("SetGpioEcallLed - Enter : PeriodMs=10, Brightness1PerCent=90, Brightness2PerCent=0, "
                            "Blicking12PeriodInMs=1000",
                            "Brightness1PerCent = 90, PeriodNs = 10000000, cfg 1 DutyNs = 9000000",
                            "Brightness2PerCent = 0, PeriodNs = 10000000, cfg 2 DutyNs = 1", "SetGpioEcallLed - exit"));
}

TEST(EcallUIGpioLed, NumbersBeyondTheirRangePassAsTheyAre) {
    Module module;

    Perform(module, {"SetGpioEcallLed 4295 250 100 -1"});

    EXPECT_THAT(LedWrites(module),
                ElementsAre("enable = 0", "cfg = 1", "cfg1_period = 32704", "cfg1_duty = 81760", "cfg2_period = 32704",
                            "cfg2_duty = 32703", "toggle_time = -1", "toggle = 1", "enable = 1"));
}

TEST(EcallUIGpioLed, OutputIsSwitchedWithoutTouchingThePattern) {
    Module module;

    const Performed performed =
        Perform(module, {"SetGpioEnableEcallLed 1", "SetGpioEnableEcallLed 0", "SetGpioEnableEcallLed 7"});

    EXPECT_THAT(performed.results, ElementsAre("SetGpioEnableEcallLed 1 = 0", "SetGpioEnableEcallLed 0 = 0",
                                               "SetGpioEnableEcallLed 7 = 0"));
    EXPECT_THAT(LedWrites(module), ElementsAre("enable = 1", "enable = 0", "enable = 1"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Open)), AllOf(SizeIs(3), Each("read-write sync")));
    EXPECT_THAT(performed.messages,
                ElementsAre("SetGpioEnableEcallLed - Enter : enable=1", "SetGpioEnableEcallLed - exit",
                            "SetGpioEnableEcallLed - Enter : enable=0", "SetGpioEnableEcallLed - exit",
                            "SetGpioEnableEcallLed - Enter : enable=7", "SetGpioEnableEcallLed - exit"));
}

TEST(EcallUIGpioLed, PathsOfALongDeviceHaveRoom) {
    // The longest path that a device can keep; those of its attributes are longer.
    Module module({.devices = {.led = "/sys/devices/vantu_pwm_led." + std::string(100, 'k')}});

    const Performed performed = Perform(module, {"SetGpioEcallLed 10 90 0 1000", "SetGpioEnableEcallLed 0"});

    EXPECT_THAT(performed.results, ElementsAre("SetGpioEcallLed 10 90 0 1000 = 0", "SetGpioEnableEcallLed 0 = 0"));
    EXPECT_THAT(LedWrites(module), AllOf(SizeIs(10), Contains("toggle_time = 1000")));
}

TEST(EcallUIGpioLed, OnlyFailuresReachTheSystemLog) {
    Module module;
    module.attributes.AddFault(module.Led("enable"), Use::Open, Fault::Error(EACCES).FromThe(4));

    Perform(module, {"SetGpioEcallLed 10 90 0 1000", "SetGpioEnableEcallLed 1", "SetGpioEnableEcallLed 0"});

    module.journal.Await(IsInSyslog("Unable to open"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Syslog)), ElementsAre("Unable to open pwm led enable file"));
}

TEST(EcallUIGpioLed, LedThatIsNotUsedIsNoFailure) {
    Module module;
    Configure(module, {{"GpioOutputLed_CNTL_Used", "false"}});

    Perform(module, {"SetGpioEcallLed 10 90 0 1000", "SetGpioEnableEcallLed 1", "GpioRead 77"});

    module.journal.Await(IsInSyslog("Unable to open"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Syslog)), ElementsAre("Unable to open 77 pin value file\n"));
}

TEST(EcallUIGpioLed, NothingStaysOpen) {
    Module module;
    module.attributes.AddFault(module.Led("enable"), Use::Open, Fault::Error(EACCES).Once());
    module.attributes.AddFault(module.Led("cfg2_duty"), Use::Write, Fault::AtMost(0).Once());

    // The first message makes the C library open the system log, which then stays open.
    const Performed performed =
        Perform(module, {"SetGpioEnableEcallLed 1", "descriptors", "SetGpioEcallLed 10 9 0 1000",
                         "SetGpioEcallLed 10 9 0 1000", "SetGpioEnableEcallLed 0", "descriptors"});

    EXPECT_EQ(performed.results.at(1), performed.results.back());
}

TEST(EcallUIGpioLed, LedThatIsNotUsedIsLeftAlone) {
    Module module;
    Configure(module, {{"GpioOutputLed_CNTL_Used", "false"}});

    const Performed performed = Perform(module, {"SetGpioEcallLed 10 90 0 1000", "SetGpioEnableEcallLed 1"});

    EXPECT_THAT(performed.results, ElementsAre("SetGpioEcallLed 10 90 0 1000 = 0", "SetGpioEnableEcallLed 1 = 0"));
    EXPECT_THAT(module.journal.All(IsKind(Kind::Open)), IsEmpty());
    EXPECT_THAT(performed.messages,
                ElementsAre("SetGpioEcallLed - Enter : PeriodMs=10, Brightness1PerCent=90, Brightness2PerCent=0, "
                            "Blicking12PeriodInMs=1000",
                            "EcallUI_Configuration.GpioOutputLed_CNTL_Used == false ==> do nothing",
                            "SetGpioEnableEcallLed - Enter : enable=1",
                            "EcallUI_Configuration.GpioOutputLed_CNTL_Used == false ==> do nothing",
                            "SetGpioEnableEcallLed - exit"));
}

// ---- Failures ----

struct Failure {
    const char* name;
    const char* operation;
    const char* attribute;
    Use use;
    unsigned nth;  ///< use of the attribute that fails
    const char* message;
    Texts writesBefore;

    friend void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }
};

constexpr char kSteady[] = "SetGpioEcallLed 10 25 0 0";
constexpr char kBlinking[] = "SetGpioEcallLed 10 25 50 300";
const Texts kUpToDuty1 = {"enable = 0", "cfg = 1", "cfg1_period = 10000000", "cfg1_duty = 2500000"};

/// Each duty is told once its configuration has taken the period.
constexpr std::pair<const char*, const char*> kDutyFollows[] = {{"Brightness1PerCent = ", "cfg1_period = 10000000"},
                                                                {"Brightness2PerCent = ", "cfg2_period = 10000000"}};

Texts Plus(Texts texts, const Texts& more) {
    texts.insert(texts.end(), more.begin(), more.end());
    return texts;
}

class EcallUIGpioLedFailure : public testing::TestWithParam<Failure> {};

TEST_P(EcallUIGpioLedFailure, IsSaidAndEndsTheSequence) {
    const Failure& failure = GetParam();
    const Fault fault = failure.use == Use::Open ? Fault::Error(EACCES) : Fault::AtMost(0);
    Module module;
    module.attributes.AddFault(module.Led(failure.attribute), failure.use, fault.FromThe(failure.nth));

    const Performed performed = Perform(module, {failure.operation});

    EXPECT_THAT(performed.results, ElementsAre(std::string(failure.operation) + " = 1"));
    const bool hasLineEnd = std::string(failure.message).ends_with("\n");
    const std::string line = std::string(failure.message).substr(0, std::string(failure.message).find('\n'));
    EXPECT_EQ(line, hasLineEnd ? performed.messages.at(performed.messages.size() - 2) : performed.messages.back());
    EXPECT_EQ(hasLineEnd, performed.messages.back().empty());
    EXPECT_EQ(failure.message, module.journal.Await(IsKind(Kind::Syslog)).text);
    Texts expected = failure.writesBefore;
    if (failure.use == Use::Write) {
        expected.push_back(LedWrites(module).back());  // the one that was tried
    }
    EXPECT_EQ(expected, LedWrites(module));
    for (const auto& [duty, step] : kDutyFollows) {
        const auto isDuty = [&begin = duty](const std::string& said) { return said.starts_with(begin); };
        EXPECT_EQ(std::ranges::count(failure.writesBefore, step), std::ranges::count_if(performed.messages, isDuty))
            << duty;
    }
}

#define LED "/sys/devices/vantu_pwm_led.1/"
INSTANTIATE_TEST_SUITE_P(
    All, EcallUIGpioLedFailure,
    testing::Values(
        Failure{
            "DisableOpen", kSteady, "enable", Use::Open, 1, "Unable to open pwm led enable file : " LED "enable\n", {}},
        Failure{
            "DisableWrite", kSteady, "enable", Use::Write, 1, "Unable to write pwm led enable file : value = 1", {}},
        Failure{
            "CfgOpen", kSteady, "cfg", Use::Open, 1, "Unable to open pwm led cfg file : " LED "cfg\n", {"enable = 0"}},
        Failure{"CfgWrite",
                kSteady,
                "cfg",
                Use::Write,
                1,
                "Unable to write pwm led " LED "cfg file : value = 1 in \n",
                {"enable = 0"}},
        Failure{"Cfg1PeriodOpen",
                kSteady,
                "cfg1_period",
                Use::Open,
                1,
                "Unable to write pwm led " LED "cfg1_period file : value = 10000000 in \n",
                {"enable = 0", "cfg = 1"}},
        Failure{"Cfg1PeriodWrite",
                kSteady,
                "cfg1_period",
                Use::Write,
                1,
                "Unable to write pwm led " LED "cfg1_period file : value = 10000000 in \n",
                {"enable = 0", "cfg = 1"}},
        Failure{"Cfg1DutyOpen",
                kSteady,
                "cfg1_duty",
                Use::Open,
                1,
                "Unable to write pwm led file: value = 2500000 in \n",
                {"enable = 0", "cfg = 1", "cfg1_period = 10000000"}},
        Failure{"Cfg1DutyWrite",
                kSteady,
                "cfg1_duty",
                Use::Write,
                1,
                "Unable to write pwm led " LED "cfg1_duty file : value = 2500000 in \n",
                {"enable = 0", "cfg = 1", "cfg1_period = 10000000"}},
        Failure{"SteadyOpen", kSteady, "toggle", Use::Open, 1, "Unable to open toggle file", kUpToDuty1},
        Failure{"SteadyWrite", kSteady, "toggle", Use::Write, 1,
                "Unable to write pwm led " LED "toggle file : value = 1 in \n", kUpToDuty1},
        Failure{"Cfg2PeriodOpen", kBlinking, "cfg2_period", Use::Open, 1, "Unable to open pwm period file", kUpToDuty1},
        Failure{"Cfg2PeriodWrite", kBlinking, "cfg2_period", Use::Write, 1,
                "Unable to write pwm led " LED "cfg2_period file : value = 10000000 in \n", kUpToDuty1},
        Failure{"Cfg2DutyOpen", kBlinking, "cfg2_duty", Use::Open, 1, "Unable to open pwm led duty_cycle file",
                Plus(kUpToDuty1, {"cfg2_period = 10000000"})},
        Failure{"Cfg2DutyWrite", kBlinking, "cfg2_duty", Use::Write, 1,
                "Unable to write pwm led " LED "cfg2_duty file : value = 5000000 in \n",
                Plus(kUpToDuty1, {"cfg2_period = 10000000"})},
        Failure{"ToggleTimeOpen", kBlinking, "toggle_time", Use::Open, 1, "Unable to open pwm led duty_cycle file",
                Plus(kUpToDuty1, {"cfg2_period = 10000000", "cfg2_duty = 5000000"})},
        Failure{"ToggleTimeWrite", kBlinking, "toggle_time", Use::Write, 1,
                "Unable to write pwm led " LED "toggle_time file : value = 300 in \n",
                Plus(kUpToDuty1, {"cfg2_period = 10000000", "cfg2_duty = 5000000"})},
        Failure{"ToggleOpen", kBlinking, "toggle", Use::Open, 1, "Unable to open pwm led duty_cycle file",
                Plus(kUpToDuty1, {"cfg2_period = 10000000", "cfg2_duty = 5000000", "toggle_time = 300"})},
        Failure{"ToggleWrite", kBlinking, "toggle", Use::Write, 1,
                "Unable to write pwm led " LED "toggle file : value = 1 in \n",
                Plus(kUpToDuty1, {"cfg2_period = 10000000", "cfg2_duty = 5000000", "toggle_time = 300"})},
        Failure{"EnableOpen", kSteady, "enable", Use::Open, 2, "Unable to open pwm led enable file",
                Plus(kUpToDuty1, {"toggle = 0"})},
        Failure{"EnableWrite", kSteady, "enable", Use::Write, 2, "Unable to write pwm led enable file : value = 1",
                Plus(kUpToDuty1, {"toggle = 0"})},
        Failure{"SwitchOnOpen",
                "SetGpioEnableEcallLed 1",
                "enable",
                Use::Open,
                1,
                "Unable to open pwm led enable file",
                {}},
        Failure{"SwitchOffOpen",
                "SetGpioEnableEcallLed 0",
                "enable",
                Use::Open,
                1,
                "Unable to open pwm led enable file",
                {}},
        Failure{"SwitchOnWrite",
                "SetGpioEnableEcallLed 1",
                "enable",
                Use::Write,
                1,
                "Unable to write pwm led enable file : value = 1",
                {}},
        Failure{"SwitchOffWrite",
                "SetGpioEnableEcallLed 0",
                "enable",
                Use::Write,
                1,
                "Unable to write pwm led enable file : value = 1",
                {}}),
    [](const auto& tested) { return tested.param.name; });

TEST(EcallUIGpioLed, ValueThatIsTakenInPartOrRefusedEndsTheSequence) {
    for (const Fault& fault : {Fault::AtMost(7), Fault::Error(EIO)}) {
        Module module;
        module.attributes.AddFault(module.Led("cfg1_period"), Use::Write, fault);

        const Performed performed = Perform(module, {kSteady});

        EXPECT_THAT(performed.results, ElementsAre(std::string(kSteady) + " = 1"));
        EXPECT_THAT(performed.messages,
                    Contains("Unable to write pwm led " LED "cfg1_period file : value = 10000000 in "));
        EXPECT_THAT(module.journal.All(IsOpened(module.Led("cfg1_duty"))), IsEmpty());
    }
}

TEST(EcallUIGpioLed, PatternAfterAFailureStartsFromItsFirstStep) {
    Module module;
    module.attributes.AddFault(module.Led("toggle_time"), Use::Write, Fault::AtMost(0).Once());

    const Performed performed = Perform(module, {kBlinking, kSteady});

    EXPECT_THAT(performed.results, ElementsAre(std::string(kBlinking) + " = 1", std::string(kSteady) + " = 0"));
    const Texts writes = LedWrites(module);
    EXPECT_THAT(Texts(writes.end() - 6, writes.end()),
                ElementsAreArray(Plus(kUpToDuty1, {"toggle = 0", "enable = 1"})));
}

TEST(EcallUIGpioLed, DeviceThatIsMissingHasAnEmptyPathInItsMessage) {
    Module module;
    module.attributes.Remove(module.devices.led);

    const Performed performed = Perform(module, {kSteady, "SetGpioEnableEcallLed 1"});

    EXPECT_THAT(performed.results, ElementsAre(std::string(kSteady) + " = 1", "SetGpioEnableEcallLed 1 = 1"));
    EXPECT_THAT(performed.messages,
                AllOf(Contains("Unable to open pwm led enable file : "), Contains("Unable to open pwm led enable file"),
                      Not(Contains("SetGpioEnableEcallLed - exit"))));
}

}  // namespace
