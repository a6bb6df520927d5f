// The debug console: its menus, how it reads, and when it ends. Its two larger menus have tests of their own.
#include <gmock/gmock.h>
#include <pty.h>
#include <unistd.h>

#include "ConsoleWorld.h"

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

const std::string kMainMenu =
    " MAIN MENU  \n"
    " ---------  \n"
    " 0  : display this menu \n"
    " 1  : EcallSrvc Menu    \n"
    " 2  : LocationSrvc Menu \n"
    " 3  : GpioUI Menu       \n";
const std::string kLocationMenu =
    " LOCATION SRVC MENU  \n"
    " ------------------  \n"
    " .  : display main menu \n"
    " 0  : display this menu \n"
    " 1  : ...               \n";
constexpr char kEcallTitle[] = " ECALL SRVC MENU  \n --------------- \n";
constexpr char kGpioTitle[] = " UI GPIO MENU  \n ------------  \n";

}  // namespace

// The menus.

TEST(EcallUIConsole, TheMainMenuShowsItselfAndLeadsToTheOthers) {
    ConsoleWorld world;
    world.StartAlone();

    EXPECT_EQ(kMainMenu, world.Type("0"));
    EXPECT_EQ(kMainMenu, world.Type("."));
    EXPECT_EQ(kMainMenu, world.Type("-1"));
    EXPECT_EQ(kNoNumber + kMainMenu, world.Type(""));
    EXPECT_THAT(world.Type("1"), StartsWith(kEcallTitle));
    EXPECT_EQ(kMainMenu + "\n", world.Type("."));  // a command of the eCall menu ends with its status line
    EXPECT_EQ(kLocationMenu, world.Type("2"));
    EXPECT_EQ(kMainMenu, world.Type("."));
    EXPECT_THAT(world.Type("3"), StartsWith(kGpioTitle));
    EXPECT_EQ(kMainMenu, world.Type("."));
}

TEST(EcallUIConsole, TheMainMenuKnowsNothingElse) {
    ConsoleWorld world;
    world.StartAlone();

    for (const char* line : {"4", "50", "-2", "-3", "99", "4294967290"}) {
        EXPECT_EQ("bad parameter\n", world.Type(line)) << line;
    }
}

TEST(EcallUIConsole, TheLocationMenuIgnoresEveryCommandSilently) {
    ConsoleWorld world;
    world.StartAlone();
    EXPECT_EQ(kLocationMenu, world.Type("2"));

    for (const char* line : {"1", "2", "5", "99", "-2", "1 2 3"}) {
        EXPECT_EQ("", world.Type(line)) << line;
    }
    EXPECT_EQ(kLocationMenu, world.Type("0"));
    EXPECT_EQ(kNoNumber + kLocationMenu, world.Type(""));
    EXPECT_EQ(kMainMenu, world.Type("-1"));
}

// Reading.

TEST(EcallUIConsole, ShowsNoMenuBeforeItsFirstLine) {
    ServiceWorld world;
    world.Configure(R"("ConnectEcallService": false)");
    world.module.StartService({"-m"}, true);
    world.AwaitReady();

    world.module.Service().Input("0\n");

    world.module.journal.Await(IsOnConsole(" 3  : GpioUI Menu       "));
    EXPECT_EQ(1U, world.module.journal.Count(IsWithinConsoleLine(" MAIN MENU  ")));
}

TEST(EcallUIConsole, AnEmptyLineComesBeforeTheFirstLineIsTyped) {
    ServiceWorld world;
    world.Configure(
        R"("ConnectEcallService": false, "GpioInputPwm_ENS_Used": false, "GpioInputButton_nRQST_Used": false)");
    world.module.StartService({"-m"}, true);
    Journal& journal = world.module.journal;

    const Entry started = journal.Await(IsWithinConsoleLine("InitGpio - exit"));
    EXPECT_EQ("", journal.Await(IsKind(Kind::Console), started.seq + 1).text);
    EXPECT_THAT(world.module.Service().Output(), EndsWith("InitGpio - exit\n\r\n"));
}

TEST(EcallUIConsole, TheFirstPassFollowsTheClosingPullOfTheState) {
    ConsoleWorld world;

    world.Start();  // its line was typed before

    const std::string output = world.module.Service().Output();
    const size_t pull = output.find("XirEcallapp_requestState \n");
    const size_t followed = output.find("SetGpioServiceState - exit", pull);
    EXPECT_LT(followed, output.find("getIntParam : *piVal = "));
}

TEST(EcallUIConsole, OnlyAFirstPointLeadsToTheMainMenu) {
    ConsoleWorld world;
    world.StartAlone();
    world.Type("2");

    EXPECT_EQ(kNoNumber + kLocationMenu, world.Type(" ."));
    EXPECT_EQ("getIntParam : *piVal = 1 ==> bad parameter\n" + kLocationMenu, world.Type("1."));
    EXPECT_EQ(kMainMenu, world.Type(".5 and more"));
}

TEST(EcallUIConsole, LinesOfAnotherSystemEndWithACarriageReturn) {
    ConsoleWorld world;
    world.StartAlone();

    EXPECT_EQ(kLocationMenu, world.Type("2\r"));
    EXPECT_EQ("", world.Type("5\r"));
    EXPECT_EQ(kMainMenu, world.Type(".\r"));
}

