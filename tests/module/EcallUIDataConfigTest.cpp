// The configuration file of the whole service: whatever lies there, the service starts, says so, and reports a crash.
#include <gmock/gmock.h>
#include <unistd.h>

#include "ServiceWorld.h"

using testing::Contains;

namespace {

constexpr char kRefused[] = "ERROR reading or parsing the configuration file";

/// Every key with its JSON value of a default file, JsonTimeStamp excepted.
const std::pair<const char*, const char*> kDefaults[] = {
    {"HW_Name", "\"KORVA_FDA803_ZX118A4\""},
    {"MaxSizeOfTraceFileInKb", "1024"},
    {"NbTraceFileStored", "2"},
    {"ConnectEcallService", "true"},
    {"ConnectLocationService", "false"},
    {"ConfigureExternalAudioAmp", "false"},
    {"GpioInputPwm_ENS_Used", "true"},
    {"GpioInputButton_nRQST_Used", "true"},
    {"GpioInputButton_nRQST_ActiveLow", "false"},
    {"GpioOutputLed_CNTL_Used", "true"},
    {"GpioOutputNlock_Used", "true"},
    {"GpioOutputNlockInvertedForRevARevB", "false"},
    {"LedPwmPeriodMs", "10"},
    {"LedEcallIdleBrightness1PerCent", "25"},
    {"LedEcallIdleBrightness2PerCent", "0"},
    {"LedEcallIdleBlicking12PeriodInMs", "0"},
    {"LedEcallActiveBrightness1PerCent", "90"},
    {"LedEcallActiveBrightness2PerCent", "0"},
    {"LedEcallActiveBlicking12PeriodInMs", "1000"},
    {"LedEcallErrorBrightness1PerCent", "25"},
    {"LedEcallErrorBrightness2PerCent", "0"},
    {"LedEcallErrorBlicking12PeriodInMs", "5000"},
    {"EcallAntennaDetectionThresholdMv", "900"},
    {"RestoreContextOnBoot", "true"},
    {"AudioRelayUsed", "true"},
    {"EcallButtonUsed", "true"},
    {"EcallButtonPressMinimalTimeForTrigMs", "100"},
    {"EcallButtonPullingDetectionMode", "false"},
    {"GpioForEnablingEcallLedControlUsed", "\"DTR\""},
    {"GpioForEnablingEcallLedControlActiveLow", "false"},
    {"EcallMicrophoneSource", "1"},
    {"GpioIrqRecovery", "true"},
};

/// Starts the service over this file: it must run on the defaults, say why, leave the file alone, and report a crash.
void ExpectDefaults(const std::string& content, const char* complaint) {
    ServiceWorld world;
    world.module.root.WriteFile(file::kConfiguration, content);

    world.Start();

    EXPECT_THAT(world.SystemLog(), Contains(complaint));
    world.module.journal.Await(IsTraced("   LedPwmPeriodMs = 10"));
    EXPECT_TRUE(world.IsCrashReported());
    EXPECT_EQ(content, world.module.root.ReadFile(file::kConfiguration));
}

}  // namespace

TEST(EcallUIDataConfigOfTheService, AMissingFileIsCreatedWithEveryKeyInOrder) {
    ServiceWorld world;

    world.Start();

    std::string text = world.module.root.ReadFile(file::kConfiguration).value();
    const std::string stampStart = "{\n\t\"JsonTimeStamp\":\t\"";
    ASSERT_EQ(stampStart, text.substr(0, stampStart.size()));
    const size_t stampEnd = stampStart.size() + std::string("2024:01:31 23:59:59").size();
    std::string rest = "\"";
    for (const auto& [key, value] : kDefaults) {
        rest += ",\n\t\"" + std::string(key) + "\":\t" + value;
    }
    EXPECT_EQ(rest + "\n}", text.substr(stampEnd));
    world.module.journal.Await(IsTraced("No configuration file found, create a default one"));
}

TEST(EcallUIDataConfigOfTheService, ASecondStartLeavesTheFileAsItIs) {
    ServiceWorld world;
    world.Start();
    const std::string first = world.module.root.ReadFile(file::kConfiguration).value();
    const uint64_t mark = world.module.journal.Mark();

    world.module.RestartService();

    world.AwaitReady(mark);
    EXPECT_EQ(first, world.module.root.ReadFile(file::kConfiguration));
    world.module.journal.Await(IsTraced("Read configuration file"));
}

TEST(EcallUIDataConfigOfTheService, AnEmptyFileLeavesTheDefaults) {
    ExpectDefaults("", kRefused);
}

