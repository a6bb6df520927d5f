// The program ecall-sim as one who types it sees it: exit status, output, and what it leaves behind.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr std::chrono::seconds kLimit{100};
constexpr const char* kEscape = "\033[";

enum class Output { Pipe, Terminal };

/// A running ecall-sim, whose output this end collects.
class Simulator {
  public:
    Simulator(Output kind, std::vector<std::string> arguments, const char* extraVariable = nullptr) {
        arguments.insert(arguments.begin(), ECALL_SIM);
        pid = kind == Output::Terminal ? forkpty(&end, nullptr, nullptr, nullptr) : ForkOnPipe();
        if (pid == 0) {
            Execute(arguments, extraVariable);
        }
    }
    ~Simulator() { close(end); }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /// Collects output until it holds the text; false when it ends or the limit passes before.
    bool AwaitOutput(const std::string& text) {
        const auto deadline = std::chrono::steady_clock::now() + kLimit;
        while (output.find(text) == std::string::npos) {
            if (!ReadMore(deadline)) {
                return false;
            }
        }
        return true;
    }

    void Type(const std::string& keys) {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()), write(end, keys.data(), keys.size()));
    }

    /// Collects the rest and answers the exit status.
    int End() {
        const auto deadline = std::chrono::steady_clock::now() + kLimit;
        while (ReadMore(deadline)) {
        }
        int status = 0;
        EXPECT_EQ(pid, waitpid(pid, &status, 0));
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status);
    }

    const std::string& Text() const { return output; }

  private:
    pid_t ForkOnPipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(0, pipe2(ends.data(), O_CLOEXEC));
        const pid_t child = fork();
        if (child == 0) {
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
        }
        close(ends[1]);
        end = ends[0];
        return child;
    }

    [[noreturn]] static void Execute(const std::vector<std::string>& arguments, const char* extraVariable) {
        std::vector<char*> words;
        words.reserve(arguments.size() + 1);
        for (const std::string& argument : arguments) {
            words.push_back(const_cast<char*>(argument.c_str()));
        }
        words.push_back(nullptr);
        unsetenv("NO_COLOR");
        setenv("TERM", "xterm", 1);
        if (extraVariable != nullptr) {
            setenv(extraVariable, "1", 1);
        }
        execv(words.front(), words.data());
        _exit(127);
    }

    bool ReadMore(std::chrono::steady_clock::time_point deadline) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd wait{.fd = end, .events = POLLIN, .revents = 0};
        if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) != 1) {
            return false;
        }
        std::array<char, 4096> piece{};
        const ssize_t got = read(end, piece.data(), piece.size());
        if (got <= 0) {
            return false;
        }
        output.append(piece.data(), static_cast<size_t>(got));
        return true;
    }

    pid_t pid = -1;
    int end = -1;
    std::string output;
};

