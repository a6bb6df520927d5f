#include "UiValues.h"

#include <gmock/gmock.h>

#include "Failure.h"
#include "UiFields.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// The text of the failure; empty when the value was taken.
std::string FailureOf(const char* name, const std::string& text) {
    try {
        ReadValue(FieldNamed(name), text);
    } catch (const Failure& failure) {
        EXPECT_EQ(kMisused, failure.status);
        return failure.what();
    }
    return "";
}

UiValue Read(const char* name, const std::string& text) {
    return ReadValue(FieldNamed(name), text);
}

const char* const kBoolean = "EcallButtonUsed";
const char* const kPercent = "LedEcallIdleBrightness1PerCent";
const char* const kText = "GpioForEnablingEcallLedControlUsed";

}  // namespace

TEST(UiValues, ABooleanIsWrittenAsPeopleDo) {
    for (const char* text : {"true", "on", "yes", "1", "TRUE", "On", "yEs"}) {
        EXPECT_EQ(UiValue(true), Read(kBoolean, text)) << text;
    }
    for (const char* text : {"false", "off", "no", "0", "False", "OFF"}) {
        EXPECT_EQ(UiValue(false), Read(kBoolean, text)) << text;
    }
}

TEST(UiValues, WhatIsNoBooleanIsRefused) {
    for (const char* text : {"", "2", "-1", "maybe", "true ", "01"}) {
        EXPECT_EQ("EcallButtonUsed is a boolean: true, on, yes, 1, false, off, no or 0, not " + Quoted(text),
                  FailureOf(kBoolean, text));
    }
}

TEST(UiValues, ANumberIsTakenWithinItsRange) {
    EXPECT_EQ(UiValue(int32_t{0}), Read(kPercent, "0"));
    EXPECT_EQ(UiValue(int32_t{100}), Read(kPercent, "100"));
    EXPECT_EQ(UiValue(int32_t{1}), Read("LedPwmPeriodMs", "1"));
    EXPECT_EQ(UiValue(int32_t{4294}), Read("LedPwmPeriodMs", "4294"));
    EXPECT_EQ(UiValue(int32_t{2147483647}), Read("EcallButtonPressMinimalTimeForTrigMs", "2147483647"));
}

TEST(UiValues, ANumberOutOfItsRangeIsRefusedWithTheRange) {
    const struct {
        const char* name;
        const char* text;
        const char* complaint;
    } kRows[] = {
        {kPercent, "101", "LedEcallIdleBrightness1PerCent may be 0 to 100 %, not 101"},
        {kPercent, "-1", "LedEcallIdleBrightness1PerCent may be 0 to 100 %, not -1"},
        {"LedPwmPeriodMs", "0", "LedPwmPeriodMs may be 1 to 4294 ms, not 0"},
        {"LedPwmPeriodMs", "4295", "LedPwmPeriodMs may be 1 to 4294 ms, not 4295"},
        {"EcallMicrophoneSource", "2", "EcallMicrophoneSource may be 0 to 1, not 2"},
        {"EcallAntennaDetectionThresholdMv", "65536",
         "EcallAntennaDetectionThresholdMv may be 0 to 65535 mV, not 65536"},
        {kPercent, "99999999999", "LedEcallIdleBrightness1PerCent may be 0 to 100 %, not 99999999999"},
    };
    for (const auto& [name, text, complaint] : kRows) {
        EXPECT_EQ(complaint, FailureOf(name, text));
    }
}

TEST(UiValues, WhatIsNoWholeNumberIsRefused) {
    for (const char* text : {"", "ten", "1.5", "1e1", "10 ", " 10", "0x10", "+5", "true", "5%"}) {
        EXPECT_EQ("LedEcallIdleBrightness1PerCent is a whole number, 0 to 100 %, not " + Quoted(text),
                  FailureOf(kPercent, text));
    }
}

