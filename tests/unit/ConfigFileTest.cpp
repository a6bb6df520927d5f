#include "ConfigFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "EcallUIDataConfig.h"
#include "EcallUIDataJson.h"
#include "Failure.h"
#include "ServiceTest.h"
#include "UiFields.h"
#include "UiValues.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/// "line:column error text" or "line:column note text".
std::string Shown(const Finding& finding) {
    return std::to_string(finding.place.line) + ":" + std::to_string(finding.place.column) +
           (finding.isError ? " error " : " note ") + finding.text;
}

std::vector<std::string> Shown(const std::string& text) {
    std::vector<std::string> lines;
    for (const Finding& finding : JudgeConfigFile(text).findings) {
        lines.push_back(Shown(finding));
    }
    return lines;
}

bool IsSame(const Relaxed<uint8_t>& one, const Relaxed<uint8_t>& other) {
    return one.get() == other.get();
}
template <typename Number>
bool IsSame(const Relaxed<Number>& one, const Relaxed<Number>& other) {
    return one.get() == other.get();
}
template <size_t Capacity>
bool IsSame(const RelaxedText<Capacity>& one, const RelaxedText<Capacity>& other) {
    return one.get().text == other.get().text;
}

/// What the verdict says is loaded, against what the service loads.
void ExpectAsTheServiceLoads(const std::string& text) {
    EcallUIConfiguration service;
    LogOf([&] { ReadConfigurationText(text, service); });
    const EcallUIConfiguration judged = JudgeConfigFile(text).loaded;
    for (const ConfigurationField& field : ConfigurationFields()) {
        EXPECT_TRUE(std::visit([&](auto member) { return IsSame(service.*member, judged.*member); }, field.member))
            << field.key << " of " << text;
    }
}

constexpr const char* kRefusal = "; the service refuses the whole file and keeps its defaults";

}  // namespace

TEST(ConfigFile, TheFileThatTheServiceWritesIsGood) {
    Remove(kConfigurationFile);
    LogOf(SaveConfiguration);
    const std::string text = ReadConfigFile(kConfigurationFile);

    const ConfigFileVerdict verdict = JudgeConfigFile(text);

    EXPECT_THAT(verdict.findings, IsEmpty());
    EXPECT_FALSE(verdict.HasErrors());
    EXPECT_EQ(ConfigurationFields().size(), verdict.given.size());
    ExpectAsTheServiceLoads(text);
}

