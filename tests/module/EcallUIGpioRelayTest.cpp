// The audio relay, its delayed switch-off, and the audio script.
#include <gmock/gmock.h>

#include <cerrno>
#include <fstream>
#include <future>
#include <iterator>

#include "GpioTest.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr auto kSwitchOffDelay = 5s;
constexpr char kScriptName[] = "launch-audio-for-ecall.sh";

void UseAnalogMicrophone(Module& module) {
    Configure(module, {{"EcallMicrophoneSource", "0"}});
}

void UseScriptOnly(Module& module) {
    Configure(module, {{"AudioRelayUsed", "false"}});
}

Texts RelayWrites(Module& module) {
    return module.journal.Texts(IsWritten(line::kRelay));
}

Texts ScriptRuns(Module& module) {
    return module.journal.Texts({.kind = Kind::Script, .subject = kScriptName});
}

Texts TimerUses(Module& module) {
    return module.journal.Texts(
        {.kind = Kind::Stderr, .also = [](const Entry& entry) { return entry.text.starts_with("timer "); }});
}

/// "GpioRead 3" then ends when the relay's switch-off is under way: the write is in the journal, its answer perhaps
/// not.
void LetReadAwaitSwitchOff(Module& module) {
    module.attributes.OnRead(line::kBatteryPresent, [&module] {
        module.journal.WaitFor(IsWritten(line::kRelay, "0"));
        return std::string("1\n");
    });
}

constexpr char kArmed[] = "timer set: in 5000 ms, then every 0 ms";
constexpr char kDisarmed[] = "timer set: in 0 ms, then every 0 ms";

// ---- The relay and its timer ----

TEST(EcallUIGpioRelay, RelayIsSwitchedOnAtOnce) {
    Module module;
    UseAnalogMicrophone(module);

    const Performed performed = Perform(module, {"ControlAudioRelay 1"});

    EXPECT_THAT(RelayWrites(module), ElementsAre("1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("ControlAudioRelay (SetRelayOn=1) - Enter", "TimerAudioRelay (activateTimer=0) - Enter",
                            "TimerAudioRelay - Exit", "GpioWrite - Enter : GpioId = 6, value = 1 ",
                            "/sys/class/ecall_gpio/lte-ecall-relay/value : set to value = 1",
                            "GpioWrite - Exit : ret = 0", "ControlAudioRelay - Exit"));
    EXPECT_THAT(ScriptRuns(module), IsEmpty());
}

TEST(EcallUIGpioRelay, RelayIsSwitchedOffFiveSecondsLater) {
    Module module;
    UseAnalogMicrophone(module);

    StartPerforming(module, {"ControlAudioRelay 1", "ControlAudioRelay 0", "stay"});

    const Entry on = module.journal.Await(IsWritten(line::kRelay, "1"));  // just before the off is asked for
    const Entry off = module.journal.Await(IsWritten(line::kRelay, "0"));
    EXPECT_GE(off.time - on.time, kSwitchOffDelay);
    module.journal.Await(IsTraced("GpioWrite - Exit"), off.seq);
    EXPECT_THAT(TimerUses(module), ElementsAre("timer made: monotonic clock, thread, value 0", kDisarmed, kArmed));
    EXPECT_THAT(
        HardwareMessages(module),
        ElementsAre("ControlAudioRelay (SetRelayOn=1) - Enter", "TimerAudioRelay (activateTimer=0) - Enter",
                    "TimerAudioRelay - Exit", "GpioWrite - Enter : GpioId = 6, value = 1 ",
                    "/sys/class/ecall_gpio/lte-ecall-relay/value : set to value = 1", "GpioWrite - Exit : ret = 0",
                    "ControlAudioRelay - Exit", "ControlAudioRelay (SetRelayOn=0) - Enter",
                    "TimerAudioRelay (activateTimer=1) - Enter", "TimerAudioRelay - Exit", "ControlAudioRelay - Exit",
                    "RelayTimer_callback: sig = 0 => switch off the audio relay",
                    "GpioWrite - Enter : GpioId = 6, value = 0 ",
                    "/sys/class/ecall_gpio/lte-ecall-relay/value : set to value = 0", "GpioWrite - Exit : ret = 0"));
}