std::string Mounts() {
    std::ifstream file("/proc/self/mountinfo");
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(EcallSim, ListsEveryStoryInOneLine) {
    Simulator simulator(Output::Pipe, {"--list"});

    EXPECT_EQ(0, simulator.End());

    std::istringstream lines(simulator.Text());
    std::vector<std::string> names;
    for (std::string line; std::getline(lines, line);) {
        names.push_back(line.substr(0, line.find(' ')));
    }
    EXPECT_THAT(names,
                testing::ElementsAre("crash", "sos", "long-press", "bounce", "selftest", "peer-restart", "lost-irq",
                                     "dtr", "drive", "tunnel", "parameters", "mic-test", "mic-source"));
}

TEST(EcallSim, HelpsOnStandardOutput) {
    Simulator simulator(Output::Pipe, {"--help"});

    EXPECT_EQ(0, simulator.End());

    EXPECT_THAT(simulator.Text(), StartsWith("ecall-sim play NAME [--service PATH] [--track FILE] [--verbose]"));
}

TEST(EcallSim, AnUnknownStoryIsRefusedWithTheKnownOnes) {
    Simulator simulator(Output::Pipe, {"play", "crush"});

    EXPECT_EQ(2, simulator.End());

    EXPECT_THAT(simulator.Text(),
                StartsWith("ecall-sim: no story is called \"crush\"; there are: crash sos long-press bounce "
                           "selftest peer-restart lost-irq dtr drive tunnel parameters mic-test mic-source\n"));
}

TEST(EcallSim, WhatItDoesNotUnderstandEndsWithTwo) {
    const std::vector<std::vector<std::string>> lines{{},
                                                      {"dance"},
                                                      {"console", "me"},
                                                      {"play"},
                                                      {"play", "crash", "--loud"},
                                                      {"play", "crash", "sos"},
                                                      {"play", "crash", "--service"},
                                                      {"play", "crash", "--service", ""},
                                                      {"play", "drive", "--track", ""},
                                                      {"play", "drive", "--track"}};
    for (const auto& line : lines) {
        Simulator simulator(Output::Pipe, line);

        EXPECT_EQ(2, simulator.End());
        EXPECT_THAT(simulator.Text(), StartsWith("ecall-sim: "));
        EXPECT_THAT(simulator.Text(), HasSubstr("ecall-sim --help"));
    }
}

TEST(EcallSim, AStoryOnAProgramThatIsNoServiceFailsAndSaysWhatIsMissing) {
    Simulator simulator(Output::Pipe, {"play", "crash", "--service", "/bin/true"});

    EXPECT_EQ(1, simulator.End());

    EXPECT_THAT(simulator.Text(), HasSubstr("\nFAILED in the scene \"The eCall service is idle"));
    EXPECT_THAT(simulator.Text(), HasSubstr("\n  expected, but missing:\n    rpc: client connected\n"));
    EXPECT_THAT(simulator.Text(), EndsWith("\n  must not come, but came:\n    unit: true exited 0\n"));
}

TEST(EcallSim, AServiceThatIsNotThereFailsBeforeTheStoryBegins) {
    Simulator simulator(Output::Pipe, {"play", "crash", "--service", "/nowhere/service"});

    EXPECT_EQ(1, simulator.End());

    EXPECT_EQ(
        "ecall-sim: /nowhere/service: No such file or directory; give the path of the service's program with "
        "--service\n",
        simulator.Text());
}

TEST(EcallSim, ATrackForAStoryThatDrivesNowhereIsRefusedWithThoseThatDo) {
    for (const std::vector<std::string>& line : {std::vector<std::string>{"play", "crash", "--track", "my.gpx"},
                                                 std::vector<std::string>{"shell", "--track", "my.gpx"}}) {
        Simulator simulator(Output::Pipe, line);

        EXPECT_EQ(2, simulator.End());
        EXPECT_THAT(simulator.Text(),
                    StartsWith("ecall-sim: --track is of use only to play a story that drives: drive tunnel\n"));
    }
}

TEST(EcallSim, ATrackThatIsNoneIsRefusedBeforeTheStoryBegins) {
    const std::string path = testing::TempDir() + "EcallSimTest." + std::to_string(getpid()) + ".gpx";
    std::ofstream(path) << "<gpx><trk><trkseg>\n<trkpt lat=\"91\" lon=\"0\"/></trkseg></trk></gpx>";
    Simulator broken(Output::Pipe, {"play", "drive", "--track", path});
    EXPECT_EQ(2, broken.End());
    std::filesystem::remove(path);
    Simulator missing(Output::Pipe, {"play", "drive", "--track", path});
    EXPECT_EQ(2, missing.End());

    EXPECT_EQ("ecall-sim: " + path + ", line 2: lat is \"91\"; it must lie from -90 to 90 degrees\n", broken.Text());
    EXPECT_EQ("ecall-sim: " + path + ": cannot be read: No such file or directory; give the path of a GPX file\n",
              missing.Text());
}

TEST(EcallSim, ATrackOfOnesOwnIsDriven) {
    const std::string path = testing::TempDir() + "EcallSimTest." + std::to_string(getpid()) + ".gpx";
    std::ofstream(path)
        << "<gpx><trk><trkseg><trkpt lat=\"-33.25\" lon=\"-70.5\"><time>2026-05-04T12:00:00Z</time></trkpt>"
           "<trkpt lat=\"-33.26\" lon=\"-70.5\"><time>2026-05-04T12:01:00Z</time></trkpt></trkseg></trk></gpx>";
    Simulator simulator(Output::Pipe, {"play", "drive", "--track", path});

    EXPECT_EQ(0, simulator.End());

    std::filesystem::remove(path);
    EXPECT_THAT(simulator.Text(),
                HasSubstr("ok  location <= position 33.2500 S 70.5000 W, 67 km/h, heading 180°, 2D\n"));
    EXPECT_THAT(
        simulator.Text(),
        ContainsRegex("before the crash: position 33.25[0-9]{2} S 70.5000 W, 67 km/h, heading 180°: on the track"));
}

TEST(EcallSim, AStoryThatIsTrueIsToldInAlignedRowsAndPasses) {
    Simulator simulator(Output::Pipe, {"play", "bounce"});

    EXPECT_EQ(0, simulator.End());

    EXPECT_THAT(simulator.Text(), StartsWith("bounce: the button bounces, and is only touched: no call\n\n"
                                             "  time s      who      what (ok: this line was expected)\n"));
    int expected = 0;
    std::istringstream lines(simulator.Text());
    std::string line;
    while (std::getline(lines, line) && !line.starts_with("PASSED")) {
        if (line.starts_with("  ") && !line.starts_with("  time s")) {
            EXPECT_THAT(line, ContainsRegex("^ {1,3}[0-9]{1,3}\\.[0-9]{3}  (ok|  )  [a-z ]{8} [^ ]"));
            expected += line.substr(10, 2) == "ok" ? 1 : 0;
        }
    }
    EXPECT_THAT(line, ContainsRegex("^PASSED bounce: " + std::to_string(expected) +
                                    " expected lines, all seen, in [0-9]+\\.[0-9] s$"));
    EXPECT_LT(10, expected);
}

TEST(EcallSim, VerboseShowsTheJournalToo) {
    Simulator simulator(Output::Pipe, {"play", "bounce", "--verbose"});

    EXPECT_EQ(0, simulator.End());

    EXPECT_THAT(simulator.Text(), ContainsRegex("Read +/sys/class/ecall_gpio/ecall-nrqst/value"));
}

TEST(EcallSim, IsPlainInAPipe) {
    Simulator simulator(Output::Pipe, {"play", "crash", "--service", "/bin/true"});
    simulator.End();

    EXPECT_THAT(simulator.Text(), HasSubstr("FAILED"));
    EXPECT_THAT(simulator.Text(), Not(HasSubstr(kEscape)));
}

TEST(EcallSim, IsColouredOnATerminal) {
    Simulator simulator(Output::Terminal, {"play", "crash", "--service", "/bin/true"});
    simulator.End();

    EXPECT_THAT(simulator.Text(), HasSubstr("\033[31mFAILED\033[0m"));
}

TEST(EcallSim, IsPlainOnATerminalThatWantsNoColour) {
    Simulator simulator(Output::Terminal, {"play", "crash", "--service", "/bin/true"}, "NO_COLOR");
    simulator.End();

    EXPECT_THAT(simulator.Text(), HasSubstr("FAILED"));
    EXPECT_THAT(simulator.Text(), Not(HasSubstr(kEscape)));
}

TEST(EcallSim, CtrlCLeavesNothingBehind) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // whatever it leaves running becomes a child of this test
    const std::string mounts = Mounts();
    std::string folder = testing::TempDir() + "ctrl-c-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(folder.data()));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    Simulator simulator(Output::Terminal, {"play", "crash"});
    ASSERT_TRUE(simulator.AwaitOutput("Crash!"));

    simulator.Type("\x03");

    EXPECT_EQ(130, simulator.End());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
    EXPECT_EQ(mounts, Mounts());
    std::filesystem::current_path(before);
    EXPECT_EQ(0, rmdir(folder.c_str())) << "a file was left in " << folder;
}

