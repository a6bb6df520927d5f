// What the machine sees of a program with a module inside: its exit status, and nothing once it has ended.
#include "Namespaces.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Descriptor.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// Empty when it cannot be read: what /proc shows of a process may end with it between open and read.
std::string ReadAll(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// Every process of the machine that descends from one, found by the parents' numbers.
std::vector<int> DescendantsOf(int ancestor) {
    std::vector<int> found = {ancestor};
    for (size_t i = 0; i < found.size(); ++i) {
        const std::string parent = std::to_string(found[i]);
        for (const auto& task : std::filesystem::directory_iterator("/proc/" + parent + "/task")) {
            const std::string children = ReadAll(task.path() / "children");
            for (size_t begin = 0; begin < children.size(); begin = children.find(' ', begin) + 1) {
                found.push_back(std::stoi(children.substr(begin)));
            }
        }
    }
    return found;
}

bool IsAlive(int pid) {
    const std::string status = ReadAll("/proc/" + std::to_string(pid) + "/stat");
    return !status.empty() && status.find(") Z ") == std::string::npos;
}

class Host {
  public:
    explicit Host(std::vector<std::string> words, const char* program = MODULE_HOST) {
        int ends[2];
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        output = Descriptor(ends[0]);
        const Descriptor writeEnd(ends[1]);
        std::vector<char*> arguments = {const_cast<char*>(program)};
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        pid = fork();
        if (pid == 0) {
            dup2(writeEnd.Get(), 1);
            dup2(writeEnd.Get(), 2);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
    }
    ~Host() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    int Pid() const { return pid; }
    // Everything up to the word, or to the end.
    std::string ReadUntil(const std::string& word) {
        std::string text;
        char byte = 0;
        while (text.find(word) == std::string::npos && read(output.Get(), &byte, 1) == 1) {
            text += byte;
        }
        return text;
    }
    int Wait() {
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        return status;
    }

  private:
    Descriptor output;
    int pid = -1;
};

void ExpectNothingLeftAfter(int signal, const char* what) {
    const std::string mounts = ReadAll("/proc/self/mountinfo");
    Host host({what});
    ASSERT_THAT(host.ReadUntil("ready\n"), HasSubstr("ready"));
    const std::vector<int> processes = DescendantsOf(host.Pid());
    EXPECT_GE(processes.size(), 6U) << "caller, init, host, probe, shell, sleeper";

    kill(host.Pid(), signal);

    host.Wait();
    for (const int process : processes) {
        while (IsAlive(process)) {
            sched_yield();  // being killed takes its time; the test's limit ends a wait in vain
        }
    }
    EXPECT_EQ(mounts, ReadAll("/proc/self/mountinfo"));
}

}  // namespace

TEST(Namespaces, TheExitStatusComesThrough) {
    for (const int status : {0, 1, 77}) {
        EXPECT_EQ(status, WEXITSTATUS(Host({"exit", std::to_string(status)}).Wait()));
    }
}

TEST(Namespaces, ADeathBySignalShowsAsAStatusAbove128) {
    EXPECT_EQ(128 + SIGABRT, WEXITSTATUS(Host({"abort"}).Wait()));
}

TEST(Namespaces, TheHostIsAnOrdinaryProcessOfUserZero) {
    const std::string text = Host({"pid"}).ReadUntil("\n");
    EXPECT_THAT(text, HasSubstr(" of 1, user 0\n"));
    EXPECT_THAT(text, Not(HasSubstr("pid 1 ")));
}

TEST(Namespaces, AnInterruptLeavesNothingBehind) {
    ExpectNothingLeftAfter(SIGINT, "module");
}
TEST(Namespaces, ATerminationLeavesNothingBehind) {
    ExpectNothingLeftAfter(SIGTERM, "module");
}
TEST(Namespaces, AHangUpLeavesNothingBehind) {
    ExpectNothingLeftAfter(SIGHUP, "module");
}
TEST(Namespaces, AKillLeavesNothingBehind) {
    ExpectNothingLeftAfter(SIGKILL, "module");
}
TEST(Namespaces, AKillLeavesNothingBehindOfAPlainModule) {
    ExpectNothingLeftAfter(SIGKILL, "module-plain");
}

TEST(Namespaces, WhereTheyAreForbiddenTheAdviceSaysHowToAllowThem) {
    const std::string command = std::string("echo 0 >/proc/sys/user/max_user_namespaces; exec ") + MODULE_HOST + " pid";
    Host host({"--user", "--map-root-user", "sh", "-c", command}, "/usr/bin/unshare");

    const std::string text = host.ReadUntil("there is no such word");

    EXPECT_EQ(1, WEXITSTATUS(host.Wait()));
    EXPECT_THAT(text,
                HasSubstr("unshare: No space left on device\nThe virtual module needs user, mount, network and PID "
                          "namespaces; no root rights.\n"));
    EXPECT_THAT(text, HasSubstr("user.max_user_namespaces must not be 0\n"));
}
