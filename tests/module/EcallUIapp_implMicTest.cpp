// Single microphone tests: what is run, waited for, read and said, step by step.
#include <gmock/gmock.h>

#include <cerrno>
#include <fstream>
#include <iterator>

#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char kScriptName[] = "ecall_analog_mic_test.sh";
constexpr char kResultFile[] = "/tmp/ecall_analog_mic_test_result.txt";
constexpr char kLaunched[] = "launches the external script to run the analog microphone test";
constexpr char kNoFile[] = " impossible to open /var/logs/ecall/ecall_analog_mic_test_result.txt";

Texts ScriptRuns(Module& module) {
    return module.journal.Texts({.kind = Kind::Script, .subject = kScriptName});
}

/// Lets the script leave these bytes, given as the shell's printf wants them.
void LetScriptMeasure(Module& module, const std::string& bytes) {
    module.SetScript(file::kMicrophoneTestScript, {.commands = "printf -- '" + bytes + "' > " + kResultFile});
}

Performed RunMicTest(Module& module, std::vector<std::string> before = {}) {
    before.emplace_back("RunMicTest");
    return Perform(module, before);
}

std::string Result(const Performed& performed) {
    return performed.results.back();
}

// ---- A test that goes well ----

TEST(EcallUIAppImplMic, TheScriptRunsAndItsResultIsTheValue) {
    Module module;
    LetScriptMeasure(module, "12.5\\n");

    const Performed performed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = 12.500000", Result(performed));
    EXPECT_THAT(ScriptRuns(module), ElementsAre("begin", "end 0"));
    EXPECT_THAT(performed.messages, ElementsAre(kLaunched, "Child process exited with status 0",
                                                "Read /tmp/ecall_analog_mic_test_result.txt : 12.5", ", ByteRead = 5",
                                                "MesuredValue = 12.500000"));
    EXPECT_THAT(performed.sleeps, ElementsAre("slept 200 ms"));
    EXPECT_THAT(module.journal.All(IsKind(Kind::Syslog)), IsEmpty());
}

TEST(EcallUIAppImplMic, TheScriptIsStartedByItsPlainNameAndWithoutArguments) {
    Module module;
    // A copying program in its place complains under the name by which it was called that it has no arguments.
    std::ifstream copying("/bin/cp", std::ios::binary);
    module.root.WriteFile(file::kMicrophoneTestScript, std::string(std::istreambuf_iterator<char>(copying), {}), 0755);

    RunMicTest(module);

    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Stderr)),
                Contains(std::string(kScriptName) + ": missing file operand"));
}

TEST(EcallUIAppImplMic, TheResultOfAnEarlierRunIsDeletedBeforeTheScriptStarts) {
    Module module;
    module.root.WriteFile(kResultFile, "99\n");
    module.SetScript(file::kMicrophoneTestScript,
                     {.commands = "[ -e " + std::string(kResultFile) + " ] && echo there > /tmp/seen"});

    const Performed performed = RunMicTest(module);

    EXPECT_FALSE(module.root.Exists("/tmp/seen"));
    EXPECT_EQ("RunMicTest = 0.000000", Result(performed));
}

TEST(EcallUIAppImplMic, TheScriptStartsWithCleanSignalsAndDescriptors) {
    Module module;
    module.SetScript(file::kMicrophoneTestScript,
                     {.commands = "grep -E 'Sig(Blk|Ign)' /proc/self/status > /tmp/signals\n"
                                  "ls -l /proc/$$/fd > /tmp/descriptors"});

    RunMicTest(module, {"ignore-sigpipe", "block-signals"});

    EXPECT_EQ("SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n", module.root.ReadFile("/tmp/signals"));
    EXPECT_THAT(module.root.ReadFile("/tmp/descriptors").value_or(""),
                AllOf(HasSubstr(" 1 -> "), Not(HasSubstr(" 3 -> ")), Not(HasSubstr(" 4 -> "))));
}

// ---- Scripts that fail ----

TEST(EcallUIAppImplMic, AMissingScriptIsSaidAndFailsTheTest) {
    Module module;
    module.RemoveScript(file::kMicrophoneTestScript);
    module.root.WriteFile(kResultFile, "99\n");

    const Performed performed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = failed", Result(performed));
    EXPECT_THAT(performed.messages,
                ElementsAre(kLaunched,
                            "execl /usr/bin/ecall_analog_mic_test.sh start failed ret = -1 (No such file or directory)",
                            "", "Child process exited with status 256"));
    EXPECT_EQ("execl /usr/bin/ecall_analog_mic_test.sh start failed ret = -1 (No such file or directory)\n",
              module.journal.Await(IsInSyslog("execl")).text);
    EXPECT_FALSE(module.root.Exists(kResultFile));
    EXPECT_THAT(performed.sleeps, IsEmpty());
}

TEST(EcallUIAppImplMic, AScriptThatMayNotRunFailsTheTest) {
    Module module;
    module.root.WriteFile(file::kMicrophoneTestScript, "#!/bin/sh\n", 0644);

    const Performed performed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = failed", Result(performed));
    EXPECT_THAT(performed.messages,
                Contains("execl /usr/bin/ecall_analog_mic_test.sh start failed ret = -1 (Permission denied)"));
}

