// What a client of the service cannot see or send: single messages, bytes of a boolean, the caller's buffer, no text.
#include "EcallUIDataParam.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>

#include "EcallUIData.h"
#include "EcallUIDataFields.h"
#include "Faults.h"
#include "ServiceTest.h"
#include "Trace.h"
#include "UiParameters.h"
#include "lib_c/src-gen/CommonTypes.pb-c.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// What a get fills, from outputs that held something before.
struct Gotten {
    uint8_t boolean = 7;
    int32_t number = 7;
    std::array<char, 128> text{'x'};

    explicit Gotten(int32_t parameter) { EcallUIGetParameter(parameter, boolean, number, text.data()); }
};

class EcallUIDataParam : public testing::Test {
  protected:
    EcallUIDataParam() {
        EcallUI_Configuration = EcallUIConfiguration();
        WriteFile(kConfigurationFile, "old");
    }
    static std::string File() { return ReadFile(kConfigurationFile).value_or(""); }
    static testing::Matcher<std::string> HasMember(const std::string& key, const std::string& value) {
        return HasSubstr("\t\"" + key + "\":\t" + value);
    }
};

/// The messages of a save that goes well.
const std::vector<std::string> kSaved = {"SaveConfiguration - Enter", "fill Json buffer", "SaveConfiguration - Exit"};

std::vector<std::string> SetMessages(const std::string& enter, const std::vector<std::string>& failures = {}) {
    std::vector<std::string> messages{"EcallUISetParameter - Enter, " + enter};
    messages.insert(messages.end(), failures.begin(), failures.end());
    messages.insert(messages.end(), kSaved.begin(), kSaved.end());
    messages.emplace_back("EcallUISetParameter - Exit");
    return messages;
}

std::vector<std::string> AsFailures(std::vector<std::string> messages) {
    for (std::string& message : messages) {
        message.insert(0, "5 ");
    }
    return messages;
}

// --- The numbers ---

TEST_F(EcallUIDataParam, EveryNumberIsNamedOnTheWireAndHasItsField) {
    const auto& wire = com__vantu__ecalluiapp__tecall_uicfg_param_name__descriptor;
    ASSERT_EQ(std::size(kUiParameters), wire.n_values);
    for (const UiParameter& parameter : kUiParameters) {
        const auto* const value = protobuf_c_enum_descriptor_get_value(&wire, parameter.number);
        ASSERT_NE(nullptr, value) << parameter.number;
        EXPECT_EQ("TEcallUICfgParamName_" + std::string(parameter.name), value->name);
        const ConfigurationField* const field = FindConfigurationField(parameter.number);
        ASSERT_NE(nullptr, field) << parameter.number;
        EXPECT_STREQ(parameter.key, field->key);
    }
}

TEST_F(EcallUIDataParam, NoOtherFieldHasANumber) {
    std::size_t numbered = 0;
    for (const ConfigurationField& field : ConfigurationFields()) {
        numbered += field.number == kNoFieldNumber ? 0 : 1;
    }
    EXPECT_EQ(std::size(kUiParameters), numbered);
}

// --- Reading ---

TEST_F(EcallUIDataParam, ABooleanIsReadAsItIsStored) {
    EcallUI_Configuration.GpioIrqRecovery = 5;

    const Gotten gotten(25);

    EXPECT_EQ(5, gotten.boolean);
    EXPECT_EQ(0, gotten.number);
    EXPECT_STREQ("", gotten.text.data());
}

TEST_F(EcallUIDataParam, ANumberIsReadWithItsSign) {
    EcallUI_Configuration.LedPwmPeriodMs = -2147483647 - 1;

    const Gotten gotten(7);

    EXPECT_EQ(0, gotten.boolean);
    EXPECT_EQ(-2147483647 - 1, gotten.number);
    EXPECT_STREQ("", gotten.text.data());
}

TEST_F(EcallUIDataParam, ATextIsReadWithoutItsTerminator) {
    uint8_t boolean = 7;
    int32_t number = 7;
    std::array<char, 128> text;
    text.fill('x');
    text.back() = 0;

    EcallUIGetParameter(22, boolean, number, text.data());

    EXPECT_EQ("DTRxxx", std::string(text.data(), 6));
    EXPECT_EQ(0, boolean);
    EXPECT_EQ(0, number);
}