TEST(ConfigFile, EveryOddityIsFoundWhereItStandsAndToldAsTheServiceTakesIt) {
    const struct {
        const char* text;
        const char* finding;
    } kRows[] = {
        // Types.
        {R"({"LedPwmPeriodMs": "20"})",
         "1:20 error LedPwmPeriodMs is a number, not a text: the service takes 0 for \"20\""},
        {"{\n  \"EcallMicrophoneSource\": true}",
         "2:28 error EcallMicrophoneSource is a number, not a boolean: the service takes 1 for true"},
        {R"({"LedEcallIdleBrightness1PerCent": null})",
         "1:36 error LedEcallIdleBrightness1PerCent is a number, not null: the service takes 0 for null"},
        {R"({"ConnectEcallService": 2})",
         "1:25 error ConnectEcallService is a boolean, not a number: the service takes 2 for true"},
        {R"({"ConnectEcallService": 256})",
         "1:25 error ConnectEcallService is a boolean, not a number: the service takes 256 for false"},
        {R"({"ConnectEcallService": "true"})",
         "1:25 error ConnectEcallService is a boolean, not a text: the service takes \"true\" for false"},
        {R"({"ConnectLocationService": [1]})",
         "1:28 error ConnectLocationService is a boolean, not an array: the service takes [1] for false"},
        {R"({"HW_Name": 5})",
         "1:13 error HW_Name is a text, not a number: the service keeps its default \"KORVA_FDA803_ZX118A4\""},
        {R"({"HW_Name": {"a": 1}})",
         "1:13 error HW_Name is a text, not an object: the service keeps its default \"KORVA_FDA803_ZX118A4\""},
        // Numbers that do not fit.
        {R"({"LedEcallIdleBrightness1PerCent": 12.5})",
         "1:36 error LedEcallIdleBrightness1PerCent 12.5 is no whole number that fits: the service takes 12"},
        {R"({"MaxSizeOfTraceFileInKb": 70000})",
         "1:28 error MaxSizeOfTraceFileInKb 70000 is no whole number that fits: the service takes 4464"},
        {R"({"NbTraceFileStored": -1})",
         "1:23 error NbTraceFileStored -1 is no whole number that fits: the service takes 65535"},
        {R"({"EcallButtonPressMinimalTimeForTrigMs": 3000000000})",
         "1:42 error EcallButtonPressMinimalTimeForTrigMs 3000000000 is no whole number that fits: the service "
         "takes 2147483647"},
        // Numbers out of range.
        {R"({"LedEcallIdleBrightness1PerCent": 150})",
         "1:36 error LedEcallIdleBrightness1PerCent may be 0 to 100 %, but is 150, which the service takes all the "
         "same"},
        {R"({"EcallMicrophoneSource": 2})",
         "1:27 error EcallMicrophoneSource may be 0 to 1, but is 2, which the service takes all the same"},
        // Keys.
        {R"({"LedPwmPeriod": 20})",
         "1:2 error the service knows no key \"LedPwmPeriod\" and passes over it, did you mean LedPwmPeriodMs"},
        {"{\r\n\"zebra\": {\"LedPwmPeriodMs\": 1}}", "2:1 error the service knows no key \"zebra\" and passes over it"},
        {R"({"DebugMenuMode": 1})", "1:2 error the service knows no key \"DebugMenuMode\" and passes over it"},
        {R"({"7": 20})", "1:2 error the service knows no key \"7\" and passes over it"},
        {R"({"LED_PWM_PERIOD_MS": 20})",
         "1:2 error the service knows no key \"LED_PWM_PERIOD_MS\" and passes over it, did you mean LedPwmPeriodMs"},
        {R"({"ledpwmperiodms": 20})", "1:2 note \"ledpwmperiodms\" is read as LedPwmPeriodMs"},
        {"{\"LedPwmPeriodMs\": 20,\n \"LEDPWMPERIODMS\": 30}",
         "2:2 error LedPwmPeriodMs once more: the service takes the first one, in line 1, column 2"},
        // Texts.
        {R"({"JsonTimeStamp": "0123456789012345678901234567890123"})",
         "1:19 error JsonTimeStamp holds at most 31 bytes, not 34: the service takes "
         "\"0123456789012345678901234567890\""},
        {R"({"HW_Name": "A\u0000B"})",
         "1:13 error HW_Name has a NUL in it, where it ends for the service, which takes \"A\""},
        // Not an object.
        {"[1]",
         "1:1 error the file holds an array instead of an object: the service finds no key in it and keeps its "
         "defaults"},
        {"\n 7",
         "2:2 error the file holds a number instead of an object: the service finds no key in it and keeps its "
         "defaults"},
        // What the service takes though it is no JSON.
        {R"({"LedPwmPeriodMs": 020})",
         "1:21 note not quite JSON, though the service reads it: syntax error while parsing object - unexpected number "
         "literal; expected '}'"},
        {"{\"HW_Name\": \"A\tB\"}",
         "1:15 note not quite JSON, though the service reads it: syntax error while parsing value - invalid string: "
         "control character U+0009 (HT) must be escaped to \\u0009 or \\t"},
    };
    for (const auto& [text, finding] : kRows) {
        EXPECT_THAT(Shown(text), ElementsAre(finding)) << text;
        ExpectAsTheServiceLoads(text);
    }
}

TEST(ConfigFile, WhatTheServiceRefusesIsShownWhereItGoesWrong) {
    const struct {
        std::string text;
        const char* finding;
    } kRows[] = {
        {"", "1:1 error the file is empty"},
        {"{\n  \"LedPwmPeriodMs\": 20,\n}",
         "3:1 error no JSON: syntax error while parsing object key - unexpected '}'; expected string literal"},
        {"{\"LedPwmPeriodMs\" 20}",
         "1:19 error no JSON: syntax error while parsing object separator - unexpected number literal; expected ':'"},
        {"LedPwmPeriodMs = 20", "1:1 error no JSON: syntax error while parsing value - invalid literal"},
        {"{\"LedPwmPeriodMs\": 20} x", "1:24 error no JSON: syntax error while parsing value - invalid literal"},
        {"{\"LedPwmPeriodMs\": 20",
         "1:22 error no JSON: syntax error while parsing object - unexpected end of input; expected '}'"},
        {std::string("{\"LedPwmPeriodMs\":\n 2\0}", 22), "2:3 error a NUL byte"},
    };
    for (const auto& [text, finding] : kRows) {
        EXPECT_THAT(Shown(text), ElementsAre(finding + std::string(kRefusal))) << text;
        EXPECT_TRUE(JudgeConfigFile(text).HasErrors());
        EXPECT_THAT(JudgeConfigFile(text).given, IsEmpty());
        ExpectAsTheServiceLoads(text);
    }
}