TEST(EcallUIAppImplMic, AScriptThatEndsBadlyFailsTheTestWhateverItsResult) {
    Module module;
    const std::string measures = "echo 12.5 > " + std::string(kResultFile);
    module.SetScript(file::kMicrophoneTestScript, {.exitStatus = 1, .commands = measures});
    const Performed exited = RunMicTest(module);
    module.SetScript(file::kMicrophoneTestScript, {.commands = measures + "\nkill -9 $$"});
    const Performed killed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = failed", Result(exited));
    EXPECT_THAT(exited.messages, ElementsAre(kLaunched, "Child process exited with status 256"));
    EXPECT_EQ("RunMicTest = failed", Result(killed));
    EXPECT_THAT(killed.messages, ElementsAre(kLaunched, "Child process exited with status 9"));
}

TEST(EcallUIAppImplMic, AfterAFailedForkTheResultOfAnEarlierRunIsRead) {
    Module module;
    module.root.WriteFile(kResultFile, "7.25\n");

    const Performed performed = RunMicTest(module, {"fail fork " + std::to_string(EAGAIN)});

    EXPECT_EQ("RunMicTest = 7.250000", Result(performed));
    EXPECT_THAT(performed.messages, ElementsAre(kLaunched, "fork() failed (Resource temporarily unavailable)",
                                                "Read /tmp/ecall_analog_mic_test_result.txt : 7.25", ", ByteRead = 5",
                                                "MesuredValue = 7.250000"));
    EXPECT_THAT(performed.sleeps, ElementsAre("slept 200 ms"));
    EXPECT_THAT(ScriptRuns(module), IsEmpty());
}

TEST(EcallUIAppImplMic, TheScriptRunsWithoutItsFailurePipe) {
    Module module;
    LetScriptMeasure(module, "3\\n");

    const Performed performed = RunMicTest(module, {"fail pipe2 " + std::to_string(EMFILE)});

    EXPECT_EQ("RunMicTest = 3.000000", Result(performed));
    EXPECT_THAT(performed.messages, Contains("pipe2() failed (Too many open files)"));
}

// ---- Whose end it is ----

TEST(EcallUIAppImplMic, AnotherChildThatHasEndedIsNotTakenForTheScript) {
    Module module;
    LetScriptMeasure(module, "3\\n");

    const Performed performed = RunMicTest(module, {"leave-child 7"});

    EXPECT_EQ("RunMicTest = 3.000000", Result(performed));
    EXPECT_THAT(performed.messages, Contains("Child process exited with status 0"));
}

TEST(EcallUIAppImplMic, WhenAnothersWaitWasGivenItsEndThatEndCounts) {
    for (const auto& [exitStatus, result] : {std::pair(0, "12.500000"), std::pair(5, "failed")}) {
        Module module;
        const std::string measures = "echo 12.5 > " + std::string(kResultFile);
        module.SetScript(
            file::kMicrophoneTestScript,
            {.exitStatus = exitStatus, .commands = "while [ ! -e /tmp/audio ]; do sleep 0.01; done\n" + measures});
        module.SetScript(file::kAudioScript, {.hangs = true, .commands = "> /tmp/audio"});

        const Performed performed =
            Perform(module, {"fail waitpid " + std::to_string(ENODATA), "beside RunMicTest", "ControlAudioRelay 1"});

        const std::string ended = "Child process exited with status " + std::to_string(exitStatus << 8);
        EXPECT_EQ(2, std::ranges::count(performed.messages, ended));  // the relay's wait, and the test's
        EXPECT_EQ(1U, module.journal.Count({.kind = Kind::Stderr, .text = "RunMicTest = " + std::string(result)}));
    }
}

TEST(EcallUIAppImplMic, WhenNobodyKnowsItsEndNoOthersIsTakenForIt) {
    Module module;

    const Performed performed = RunMicTest(module, {"leave-child 7", "fail waitpid " + std::to_string(ECHILD)});

    // As after status 0: the result is looked for.
    EXPECT_EQ("RunMicTest = 0.000000", Result(performed));
    EXPECT_THAT(performed.messages, ElementsAre(kLaunched, "wait() failed (No child processes)", kNoFile));
    EXPECT_THAT(performed.sleeps, ElementsAre("slept 200 ms"));
}

TEST(EcallUIAppImplMic, AnInterruptedWaitGoesOn) {
    Module module;
    LetScriptMeasure(module, "3\n");

    const Performed performed = RunMicTest(module, {"fail waitpid " + std::to_string(EINTR)});

    EXPECT_EQ("RunMicTest = 3.000000", Result(performed));
    EXPECT_THAT(performed.messages,
                AllOf(Contains("Child process exited with status 0"), Not(Contains(HasSubstr("wait() failed")))));
}

// ---- Results of every form ----

