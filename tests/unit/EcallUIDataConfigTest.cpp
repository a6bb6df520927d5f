#include "EcallUIDataConfig.h"

#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "Faults.h"
#include "ServiceTest.h"
#include "Trace.h"

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

enum class Type { Boolean, Number16, Number, Text32, Text64 };

/// What stands in a file that the service has made, and in its print-outs.
const struct Row {
    const char* key;
    Type type;
    const char* value;  ///< as printed
    const char* label;  ///< of the value in the log of a load
} kRows[] = {
    {"JsonTimeStamp", Type::Text32, "2023:11:14 22:13:20", "JsonTimeStamp"},
    {"HW_Name", Type::Text64, "KORVA_FDA803_ZX118A4", "HW_Name"},
    {"MaxSizeOfTraceFileInKb", Type::Number16, "1024", "MaxSizeOfTraceFileInKb"},
    {"NbTraceFileStored", Type::Number16, "2", "NbTraceFileStored"},
    {"ConnectEcallService", Type::Boolean, "1", "ConnectEcallService"},
    {"ConnectLocationService", Type::Boolean, "0", "ConnectLocationService"},
    {"ConfigureExternalAudioAmp", Type::Boolean, "0", "ConfigureExternalAudioAmp"},
    {"GpioInputPwm_ENS_Used", Type::Boolean, "1", "GpioInputPwm_ENS_Used"},
    {"GpioInputButton_nRQST_Used", Type::Boolean, "1", "GpioInputButton_nRQST_Used"},
    {"GpioInputButton_nRQST_ActiveLow", Type::Boolean, "0", "GpioInputButton_nRQST_ActiveLow"},
    {"GpioOutputLed_CNTL_Used", Type::Boolean, "1", "GpioOutputLed_CNTL_Used"},
    {"GpioOutputNlock_Used", Type::Boolean, "1", "GpioOutputNlock_Used"},
    {"GpioOutputNlockInvertedForRevARevB", Type::Boolean, "0", "GpioOutputNlockInvertedForRevARevB"},
    {"LedPwmPeriodMs", Type::Number, "10", "LedPwmPeriodMs"},
    {"LedEcallIdleBrightness1PerCent", Type::Number, "25", "LedEcallIdleBrightness1PerCent"},
    {"LedEcallIdleBrightness2PerCent", Type::Number, "0", "LedEcallIdleBrightness2PerCent"},
    {"LedEcallIdleBlicking12PeriodInMs", Type::Number, "0", "LedEcallIdleBlicking12PeriodInMs"},
    {"LedEcallActiveBrightness1PerCent", Type::Number, "90", "LedEcallActiveBrightness1PerCent"},
    {"LedEcallActiveBrightness2PerCent", Type::Number, "0", "LedEcallActiveBrightness2PerCent"},
    {"LedEcallActiveBlicking12PeriodInMs", Type::Number, "1000", "LedEcallActiveBlicking12PeriodInMs"},
    {"LedEcallErrorBrightness1PerCent", Type::Number, "25", "LedEcallErrorBrightness1PerCent"},
    {"LedEcallErrorBrightness2PerCent", Type::Number, "0", "LedEcallErrorBrightness2PerCent"},
    {"LedEcallErrorBlicking12PeriodInMs", Type::Number, "5000", "LedEcallErrorBlicking12PeriodInMs"},
    {"EcallAntennaDetectionThresholdMv", Type::Number, "900", "EcallAntennaDetectionThresholdMv"},
    {"RestoreContextOnBoot", Type::Boolean, "1", "RestoreContextOnBoot"},
    {"AudioRelayUsed", Type::Boolean, "1", "AudioRelayUsed"},
    {"EcallButtonUsed", Type::Boolean, "1", "AudioRelayUsed"},
    {"EcallButtonPressMinimalTimeForTrigMs", Type::Number, "100", "EcallButtonPressMinimalTimeForTrigMs"},
    {"EcallButtonPullingDetectionMode", Type::Boolean, "0", "EcallButtonPullingDetectionMode"},
    {"GpioForEnablingEcallLedControlUsed", Type::Text64, "DTR", "HW_Name"},
    {"GpioForEnablingEcallLedControlActiveLow", Type::Boolean, "0", "GpioForEnablingEcallLedControlActiveLow"},
    {"EcallMicrophoneSource", Type::Number, "1", "EcallMicrophoneSource"},
    {"GpioIrqRecovery", Type::Boolean, "1", "GpioIrqRecovery"},
};

