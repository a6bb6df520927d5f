// The client program beside the real service, inside the module and at the real address: what it prints, how it ends,
// what the service then holds, and what is in its file.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>

#include "ServiceWorld.h"

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char kResultFile[] = "/tmp/ecall_analog_mic_test_result.txt";
constexpr char kTool[] = "ecalluictl";

struct Said {
    int status = -1;
    std::string output{};
    std::string errors{};
};

struct ToolWorld : ServiceWorld {
    ToolWorld() { Start(); }

    /// Waits long for the service, unless the words say otherwise: both run slowly beside other tests.
    ModuleProcess& Begin(std::vector<std::string> words) {
        if (std::ranges::find(words, "--timeout") == words.end()) {
            words.insert(words.begin(), {"--timeout", "30"});
        }
        return module.Start(ECALLUICTL, words);
    }
    Said Run(const std::vector<std::string>& words) {
        ModuleProcess& tool = Begin(words);
        const int status = tool.WaitForEnd().value_or(-1);
        return {
            .status = WIFEXITED(status) ? WEXITSTATUS(status) : -1, .output = tool.Output(), .errors = tool.Errors()};
    }
    std::string File() { return module.root.ReadFile(file::kConfiguration).value_or(""); }
    /// The next line of the tool's that holds the text.
    Entry AwaitLine(const std::string& part, uint64_t from) {
        return module.journal.Await({.kind = Kind::Console, .subject = kTool, .contains = part}, from);
    }
};

}  // namespace

TEST(EcalluictlBesideTheService, ListShowsWhatTheServiceHolds) {
    ToolWorld world;

    const Said list = world.Run({"list"});

    EXPECT_EQ(0, list.status) << list.errors;
    EXPECT_THAT(list.output,
                HasSubstr("\n7   LedPwmPeriodMs                           number   ms     10     10     "));
    EXPECT_THAT(list.output,
                HasSubstr("\n25  GpioIrqRecovery                          boolean  -      true   true   "));
    EXPECT_THAT(list.output,
                HasSubstr("\n-   AudioRelayUsed                           boolean  -      -      true   "));
}

TEST(EcalluictlBesideTheService, ASetIsInTheServiceAndInItsFile) {
    ToolWorld world;

    const Said set = world.Run({"set", "LedPwmPeriodMs", "20", "EcallButtonUsed=off", "22", "RTS"});

    EXPECT_EQ(0, set.status);
    EXPECT_EQ(
        "LedPwmPeriodMs: 10 -> 20 ms\nEcallButtonUsed: true -> false\nGpioForEnablingEcallLedControlUsed: \"DTR\" -> "
        "\"RTS\"\n",
        set.output);
    EXPECT_EQ("ecalluictl: GpioForEnablingEcallLedControlUsed takes effect when the service is restarted\n",
              set.errors);
    EXPECT_THAT(world.File(), HasSubstr("\"LedPwmPeriodMs\":\t20,"));
    EXPECT_THAT(world.File(), HasSubstr("\"EcallButtonUsed\":\tfalse,"));
    EXPECT_THAT(world.File(), HasSubstr("\"GpioForEnablingEcallLedControlUsed\":\t\"RTS\","));
    EXPECT_EQ("LedPwmPeriodMs = 20 ms\n", world.Run({"get", "LED_PWM_PERIOD_MS"}).output);
}

TEST(EcalluictlBesideTheService, ARefusedSetLeavesServiceAndFileAlone) {
    ToolWorld world;
    const std::string before = world.File();

    const Said set = world.Run({"set", "LedPwmPeriodMs", "20", "LedEcallIdleBrightness1PerCent", "101"});

    EXPECT_EQ(2, set.status);
    EXPECT_EQ("ecalluictl: LedEcallIdleBrightness1PerCent may be 0 to 100 %, not 101\n", set.errors);
    EXPECT_EQ(before, world.File());
    EXPECT_EQ("LedPwmPeriodMs = 10 ms\n", world.Run({"get", "7"}).output);
}

TEST(EcalluictlBesideTheService, EachParameterTakesEachOfItsEnds) {
    ToolWorld world;
    const std::string dump = world.Run({"dump"}).output;

    // Lowest and highest of two numbers, a text of full length, both of a boolean.
    EXPECT_EQ(
        0,
        world.Run({"set", "7=1", "8=100", "17=65535", "20=2147483647", "22=" + std::string(63, 'x'), "0=no"}).status);
    EXPECT_EQ(0, world.Run({"set", "7=4294", "8=0", "17=0", "20=0", "22=", "0=yes"}).status);
    world.module.root.WriteFile("/tmp/dump.json", dump);
    const Said load = world.Run({"load", "/tmp/dump.json"});

    EXPECT_EQ(0, load.status);
    EXPECT_THAT(load.output, EndsWith("5 parameters of 26 differed and were set\n"));
    EXPECT_EQ(dump, world.Run({"dump"}).output);
}

TEST(EcalluictlBesideTheService, TheServicesOwnFileIsGoodAndCanBeLoaded) {
    ToolWorld world;
    world.Run({"set", "LedPwmPeriodMs", "20"});

    const Said check = world.Run({"check", file::kConfiguration});
    const Said load = world.Run({"load", file::kConfiguration});

    EXPECT_EQ(0, check.status);
    EXPECT_EQ(std::string(file::kConfiguration) + ": good, 33 fields of 33 taken from it\n", check.output);
    EXPECT_EQ(0, load.status);
    EXPECT_EQ("0 parameters of 26 differed and were set\n", load.output);
}

