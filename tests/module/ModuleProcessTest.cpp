// How processes of the module are started, watched and ended.
#include "ModuleProcess.h"

#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cstdlib>

#include "Module.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

Match IsProcess(std::string text) {
    Match match = IsKind(Kind::Process);
    match.text = std::move(text);
    return match;
}

// Collects the complaints of the modules that end while it lives.
class Complaints {
  public:
    Complaints() {
        previous = SetComplaintHandler([this](const std::string& complaint) { all.push_back(complaint); });
    }
    ~Complaints() { SetComplaintHandler(previous); }
    Complaints(const Complaints&) = delete;
    Complaints& operator=(const Complaints&) = delete;

    std::vector<std::string> all;

  private:
    ComplaintHandler previous;
};

}  // namespace

TEST(ModuleProcess, EveryByteAndEveryLineOfItsOutputIsKept) {
    Module module;

    ModuleProcess& probe = module.Start(
        MODULE_PROBE, {"say", "first", "say", "ends itself\n", "complain", "trouble", "unfinished", "the rest"});

    EXPECT_EQ(0, probe.WaitForEnd());
    EXPECT_EQ("first\n\rends itself\n\n\rthe rest", probe.Output());
    EXPECT_EQ("trouble\n", probe.Errors());
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Console)), ElementsAre("first", "ends itself", "", "the rest"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Stderr)), ElementsAre("trouble"));
}

TEST(ModuleProcess, ItsStartAndEndAreInTheJournal) {
    Module module;

    ModuleProcess& probe = module.Start(MODULE_PROBE, {"say", "x", "exit", "3"});

    const std::optional<int> status = probe.WaitForEnd();
    ASSERT_TRUE(status);
    EXPECT_EQ(3, WEXITSTATUS(*status));
    EXPECT_FALSE(probe.IsRunning());
    EXPECT_THAT(module.journal.Texts({}), ElementsAre("started", "x", "exited 3"));
    EXPECT_EQ("module_probe", module.journal.All().front().subject);
    EXPECT_EQ(probe.Pid(), module.journal.All().front().pid);
}

TEST(ModuleProcess, NothingItDoesIsInTheJournalBeforeItsStart) {
    Module module;

    ModuleProcess& probe = module.Start(MODULE_PROBE, {"write", line::kRelay, "1", "put", "0x72", "1", "0x41"});

    EXPECT_EQ(0, probe.WaitForEnd());
    EXPECT_EQ("started", module.journal.All().front().text);
    EXPECT_EQ("exited 0", module.journal.All().back().text);
}

TEST(ModuleProcess, AWaitForOneThatRunsOnGivesUp) {
    Module module;
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"wait"});

    EXPECT_EQ(std::nullopt, probe.WaitForEnd(5ms));

    EXPECT_TRUE(probe.IsRunning());
}

TEST(ModuleProcess, SignalsReachIt) {
    Module module;
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"wait"});

    probe.Signal(SIGTERM);

    const std::optional<int> status = probe.WaitForEnd();
    ASSERT_TRUE(status);
    EXPECT_EQ(SIGTERM, WTERMSIG(*status));
    module.journal.Await(IsProcess("killed by SIGTERM"));
    EXPECT_NO_THROW(probe.Signal(SIGTERM)) << "too late is no failure";
}

TEST(ModuleProcess, InputIsFedToItUntilItIsClosed) {
    Module module;
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"echo", "echo", "echo"}, true);

    probe.Input("one\n");
    module.journal.Await(IsOnConsole("echo one"));
    probe.Input("two\n");
    module.journal.Await(IsOnConsole("echo two"));
    probe.CloseInput();

    EXPECT_EQ(0, probe.WaitForEnd());
    module.journal.Await(IsOnConsole("echo end"));
}

TEST(ModuleProcess, WithoutInputItReadsNothing) {
    Module module;

    EXPECT_EQ(0, module.Start(MODULE_PROBE, {"echo"}).WaitForEnd());

    module.journal.Await(IsOnConsole("echo end"));
}

TEST(ModuleProcess, ItsEnvironmentIsTheModulesNotTheTests) {
    ASSERT_EQ(0, setenv("MODULE_TEST_WORD", "outside", 1));
    ASSERT_EQ(0, setenv("UBSAN_OPTIONS", "print_stacktrace=1", 1));
    Module module;

    ModuleProcess& probe = module.Start(MODULE_PROBE, {"env", "MODULE_TEST_WORD", "env", "TZ", "env", "UBSAN_OPTIONS"});

    EXPECT_EQ(0, probe.WaitForEnd());
    EXPECT_EQ("env (none)\n\renv UTC\n\renv print_stacktrace=1\n\r", probe.Output());
}

