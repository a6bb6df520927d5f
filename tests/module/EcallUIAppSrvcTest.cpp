// The entry of the service: command line, order of start-up, main loop, self-test worker.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "LocationPeer.h"
#include "ServiceWorld.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

namespace {

const std::string kBanner = "Start of ECALL UI (version=V0.22)\n\r";
const std::string kNormalUsage = "XirEcallUIappSrvc  ==> run XirEcallUIappSrvc in normal mode";
const std::string kDebugUsage = "XirEcallUIappSrvc -m ==> run XirEcallUIappSrvc in debug menu mode";

/// The service as it came to its end by itself, with these arguments.
struct FinishedService {
    explicit FinishedService(std::vector<std::string> arguments) {
        ModuleProcess& service = module.StartService(std::move(arguments));
        status = PrintStatus(service.WaitForEnd().value());
        output = service.Output();
    }

    Module module;
    std::string status;
    std::string output;
};

/// The messages of the trace file at the service's end, in order.
std::vector<std::string> TraceOf(Module& module) {
    module.journal.Await({.kind = Kind::Process, .contains = "exited"});
    std::vector<std::string> messages;
    std::istringstream lines(module.root.ReadFile(file::kTrace).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        messages.push_back(TraceTail::Parse(line).text);
    }
    return messages;
}

}  // namespace

TEST(EcallUIAppSrvc, AConsoleWhoseReaderIsGoneStopsNothing) {
    ServiceWorld world;
    ASSERT_TRUE(world.peer.Start());
    const std::string service = world.module.root.Install(Module::ServiceProgram());
    world.module.Start("/bin/sh", {"-c", service + " | :"});
    world.module.journal.Await(IsTraced("Wait for an event (blocking wait)"));

    world.module.SensorBecomes(SensorStatus::Emergency);

    EXPECT_TRUE(world.peer.AwaitRequests(EcallMethod::TriggerEcall, 1));
}

TEST(EcallUIAppSrvc, AStandardStreamThatCameClosedIsNothingElse) {
    ServiceWorld world;
    ASSERT_TRUE(world.peer.Start());
    const std::string service = world.module.root.Install(Module::ServiceProgram());

    const ModuleProcess& process = world.module.Start("/bin/sh", {"-c", "exec " + service + " <&- >&- 2>&-"});

    world.module.journal.Await(IsTraced("Wait for an event (blocking wait)"));
    const std::string streams = "/proc/" + std::to_string(process.Pid()) + "/fd/";
    for (const char* stream : {"0", "1", "2"}) {
        EXPECT_EQ("null", std::filesystem::read_symlink(streams + stream).filename()) << stream;
    }
    world.module.SensorBecomes(SensorStatus::Emergency);
    EXPECT_TRUE(world.peer.AwaitRequests(EcallMethod::TriggerEcall, 1));
}

// The command line.

TEST(EcallUIAppSrvc, HelpShowsBothUsagesAndEndsWellWithoutLoadingTheConfiguration) {
    FinishedService run({"-h"});

    EXPECT_EQ("exited 0", run.status);
    EXPECT_EQ(kBanner + kNormalUsage + kDebugUsage, run.output);
    EXPECT_FALSE(run.module.root.Exists(file::kConfiguration));
}

TEST(EcallUIAppSrvc, HelpAnywhereEndsTheProcessAlsoAfterTheDebugMenu) {
    FinishedService run({"word", "-m", "-h", "-x"});

    EXPECT_EQ("exited 0", run.status);
    EXPECT_EQ(kBanner + kDebugUsage + kNormalUsage + kDebugUsage, run.output);
}

TEST(EcallUIAppSrvc, OnlyTheSecondCharacterOfAnOptionCounts) {
    FinishedService run({"-hello"});

    EXPECT_EQ("exited 0", run.status);
    EXPECT_EQ(kBanner + kNormalUsage + kDebugUsage, run.output);
}