TEST(EcallUIGpioRelay, OnWithinTheDelayTakesTheSwitchOffBack) {
    Module module;
    UseAnalogMicrophone(module);

    // Had the first switch-off stayed armed, the relay would drop before the last one is due.
    StartPerforming(module, {"ControlAudioRelay 1", "ControlAudioRelay 0", "sleep 100", "ControlAudioRelay 1",
                             "sleep 1000", "ControlAudioRelay 0", "stay"});

    const auto on = module.journal.AwaitCount(2, IsWritten(line::kRelay, "1"));
    const Entry off = module.journal.Await(IsWritten(line::kRelay, "0"));
    EXPECT_GE(off.time - on[1].time, kSwitchOffDelay + 1000ms);
    EXPECT_THAT(RelayWrites(module), ElementsAre("1", "1", "0"));
}

TEST(EcallUIGpioRelay, RelayAskedForWhileItsSwitchOffIsUnderWayStaysOn) {
    Module module;
    UseAnalogMicrophone(module);
    std::promise<void> onIsAskedFor;
    const std::shared_future<void> release = onIsAskedFor.get_future().share();
    module.attributes.OnWrite(line::kRelay, [release](const std::string& /*value*/) { release.wait(); });

    LetReadAwaitSwitchOff(module);
    StartPerforming(module, {"ControlAudioRelay 0", "GpioRead 3", "ControlAudioRelay 1", "stay"});
    module.journal.Await(IsTraced("TimerAudioRelay (activateTimer=0) - Enter"));
    EXPECT_THAT(RelayWrites(module), ElementsAre("0"));  // not finished yet
    onIsAskedFor.set_value();

    module.journal.Await(IsWritten(line::kRelay, "1"));
    EXPECT_THAT(RelayWrites(module), ElementsAre("0", "1"));
}

TEST(EcallUIGpioRelay, ExpiryThatAnOnHasOvertakenLeavesTheRelayOn) {
    Module module;
    UseAnalogMicrophone(module);

    const Performed performed = Perform(module, {"ControlAudioRelay 0", "ControlAudioRelay 1", "RelayTimer_callback"});

    EXPECT_EQ("RelayTimer_callback: sig = 0 => switch off the audio relay", performed.messages.back());
    EXPECT_THAT(RelayWrites(module), ElementsAre("1"));
}

TEST(EcallUIGpioRelay, OffWithinTheDelayBeginsItAnew) {
    Module module;
    UseAnalogMicrophone(module);

    StartPerforming(module,
                    {"ControlAudioRelay 1", "ControlAudioRelay 0", "sleep 1000", "ControlAudioRelay 0", "stay"});

    const Entry on = module.journal.Await(IsWritten(line::kRelay, "1"));
    const Entry off = module.journal.Await(IsWritten(line::kRelay, "0"));
    EXPECT_GE(off.time - on.time, kSwitchOffDelay + 1000ms);
    EXPECT_THAT(RelayWrites(module), ElementsAre("1", "0"));
}

TEST(EcallUIGpioRelay, ThreadsThatUseTheTimerFirstShareOne) {
    Module module;
    UseAnalogMicrophone(module);

    LetReadAwaitSwitchOff(module);
    StartPerforming(module, {"at-once TimerAudioRelay 1", "GpioRead 3", "TimerAudioRelay 1", "stay"});

    const auto expiries = module.journal.AwaitCount(2, IsWritten(line::kRelay, "0"));
    EXPECT_GE(expiries[1].time - expiries[0].time, kSwitchOffDelay);
    module.journal.AwaitCount(2, IsTraced("RelayTimer_callback"));
    EXPECT_EQ(2U, module.journal.Count(IsTraced("RelayTimer_callback")));  // a second timer would have come too
}

TEST(EcallUIGpioRelay, RelayThatIsNotUsedIsNotTouchedButTheScriptRuns) {
    Module module;
    UseScriptOnly(module);

    const Performed performed = Perform(module, {"ControlAudioRelay 1", "TimerAudioRelay 1", "sleep 5500"});

    EXPECT_THAT(ScriptRuns(module), ElementsAre("begin start", "end 0"));
    EXPECT_THAT(TimerUses(module), IsEmpty());
    EXPECT_THAT(module.journal.All(IsOpened(line::kRelay)), IsEmpty());
    EXPECT_THAT(performed.messages,
                ElementsAre("ControlAudioRelay (SetRelayOn=1) - Enter",
                            "launches the external script /etc/init.d/launch-audio-for-ecall.sh ",
                            "Child process exited with status 0",
                            "EcallUI_Configuration.AudioRelayUsed == false ==> do nothing", "ControlAudioRelay - Exit",
                            "TimerAudioRelay (activateTimer=1) - Enter",
                            "EcallUI_Configuration.AudioRelayUsed == false ==> do nothing", "TimerAudioRelay - Exit"));
}