constexpr long long kSomeDay = 1700000000;  // 2023-11-14 22:13:20 UTC

constexpr size_t kMebibyte = size_t{1024} * 1024;

bool IsText(Type type) {
    return type == Type::Text32 || type == Type::Text64;
}

/// The file as a fresh service writes it at kSomeDay.
std::string DefaultFile() {
    std::string text = "{";
    for (const Row& row : kRows) {
        text += text == "{" ? "\n" : ",\n";
        text += "\t\"" + std::string(row.key) + "\":\t";
        if (IsText(row.type)) {
            text += "\"" + std::string(row.value) + "\"";
        } else if (row.type == Type::Boolean) {
            text += std::string(row.value) == "1" ? "true" : "false";
        } else {
            text += row.value;
        }
    }
    return text + "\n}";
}

/// The lines of the print-out, with the given values in place of the defaults.
std::vector<std::string> PrintOut(const std::string& timeStamp, const std::string& changedKey = "",
                                  const std::string& changedValue = "") {
    std::vector<std::string> lines{"Configuration of the application "};
    lines.reserve(1 + std::size(kRows));
    for (const Row& row : kRows) {
        std::string value = row.key == std::string("JsonTimeStamp") ? timeStamp : row.value;
        value = row.key == changedKey ? changedValue : value;
        lines.push_back("   " + std::string(row.key) + " = " + value);
    }
    return lines;
}

std::vector<std::string> Joined(std::vector<std::string> lines, const std::vector<std::string>& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

/// Loads the text as the configuration file's content.
Logged Load(const std::string& content) {
    EcallUI_Configuration = EcallUIConfiguration();
    WriteFile(kConfigurationFile, content);
    return LogOf(InitConfiguration);
}

class EcallUIDataConfig : public testing::Test {
  protected:
    EcallUIDataConfig() {
        EcallUI_Configuration = EcallUIConfiguration();
        Remove(kConfigurationFile);
    }
    ~EcallUIDataConfig() override {
        EXPECT_EQ(0, XirMutexHoldCount());
        SetTraceFileSizing(2, 1024);
    }
};

/// Loads a content that must be refused: said so, defaults in force, file untouched.
void ExpectRefused(const std::string& content, const std::vector<std::string>& complaints) {
    const Logged logged = Load(content);

    EXPECT_EQ(content, ReadFile(kConfigurationFile));
    std::vector<std::string> messages{"InitConfiguration - Enter", "Read configuration file"};
    messages = Joined(messages, complaints);
    messages = Joined(messages, PrintOut(""));
    messages = Joined(messages, {"InitConfiguration - Exit"});
    EXPECT_THAT(logged.Messages(), ElementsAreArray(messages));
    std::vector<std::string> system;
    system.reserve(complaints.size());
    for (const std::string& complaint : complaints) {
        system.push_back("5 " + complaint);
    }
    EXPECT_THAT(logged.system, ElementsAreArray(system));
}

const std::vector<std::string> kNoJson{"ERROR reading or parsing the configuration file"};
const std::vector<std::string> kNoBuffer{"NO pBuf allocation"};

}  // namespace

// Creating.

TEST_F(EcallUIDataConfig, AMissingFileIsCreatedWithTheDefaults) {
    const FixedClock clock(kSomeDay, 0);

    const Logged logged = LogOf(InitConfiguration);

    EXPECT_EQ(DefaultFile(), ReadFile(kConfigurationFile));
    std::vector<std::string> messages{"InitConfiguration - Enter", "No configuration file found, create a default one",
                                      "SaveConfiguration - Enter", "fill Json buffer", "SaveConfiguration - Exit"};
    messages = Joined(messages, PrintOut("2023:11:14 22:13:20"));
    messages = Joined(messages, {"InitConfiguration - Exit"});
    EXPECT_THAT(logged.Messages(), ElementsAreArray(messages));
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataConfig, WithoutALocalTimeTheStampIsThePlaceholder) {
    const FixedClock clock(INT64_MAX, 0);

    SaveConfiguration();

    EXPECT_THAT(*ReadFile(kConfigurationFile), HasSubstr("\"JsonTimeStamp\":\t\"----:--:-- --:--:--\""));
}

// Loading.