TEST(EcallUIAppSrvc, ABadOptionEndsTheProcessWithoutLoadingTheConfiguration) {
    FinishedService run({"-x", "-h"});

    EXPECT_EQ("exited 1", run.status);
    EXPECT_EQ(kBanner + "XirEcallUIappSrvc  -x ==> bad option\n\r", run.output);
    EXPECT_THAT(TraceOf(run.module),
                ElementsAre("Start of ECALL UI (version=V0.22)", "XirEcallUIappSrvc  -x ==> bad option"));
    EXPECT_EQ("XirEcallUIappSrvc  -x ==> bad option", run.module.journal.Await(IsInSyslog("bad option")).text);
    EXPECT_FALSE(run.module.root.Exists(file::kConfiguration));
}

TEST(EcallUIAppSrvc, ALoneDashIsABadOptionOfAnEmptyCharacter) {
    FinishedService run({"-"});

    EXPECT_EQ("exited 1", run.status);
    EXPECT_EQ(kBanner + "XirEcallUIappSrvc  -" + std::string(1, '\0') + " ==> bad option\n\r", run.output);
}

TEST(EcallUIAppSrvc, ADoubleDashIsABadOption) {
    FinishedService run({"--"});

    EXPECT_EQ("exited 1", run.status);
    EXPECT_THAT(run.output, HasSubstr("XirEcallUIappSrvc  -- ==> bad option"));
}

TEST(EcallUIAppSrvc, WordsWithoutADashAreIgnored) {
    ServiceWorld world;
    world.Configure(R"("ConnectEcallService": false)");

    world.module.StartService({"word", "", "m", "/h"});

    world.AwaitReady();
    EXPECT_THAT(world.module.Service().Output(), Not(HasSubstr("XirEcallUIappSrvc ")));
}

TEST(EcallUIAppSrvc, TheDebugMenuIsSaidAndTheServiceStarts) {
    ServiceWorld world;
    world.Configure(R"("ConnectEcallService": false)");

    world.module.StartService({"-m"});

    world.AwaitReady();
    EXPECT_THAT(world.module.Service().Output(), StartsWith(kBanner + kDebugUsage + "InitConfiguration - Enter\n\r"));
}

// Start-up and main loop.

namespace {

/// The names of the service's threads, as the kernel shows them, sorted.
std::vector<std::string> ThreadNames(const ModuleProcess& process) {
    std::vector<std::string> names;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process.Pid()) + "/task")) {
        std::getline(std::ifstream(task.path() / "comm"), names.emplace_back());
    }
    std::sort(names.begin(), names.end());
#ifdef __SANITIZE_THREAD__  // the sanitizer keeps a thread of its own under the name of the process
    names.erase(std::find(names.begin(), names.end(), "XirEcallUIappSr"));
#endif
    return names;
}