TEST_F(EcallUIDataParam, ALongTextLeavesTheRestOfTheBufferAlone) {
    EcallUI_Configuration.GpioForEnablingEcallLedControlUsed.set(std::string(63, 'a'));

    const Gotten gotten(22);

    EXPECT_EQ(std::string(63, 'a'), gotten.text.data());
}

TEST_F(EcallUIDataParam, EachReadingIsToldWithAllOutputs) {
    EXPECT_THAT(LogOf([] { Gotten(0); }).Messages(),
                ElementsAre("EcallUIGetParameter - Enter",
                            "cfgParamName=0, BoolValue=1, IntValue=0, StrValue=", "EcallGetParameter - Exit"));
    EXPECT_THAT(LogOf([] { Gotten(17); }).Messages(),
                ElementsAre("EcallUIGetParameter - Enter",
                            "cfgParamName=17, BoolValue=0, IntValue=900, StrValue=", "EcallGetParameter - Exit"));
    EXPECT_THAT(LogOf([] { Gotten(22); }).Messages(),
                ElementsAre("EcallUIGetParameter - Enter", "cfgParamName=22, BoolValue=0, IntValue=0, StrValue=DTR",
                            "EcallGetParameter - Exit"));
}

TEST_F(EcallUIDataParam, AnUnknownNumberReadsAsNothingAndIsToldAsAFailure) {
    for (const int32_t number : {-1, 26, 2147483647, -2147483647 - 1}) {
        const std::string text = std::to_string(number);
        const Logged logged = LogOf([number] {
            const Gotten gotten(number);
            EXPECT_EQ(0, gotten.boolean);
            EXPECT_EQ(0, gotten.number);
            EXPECT_STREQ("", gotten.text.data());
        });
        EXPECT_THAT(logged.Messages(), ElementsAre("EcallUIGetParameter - Enter", "bad parameter " + text,
                                                   "cfgParamName=" + text + ", BoolValue=0, IntValue=0, StrValue=",
                                                   "EcallGetParameter - Exit"));
        EXPECT_THAT(logged.system, ElementsAre("5 bad parameter " + text));
    }
}

TEST_F(EcallUIDataParam, AReadingLeavesTheFileAlone) {
    Gotten(7);

    EXPECT_EQ("old", File());
}

// --- Changing ---

TEST_F(EcallUIDataParam, AnyByteOfABooleanIsStoredAndWrittenAsTrue) {
    const Logged logged = LogOf([] { EcallUISetParameter(3, 5, 9, "unused"); });

    EXPECT_EQ(5, EcallUI_Configuration.GpioInputButton_nRQST_Used);
    EXPECT_THAT(File(), HasMember("GpioInputButton_nRQST_Used", "true"));
    EXPECT_EQ(SetMessages("cfgParamName=3, BoolValue=5, IntValue=9, StrValue=unused"), logged.Messages());
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataParam, TheThresholdKeepsTheLow16BitsOnly) {
    for (const auto& [given, kept] : {std::pair{-1, 65535}, {70000, 4464}, {65535, 65535}, {65536, 0}, {-65536, 0}}) {
        EcallUISetParameter(17, 0, given, "");

        EXPECT_EQ(kept, EcallUI_Configuration.EcallAntennaDetectionThresholdMv) << given;
        EXPECT_EQ(kept, Gotten(17).number) << given;
        EXPECT_THAT(File(), HasMember("EcallAntennaDetectionThresholdMv", std::to_string(kept)));
    }
}

TEST_F(EcallUIDataParam, OtherNumbersKeepAllTheirBits) {
    for (const UiParameter& parameter : kUiParameters) {
        if (parameter.kind == UiKind::Number && parameter.number != 17 && parameter.number != 24) {
            for (const int32_t value : {-1, 70000, 2147483647, -2147483647 - 1}) {
                EcallUISetParameter(parameter.number, 0, value, "");
                EXPECT_EQ(value, Gotten(parameter.number).number) << parameter.key;
            }
        }
    }
}