TEST(ModuleProcess, ItsSignalsAndFileModesAreAsAtBoot) {
    signal(SIGPIPE, SIG_IGN);
    umask(0077);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    Module module;

    ModuleProcess& probe = module.Start(MODULE_PROBE, {"signals"});

    EXPECT_EQ(0, probe.WaitForEnd());
    EXPECT_EQ("signal 2 default\n\rsignal 13 default\n\rsignal 17 default\n\rumask 022\n\r", probe.Output());
}

TEST(ModuleProcess, WhatCannotBeExecutedIsSaidAtOnce) {
    Module module;
    module.root.WriteFile("/tmp/no-program", "", 0755);

    try {
        module.Start(module.root.Outside("/tmp/no-program"));
        FAIL() << "it started";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("starting /usr/bin/no-program: executing it: Exec format error"));
        EXPECT_EQ("not executed", module.journal.All().back().text);
    }
}

TEST(ModuleProcess, AFilterThatCannotBeInstalledIsSaidAtOnce) {
    Module module;
    // The kernel allows one listener in a line of processes; this one stands in for a kernel that allows none.
    sock_filter allow{BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW};
    const sock_fprog program{1, &allow};
    ASSERT_EQ(0, prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0));
    const Descriptor taken(
        static_cast<int>(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program)));
    ASSERT_TRUE(taken.IsOpen());

    try {
        module.Start(MODULE_PROBE, {"wait"});
        FAIL() << "it started";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(),
                    HasSubstr("preparing it (its ioctl filter needs Linux 5.19): Device or resource busy"));
    }
}

TEST(ModuleProcess, WhatItStartedDiesWithTheModule) {
    std::string pid;
    {
        Module module;
        ModuleProcess& probe = module.Start(MODULE_PROBE, {"run", "sleep infinity & echo child $!"});
        Match match = IsKind(Kind::Console);
        match.contains = "child ";
        pid = module.journal.Await(match).text.substr(sizeof "child " - 1);
        EXPECT_EQ(0, probe.WaitForEnd());
        EXPECT_EQ(0, kill(std::stoi(pid), 0)) << "while the module lives, it lives";
    }

    // It is killed now; process 1 takes it away soon.
    while (kill(std::stoi(pid), 0) == 0) {
        sched_yield();
    }
    EXPECT_EQ(ESRCH, errno);
}

TEST(ModuleProcess, ItsUsageIsThatOfThisProcess) {
    Module module;
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"tick", "wait", "wait", "wait", "say", "ticked", "echo"}, true);
    module.journal.Await(IsOnConsole("ticked"));

    const ProcessUsage usage = probe.Usage();

    probe.Input("\n");
    EXPECT_EQ(0, probe.WaitForEnd());
    EXPECT_GE(usage.threads, 1U);
    EXPECT_GE(usage.wakeups, 3U);
    EXPECT_EQ(3U, usage.descriptors);
    EXPECT_GT(usage.residentBytes, 100'000U);
}

TEST(ModuleProcess, AnUnexpectedEndIsAComplaint) {
    const Complaints complaints;
    {
        Module module;
        module.Start(MODULE_PROBE, {"complain", "last words", "abort"});
        module.journal.Await(IsProcess("killed by SIGABRT"));
    }

    ASSERT_EQ(1U, complaints.all.size());
    EXPECT_THAT(complaints.all[0], HasSubstr("module_probe ended unexpectedly: killed by SIGABRT"));
    EXPECT_THAT(complaints.all[0], HasSubstr("last words"));
}

TEST(ModuleProcess, AnAwaitedEndAKillOrARunningProcessIsNoComplaint) {
    const Complaints complaints;
    {
        Module module;
        module.Start(MODULE_PROBE, {"exit", "1"}).WaitForEnd();
        module.Start(MODULE_PROBE, {"wait"}).Kill();
        module.Start(MODULE_PROBE, {"wait"});
    }

    EXPECT_THAT(complaints.all, IsEmpty());
}

TEST(ModuleProcess, ASanitizersReportIsAComplaintEvenWhenTheProcessRunsOn) {
    for (const char* report :
         {"==12==ERROR: AddressSanitizer: heap-use-after-free", "WARNING: ThreadSanitizer: data race",
          "Trace.cpp:12:3: runtime error: signed integer overflow"}) {
        const Complaints complaints;
        {
            Module module;
            module.Start(MODULE_PROBE, {"complain", report, "wait"});
            module.journal.Await(IsKind(Kind::Stderr));
        }
        ASSERT_EQ(1U, complaints.all.size());
        EXPECT_THAT(complaints.all[0], HasSubstr(report));
    }
}