TEST(EcalluictlBesideTheService, WhatCheckFindsIsWhatTheServiceDoes) {
    ServiceWorld world;
    world.Configure(R"("ledpwmperiodms": "20", "MaxSizeOfTraceFileInKb": 70000, "EcallButtonUsed": 256)");
    world.Start();

    ModuleProcess& check = world.module.Start(ECALLUICTL, {"check", "--json", file::kConfiguration});

    EXPECT_EQ(5, WEXITSTATUS(check.WaitForEnd().value_or(-1)));
    for (const char* loaded :
         {"\"LedPwmPeriodMs\": 0,", "\"MaxSizeOfTraceFileInKb\": 4464,", "\"EcallButtonUsed\": false,"}) {
        EXPECT_THAT(check.Output(), HasSubstr(loaded));
    }
    EXPECT_THAT(
        world.TraceMessages(),
        testing::IsSupersetOf({"   LedPwmPeriodMs = 0", "   MaxSizeOfTraceFileInKb = 4464", "   EcallButtonUsed = 0"}));
}

TEST(EcalluictlBesideTheService, VersionIsThatOfTheService) {
    ToolWorld world;

    EXPECT_EQ("service    \"0.1.0-r1, V0.22\"\ninterface  com.vantu.ecalluiapp.iecalluiapp 1.4\n",
              world.Run({"version"}).output);
}

TEST(EcalluictlBesideTheService, TheMicrophoneTestShowsWhatTheScriptHasMeasured) {
    ToolWorld world;
    world.module.SetScript(file::kMicrophoneTestScript, {.commands = std::string("echo 12,5 > ") + kResultFile});

    const Said test = world.Run({"mic-test"});

    EXPECT_EQ(0, test.status) << test.errors;
    EXPECT_EQ("12.5\n", test.output);
}

TEST(EcalluictlBesideTheService, AScriptThatFailsFailsTheMicrophoneTest) {
    ToolWorld world;
    world.module.SetScript(file::kMicrophoneTestScript, {.exitStatus = 1});

    const Said test = world.Run({"mic-test"});

    EXPECT_EQ(1, test.status);
    EXPECT_THAT(test.output, IsEmpty());
    EXPECT_EQ("ecalluictl: the microphone test failed: the service answered -16\n", test.errors);
}

TEST(EcalluictlBesideTheService, AServiceThatIsBusyIsNotWaitedForLongerThanSaid) {
    ToolWorld world;
    const uint64_t mark = world.module.journal.Mark();
    world.module.SetScript(
        file::kMicrophoneTestScript,
        {.commands = std::string("while [ ! -e /tmp/go ]; do sleep 0.01; done; echo 7 > ") + kResultFile});
    ModuleProcess& test = world.Begin({"mic-test"});
    world.module.journal.Await({.kind = Kind::Script, .subject = "ecall_analog_mic_test.sh"}, mark);

    const Said late = world.Run({"--timeout", "3", "get", "7"});
    world.module.root.WriteFile("/tmp/go", "");

    EXPECT_EQ(3, late.status);
    EXPECT_THAT(late.errors, StartsWith("ecalluictl: no reply to getIEcallUIAppVersion from xirtcp://127.0.0.1:50101 "
                                        "within 3 s: does a microphone test run, or hang?"));
    EXPECT_EQ(0, test.WaitForEnd());
    EXPECT_EQ("7\n", test.Output());
}

TEST(EcalluictlBesideTheService, WithoutAServiceTheDefaultAddressIsNamed) {
    Module module;

    ModuleProcess& tool = module.Start(ECALLUICTL, {"list"});

    EXPECT_EQ(3, WEXITSTATUS(tool.WaitForEnd().value_or(-1)));
    EXPECT_THAT(tool.Errors(), StartsWith("ecalluictl: no service at xirtcp://127.0.0.1:50101: is it running?"));
}

TEST(EcalluictlBesideTheService, TheECallServicesAddressIsNotMistakenForIt) {
    ToolWorld world;

    const Said said = world.Run({"--url", "xirtcp://127.0.0.1:50911", "dump"});

    EXPECT_EQ(4, said.status);
    EXPECT_THAT(said.output, IsEmpty());
}

TEST(EcalluictlBesideTheService, WatchTellsChangesOverARestartOfTheService) {
    ToolWorld world;
    uint64_t from = world.module.journal.Mark();
    ModuleProcess& watch = world.Begin({"watch", "--interval", "0.05"});
    from = world.AwaitLine("watching 26 parameters at xirtcp://127.0.0.1:50101", from).seq + 1;

    world.Run({"set", "LedPwmPeriodMs", "20"});
    from = world.AwaitLine("  LedPwmPeriodMs: 10 -> 20 ms", from).seq + 1;
    world.module.Service().Kill();
    from = world.AwaitLine("  the service is gone; waiting for it", from).seq + 1;
    world.module.root.WriteFile(file::kConfiguration, R"({"LedPwmPeriodMs": 30})");
    world.module.StartService();
    from = world.AwaitLine("  the service is back", from).seq + 1;
    world.AwaitLine("  LedPwmPeriodMs: 20 -> 30 ms", from);

    watch.Signal(SIGINT);
    EXPECT_EQ(0, watch.WaitForEnd());
    EXPECT_THAT(watch.Errors(), IsEmpty());
}