TEST(EcallUIConsole, WhatALineHasBeyond127CharactersIsTheNextCommand) {
    ConsoleWorld world;
    world.StartAlone();

    EXPECT_EQ("bad parameter\n", world.Type("4" + std::string(125, ' ')));
    EXPECT_EQ("bad parameter\n\n\n" + kNoNumber + kMainMenu, world.Type("4" + std::string(126, ' ')));
    EXPECT_EQ("bad parameter\n\n\n" + kLocationMenu, world.Type("4" + std::string(126, ' ') + "2"));
}

TEST(EcallUIConsole, ALineOfTenThousandCharactersHarmsNothing) {
    ConsoleWorld world;
    world.StartAlone();
    std::string expected;
    for (int line = 0; line < 10000 / 127 + 1; ++line) {
        expected.append(expected.empty() ? "" : "\n\n").append(kNoNumber).append(kMainMenu);
    }

    EXPECT_EQ(expected, world.Type(std::string(10000, 'x')));
    EXPECT_EQ(kLocationMenu, world.Type("2"));
}

TEST(EcallUIConsole, ANullCharacterEndsWhatIsUsedOfALine) {
    ConsoleWorld world;
    world.StartAlone();

    EXPECT_EQ(kLocationMenu, world.Type(std::string("2\0x", 3)));
}

// The console beside the service.

TEST(EcallUIConsole, ACrashIsReportedWhileTheConsoleWaits) {
    ConsoleWorld world;
    ASSERT_TRUE(world.peer.Start());
    world.StartAsConfigured("");
    world.AwaitReady();

    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIConsole, TheConfigurationFileDoesNotSwitchIt) {
    ServiceWorld world;
    world.Configure(R"("ConnectEcallService": false, "DebugMenuMode": true)");
    world.module.StartService({}, true);
    world.module.Service().Input("0\n");

    EXPECT_EQ(500ms, AwaitSleep(world.module.Service(), "XirEcallUIappSr"));
    EXPECT_THAT(world.module.Service().Output(), Not(HasSubstr("MAIN MENU")));
}

TEST(EcallUIConsole, TheConfigurationFileDoesNotSwitchItOff) {
    ConsoleWorld world;

    world.StartAlone(R"("DebugMenuMode": false)");

    EXPECT_EQ(kMainMenu, world.Type("0"));
}

namespace {

/// The main thread sleeps as without the console, and the service does its work.
void ExpectSleepAndWork(ServiceWorld& world, const ModuleProcess& service) {
    world.AwaitReady();
    EXPECT_EQ(500ms, AwaitSleep(service, "XirEcallUIappSr"));
    EXPECT_TRUE(world.IsCrashReported());
}

/// Starts the service with -m by a shell that redirects its standard input so, and then becomes it.
const ModuleProcess& StartRedirected(ServiceWorld& world, const std::string& redirection) {
    const std::string service = world.module.root.Install(Module::ServiceProgram());
    return world.module.Start("/bin/sh", {"-c", "exec " + service + " -m " + redirection});
}

void ExpectSleepAndWorkWith(const std::string& redirection) {
    ServiceWorld world;
    ASSERT_TRUE(world.peer.Start());

    const ModuleProcess& process = StartRedirected(world, redirection);

    ExpectSleepAndWork(world, process);
    EXPECT_THAT(process.Output(), Not(HasSubstr("MAIN MENU")));
}

}  // namespace

TEST(EcallUIConsole, TheMainThreadSleepsOnceTheInputHasEnded) {
    ConsoleWorld world;
    ASSERT_TRUE(world.peer.Start());
    world.StartAsConfigured("");
    world.module.Service().Input("0\n3");  // the last line lacks its line feed

    world.module.Service().CloseInput();

    world.module.journal.Await(IsOnConsole(" UI GPIO MENU  "));
    ExpectSleepAndWork(world, world.module.Service());
}

TEST(EcallUIConsole, TheMainThreadSleepsWithAnEmptyInput) {
    ExpectSleepAndWorkWith("</dev/null");
}

TEST(EcallUIConsole, TheMainThreadSleepsWithAnInputThatCannotBeRead) {
    ExpectSleepAndWorkWith("</");
}

TEST(EcallUIConsole, TheMainThreadSleepsWithAClosedInput) {
    ExpectSleepAndWorkWith("<&-");
}

namespace {

/// Whoever holds its input open when it ends is hung up on.
struct Terminal {
    int keyboard = -1;
    int input = -1;

    Terminal() { EXPECT_EQ(0, openpty(&keyboard, &input, nullptr, nullptr, nullptr)); }
    ~Terminal() {
        close(keyboard);
        close(input);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    std::string Path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(input); }
    void Type(const std::string& keys) const {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(keyboard, keys.data(), keys.size()));
    }
};

}  // namespace

TEST(EcallUIConsole, IsDrivenFromATerminalUntilItsEndIsTyped) {
    const Terminal terminal;
    ServiceWorld world;
    ASSERT_TRUE(world.peer.Start());
    const ModuleProcess& process = StartRedirected(world, "<" + terminal.Path());

    terminal.Type("1\n50\n");
    world.module.journal.Await(IsWithinConsoleLine("Version = virtual module 1.0"));
    terminal.Type("99\x7f\x7f");  // what is deleted is no command
    terminal.Type("3 1\n");
    world.module.journal.Await(IsWithinConsoleLine("XirEcallapp_triggerEcall : automatic = 1 "));
    terminal.Type("\x04");

    EXPECT_EQ(500ms, AwaitSleep(process, "XirEcallUIappSr"));
    EXPECT_TRUE(world.peer.AwaitRequests(EcallMethod::TriggerEcall, 1));
}