/// Waits for this number of threads: an expiry of the relay's timer runs on one more for a moment.
bool AwaitThreads(const ModuleProcess& process, size_t count) {
    for (const auto deadline = Journal::Clock::now() + Journal::kLimit; ThreadNames(process).size() != count;) {
        if (Journal::Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

/// The messages after the given one, once the main thread has come to its loop.
std::vector<std::string> MessagesUntilSleep(ServiceWorld& world, const std::string& message) {
    AwaitSleep(world.module.Service(), "XirEcallUIappSr");
    std::vector<std::string> messages = world.TraceMessages();
    messages.erase(messages.begin(), std::find(messages.begin(), messages.end(), message));
    return messages;
}

}  // namespace

TEST(EcallUIAppSrvc, StartUpGoesThroughItsStagesInOrder) {
    ServiceWorld world;
    world.Start();

    // All of these are said by the main thread.
    uint64_t after = 0;
    for (const char* line : {
             "Start of ECALL UI (version=V0.22)",
             "InitConfiguration - Enter",
             "InitConfiguration - Exit",
             "Connected. (srvcUrl=xirtcp://127.0.0.1:50911)",
             "APP_AUDIO_CONFIG_NUMBER",
             "XirCreateIEcallUIApp (protobuf) : OK",
             "GetUIStateFromSavedFile - Enter",
             "GetUIStateFromSavedFile - Exit",
             "InitGpio - Enter",
             "InitGpio - exit",
             "XirEcallapp_requestState ",
         }) {
        after = world.module.journal.Await(IsWithinConsoleLine(line), after).seq + 1;
    }
}

TEST(EcallUIAppSrvc, WithoutPeersAndInputsTheServiceStageIsWholeAndInOrder) {
    ServiceWorld world;
    world.Configure(
        R"("ConnectEcallService": false, "GpioInputPwm_ENS_Used": false, "GpioInputButton_nRQST_Used": false)");
    world.module.root.WriteFile(file::kState, std::string("\x00\x00\x01\xBD\xDC", 5));

    world.module.StartService();

    EXPECT_THAT(MessagesUntilSleep(world, "InitConfiguration - Exit"),
                ElementsAre("InitConfiguration - Exit", "XirCreateIEcallUIApp (protobuf) : OK",
                            // The state.
                            "GetUIStateFromSavedFile - Enter", "Crc16 - Enter", "Crc16 - Exit", "pEcallUIStateSaved : ",
                            "EcallUIState : EcallAntennaSelected=0, EcallAntennaDetectionActivated=0, "
                            "CanTriggerAutoEcall=1",
                            "GetUIStateFromSavedFile - Exit",
                            // The lines.
                            "InitGpio - Enter", "gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_07 (ANT_SEL_GPIO) configured at lo level", "GpioAntWrite - Exit : ret = 0",
                            "gpio_05 selected", "gpio_05 configured as an output",
                            "gpio_05 (ANT_DET_CTL_GPIO) configured at lo level", "GpioAntWrite - Exit : ret = 0",
                            StartsWith("SetUIStateAndUnlock - Enter, thread = 0x"),
                            StartsWith("SetUIStateAndUnlock - Exit, thread = 0x"), "InitGpio - exit"));
    EXPECT_THAT(ThreadNames(world.module.Service()), ElementsAre("IEcallUIAppSrvc", "SelfTest", "XirEcallUIappSr"));
}

TEST(EcallUIAppSrvc, TheServiceHasNoThreadButThoseItNames) {
    ServiceWorld world;
    world.Configure(R"("AudioRelayUsed": false)");
    const auto areTheNamedOnes =
        ElementsAre("IEcallApp", "IEcallUIAppSrvc", "SelfTest", "Thread_GPIO_UEV", "XirEcallUIappSr");

    world.Start();
    AwaitSleep(world.module.Service(), "XirEcallUIappSr");
    EXPECT_THAT(ThreadNames(world.module.Service()), areTheNamedOnes);

    EXPECT_TRUE(world.IsCrashReported());
    EXPECT_THAT(ThreadNames(world.module.Service()), areTheNamedOnes);
}

TEST(EcallUIAppSrvc, WithEverythingSwitchedOnEveryThreadIsThere) {
    ServiceWorld world;
    LocationPeer positions(world.module.journal);
    ASSERT_TRUE(positions.Start());
    world.Configure(
        R"("AudioRelayUsed": false, "ConnectLocationService": true, "EcallButtonPullingDetectionMode": true)");

    world.Start();

    AwaitSleep(world.module.Service(), "XirEcallUIappSr");
    EXPECT_EQ(10s, AwaitSleep(world.module.Service(), "Thread_GNSS"));
    EXPECT_THAT(ThreadNames(world.module.Service()),
                ElementsAre("ButtonPolling", "IEcallApp", "IEcallUIAppSrvc", "LocationProvide", "SelfTest",
                            "Thread_GNSS", "Thread_GPIO_UEV", "XirEcallUIappSr"));
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIAppSrvc, TheServiceStageGoesThroughItsStepsInOrder) {
    ServiceWorld world;
    world.Configure(R"("EcallButtonPullingDetectionMode": true, "RestoreContextOnBoot": false)");

    world.Start();

    // All of these are said by the main thread.
    uint64_t after = 0;
    for (const char* line : {
             "set the Ecall APP_AUDIO_CONFIG_NUMBER configuration",
             "XirCreateIEcallUIApp (protobuf) : OK",
             "EcallButtonPullingDetectionMode == true ==> start the Ecall button detection thread",
             "lEcallHLAPConfiguration.RestoreContextOnBoot == false ==> do not init the state from the saved file",
             "InitGpio - Enter",
             "XirEcallapp_requestState ",
         }) {
        after = world.module.journal.Await(IsWithinConsoleLine(line), after).seq + 1;
    }
}

TEST(EcallUIAppSrvc, TheRelaysTimerIsWatchedByOneThreadMore) {
    ServiceWorld world;

    world.Start();
    AwaitSleep(world.module.Service(), "XirEcallUIappSr");
    EXPECT_TRUE(AwaitThreads(world.module.Service(), 6));

    EXPECT_TRUE(world.IsCrashReported());
    EXPECT_TRUE(AwaitThreads(world.module.Service(), 6));
}

TEST(EcallUIAppSrvc, EveryThreadOfTheServiceStageStartsBeforeTheAntennaIsDriven) {
    ServiceWorld world;
    world.Configure(
        R"("ConnectEcallService": false, "ConnectLocationService": true, "EcallButtonPullingDetectionMode": true)");
    std::promise<void> looked;
    // The main thread's first write is held until the test has looked.
    world.module.attributes.OnWrite(line::kAntennaNumber,
                                    [isOver = looked.get_future().share()](const std::string&) { isOver.wait(); });

    world.module.StartService();

    EXPECT_TRUE(world.module.journal.WaitFor(IsWithinConsoleLine("Thread_GPIO_UEVNET - Enter")));
    // A thread may run before its starter, the main thread, has named it: the antenna's open comes after that.
    EXPECT_TRUE(world.module.journal.WaitFor(IsOpened(line::kAntennaNumber)));
    EXPECT_THAT(ThreadNames(world.module.Service()),
                IsSupersetOf({"SelfTest", "ButtonPolling", "Thread_GNSS", "Thread_GPIO_UEV"}));
    looked.set_value();
    world.AwaitReady();
}

#ifndef __SANITIZE_THREAD__  // it does not start in the address space that such a stack limit leaves
TEST(EcallUIAppSrvc, ThreadsThatCannotBeStartedAreSaidAndStartUpGoesOn) {
    ServiceWorld world;
    world.Configure(
        R"("ConnectEcallService": false, "ConnectLocationService": true, "EcallButtonPullingDetectionMode": true)");
    const std::string service = world.module.root.Install(Module::ServiceProgram());

    // No address space has room for such a stack (200 TB), and a thread is given one.
    world.module.Start("/bin/sh", {"-c", "ulimit -s 200000000000; exec " + service});

    uint64_t after = world.module.journal.Await(IsTraced("XirCreateIEcallUIApp")).seq;  // the server is the first
    for (const std::string name : {"SelfTest", "ButtonPolling", "Thread_GNSS"}) {
        const std::string message = "Cannot start the thread " + name + " (Resource temporarily unavailable)";
        const Entry traced = world.module.journal.Await(IsTracedAs(message), after);
        EXPECT_THAT(traced.subject, EndsWith("srvc_c/src/EcallUIAppSrvc.cpp"));
        world.module.journal.Await(IsInSyslogAs(message));
        after = traced.seq;
    }
    after = world.module.journal.Await(IsTracedAs("GetUIStateFromSavedFile - Enter"), after).seq;
    world.module.journal.Await(IsTraced("InitGpio - exit"), after);
}
#endif

TEST(EcallUIAppSrvc, TheMainThreadSleepsInStepsOf500Milliseconds) {
    ServiceWorld world;
    world.Start();

    EXPECT_EQ(500ms, AwaitSleep(world.module.Service(), "XirEcallUIappSr"));
}

TEST(EcallUIAppSrvc, ASignalEndsTheService) {
    ServiceWorld world;
    world.Start();

    world.module.Service().Signal(SIGTERM);

    EXPECT_EQ("killed by SIGTERM", PrintStatus(world.module.Service().WaitForEnd().value()));
}

// The self-test worker.

namespace {

constexpr char kGo[] = "/tmp/go";

/// A self-test that begins, and ends once the file kGo exists: the audio script of its first step waits for it.
void HoldSelfTests(Module& module) {
    module.SetScript(file::kAudioScript, {.commands = "while [ ! -e /tmp/go ]; do sleep 0.01; done"});
}

void SetSelfTestState(EcallPeer& peer, uint32_t selfTestState) {
    EcallState state = peer.State();
    state.selfTestState = selfTestState;
    peer.SetState(state);
}

}  // namespace

TEST(EcallUIAppSrvc, TheSelfTestWorkerPollsEverySecond) {
    ServiceWorld world;
    world.Start();

    EXPECT_EQ(1000ms, AwaitSleep(world.module.Service(), "SelfTest"));
}

TEST(EcallUIAppSrvc, ASelfTestThatIsAskedForIsRunAndReported) {
    ServiceWorld world;
    world.Start();

    world.peer.RequestSelfTest();

    EXPECT_TRUE(world.peer.AwaitRequests(EcallMethod::UpdateSelfTestAllDevicesState, 1));
}

TEST(EcallUIAppSrvc, APositionDuringASelfTestIsReportedAtOnce) {
    ServiceWorld world;
    Journal& journal = world.module.journal;
    LocationPeer positions(journal);
    ASSERT_TRUE(positions.Start());
    world.Configure(R"("ConnectLocationService": true)");
    world.Start();
    AwaitSleep(world.module.Service(), "Thread_GNSS");  // it has subscribed
    HoldSelfTests(world.module);
    world.peer.RequestSelfTest();
    journal.Await(IsTraced("RunSelfTest - Enter"));

    positions.Send({.valid = true});

    Match isReport = IsRpcRequest("updateSelfTestAllDevicesState");
    isReport.contains = "gnssParametersIntegrity=Success(0)";
    journal.Await(isReport);
    EXPECT_EQ(0U, journal.Count(IsTraced("RunSelfTest - Exit")));
    world.module.root.WriteFile(kGo, "");
    journal.Await(IsTraced("RunSelfTest - Exit"));
}

TEST(EcallUIAppSrvc, ARequestDuringASelfTestIsAnsweredByThatTest) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();  // the closing pull of start-up looks at the self-test state, too
    Journal& journal = world.module.journal;
    HoldSelfTests(world.module);
    SetSelfTestState(world.peer, ecall::kSelfTestRequested);
    journal.Await(IsTraced("RunSelfTest - Enter"));

    SetSelfTestState(world.peer, ecall::kSelfTestUnknown);
    SetSelfTestState(world.peer, ecall::kSelfTestRequested);
    const Match asked = IsTraced("TSelfTestState_Requested (3) ==> request the self-test if not already started");
    const Entry repeated = journal.AwaitCount(2, asked).back();
    journal.Await(IsTraced("simProfileState"), repeated.seq);  // only now its flag is surely set
    world.module.root.WriteFile(kGo, "");
    journal.Await(IsTraced("RunSelfTest - Exit"));

    // The worker sleeps only while nothing is asked for.
    AwaitSleep(world.module.Service(), "SelfTest");
    EXPECT_EQ(1U, journal.Count(IsTraced("RunSelfTest - Enter")));

    SetSelfTestState(world.peer, ecall::kSelfTestUnknown);
    SetSelfTestState(world.peer, ecall::kSelfTestRequested);
    journal.AwaitCount(2, IsTraced("RunSelfTest - Enter"));
}