TEST(EcallUIAppImplMic, WithoutAResultTheTestGoesWellWithTheValueZero) {
    Module module;

    const Performed performed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = 0.000000", Result(performed));
    EXPECT_THAT(performed.messages, ElementsAre(kLaunched, "Child process exited with status 0", kNoFile));
    EXPECT_EQ(kNoFile, module.journal.Await(IsInSyslog("impossible")).text);
}

TEST(EcallUIAppImplMic, AResultThatCannotBeReadIsNoResult) {
    Module module;
    module.SetScript(file::kMicrophoneTestScript,
                     {.commands = "ln -s ecall_analog_mic_test_result.txt " + std::string(kResultFile)});

    const Performed performed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = 0.000000", Result(performed));
    EXPECT_THAT(performed.messages, Contains(kNoFile));
}

TEST(EcallUIAppImplMic, ASecondSeparatorChangesNothing) {
    Module module;
    LetScriptMeasure(module, "1.2,5\\n");

    EXPECT_EQ("RunMicTest = 1.250000", Result(RunMicTest(module)));
}

TEST(EcallUIAppImplMic, OfMoreThanTenBytesTheFirstNineCount) {
    Module module;
    LetScriptMeasure(module, "1.23456789");
    const Performed ten = RunMicTest(module);
    LetScriptMeasure(module, "1.2345678x\\n");
    const Performed more = RunMicTest(module);

    EXPECT_EQ("RunMicTest = 1.234568", Result(ten));
    EXPECT_THAT(ten.messages, Contains("Read /tmp/ecall_analog_mic_test_result.txt : 1.23456789, ByteRead = 10"));
    EXPECT_EQ("RunMicTest = 1.234568", Result(more));
    EXPECT_THAT(more.messages, Contains("Read /tmp/ecall_analog_mic_test_result.txt : 1.2345678x, ByteRead = 10"));
}

TEST(EcallUIAppImplMic, AResultOfOneByteIsZero) {
    Module module;
    LetScriptMeasure(module, "5");

    const Performed performed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = 0.000000", Result(performed));
    EXPECT_THAT(performed.messages, AllOf(Contains("Read /tmp/ecall_analog_mic_test_result.txt : 5, ByteRead = 1"),
                                          Contains("MesuredValue = 0.000000")));
}

TEST(EcallUIAppImplMic, AnEmptyResultIsBad) {
    Module module;
    LetScriptMeasure(module, "");

    const Performed performed = RunMicTest(module);

    EXPECT_EQ("RunMicTest = failed", Result(performed));
    EXPECT_THAT(performed.messages, ElementsAre(kLaunched, "Child process exited with status 0",
                                                "Read /tmp/ecall_analog_mic_test_result.txt : , ByteRead = 0"));
}

TEST(EcallUIAppImplMic, AFolderOrAPipeInTheResultsPlaceIsBadAndHoldsNobody) {
    for (const char* make : {"mkdir ", "mkfifo "}) {
        Module module;
        module.SetScript(file::kMicrophoneTestScript, {.commands = std::string(make) + kResultFile});

        const Performed performed = RunMicTest(module);

        EXPECT_EQ("RunMicTest = failed", Result(performed)) << make;
        EXPECT_THAT(performed.messages, Contains("Read /tmp/ecall_analog_mic_test_result.txt : , ByteRead = 0"));
    }
}

TEST(EcallUIAppImplMic, EachBadByteIsSaid) {
    Module module;
    LetScriptMeasure(module, "1a3\\n");
    const Performed letter = RunMicTest(module);
    LetScriptMeasure(module, "-1\\3511\\n");
    const Performed more = RunMicTest(module);

    EXPECT_EQ("RunMicTest = failed", Result(letter));
    EXPECT_THAT(letter.messages, ElementsAre(kLaunched, "Child process exited with status 0",
                                             "Read /tmp/ecall_analog_mic_test_result.txt : 1a3", ", ByteRead = 4",
                                             "Error, bad value 0x61 "));
    EXPECT_EQ("RunMicTest = failed", Result(more));
    EXPECT_THAT(more.messages, AllOf(Contains("Error, bad value 0x2D "), Contains("Error, bad value 0xE9 ")));
    EXPECT_EQ("Error, bad value 0x61 ", module.journal.Await(IsInSyslog("bad value")).text);
}

// ---- Threads ----

TEST(EcallUIAppImplMic, NothingHangsWhenThreadsLogWhileTheScriptIsMissing) {
    Module module;
    Configure(module, {{"MaxSizeOfTraceFileInKb", "64"}});
    module.RemoveScript(file::kMicrophoneTestScript);
    constexpr int kRuns = 50;

    std::vector<std::string> operations = {"quiet", "background 4"};
    operations.insert(operations.end(), kRuns, "RunMicTest");
    ModuleProcess& probe = StartPerforming(module, operations);

    EXPECT_EQ(0, probe.WaitForEnd(100s));
    EXPECT_EQ(static_cast<std::size_t>(kRuns),
              module.journal.Count({.kind = Kind::Stderr, .text = "RunMicTest = failed"}));
    module.journal.Await(IsTraced(std::string(200, 'x')));  // the threads did log
}

}  // namespace