TEST(EcallSim, AShellRunsInsideTheModule) {
    Simulator simulator(Output::Terminal, {"shell"});
    ASSERT_TRUE(simulator.AwaitOutput("module# "));

    simulator.Type("ls /sys/devices\n");
    EXPECT_TRUE(simulator.AwaitOutput("vantu_pwm_led.1"));
    simulator.Type("ecalluictl --timeout 30 get 7\n");
    EXPECT_TRUE(simulator.AwaitOutput("LedPwmPeriodMs = 10 ms"));
    simulator.Type("sh -c 'echo be''gun; exec sleep 1000'\n");  // the echo of the keys does not hold the word
    EXPECT_TRUE(simulator.AwaitOutput("begun"));
    simulator.Type("\x03");
    // pidof skips a process in uninterruptible sleep, as one is that waits for a page.
    simulator.Type("for look in 1 2 3 4 5 6 7 8 9; do pidof XirEcallUIappSrvc && exit 5; sleep 0.2; done; exit 1\n");

    EXPECT_EQ(5, simulator.End());
}

/// While it lives, what is started here reads this.
class StandardInput {
  public:
    explicit StandardInput(const std::string& content) : before(dup(STDIN_FILENO)) {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        EXPECT_EQ(static_cast<ssize_t>(content.size()), write(ends[1], content.data(), content.size()));
        close(ends[1]);
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
    }
    ~StandardInput() {
        dup2(before, STDIN_FILENO);
        close(before);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

  private:
    int before;
};

constexpr char kConsoleHelp[] =
    "The service's debug console: 0 shows the menu, 1 to 3 open the others, . leads back; Ctrl-D ends it.";

TEST(EcallSim, TheDebugConsoleIsDrivenFromATerminal) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // whatever it leaves running becomes a child of this test
    Simulator simulator(Output::Terminal, {"console"});
    ASSERT_TRUE(simulator.AwaitOutput(kConsoleHelp));