TEST(ConfigFile, WhatOnlyTheServicesParserRefusesIsShownToo) {
    const std::string deep = "{\"a\": " + std::string(1100, '[') + std::string(1100, ']') + "}";
    EXPECT_THAT(Shown(deep), ElementsAre(std::string("1:1006 error cannot be read from here on") + kRefusal));
    ExpectAsTheServiceLoads(deep);
}

TEST(ConfigFile, AFileThatIsTooLongIsRefused) {
    const std::string fits = std::string((size_t{1} << 20) - 2, ' ') + "{}";
    EXPECT_THAT(Shown(fits), IsEmpty());
    EXPECT_THAT(Shown(" " + fits),
                ElementsAre(std::string("0:0 error the file is longer than 1048576 bytes") + kRefusal));
}

TEST(ConfigFile, SeveralFindingsComeInTheFilesOrder) {
    EXPECT_THAT(Shown("{\n\"zebra\": 1,\n\"ledpwmperiodms\": 5000.5,\n\"HW_Name\": 1}"),
                ElementsAre(StartsWith("2:1 error"), StartsWith("3:1 note"), StartsWith("3:19 error"),
                            StartsWith("4:12 error")));
}

TEST(ConfigFile, AFileFullOfNonsenseIsNotToldToItsEnd) {
    std::string text = "{";
    for (int i = 0; i < 30000; ++i) {
        text += "\"zebra" + std::to_string(i) + "\": 1,";
    }
    const auto lines = Shown(text + "\"LedPwmPeriodMs\": 20}");
    ASSERT_EQ(kMostFindings + 1, lines.size());
    EXPECT_EQ("0:0 error and so on: this is no configuration file", lines.back());
}

TEST(ConfigFile, AFullFileOfRepetitionsFarFromTheFirstOneIsJudgedToItsEnd) {
    std::string text = "{";
    while (text.size() < kLongestConfiguration / 2) {
        text += "\"nobody knows me\":1,";
    }
    text += "\"HW_Name\":\"first\"";
    while (text.size() < kLongestConfiguration - 100) {
        text += ",\"HW_Name\":\"again\"";
    }
    text += ",\"LedPwmPeriodMs\":20}";

    const ConfigFileVerdict verdict = JudgeConfigFile(text);

    EXPECT_EQ(kMostFindings + 1, verdict.findings.size());
    EXPECT_EQ(2U, verdict.given.size());
    EXPECT_STREQ("first", verdict.loaded.HW_Name.get().c_str());
    EXPECT_EQ(20, verdict.loaded.LedPwmPeriodMs);
}

TEST(ConfigFile, GivenAreTheFieldsThatTheFileSets) {
    const auto given =
        JudgeConfigFile(R"({"GpioIrqRecovery": false, "HW_Name": 5, "LedPwmPeriodMs": "x", "no": 1})").given;
    EXPECT_THAT(given, ElementsAre(&FieldNamed("GpioIrqRecovery"), &FieldNamed("LedPwmPeriodMs")));
}

namespace {

std::string FailureOf(const std::string& path) {
    try {
        ReadConfigFile(path);
    } catch (const Failure& failure) {
        EXPECT_EQ(kBadFile, failure.status);
        return failure.what();
    }
    return "";
}

}  // namespace

TEST(ConfigFile, AFileThatCannotBeReadIsNamedWithItsReason) {
    EXPECT_EQ(
        "cannot read /tmp/none.json: No such file or directory; a service that finds no configuration file creates one "
        "with its defaults",
        FailureOf("/tmp/none.json"));
    EXPECT_EQ("cannot read /tmp: Is a directory", FailureOf("/tmp"));
    EXPECT_EQ("cannot read /tmp/../etc/passwd/x: Not a directory", FailureOf("/tmp/../etc/passwd/x"));
}

TEST(ConfigFile, AFileWithoutEndIsReadOnlyAsFarAsItMatters) {
    const std::string text = ReadConfigFile("/dev/zero");
    EXPECT_GT(text.size(), size_t{1} << 20);
    EXPECT_LT(text.size(), size_t{2} << 20);
}