TEST_F(EcallUIDataConfig, TheDefaultFileLoadsWithOneLinePerKey) {
    const Logged logged = Load(DefaultFile());

    std::vector<std::string> messages{"InitConfiguration - Enter", "Read configuration file"};
    for (const Row& row : kRows) {
        messages.push_back(std::string(row.label) + " = " + row.value);
    }
    messages = Joined(messages, PrintOut("2023:11:14 22:13:20"));
    messages = Joined(messages, {"InitConfiguration - Exit"});
    EXPECT_THAT(logged.Messages(), ElementsAreArray(messages));
    EXPECT_EQ(DefaultFile(), ReadFile(kConfigurationFile));
}

TEST_F(EcallUIDataConfig, AKeyMatchesWithoutRegardToCaseAndTheRestKeepsItsDefaults) {
    const std::string content = R"({"ledpwmperiodms": 20})";

    const Logged logged = Load(content);

    EXPECT_EQ(content, ReadFile(kConfigurationFile));
    std::vector<std::string> messages{"InitConfiguration - Enter", "Read configuration file", "LedPwmPeriodMs = 20"};
    messages = Joined(messages, PrintOut("", "LedPwmPeriodMs", "20"));
    messages = Joined(messages, {"InitConfiguration - Exit"});
    EXPECT_THAT(logged.Messages(), ElementsAreArray(messages));
}

TEST_F(EcallUIDataConfig, EachKeyReachesItsField) {
    for (const Row& row : kRows) {
        const std::string value = IsText(row.type) ? "other" : row.type == Type::Boolean ? "7" : "77";
        const std::string json = IsText(row.type) ? "\"other\"" : value;

        const Logged logged = Load("{\"" + std::string(row.key) + "\":" + json + "}");

        EXPECT_THAT(logged.Messages(), Contains(std::string(row.label) + " = " + value)) << row.key;
        std::vector<std::string> printOut = PrintOut("", row.key, value);
        const std::vector<std::string> messages = logged.Messages();
        ASSERT_EQ(messages.size(), printOut.size() + 4) << row.key;
        EXPECT_TRUE(std::equal(printOut.begin(), printOut.end(), messages.begin() + 3)) << row.key;
    }
}

TEST_F(EcallUIDataConfig, OfTwoMembersOfOneNameTheFirstCounts) {
    Load(R"({"LedPwmPeriodMs": 1, "LEDPWMPERIODMS": 2, "LedPwmPeriodMs": 3})");

    EXPECT_EQ(1, EcallUI_Configuration.LedPwmPeriodMs);
}

TEST_F(EcallUIDataConfig, UnknownAndNestedMembersArePassedOver) {
    const Logged logged = Load(R"({"x": {"LedPwmPeriodMs": 1}, "": 2, "DebugMenuMode": 1})");

    EXPECT_EQ(10, EcallUI_Configuration.LedPwmPeriodMs);
    EXPECT_EQ(0, EcallUI_Configuration.DebugMenuMode);
    EXPECT_EQ(3 + 34, logged.Messages().size());
}

TEST_F(EcallUIDataConfig, TextsAreCutToTheirField) {
    const std::string text(100, 't');
    const std::string quoted = "\"" + text + "\"";

    Load(R"({"JsonTimeStamp": )" + quoted + R"(, "HW_Name": )" + quoted +
         R"(, "GpioForEnablingEcallLedControlUsed": )" + quoted + "}");

    EXPECT_EQ(text.substr(0, 31), EcallUI_Configuration.JsonTimeStamp.get().c_str());
    EXPECT_EQ(text.substr(0, 63), EcallUI_Configuration.HW_Name.get().c_str());
    EXPECT_EQ(text.substr(0, 63), EcallUI_Configuration.GpioForEnablingEcallLedControlUsed.get().c_str());
}

TEST_F(EcallUIDataConfig, AShorterTextLeavesNothingOfTheFormer) {
    Load(R"({"HW_Name": "X"})");

    const auto name = EcallUI_Configuration.HW_Name.get().text;
    EXPECT_EQ('X', name[0]);
    EXPECT_EQ(63, std::count(name.begin(), name.end(), '\0'));
}

TEST_F(EcallUIDataConfig, NumbersOf16BitsKeepTheirLowBits) {
    Load(R"({"MaxSizeOfTraceFileInKb": 70000, "NbTraceFileStored": -1})");

    EXPECT_EQ(4464, EcallUI_Configuration.MaxSizeOfTraceFileInKb);
    EXPECT_EQ(65535, EcallUI_Configuration.NbTraceFileStored);
}