TEST_F(EcallUIDataParam, NoTextIsAnEmptyOne) {
    const Logged logged = LogOf([] { EcallUISetParameter(22, 0, 0, nullptr); });

    EXPECT_STREQ("", EcallUI_Configuration.GpioForEnablingEcallLedControlUsed.get().c_str());
    EXPECT_EQ(SetMessages("cfgParamName=22, BoolValue=0, IntValue=0, StrValue="), logged.Messages());
}

TEST_F(EcallUIDataParam, AShorterTextLeavesNothingOfTheLongerOne) {
    EcallUISetParameter(22, 0, 0, std::string(200, 'a').c_str());
    EXPECT_EQ(std::string(63, 'a'), EcallUI_Configuration.GpioForEnablingEcallLedControlUsed.get().c_str());

    EcallUISetParameter(22, 0, 0, "b");

    const auto field = EcallUI_Configuration.GpioForEnablingEcallLedControlUsed.get();
    EXPECT_EQ("b" + std::string(63, '\0'), std::string(field.text.data(), field.text.size()));
}

TEST_F(EcallUIDataParam, AnUnknownNumberChangesNothingButTheFilesStamp) {
    const FixedClock clock(1700000000, 0);
    for (const int32_t number : {-1, 26, 2147483647}) {
        WriteFile(kConfigurationFile, "old");
        const std::string text = std::to_string(number);

        const Logged logged = LogOf([number] { EcallUISetParameter(number, 1, 2, "three"); });

        const std::vector<std::string> failures{"EcallUISetParameter - bad parameter : " + text};
        EXPECT_EQ(SetMessages("cfgParamName=" + text + ", BoolValue=1, IntValue=2, StrValue=three", failures),
                  logged.Messages());
        EXPECT_EQ(AsFailures(failures), logged.system);
        EXPECT_THAT(File(), HasMember("JsonTimeStamp", "\"2023:11:14 22:13:20\""));
        for (const UiParameter& parameter : kUiParameters) {
            EXPECT_THAT(File(), HasMember(parameter.key, parameter.byDefault));
        }
    }
}

TEST_F(EcallUIDataParam, AMicrophoneThatDoesNotExistIsRefusedInTheLogOnly) {
    for (const int32_t source : {2, -1, 65536}) {
        WriteFile(kConfigurationFile, "old");
        const std::string text = std::to_string(source);

        const Logged logged = LogOf([source] { EcallUISetParameter(24, 0, source, ""); });

        const std::vector<std::string> failures{"bad TEcallUICfgParamName_ECALL_MICROPHONE_SOURCE parameter : " + text};
        EXPECT_EQ(SetMessages("cfgParamName=24, BoolValue=0, IntValue=" + text + ", StrValue=", failures),
                  logged.Messages());
        EXPECT_EQ(AsFailures(failures), logged.system);
        EXPECT_EQ(1, EcallUI_Configuration.EcallMicrophoneSource);
        EXPECT_THAT(File(), HasMember("EcallMicrophoneSource", "1"));
    }
}

TEST_F(EcallUIDataParam, WithoutAnEcallServiceTheMicrophoneIsKeptAndTheFailureTold) {
    const Logged logged = LogOf([] { EcallUISetParameter(24, 0, 0, ""); });

    const std::vector<std::string> failures{"XirEcallapp_setCfgParameter error :  srvcResult = -12"};
    EXPECT_EQ(SetMessages("cfgParamName=24, BoolValue=0, IntValue=0, StrValue=", failures), logged.Messages());
    EXPECT_EQ(AsFailures(failures), logged.system);
    EXPECT_EQ(0, EcallUI_Configuration.EcallMicrophoneSource);
    EXPECT_THAT(File(), HasMember("EcallMicrophoneSource", "0"));
}

TEST_F(EcallUIDataParam, AFileThatCannotBeWrittenLeavesTheNewValue) {
    const CallFault fault("open", EACCES, {.path = kConfigurationFile});

    const Logged logged = LogOf([] { EcallUISetParameter(7, 0, 20, ""); });

    EXPECT_EQ(20, EcallUI_Configuration.LedPwmPeriodMs);
    EXPECT_THAT(logged.system, ElementsAre("5 ERROR : cannot create the configuration file"));
    EXPECT_EQ("EcallUISetParameter - Exit", logged.Messages().back());
}

}  // namespace
