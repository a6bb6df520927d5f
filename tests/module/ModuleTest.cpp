// The module as a whole, its verbs, its log, trace and scripts.
#include "Module.h"

#include <gmock/gmock.h>

#include <fstream>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr char kRotated[] = "/var/logs/ecall/XirEcallUIappSrvc_traces_1.txt";

// A line as the service writes it into its trace file.
std::string TraceLine(const std::string& message) {
    return "Nov 21 03:18:00.123      EcallUIGpio.cpp (  12) : " + message + "\n";
}

void AppendTrace(const Module& module, const std::string& message) {
    std::ofstream(module.root.Outside(file::kTrace), std::ios::app) << TraceLine(message) << std::flush;
}

std::string RunShell(Module& module, const std::string& command) {
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"run", command});
    EXPECT_TRUE(probe.WaitForEnd());
    return probe.Output();
}

std::string EventOf(Module& module) {
    const std::vector<std::string> texts = module.journal.Texts(IsKind(Kind::Uevent));
    return texts.empty() ? "" : texts.back().substr(texts.back().find("EVENT="));
}

}  // namespace

TEST(Module, AProgramReadsAndWritesItsLines) {
    Module module;

    ModuleProcess& probe = module.Start(MODULE_PROBE, {"read", line::kBatteryPresent, "write", line::kRelay, "1"});

    EXPECT_EQ(0, probe.WaitForEnd());
    EXPECT_EQ("read 2 ok 1\n\n\rwrite 1 ok\n\r", probe.Output());
    EXPECT_THAT(module.journal.Texts(IsRead(line::kBatteryPresent)), ElementsAre("1\n"));
    EXPECT_THAT(module.journal.Texts(IsWritten(line::kRelay)), ElementsAre("1"));
    EXPECT_EQ("1", module.Attribute(line::kRelay));
}

TEST(Module, AnEventOfTheSensorReachesAListenerAfterItsAttribute) {
    Module module;
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"listen", "1", "read", module.Sensor("pwm_status")});
    module.journal.Await(IsOnConsole("listening"));

    module.SensorBecomes(SensorStatus::Emergency);

    EXPECT_EQ(0, probe.WaitForEnd());
    EXPECT_THAT(probe.Output(), HasSubstr("uevent port 0 groups 1: change@/devices/vantu_pwm.0 ACTION=change "
                                          "DEVPATH=/devices/vantu_pwm.0 SUBSYSTEM=platform EVENT=EMERGENCY SEQNUM="));
    EXPECT_THAT(probe.Output(), HasSubstr("read 2 ok 3\n"));
}

TEST(Module, EachVerbOfTheHardwareSetsItsAttributeAndSendsItsEvent) {
    Module module;
    const struct {
        SensorStatus status;
        const char* attribute;
        const char* event;
    } kRows[] = {{SensorStatus::Invalid, "0\n", "EVENT=INVALID"},
                 {SensorStatus::NotDetected, "1\n", "EVENT=SENSOR NOT DETECTED"},
                 {SensorStatus::Normal, "2\n", "EVENT=NORMAL"},
                 {SensorStatus::Emergency, "3\n", "EVENT=EMERGENCY"},
                 {SensorStatus::NoInterrupt, "4\n", "EVENT=INVALID_NO_IRQ"}};
    for (const auto& row : kRows) {
        module.SensorBecomes(row.status);
        EXPECT_EQ(row.event, EventOf(module));
        EXPECT_EQ(row.attribute, module.Attribute(module.Sensor("pwm_status")));
    }
    module.ButtonPress();
    EXPECT_EQ("EVENT=ECALL ACTIVATED", EventOf(module));
    EXPECT_EQ("1\n", module.Attribute(line::kButton));
    module.ButtonRelease();
    EXPECT_EQ("0\n", module.Attribute(line::kButton));
    module.DtrBecomes(true);
    EXPECT_EQ("EVENT=DTR ACTIVATED", EventOf(module));
    EXPECT_EQ("0\n", module.Attribute(line::kDtr));
    module.DtrBecomes(false);
    EXPECT_EQ("EVENT=DTR INACTIVATED", EventOf(module));
    EXPECT_EQ("1\n", module.Attribute(line::kDtr));
}

TEST(Module, TheSystemLogIsInTheJournal) {
    Module module;

    EXPECT_EQ(0, module.Start(MODULE_PROBE, {"syslog", "a word to the log"}).WaitForEnd());

    const Entry entry = module.journal.Await(IsInSyslog("a word to the log"));
    EXPECT_EQ("module_probe", entry.subject);
    EXPECT_EQ(13, entry.result);
}