TEST(EcallUIDataConfigOfTheService, TextThatIsNotJsonLeavesTheDefaults) {
    ExpectDefaults("LedPwmPeriodMs=20", kRefused);
}

TEST(EcallUIDataConfigOfTheService, ANulInsideLeavesTheDefaults) {
    ExpectDefaults(std::string("{\"LedPwmPeriodMs\": 20\0}", 23), kRefused);
}

TEST(EcallUIDataConfigOfTheService, DeepNestingLeavesTheDefaults) {
    ExpectDefaults(std::string(10000, '[') + std::string(10000, ']'), kRefused);
}

TEST(EcallUIDataConfigOfTheService, AFileOf100MegabytesLeavesTheDefaultsAndTheMemory) {
    ServiceWorld world;
    world.Configure("");
    ASSERT_EQ(0, truncate(world.module.root.Outside(file::kConfiguration).c_str(), 100L * 1000 * 1000));

    world.Start();

    EXPECT_THAT(world.SystemLog(), Contains("NO pBuf allocation"));
    EXPECT_TRUE(world.IsCrashReported());
    EXPECT_LT(world.module.Service().Usage().residentBytes, 100U * 1000 * 1000);
}

TEST(EcallUIDataConfigOfTheService, AFolderInTheFilesPlaceLeavesTheDefaults) {
    ServiceWorld world;
    world.module.root.MakeDirectory(file::kConfiguration);

    world.Start();

    EXPECT_THAT(world.SystemLog(), Contains("NO pBuf allocation"));
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIDataConfigOfTheService, AFolderThatIsReadOnlyGetsNoFileAndTheServiceStarts) {
    ServiceWorld world;
    world.module.root.MakeReadOnly("/data/etc/ecall");

    world.Start();

    EXPECT_THAT(world.SystemLog(), Contains("ERROR : cannot create the configuration file"));
    EXPECT_TRUE(world.IsCrashReported());
    world.module.root.Restore("/data/etc/ecall");
}

TEST(EcallUIDataConfigOfTheService, AFullDiskGetsNoWholeFileAndTheServiceStarts) {
    ServiceWorld world;
    world.module.root.LimitSpace("/data/etc/ecall", 4096);
    world.module.root.WriteFile("/data/etc/ecall/filler", std::string(4096, 'x'));

    world.Start();

    EXPECT_THAT(world.SystemLog(),
                Contains(testing::MatchesRegex("ERROR fwrite : NbByteFile = [0-9]+ , sizeWritten = 0")));
    EXPECT_TRUE(world.IsCrashReported());
    world.module.root.Restore("/data/etc/ecall");
}

TEST(EcallUIDataConfigOfTheService, AMemberOfTheWrongTypeStopsNothing) {
    std::string content = "{";
    for (const auto& [key, value] : kDefaults) {
        content += content == "{" ? "" : ", ";
        // A text where a number or a boolean is due, and the other way round; what the crash needs is left in place.
        const bool isText = value[0] == '"';
        const bool isNeeded = std::string(key) == "ConnectEcallService" || std::string(key) == "GpioInputPwm_ENS_Used";
        content += "\"" + std::string(key) + "\": " + (isNeeded ? "[1], \"x\": 1" : isText ? "1" : "\"1\"");
    }
    ServiceWorld world;
    world.module.root.WriteFile(file::kConfiguration, content + "}");

    world.module.StartService();

    world.module.journal.Await(IsOnConsole("InitGpio - exit"));
    world.module.journal.Await(IsOnConsole("   LedPwmPeriodMs = 0"));
    world.module.journal.Await(IsOnConsole("   HW_Name = KORVA_FDA803_ZX118A4"));
    world.module.journal.Await(IsOnConsole("   ConnectEcallService = 0"));
}

TEST(EcallUIDataConfigOfTheService, ATrueNumberAndABooleanNumberCountAsTheirIntegers) {
    ServiceWorld world;
    world.Configure(R"("GpioInputPwm_ENS_Used": 2, "LedPwmPeriodMs": true, "ConnectEcallService": 1)");

    world.Start();

    world.module.journal.Await(IsTraced("   GpioInputPwm_ENS_Used = 2"));
    world.module.journal.Await(IsTraced("   LedPwmPeriodMs = 1"));
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIDataConfigOfTheService, AKeyInLowerCaseReachesTheHardware) {
    ServiceWorld world;
    world.Configure(R"("ledecallidlebrightness1percent": 33)");

    world.Start();

    world.module.journal.Await({.kind = Kind::Write, .contains = "33"});
}