TEST_F(EcallUIDataConfig, NumbersLoseTheirFractionAndStayWithin32Bits) {
    const struct {
        const char* json;
        int32_t value;
    } rows[] = {{"1.9", 1},
                {"-1.9", -1},
                {"1e3", 1000},
                {"-0", 0},
                {"1e400", INT32_MAX},
                {"-1e400", INT32_MIN},
                {"2147483648", INT32_MAX},
                {"4294967296", INT32_MAX}};
    for (const auto& row : rows) {
        Load(std::string(R"({"LedPwmPeriodMs": )") + row.json + "}");

        EXPECT_EQ(row.value, EcallUI_Configuration.LedPwmPeriodMs) << row.json;
    }
}

TEST_F(EcallUIDataConfig, ABooleanIsTheLowByteOfANumberAndSavedAsTrue) {
    Load(R"({"ConnectEcallService": 2, "GpioIrqRecovery": 256, "AudioRelayUsed": 511})");

    EXPECT_EQ(2, EcallUI_Configuration.ConnectEcallService);
    EXPECT_EQ(0, EcallUI_Configuration.GpioIrqRecovery);
    EXPECT_EQ(255, EcallUI_Configuration.AudioRelayUsed);

    SaveConfiguration();
    EXPECT_THAT(*ReadFile(kConfigurationFile), HasSubstr("\"ConnectEcallService\":\ttrue"));
    EXPECT_THAT(*ReadFile(kConfigurationFile), HasSubstr("\"GpioIrqRecovery\":\tfalse"));
    EXPECT_THAT(*ReadFile(kConfigurationFile), HasSubstr("\"AudioRelayUsed\":\ttrue"));
}

TEST_F(EcallUIDataConfig, AMemberOfAnotherTypeCountsAsItsIntegerOrIsNoText) {
    const struct {
        const char* json;
        const char* number;  ///< what a number or boolean field takes from it
        const char* text;    ///< what a text field takes from it; null: it keeps its default
    } members[] = {{"true", "1", nullptr}, {"false", "0", nullptr},    {"null", "0", nullptr},
                   {"12", "12", nullptr},  {"3.7", "3", nullptr},      {"\"9\"", "0", "9"},
                   {"[5]", "0", nullptr},  {"{\"a\":5}", "0", nullptr}};
    for (const Row& row : kRows) {
        const std::string ownDefault = row.type == Type::Text32 ? "" : row.value;
        for (const auto& member : members) {
            const Logged logged = Load("{\"" + std::string(row.key) + "\":" + member.json + "}");

            const char* const taken = IsText(row.type) ? member.text : member.number;
            const std::string value = taken != nullptr ? taken : ownDefault;
            EXPECT_THAT(logged.ConsoleLines(), Contains("   " + std::string(row.key) + " = " + value))
                << row.key << " " << member.json;
            EXPECT_EQ(taken != nullptr ? 38 : 37, logged.ConsoleLines().size()) << row.key << " " << member.json;
        }
    }
}

TEST_F(EcallUIDataConfig, JsonThatIsNoObjectHasNoKeys) {
    for (const char* content : {"[]", "[{\"LedPwmPeriodMs\": 1}]", "5", "\"LedPwmPeriodMs\"", "null", "true"}) {
        const Logged logged = Load(content);

        EXPECT_THAT(logged.system, IsEmpty()) << content;
        EXPECT_EQ(10, EcallUI_Configuration.LedPwmPeriodMs) << content;
    }
}

TEST_F(EcallUIDataConfig, WhiteSpaceMaySurroundTheObject) {
    const Logged logged = Load(" \t\r\n{\"LedPwmPeriodMs\": 11}\n\r\t ");

    EXPECT_EQ(11, EcallUI_Configuration.LedPwmPeriodMs);
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataConfig, TheTraceGetsItsSizing) {
    Load(R"({"MaxSizeOfTraceFileInKb": 1, "NbTraceFileStored": 2})");
    const FixedClock clock(kSomeDay, 0);
    Remove(kTraceFolder);
    WriteFile(kTraceFile, std::string(1024, 'x'));

    EcallUITrace("one more line");

    EXPECT_THAT(FilesIn(kTraceFolder), ElementsAre("XirEcallUIappSrvc_traces_1.txt"));
}

// Files that are not a configuration.