TEST(Module, ALineOfTheTraceIsInTheJournalOnce) {
    Module module;

    EXPECT_EQ(
        0,
        module.Start(MODULE_PROBE, {"append", file::kTrace, "first", "append", file::kTrace, "second"}).WaitForEnd());

    module.journal.Await(IsTraced("second"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Trace)), ElementsAre("first", "second"));
}

TEST(Module, TheTraceIsFollowedThroughARotation) {
    Module module;
    AppendTrace(module, "before");
    module.journal.Await(IsTraced("before"));

    RunShell(module, std::string("echo last >>") + file::kTrace + "; mv " + file::kTrace + " " + kRotated +
                         "; echo first >>" + file::kTrace);

    module.journal.Await(IsTraced("first"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Trace)), ElementsAre("before", "last", "first"));
}

TEST(Module, TheTraceIsFollowedWhenItsDirectoryIsMadeAnew) {
    Module module;
    AppendTrace(module, "before");
    module.journal.Await(IsTraced("before"));

    RunShell(module, "rm -r /var/logs/ecall; mkdir -m 755 /var/logs/ecall; echo after >>" + std::string(file::kTrace));

    module.journal.Await(IsTraced("after"));
}

TEST(Module, TheTraceIsFollowedOnADiskThatIsPutOverIt) {
    Module module;
    AppendTrace(module, "before");
    module.journal.Await(IsTraced("before"));

    module.root.LimitSpace(file::kTraceDirectory, 65536);
    AppendTrace(module, "on the small disk");
    module.journal.Await(IsTraced("on the small disk"));
    module.root.Restore(file::kTraceDirectory);
    AppendTrace(module, "after");
    module.journal.Await(IsTraced("after"));
}

TEST(Module, ALongTraceIsFollowedLineByLine) {
    Module module;
    constexpr int kLines = 20'000;

    RunShell(module, "seq 1 " + std::to_string(kLines) + " >>" + file::kTrace);

    module.journal.Await(IsTraced(std::to_string(kLines)));
    const std::vector<std::string> lines = module.journal.Texts(IsKind(Kind::Trace));
    ASSERT_EQ(static_cast<size_t>(kLines), lines.size());
    for (int i = 0; i < kLines; ++i) {
        ASSERT_EQ(std::to_string(i + 1), lines[static_cast<size_t>(i)]);
    }
}

TEST(Module, AScriptSaysWhenItBeginsAndEnds) {
    Module module;

    EXPECT_EQ("run 0\n\r", RunShell(module, std::string(file::kAudioScript) + " start"));

    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Script)), ElementsAre("begin start", "end 0"));
    EXPECT_EQ("launch-audio-for-ecall.sh", module.journal.Await(IsKind(Kind::Script)).subject);
}

TEST(Module, AScriptBehavesAsItIsTold) {
    Module module;
    constexpr auto kDuration = 200ms;
    module.SetScript(
        file::kMicrophoneTestScript,
        {.exitStatus = 7, .duration = kDuration, .commands = "echo 1 >/tmp/ecall_analog_mic_test_result.txt"});

    EXPECT_EQ("run 7\n\r", RunShell(module, file::kMicrophoneTestScript));

    EXPECT_EQ("1\n", module.root.ReadFile("/tmp/ecall_analog_mic_test_result.txt"));
    const std::vector<Entry> run = module.journal.All(IsKind(Kind::Script));
    ASSERT_EQ(2U, run.size());
    EXPECT_EQ("begin", run[0].text);
    EXPECT_EQ("end 7", run[1].text);
    EXPECT_GE(run[1].time - run[0].time, kDuration);
}

TEST(Module, AScriptCanHangOrBeMissing) {
    Module module;
    module.SetScript(file::kAudioScript, {.hangs = true});
    ModuleProcess& hanging = module.Start(MODULE_PROBE, {"run", std::string(file::kAudioScript) + " stop"});
    module.journal.Await(IsKind(Kind::Script));
    EXPECT_TRUE(hanging.IsRunning());

    module.RemoveScript(file::kAudioScript);

    EXPECT_THAT(RunShell(module, std::string(file::kAudioScript) + " start 2>/dev/null"), HasSubstr("run 127"));
    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Script)), ElementsAre("begin stop"));
}

TEST(Module, TheSpeakersDiagnosisIsAFileThatCanBeMissing) {
    Module module;

    EXPECT_EQ("0\nrun 0\n\r", RunShell(module, std::string("cat ") + line::kSpeaker));

    module.SetAttribute(line::kSpeaker, "2\n");
    EXPECT_EQ("2\nrun 0\n\r", RunShell(module, std::string("cat ") + line::kSpeaker));
    module.attributes.SetMissing(line::kSpeaker);
    EXPECT_EQ("run 1\n\r", RunShell(module, std::string("cat ") + line::kSpeaker));
}