TEST(EcallUIGpioRelay, WithoutATimerTheRelayIsSwitchedOn) {
    Module module;
    UseAnalogMicrophone(module);

    const Performed performed = Perform(module, {"fail timer_create " + std::to_string(EAGAIN), "ControlAudioRelay 0"});

    EXPECT_THAT(RelayWrites(module), ElementsAre("1"));
    EXPECT_THAT(performed.messages,
                ElementsAre("ControlAudioRelay (SetRelayOn=0) - Enter", "TimerAudioRelay (activateTimer=1) - Enter",
                            "Cannot create Relay timer error = Resource temporarily unavailable ==> activate the relay "
                            "by default",
                            "GpioWrite - Enter : GpioId = 6, value = 1 ",
                            "/sys/class/ecall_gpio/lte-ecall-relay/value : set to value = 1",
                            "GpioWrite - Exit : ret = 0", "ControlAudioRelay - Exit"));
    EXPECT_EQ("Cannot create Relay timer error = Resource temporarily unavailable ==> activate the relay by default",
              module.journal.Await(IsInSyslog("Cannot create")).text);
}

TEST(EcallUIGpioRelay, WithoutATimerTheSwitchOnEndsToo) {
    Module module;
    UseAnalogMicrophone(module);

    const Performed performed = Perform(module, {"fail timer_create " + std::to_string(ENOMEM), "ControlAudioRelay 1"});

    EXPECT_THAT(RelayWrites(module), ElementsAre("1", "1"));
    EXPECT_EQ("ControlAudioRelay - Exit", performed.messages.back());
}

TEST(EcallUIGpioRelay, WithoutATimerTheScriptStillRunsOnceAsAskedFor) {
    Module module;

    Perform(module, {"fail timer_create " + std::to_string(EAGAIN), "ControlAudioRelay 0"});

    EXPECT_THAT(ScriptRuns(module), ElementsAre("begin stop", "end 0"));
    EXPECT_THAT(RelayWrites(module), ElementsAre("1"));
}

TEST(EcallUIGpioRelay, OnlyFailuresReachTheSystemLog) {
    Module module;

    LetReadAwaitSwitchOff(module);
    StartPerforming(module, {"ControlAudioRelay 1", "ControlAudioRelay 0", "GpioRead 3", "GpioRead 77", "stay"});

    const Entry off = module.journal.Await(IsWritten(line::kRelay, "0"));
    module.journal.Await(IsTraced("GpioWrite - Exit"), off.seq);
    module.journal.Await(IsInSyslog("Unable to open 77 pin value file"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Syslog)), ElementsAre("Unable to open 77 pin value file\n"));
}

TEST(EcallUIGpioRelay, RelayThatIsNotUsedIsNoFailure) {
    Module module;
    UseScriptOnly(module);

    Perform(module, {"ControlAudioRelay 1", "TimerAudioRelay 1", "GpioRead 77"});

    module.journal.Await(IsInSyslog("Unable to open"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Syslog)), ElementsAre("Unable to open 77 pin value file\n"));
}

TEST(EcallUIGpioRelay, TimerIsTriedAgainAfterAFailure) {
    Module module;
    UseAnalogMicrophone(module);

    StartPerforming(module, {"fail timer_create " + std::to_string(EAGAIN), "ControlAudioRelay 0",
                             "fail timer_create 0", "ControlAudioRelay 0", "stay"});

    module.journal.Await(IsWritten(line::kRelay, "0"));
    EXPECT_THAT(RelayWrites(module), ElementsAre("1", "0"));
}

// ---- The script ----

TEST(EcallUIGpioRelay, ScriptEndsBeforeTheRelayIsTouched) {
    Module module;
    module.SetScript(file::kAudioScript, {.duration = 300ms});

    const Performed performed = Perform(module, {"ControlAudioRelay 1"});

    EXPECT_THAT(ScriptRuns(module), ElementsAre("begin start", "end 0"));
    EXPECT_LT(module.journal.Await({.kind = Kind::Script, .text = "end 0"}).seq,
              module.journal.Await(IsOpened(line::kRelay)).seq);
    EXPECT_THAT(performed.messages, AllOf(Contains("launches the external script "
                                                   "/etc/init.d/launch-audio-for-ecall.sh "),
                                          Contains("Child process exited with status 0")));
}