TEST_F(EcallUIDataConfig, AnEmptyFileIsRefused) {
    ExpectRefused("", kNoJson);
}

TEST_F(EcallUIDataConfig, TextThatIsNotJsonIsRefused) {
    for (const char* content : {"not JSON", "{", "}", "{\"LedPwmPeriodMs\": 1", "{\"LedPwmPeriodMs\": }",
                                "{\"LedPwmPeriodMs\": 1}}", "{\"LedPwmPeriodMs\": 1} x", "{} {}", " "}) {
        ExpectRefused(content, kNoJson);
    }
}

TEST_F(EcallUIDataConfig, ANulAnywhereIsRefused) {
    const std::string sound = "{ \"LedPwmPeriodMs\": 1 }";
    for (size_t place = 0; place <= sound.size(); ++place) {
        std::string content = sound;
        content.insert(place, 1, '\0');

        ExpectRefused(content, kNoJson);
    }
}

TEST_F(EcallUIDataConfig, ADefaultFileCutAnywhereIsRefused) {
    const std::string whole = DefaultFile();
    for (size_t length = 0; length < whole.size(); ++length) {
        const Logged logged = Load(whole.substr(0, length));

        ASSERT_THAT(logged.system, ElementsAre("5 " + kNoJson[0])) << length;
    }
}

TEST_F(EcallUIDataConfig, DeepNestingIsRefused) {
    ExpectRefused(std::string(10000, '['), kNoJson);
    ExpectRefused(std::string(10000, '[') + std::string(10000, ']'), kNoJson);

    std::string objects;
    for (int i = 0; i < 10000; ++i) {
        objects += "{\"a\":";
    }
    ExpectRefused(objects + "1" + std::string(10000, '}'), kNoJson);
}

TEST_F(EcallUIDataConfig, AFileOfOneMebibyteIsReadAndALongerOneIsNot) {
    const std::string object = R"({"LedPwmPeriodMs": 12})";
    const std::string longest = object + std::string(kMebibyte - object.size(), ' ');

    Load(longest);
    EXPECT_EQ(12, EcallUI_Configuration.LedPwmPeriodMs);

    ExpectRefused(longest + " ", kNoBuffer);
}

TEST_F(EcallUIDataConfig, AFileOf100MegabytesIsRefusedWithoutItsMemory) {
    WriteFile(kConfigurationFile, "{}");
    ASSERT_EQ(0, truncate(kConfigurationFile, 100L * 1000 * 1000));

    const Logged logged = LogOf(InitConfiguration);

    EXPECT_THAT(logged.system, ElementsAre("5 " + kNoBuffer[0]));
}

TEST_F(EcallUIDataConfig, AFolderInThePlaceOfTheFileIsRefused) {
    WriteFile(std::string(kConfigurationFile) + "/inside", "");

    const Logged logged = LogOf(InitConfiguration);

    EXPECT_THAT(logged.system, Contains("5 NO pBuf allocation"));
    Remove(kConfigurationFile);
}

TEST_F(EcallUIDataConfig, APipeInThePlaceOfTheFileHoldsNobody) {
    ASSERT_EQ(0, mkfifo(kConfigurationFile, 0644));

    const Logged logged = LogOf(InitConfiguration);

    EXPECT_THAT(logged.system, ElementsAre("5 fseek, error=Illegal seek", "5 NO pBuf allocation"));
}

// Calls that fail.

TEST_F(EcallUIDataConfig, AFileThatCannotBeMeasuredIsRefused) {
    const struct {
        int passing;
        const char* complaint;
    } rows[] = {{0, "5 fseek, error=Input/output error"},
                {1, "5 ftell = -1, error=Input/output error"},
                {2, "5 fseek, error=Input/output error"}};
    for (const auto& row : rows) {
        WriteFile(kConfigurationFile, DefaultFile());

        const Logged logged = LogOf([&] {
            const CallFault fault("lseek", EIO, {.path = kConfigurationFile, .passing = row.passing, .failing = 1});
            InitConfiguration();
        });

        EXPECT_THAT(logged.system, ElementsAre(row.complaint, "5 NO pBuf allocation")) << row.passing;
    }
}

