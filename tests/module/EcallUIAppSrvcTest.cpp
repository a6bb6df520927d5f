// The entry of the service: command line, order of start-up, main loop, self-test worker.
#include <gmock/gmock.h>

#include <sstream>

#include "ServiceWorld.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
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
             "GetUIStateFromSavedFile - Enter",
             "GetUIStateFromSavedFile - Exit",
             "InitGpio - Enter",
             "InitGpio - exit",
             "XirEcallapp_requestState ",
         }) {
        after = world.module.journal.Await({.kind = Kind::Console, .contains = line}, after).seq + 1;
    }
}

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

TEST(EcallUIAppSrvc, ARequestDuringASelfTestIsAnsweredByThatTest) {
    ServiceWorld world;
    world.Start();
    Journal& journal = world.module.journal;
    HoldSelfTests(world.module);
    SetSelfTestState(world.peer, ecall::kSelfTestRequested);
    journal.Await(IsTraced("RunSelfTest - Enter"));

    SetSelfTestState(world.peer, ecall::kSelfTestUnknown);
    SetSelfTestState(world.peer, ecall::kSelfTestRequested);
    journal.AwaitCount(2, IsTraced("TSelfTestState_Requested (3) ==> request the self-test if not already started"));
    world.module.root.WriteFile(kGo, "");
    journal.Await(IsTraced("RunSelfTest - Exit"));

    // The worker sleeps only while nothing is asked for.
    AwaitSleep(world.module.Service(), "SelfTest");
    EXPECT_EQ(1U, journal.Count(IsTraced("RunSelfTest - Enter")));

    SetSelfTestState(world.peer, ecall::kSelfTestUnknown);
    SetSelfTestState(world.peer, ecall::kSelfTestRequested);
    journal.AwaitCount(2, IsTraced("RunSelfTest - Enter"));
}