TEST(EcallUIGpioRelay, SwitchOffStopsTheAudio) {
    Module module;

    Perform(module, {"ControlAudioRelay 0"});

    EXPECT_THAT(ScriptRuns(module), ElementsAre("begin stop", "end 0"));
}

TEST(EcallUIGpioRelay, OtherMicrophonesNeedNoScript) {
    for (const char* const source : {"-1", "0", "2"}) {
        Module module;
        Configure(module, {{"EcallMicrophoneSource", source}});

        const Performed performed = Perform(module, {"ControlAudioRelay 1"});

        EXPECT_THAT(RelayWrites(module), ElementsAre("1"));
        EXPECT_THAT(ScriptRuns(module), IsEmpty());
        EXPECT_THAT(performed.messages, Not(Contains(HasSubstr("script"))));
    }
}

TEST(EcallUIGpioRelay, ScriptIsStartedByItsPlainName) {
    Module module;
    UseScriptOnly(module);
    // A shell in its place complains under its own name that it cannot find a script "start".
    std::ifstream shell("/bin/sh", std::ios::binary);
    module.root.WriteFile(file::kAudioScript, std::string(std::istreambuf_iterator<char>(shell), {}), 0755);

    Perform(module, {"ControlAudioRelay 1"});

    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Stderr)),
                Contains(AllOf(StartsWith(std::string(kScriptName) + ": "), HasSubstr("start"))));
}

TEST(EcallUIGpioRelay, AnyChildThatHasEndedIsTakenForTheScript) {
    Module module;
    UseScriptOnly(module);
    module.SetScript(file::kAudioScript, {.duration = 300ms});

    const Performed performed = Perform(module, {"leave-child 7", "ControlAudioRelay 1"});

    EXPECT_THAT(performed.messages, AllOf(Contains("Child process exited with status 1792"),
                                          Not(Contains("Child process exited with status 0"))));
}

TEST(EcallUIGpioRelay, ChildWithoutAScriptRunsNoExitHandlers) {
    Module module;
    UseScriptOnly(module);
    module.RemoveScript(file::kAudioScript);

    Perform(module, {"at-exit", "ControlAudioRelay 1"});

    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Stderr)),
                ElementsAre("at-exit = done", "ControlAudioRelay 1 = done"));
}

TEST(EcallUIGpioRelay, StatusOfTheScriptIsShownAsTheKernelGivesIt) {
    Module module;
    UseScriptOnly(module);
    module.SetScript(file::kAudioScript, {.exitStatus = 3});

    const Performed exited = Perform(module, {"ControlAudioRelay 1"});
    module.SetScript(file::kAudioScript, {.commands = "kill -9 $$"});
    const Performed killed = Perform(module, {"ControlAudioRelay 1"});

    EXPECT_THAT(exited.messages, Contains("Child process exited with status 768"));
    EXPECT_THAT(killed.messages, Contains("Child process exited with status 9"));
}

TEST(EcallUIGpioRelay, MissingScriptIsSaidAndTheRelaySwitchesAllTheSame) {
    Module module;
    module.RemoveScript(file::kAudioScript);

    const Performed performed = Perform(module, {"ControlAudioRelay 1"});

    EXPECT_THAT(performed.messages,
                ElementsAre("ControlAudioRelay (SetRelayOn=1) - Enter",
                            "launches the external script /etc/init.d/launch-audio-for-ecall.sh ",
                            "execl /etc/init.d/launch-audio-for-ecall.sh start failed ret = -1 (No such file or "
                            "directory)",
                            "", "Child process exited with status 256", "TimerAudioRelay (activateTimer=0) - Enter",
                            "TimerAudioRelay - Exit", "GpioWrite - Enter : GpioId = 6, value = 1 ",
                            "/sys/class/ecall_gpio/lte-ecall-relay/value : set to value = 1",
                            "GpioWrite - Exit : ret = 0", "ControlAudioRelay - Exit"));
    const Entry said = module.journal.Await(IsInSyslog("execl"));
    EXPECT_EQ("execl /etc/init.d/launch-audio-for-ecall.sh start failed ret = -1 (No such file or directory)\n",
              said.text);
}