TEST(UiValues, ATextIsTakenUpToItsFieldsLength) {
    EXPECT_EQ(UiValue(std::string("DTR")), Read(kText, "DTR"));
    EXPECT_EQ(UiValue(std::string()), Read(kText, ""));
    EXPECT_EQ(UiValue(std::string(63, 'x')), Read(kText, std::string(63, 'x')));
    EXPECT_THAT(FailureOf(kText, std::string(64, 'x')),
                HasSubstr("GpioForEnablingEcallLedControlUsed holds at most 63 bytes, not the 64 of \"xxx"));
    EXPECT_EQ(31U, LongestText(FieldNamed("JsonTimeStamp")));
    EXPECT_EQ(0U, LongestText(FieldNamed("LedPwmPeriodMs")));
}

TEST(UiValues, ATextThatIsNoUtf8IsRefused) {
    EXPECT_EQ("GpioForEnablingEcallLedControlUsed is a text in UTF-8, which \"D\xffTR\" is not",
              FailureOf(kText, "D\xffTR"));
    EXPECT_EQ(UiValue(std::string("D\xc3\xbcse")), Read(kText, "D\xc3\xbcse"));
}

TEST(UiValues, DefaultsAreThoseOfAFreshConfiguration) {
    EXPECT_EQ(UiValue(true), DefaultOf(FieldNamed("ConnectEcallService")));
    EXPECT_EQ(UiValue(int32_t{1024}), DefaultOf(FieldNamed("MaxSizeOfTraceFileInKb")));
    EXPECT_EQ(UiValue(int32_t{5000}), DefaultOf(FieldNamed("16")));
    EXPECT_EQ(UiValue(std::string("DTR")), DefaultOf(FieldNamed("22")));
    for (const ConfigurationField& field : ConfigurationFields()) {
        const UiValue value = DefaultOf(field);
        const auto* const number = std::get_if<int32_t>(&value);
        EXPECT_TRUE(number == nullptr || IsInRange(field, *number)) << field.key;
    }
}

TEST(UiValues, EveryByteButZeroIsTrue) {
    EcallUIConfiguration configuration;
    configuration.ConnectLocationService = 5;
    EXPECT_EQ(UiValue(true), ValueIn(configuration, FieldNamed("1")));
}

TEST(UiValues, ValuesAreShownWithTheirUnit) {
    EXPECT_EQ("10 ms", ValueText(FieldNamed("LedPwmPeriodMs"), int32_t{10}));
    EXPECT_EQ("1", ValueText(FieldNamed("EcallMicrophoneSource"), int32_t{1}));
    EXPECT_EQ("true", ValueText(FieldNamed(kBoolean), true));
    EXPECT_EQ("\"DTR\"", ValueText(FieldNamed(kText), std::string("DTR")));
    EXPECT_EQ("[true,10,\"DTR\"]", JsonLine({ValueJson(true), ValueJson(int32_t{10}), ValueJson(std::string("DTR"))}));
}

TEST(UiValues, QuotesAreShortAndHarmless) {
    EXPECT_EQ("\"?[31mred?\"", Quoted("\033[31mred\n"));
    EXPECT_EQ("\"" + std::string(80, 'x') + "...\"", Quoted(std::string(81, 'x')));
}

TEST(UiValues, AChangeThatIsNotFeltAtOnceIsWarnedOf) {
    EXPECT_THAT(ChangeWarning(FieldNamed("LedPwmPeriodMs"), int32_t{5}), IsEmpty());
    EXPECT_EQ("ConnectEcallService takes effect when the service is restarted",
              ChangeWarning(FieldNamed("ConnectEcallService"), false));
    EXPECT_EQ("GpioInputPwm_ENS_Used takes effect in part at once, and wholly when the service is restarted",
              ChangeWarning(FieldNamed("GpioInputPwm_ENS_Used"), false));
}

TEST(UiValues, SwitchingTheButtonToPollingIsWarnedOfLoudly) {
    const ConfigurationField& field = FieldNamed("EcallButtonPullingDetectionMode");
    EXPECT_EQ(
        "EcallButtonPullingDetectionMode: restart the service now. It ignores the interrupts of the eCall button from "
        "this moment on, but only a restarted service reads the button's line: until then the button is dead",
        ChangeWarning(field, true));
    EXPECT_THAT(ChangeWarning(field, false), HasSubstr("takes effect in part at once"));
}