TEST_F(EcallUIDataConfig, AShortReadIsContinuedOnce) {
    WriteFile(kConfigurationFile, R"({"LedPwmPeriodMs": 13})");

    const Logged logged = LogOf([] {
        const CallFault fault("read", 0, {.path = kConfigurationFile, .failing = 1, .bytes = 5});
        InitConfiguration();
        EXPECT_EQ(2, fault.Calls());
    });

    EXPECT_EQ(13, EcallUI_Configuration.LedPwmPeriodMs);
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataConfig, AFileThatTwoReadsDoNotReachTheEndOfIsRefused) {
    WriteFile(kConfigurationFile, R"({"LedPwmPeriodMs": 13})");

    const Logged logged = LogOf([] {
        const CallFault fault("read", 0, {.path = kConfigurationFile, .failing = 2, .bytes = 5});
        InitConfiguration();
        EXPECT_EQ(2, fault.Calls());
    });

    EXPECT_EQ(10, EcallUI_Configuration.LedPwmPeriodMs);
    EXPECT_THAT(logged.system, ElementsAre("5 " + kNoJson[0]));
}

TEST_F(EcallUIDataConfig, AFileThatCannotBeReadIsRefused) {
    WriteFile(kConfigurationFile, DefaultFile());

    const Logged logged = LogOf([] {
        const CallFault fault("read", EIO, {.path = kConfigurationFile});
        InitConfiguration();
    });

    EXPECT_THAT(logged.system, ElementsAre("5 " + kNoJson[0]));
}

TEST_F(EcallUIDataConfig, WithoutItsMutexTheDefaultsHold) {
    Load("{}");  // creates the mutex
    WriteFile(kConfigurationFile, R"({"LedPwmPeriodMs": 13})");

    const Logged logged = LogOf([] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.exceptObject = &TraceMutex.mutex});
        InitConfiguration();
    });

    EXPECT_EQ(10, EcallUI_Configuration.LedPwmPeriodMs);
    const std::string notTaken = "(Cfg) Error :  pthread_mutex_timedlock : ret = 22 (Invalid argument) ";
    EXPECT_THAT(logged.system, ElementsAre("5 " + notTaken + "\n", "5 ERROR Getting the mutex"));
    std::vector<std::string> messages{"InitConfiguration - Enter", notTaken, "", "ERROR Getting the mutex"};
    messages = Joined(messages, PrintOut(""));
    messages = Joined(messages, {"InitConfiguration - Exit"});
    EXPECT_THAT(logged.Messages(), ElementsAreArray(messages));
}

TEST_F(EcallUIDataConfig, WithoutItsMutexAMissingFileIsNotCreatedAndTheTraceGetsItsSizing) {
    Load("{}");  // creates the mutex
    Remove(kConfigurationFile);
    Remove(kTraceFolder);
    WriteFile(kTraceFile, std::string(1024, 'x'));
    EcallUI_Configuration.MaxSizeOfTraceFileInKb = 1;

    const CallFault fault("pthread_mutex_lock", EINVAL, {.exceptObject = &TraceMutex.mutex});
    InitConfiguration();

    EXPECT_EQ(std::nullopt, ReadFile(kConfigurationFile));
    EXPECT_THAT(FilesIn(kTraceFolder), Contains("XirEcallUIappSrvc_traces_1.txt"));
}

// Saving.

TEST_F(EcallUIDataConfig, ASaveReplacesALongerFile) {
    const FixedClock clock(kSomeDay, 0);
    WriteFile(kConfigurationFile, std::string(5000, 'x'));

    const Logged logged = LogOf(SaveConfiguration);

    EXPECT_EQ(DefaultFile(), ReadFile(kConfigurationFile));
    EXPECT_THAT(logged.Messages(),
                ElementsAre("SaveConfiguration - Enter", "fill Json buffer", "SaveConfiguration - Exit"));
}

TEST_F(EcallUIDataConfig, ASaveTakesNoLockOfItsOwn) {
    Load("{}");  // creates the mutex

    const Logged logged = LogOf([] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.exceptObject = &TraceMutex.mutex});
        SaveConfiguration();
        EXPECT_EQ(0, fault.Calls());
    });

    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataConfig, WhatIsSavedIsLoadedAgain) {
    Load(R"({"HW_Name": "a \"name\" \\ \u00e4 \u0001", "LedPwmPeriodMs": -2147483648, "NbTraceFileStored": 65535})");
    const std::string name = EcallUI_Configuration.HW_Name.get().c_str();
    SaveConfiguration();

    Load(*ReadFile(kConfigurationFile));

    EXPECT_EQ(name, EcallUI_Configuration.HW_Name.get().c_str());
    EXPECT_EQ(INT32_MIN, EcallUI_Configuration.LedPwmPeriodMs);
    EXPECT_EQ(65535, EcallUI_Configuration.NbTraceFileStored);
}