TEST(EcallUIGpioRelay, ScriptThatMayNotRunIsSaidForStopToo) {
    Module module;
    UseScriptOnly(module);
    module.root.WriteFile(file::kAudioScript, "#!/bin/sh\n", 0644);

    const Performed performed = Perform(module, {"ControlAudioRelay 0"});

    EXPECT_THAT(performed.messages,
                Contains("execl /etc/init.d/launch-audio-for-ecall.sh stop failed ret = -1 (Permission denied)"));
}

TEST(EcallUIGpioRelay, FailedForkIsSaidAndTheRelaySwitchesAllTheSame) {
    Module module;

    const Performed performed = Perform(module, {"fail fork " + std::to_string(EAGAIN), "ControlAudioRelay 1"});

    EXPECT_THAT(performed.messages, AllOf(Contains("fork() failed (Resource temporarily unavailable)"),
                                          Not(Contains(HasSubstr("Child process")))));
    EXPECT_THAT(RelayWrites(module), ElementsAre("1"));
    EXPECT_THAT(ScriptRuns(module), IsEmpty());
    module.journal.Await(IsInSyslog("fork() failed (Resource temporarily unavailable)"));
}

TEST(EcallUIGpioRelay, ScriptRunsWithoutItsFailurePipe) {
    Module module;
    UseScriptOnly(module);

    const Performed performed = Perform(module, {"fail pipe2 " + std::to_string(EMFILE), "ControlAudioRelay 1"});

    EXPECT_THAT(ScriptRuns(module), ElementsAre("begin start", "end 0"));
    EXPECT_THAT(performed.messages, AllOf(Contains("pipe2() failed (Too many open files)"),
                                          Contains("Child process exited with status 0")));
}

TEST(EcallUIGpioRelay, AnInterruptedWaitGoesOn) {
    Module module;
    module.SetScript(file::kAudioScript, {.exitStatus = 3});

    const Performed performed = Perform(module, {"fail wait " + std::to_string(EINTR), "ControlAudioRelay 1"});

    EXPECT_THAT(performed.messages,
                AllOf(Contains("Child process exited with status 768"), Not(Contains(HasSubstr("wait() failed")))));
}

TEST(EcallUIGpioRelay, ChildThatSomebodyElseWaitedForIsSaidSo) {
    Module module;

    const Performed performed = Perform(module, {"fail wait " + std::to_string(ECHILD), "ControlAudioRelay 1"});

    EXPECT_THAT(performed.messages, AllOf(Contains("wait() failed (No child processes)"),
                                          Not(Contains(HasSubstr("Child process exited")))));
    EXPECT_THAT(RelayWrites(module), ElementsAre("1"));
}

TEST(EcallUIGpioRelay, ScriptStartsWithCleanSignalsAndDescriptors) {
    Module module;
    UseScriptOnly(module);
    module.SetScript(file::kAudioScript, {.commands = "grep -E 'Sig(Blk|Ign)' /proc/self/status > /tmp/signals\n"
                                                      "ls -l /proc/$$/fd > /tmp/descriptors"});

    Perform(module, {"ignore-sigpipe", "block-signals", "ControlAudioRelay 1"});

    EXPECT_EQ("SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n", module.root.ReadFile("/tmp/signals"));
    const std::string descriptors = module.root.ReadFile("/tmp/descriptors").value_or("");
    EXPECT_THAT(descriptors, AllOf(HasSubstr(" 1 -> "), Not(HasSubstr(" 3 -> ")), Not(HasSubstr(" 4 -> ")),
                                   Not(HasSubstr(" 5 -> "))));
}

TEST(EcallUIGpioRelay, NothingHangsWhenThreadsLogWhileTheScriptIsMissing) {
    Module module;
    Configure(module, {{"AudioRelayUsed", "false"}, {"MaxSizeOfTraceFileInKb", "64"}});
    module.RemoveScript(file::kAudioScript);
    constexpr int kRuns = 100;

    std::vector<std::string> operations = {"quiet", "background 4"};
    operations.insert(operations.end(), kRuns, "ControlAudioRelay 1");
    ModuleProcess& probe = StartPerforming(module, operations);

    EXPECT_EQ(0, probe.WaitForEnd(100s));
    EXPECT_EQ(static_cast<std::size_t>(kRuns),
              module.journal.Count({.kind = Kind::Stderr, .text = "ControlAudioRelay 1 = done"}));
    module.journal.Await(IsTraced(std::string(200, 'x')));  // the threads did log
}

}  // namespace