    simulator.Type("1\n50\n");
    EXPECT_TRUE(simulator.AwaitOutput("Version = virtual module 1.0\r\n"));
    simulator.Type("3 1\n");
    EXPECT_TRUE(simulator.AwaitOutput("TEcallappServiceState_ActiveAutomaticECall (101)"));
    simulator.Type("\x04");

    EXPECT_EQ(0, simulator.End());
    EXPECT_THAT(simulator.Text(), Not(HasSubstr("bad parameter")));
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

TEST(EcallSim, CtrlCEndsTheDebugConsoleAndLeavesNothingBehind) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    Simulator simulator(Output::Terminal, {"console"});
    ASSERT_TRUE(simulator.AwaitOutput(kConsoleHelp));
    simulator.Type("0\n");
    ASSERT_TRUE(simulator.AwaitOutput(" MAIN MENU  "));

    simulator.Type("\x03");

    EXPECT_EQ(130, simulator.End());
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
}

TEST(EcallSim, TheDebugConsoleCarriesOutAWholeFile) {
    const StandardInput input("1\n50\n4\n5 12345678901234567 3 0");  // the last line lacks its line feed
    Simulator simulator(Output::Pipe, {"console"});

    EXPECT_EQ(0, simulator.End());

    EXPECT_THAT(simulator.Text(), StartsWith(kConsoleHelp));
    EXPECT_THAT(simulator.Text(), HasSubstr("Version = virtual module 1.0\n"));
    EXPECT_THAT(simulator.Text(), HasSubstr("XirEcallapp_updateVehicleConfig, srvcResult = 0\n"));
    EXPECT_THAT(simulator.Text(), Not(HasSubstr("bad parameter")));
}

TEST(EcallSim, TheDebugConsoleWithoutStandardInputEndsAtOnce) {
    ASSERT_EQ(0, fcntl(STDIN_FILENO, F_SETFD, FD_CLOEXEC));  // so it is closed for what is started now
    Simulator simulator(Output::Pipe, {"console"});
    ASSERT_EQ(0, fcntl(STDIN_FILENO, F_SETFD, 0));

    EXPECT_EQ(0, simulator.End());

    EXPECT_THAT(simulator.Text(), StartsWith(kConsoleHelp));
}

TEST(EcallSim, TheDebugConsoleOfAServiceThatEndsShowsWhatItSaidAndFails) {
    const StandardInput input("1\n");
    Simulator simulator(Output::Pipe, {"console", "--service", "/bin/echo"});  // it says its argument, and ends

    EXPECT_EQ(1, simulator.End());

    EXPECT_THAT(simulator.Text(), StartsWith(kConsoleHelp));
    EXPECT_THAT(simulator.Text(), HasSubstr("\n-m\n"));
    EXPECT_THAT(simulator.Text(), HasSubstr("\necall-sim: echo ended unexpectedly: exited 0\n"));
    EXPECT_THAT(simulator.Text(), Not(HasSubstr("in vain")));
}

}  // namespace