TEST_F(EcallUIDataConfig, TheRecoveryFlagIsSavedAsItStands) {
    EcallUI_Configuration.GpioIrqRecovery = 0;

    SaveConfiguration();

    EXPECT_THAT(*ReadFile(kConfigurationFile), HasSubstr("\"GpioIrqRecovery\":\tfalse"));
}

TEST_F(EcallUIDataConfig, AFileThatCannotBeCreatedIsSaid) {
    const Logged logged = LogOf([] {
        const CallFault fault("open", EROFS, {.path = kConfigurationFile});
        SaveConfiguration();
    });

    EXPECT_THAT(logged.system, ElementsAre("5 ERROR : cannot create the configuration file"));
    EXPECT_THAT(logged.Messages(), Contains("SaveConfiguration - Exit"));
    EXPECT_STRNE("", EcallUI_Configuration.JsonTimeStamp.get().c_str());
}

TEST_F(EcallUIDataConfig, AShortWriteIsContinued) {
    const FixedClock clock(kSomeDay, 0);

    const Logged logged = LogOf([] {
        const CallFault fault("write", 0, {.path = kConfigurationFile, .failing = 19, .bytes = 10});
        SaveConfiguration();
    });

    EXPECT_EQ(DefaultFile(), ReadFile(kConfigurationFile));
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(EcallUIDataConfig, AWriteIsGivenUpAfterTwentyAttemptsAndSaid) {
    const size_t length = DefaultFile().size();

    const Logged logged = LogOf([] {
        const CallFault fault("write", 0, {.path = kConfigurationFile, .bytes = 10});
        SaveConfiguration();
        EXPECT_EQ(20, fault.Calls());
    });

    EXPECT_THAT(logged.system,
                ElementsAre("5 ERROR fwrite : NbByteFile = " + std::to_string(length) + " , sizeWritten = 200"));
    EXPECT_EQ(200, ReadFile(kConfigurationFile)->size());
}

TEST_F(EcallUIDataConfig, AFileThatCannotBeClosedIsSaid) {
    const Logged logged = LogOf([] {
        const CallFault fault("close", EIO, {.path = kConfigurationFile});
        SaveConfiguration();
    });

    EXPECT_THAT(logged.system, ElementsAre("5 ERROR fclose !!!"));
}

namespace {

int allocationsLeft = 0;

void* AllocateSome(size_t size) {
    return allocationsLeft-- > 0 ? malloc(size) : nullptr;
}

/// Saves with so many allocations of the JSON library succeeding.
Logged SaveWithAllocations(int count) {
    cJSON_Hooks hooks{AllocateSome, free};
    allocationsLeft = count;
    return LogOf([&] {
        cJSON_InitHooks(&hooks);
        SaveConfiguration();
        cJSON_InitHooks(nullptr);
    });
}

}  // namespace

TEST_F(EcallUIDataConfig, WithoutMemoryForTheObjectNothingIsTouched) {
    WriteFile(kConfigurationFile, "as it was");

    const Logged logged = SaveWithAllocations(0);

    EXPECT_THAT(logged.Messages(), ElementsAre("SaveConfiguration - Enter", "Json error", "SaveConfiguration - Exit"));
    EXPECT_THAT(logged.system, ElementsAre("5 Json error"));
    EXPECT_EQ("as it was", ReadFile(kConfigurationFile));
}

TEST_F(EcallUIDataConfig, WithoutMemoryForTheTextTheFileIsLeftEmpty) {
    const Logged logged = SaveWithAllocations(1);

    EXPECT_THAT(logged.system, ElementsAre("5 ERROR : cJSON_Print failed!"));
    EXPECT_THAT(logged.Messages(), Contains("SaveConfiguration - Exit"));
    EXPECT_EQ("", ReadFile(kConfigurationFile));
}

TEST_F(EcallUIDataConfig, NoLackOfMemoryAtAnyPointEndsTheProcess) {
    for (int count = 0; count < 120; ++count) {
        const Logged logged = SaveWithAllocations(count);

        ASSERT_THAT(logged.Messages(), Contains("SaveConfiguration - Exit")) << count;
    }
}
