#include "UiFields.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>

#include "Failure.h"

namespace {

const ConfigurationField& Field(const char* name) {
    return FieldNamed(name);
}

/// The text of the failure; empty when there is none.
std::string FailureOf(const std::function<void()>& run) {
    try {
        run();
    } catch (const Failure& failure) {
        EXPECT_EQ(kMisused, failure.status);
        return failure.what();
    }
    return "";
}

std::string UpperCase(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char character) { return static_cast<char>(std::toupper(character)); });
    return text;
}

}  // namespace

TEST(UiFields, EachFieldIsFoundByItsKeyInAnyCase) {
    for (const ConfigurationField& field : ConfigurationFields()) {
        EXPECT_EQ(&field, FindField(field.key));
        EXPECT_EQ(&field, FindField(UpperCase(field.key)));
    }
}

TEST(UiFields, EachParameterIsFoundByItsNumberAndByItsInterfaceName) {
    int32_t number = 0;
    for (const ConfigurationField* field : Parameters()) {
        EXPECT_EQ(number++, field->number);
        EXPECT_EQ(field, FindField(std::to_string(field->number)));
        const std::string name = InterfaceName(*field);
        ASSERT_THAT(name, testing::StartsWith("TEcallUICfgParamName_"));
        EXPECT_EQ(field, FindField(name));
        EXPECT_EQ(field, FindField(UpperCase(name)));
        EXPECT_EQ(field, FindField(name.substr(name.find('_') + 1)));
    }
    EXPECT_EQ(26, number);
}

TEST(UiFields, AnInterfaceNameLeadsToTheFieldThatIsSpelledOtherwise) {
    EXPECT_STREQ("EcallButtonPullingDetectionMode", Field("ECALL_BUTTON_POLLING_DETECTION_MODE").key);
    EXPECT_STREQ("LedEcallIdleBlicking12PeriodInMs", Field("LED_ECALL_IDLE_BLINCKING12_PERIOD_MS").key);
    EXPECT_EQ("", InterfaceName(Field("HW_Name")));
}

TEST(UiFields, WhatIsNoNameIsNotFound) {
    for (const char* name :
         {"", "26", "-1", "99999999999", "7x", "LedPwmPeriod", "TEcallUICfgParamName_", "DebugMenuMode"}) {
        EXPECT_EQ(nullptr, FindField(name)) << name;
    }
}

TEST(UiFields, ANameThatIsNearlyOneIsAnsweredWithTheRightOne) {
    const struct {
        const char* name;
        const char* answer;
    } kRows[] = {
        {"LedPwmPeriod", ", did you mean LedPwmPeriodMs"},
        {"ledpwmperiodsm", ", did you mean LedPwmPeriodMs"},
        {"LED_PWM_PERIOD", ", did you mean LedPwmPeriodMs"},
        {"LED_ECALL_IDLE_BLINKING12_PERIOD_MS", ", did you mean LedEcallIdleBlicking12PeriodInMs"},
        {"EcallButtonPollingDetectionMode", ", did you mean EcallButtonPullingDetectionMode"},
        {"LedEcallIdleBrightnessPerCent",
         ", did you mean LedEcallIdleBrightness1PerCent or LedEcallIdleBrightness2PerCent"},
        {"HWName", ", did you mean HW_Name"},
        {"microphone", ", did you mean EcallMicrophoneSource"},
        {"antenna", ", did you mean EcallAntennaDetectionThresholdMv"},
        {"led", ""},  // too many to be of use
        {"zebra", ""},
        {"", ""},
    };
    for (const auto& [name, answer] : kRows) {
        EXPECT_EQ(answer, DidYouMean(name)) << name;
    }
    EXPECT_EQ("", DidYouMean(std::string(1000000, 'x')));
}

TEST(UiFields, AnUnknownNameIsRefusedWithTheRemedy) {
    EXPECT_EQ("no parameter is called \"LedPwmPeriod\", did you mean LedPwmPeriodMs; \"list\" shows them all",
              FailureOf([] { FieldNamed("LedPwmPeriod"); }));
    EXPECT_EQ("no parameter has the number 26; \"list\" shows them", FailureOf([] { FieldNamed("26"); }));
}

TEST(UiFields, AFieldOfTheFileOnlyIsRefusedWithTheFilesPath) {
    EXPECT_EQ(
        "AudioRelayUsed cannot be reached over the interface: it is in the file "
        "/data/etc/ecall/XirEcallUIappSrvc_Cfg.json only; stop the service, edit it there, and start it again",
        FailureOf([] { ParameterNamed("audiorelayused"); }));
    EXPECT_EQ(19, ParameterNamed("EcallButtonUsed").number);
}

TEST(UiFields, TypesAreThoseOfTheFields) {
    EXPECT_EQ(FieldType::Text, TypeOf(Field("JsonTimeStamp")));
    EXPECT_EQ(FieldType::Text, TypeOf(Field("22")));
    EXPECT_EQ(FieldType::Number, TypeOf(Field("NbTraceFileStored")));
    EXPECT_EQ(FieldType::Number, TypeOf(Field("7")));
    EXPECT_EQ(FieldType::Boolean, TypeOf(Field("3")));
}

TEST(UiFields, WhetherARestartIsNeededIsSaid) {
    EXPECT_STREQ("no", RestartText(Field("LedPwmPeriodMs")));
    EXPECT_STREQ("yes", RestartText(Field("ConnectEcallService")));
    EXPECT_STREQ("partly", RestartText(Field("GpioInputPwm_ENS_Used")));
    EXPECT_STREQ("never", RestartText(Field("HW_Name")));
    EXPECT_STREQ("yes", RestartText(Field("AudioRelayUsed"))) << "it can be changed in the file only";
}

TEST(UiFields, TheEditDistanceCountsSwapsAsOne) {
    const struct {
        const char* one;
        const char* other;
        size_t distance;
    } kRows[] = {{"", "", 0},       {"", "abc", 3},   {"abc", "abc", 0}, {"abc", "acb", 1},
                 {"abc", "abd", 1}, {"abc", "bc", 1}, {"ca", "abc", 3},  {"kitten", "sitting", 3}};
    for (const auto& [one, other, distance] : kRows) {
        EXPECT_EQ(distance, EditDistance(one, other)) << one << " " << other;
        EXPECT_EQ(distance, EditDistance(other, one)) << other << " " << one;
    }
}
