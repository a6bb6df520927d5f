// The service's own RPC interface as its clients see it: the bytes of requests and replies, what is said, who waits for
// whom, and what clients may do that know no manners.
#include <gmock/gmock.h>

#include <algorithm>
#include <list>
#include <optional>

#include "RawPeer.h"
#include "ServiceWorld.h"
#include "UiParameters.h"

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr char kResultFile[] = "/tmp/ecall_analog_mic_test_result.txt";
constexpr char kMicScript[] = "ecall_analog_mic_test.sh";
constexpr char kAudioScript[] = "launch-audio-for-ecall.sh";
constexpr int64_t kMicFailed = 4294967280;  // -16 in 32 bits

const std::string kVersionReply = ProtoBytes().Number(1, 0).Text(2, "0.1.0-r1, V0.22").bytes;

std::string MicReply(int64_t code, float value) {
    return ProtoBytes().Number(1, code).Float(2, value).bytes;
}

/// A script that waits for the file, which makes it measurable who waits for whom.
std::string WaitFor(const std::string& path) {
    return "while [ ! -e " + path + " ]; do sleep 0.01; done\n";
}

void LetScriptMeasure(Module& module, const std::string& text, const std::string& before = "") {
    module.SetScript(file::kMicrophoneTestScript, {.commands = before + "echo '" + text + "' > " + kResultFile});
}

struct ImplWorld : ServiceWorld {
    /// Starts the service without its eCall service.
    void StartAlone() {
        Configure(R"("ConnectEcallService": false)");
        module.StartService();
        module.journal.Await(IsTraced("Wait for an event (blocking wait) "));  // also in the file from now on
        AwaitRest();
    }
    /// The messages since start-up, once the server has answered.
    std::vector<std::string> MessagesOf(RawClient& client, UiMethod method, const std::string& payload) {
        const size_t before = TraceMessages().size();
        client.Call(method, payload);
        std::vector<std::string> messages = TraceMessages();
        messages.erase(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(before));
        return messages;
    }
    Match IsScript(const char* name, const char* text) { return {.kind = Kind::Script, .subject = name, .text = text}; }
};

const std::string kConn = " \\(conn=(0x[0-9a-f]+|\\(nil\\))\\)";

}  // namespace

// --- The methods ---

TEST(EcallUIAppImplOfTheService, ARequestForAParameterIsAnsweredByteByByte) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    const RawFrame reply = client.Call(0, std::string("\x08\x07", 2));

    EXPECT_EQ(0, reply.method);
    EXPECT_EQ(kReply, reply.kind);
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(1U, reply.id);
    EXPECT_EQ(std::string("\x08\x00\x12\x06\x08\x00\x10\x0a\x1a\x00", 10), reply.payload);
}

TEST(EcallUIAppImplOfTheService, AReadingIsSaidStepByStep) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    EXPECT_THAT(world.MessagesOf(client, kGetUiCfgParameter, UiGetRequest(22)),
                ElementsAre(MatchesRegex("get_cfg_parameter_impl" + kConn + ", cfgParamName=22"), "",
                            "EcallUIGetParameter - Enter", "cfgParamName=22, BoolValue=0, IntValue=0, StrValue=DTR",
                            "EcallGetParameter - Exit"));
}

TEST(EcallUIAppImplOfTheService, ARequestToSetAParameterIsAnsweredByteByByte) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    const RawFrame reply = client.Call(1, std::string("\x08\x07\x12\x07\x08\x00\x10\x14\x1a\x01x", 11));

    EXPECT_EQ(1, reply.method);
    EXPECT_EQ(kReply, reply.kind);
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(std::string("\x08\x00", 2), reply.payload);
    EXPECT_EQ(UiGetReply({.number = 20}), client.Call(kGetUiCfgParameter, UiGetRequest(7)).payload);
}

TEST(EcallUIAppImplOfTheService, ASetIsSaidStepByStep) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    EXPECT_THAT(
        world.MessagesOf(client, kSetUiCfgParameter, UiSetRequest(7, {.boolean = 1, .number = -20, .text = "abc"})),
        ElementsAre(MatchesRegex("com_vantu_ecalluiapp_iecalluiapp_set_cfg_parameter_impl" + kConn +
                                 ", cfgParam=7, bool=1, int=-20, Str=abc"),
                    "", "EcallUISetParameter - Enter, cfgParamName=7, BoolValue=1, IntValue=-20, StrValue=abc",
                    "SaveConfiguration - Enter", "fill Json buffer", "SaveConfiguration - Exit",
                    "EcallUISetParameter - Exit"));
}

TEST(EcallUIAppImplOfTheService, TheVersionIsThatOfPackageAndApplication) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    EXPECT_THAT(world.MessagesOf(client, kGetUiVersion, ""),
                ElementsAre(MatchesRegex("com_vantu_ecalluiapp_iecalluiapp_get_version_impl" + kConn), "",
                            "pVersion =  0.1.0-r1, V0.22 ", ""));
    const RawFrame reply = client.Call(2, "");
    EXPECT_EQ(2, reply.method);
    EXPECT_EQ(std::string("\x08\x00\x12\x0f", 4) + "0.1.0-r1, V0.22", reply.payload);
}

TEST(EcallUIAppImplOfTheService, TheInterfaceNamesItselfAndItsVersion) {
    ImplWorld world;
    world.StartAlone();

    const RawFrame reply = RawClient(kUiPort).Call(4, "");

    EXPECT_EQ(4, reply.method);
    EXPECT_EQ(std::string("\x08\x00\x10\x01\x18\x04\x22\x20", 8) + "com.vantu.ecalluiapp.iecalluiapp", reply.payload);
}

TEST(EcallUIAppImplOfTheService, AMicrophoneTestIsAnsweredByteByByteAndSaidStepByStep) {
    ImplWorld world;
    world.StartAlone();
    LetScriptMeasure(world.module, "12,5");
    RawClient client(kUiPort);

    EXPECT_THAT(
        world.MessagesOf(client, kRunAnalogMicTest, ""),
        ElementsAre(MatchesRegex("com_vantu_ecalluiapp_iecalluiapp_run_analog_mic_test_impl" + kConn), "",
                    "launches the external script to run the analog microphone test",
                    "Child process exited with status 0", "Read /tmp/ecall_analog_mic_test_result.txt : 12,5",
                    ", ByteRead = 5", "MesuredValue = 12.500000", "Script run without error, Value = 12.500000"));
    const RawFrame reply = client.Call(3, "");
    EXPECT_EQ(3, reply.method);
    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(std::string("\x08\x00\x15\x00\x00\x48\x41", 7), reply.payload);
}

TEST(EcallUIAppImplOfTheService, AMicrophoneTestThatFailsIsAnsweredWithoutAValue) {
    ImplWorld world;
    world.StartAlone();
    LetScriptMeasure(world.module, "1a3");
    RawClient client(kUiPort);

    const RawFrame reply = client.Call(3, "");

    EXPECT_EQ(0, reply.status);
    EXPECT_EQ(std::string("\x08\xf0\xff\xff\xff\x0f\x15\x00\x00\x00\x00", 11), reply.payload);
    EXPECT_EQ(MicReply(kMicFailed, 0), reply.payload);
    EXPECT_THAT(world.SystemLog(), AllOf(Contains("Error, bad value 0x61 "), Contains("Script run with error")));
}

TEST(EcallUIAppImplOfTheService, EachFailureOfTheScriptIsAnsweredAlike) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);
    const std::string measures = "echo 12.5 > " + std::string(kResultFile);

    world.module.SetScript(file::kMicrophoneTestScript, {.exitStatus = 1, .commands = measures});
    EXPECT_EQ(MicReply(kMicFailed, 0), client.Call(kRunAnalogMicTest, "").payload);
    world.module.SetScript(file::kMicrophoneTestScript, {.commands = measures + "\nkill -9 $$"});
    EXPECT_EQ(MicReply(kMicFailed, 0), client.Call(kRunAnalogMicTest, "").payload);
    world.module.SetScript(file::kMicrophoneTestScript, {.commands = "printf '' > " + std::string(kResultFile)});
    EXPECT_EQ(MicReply(kMicFailed, 0), client.Call(kRunAnalogMicTest, "").payload);
    world.module.root.WriteFile(file::kMicrophoneTestScript, "#!/bin/sh\n", 0644);
    EXPECT_EQ(MicReply(kMicFailed, 0), client.Call(kRunAnalogMicTest, "").payload);
    world.module.RemoveScript(file::kMicrophoneTestScript);
    EXPECT_EQ(MicReply(kMicFailed, 0), client.Call(kRunAnalogMicTest, "").payload);

    // And the next one that goes well is none of theirs.
    LetScriptMeasure(world.module, "3.5");
    EXPECT_EQ(MicReply(0, 3.5F), client.Call(kRunAnalogMicTest, "").payload);
}

TEST(EcallUIAppImplOfTheService, TheScriptInheritsNoConnection) {
    ServiceWorld world;
    world.module.SetScript(file::kMicrophoneTestScript, {.commands = "ls -l /proc/$$/fd > /tmp/descriptors"});
    world.Start();
    RawClient other(kUiPort);
    EXPECT_EQ(kVersionReply, other.Call(kGetUiVersion, "").payload);

    EXPECT_EQ(MicReply(0, 0), RawClient(kUiPort).Call(kRunAnalogMicTest, "").payload);

    const std::string descriptors = world.module.root.ReadFile("/tmp/descriptors").value_or("");
    EXPECT_THAT(descriptors, AllOf(HasSubstr(" 1 -> "), Not(HasSubstr("socket:"))));
}

TEST(EcallUIAppImplOfTheService, AMicrophoneTestWithoutAResultGoesWellWithTheValueZero) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    EXPECT_EQ(MicReply(0, 0), client.Call(kRunAnalogMicTest, "").payload);

    EXPECT_THAT(world.TraceMessages(), Contains("Script run without error, Value = 0.000000"));
}

TEST(EcallUIAppImplOfTheService, WhatIsNoRequestOfTheInterfaceIsRefusedAndTheConnectionGoesOn) {
    ImplWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    EXPECT_EQ(1, client.Call(5, "").status);
    EXPECT_EQ(2, client.Call(kGetUiCfgParameter, "").status);
    EXPECT_EQ(2, client.Call(kGetUiCfgParameter, "\xff").status);
    EXPECT_EQ(2, client.Call(kSetUiCfgParameter, UiGetRequest(7)).status);
    EXPECT_EQ(2, client.Call(kSetUiCfgParameter, ProtoBytes().Number(1, 7).Text(2, "").bytes).status);

    EXPECT_EQ(kVersionReply, client.Call(kGetUiVersion, "").payload);
    EXPECT_EQ(kVersionReply, client.Call(kGetUiVersion, ProtoBytes().Text(15, "unknown field").bytes).payload);
}

// --- Start ---

TEST(EcallUIAppImplOfTheService, TheServerIsTheFirstOfTheServiceStage) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();

    const std::string output = world.module.Service().Output();
    EXPECT_THAT(output, HasSubstr("iecalluiapp_srvcThread binding url=xirtcp://50101\n"));
    uint64_t after = 0;
    for (const char* line : {"APP_AUDIO_CONFIG_NUMBER", "iecalluiapp_srvcThread binding url=xirtcp://50101",
                             "XirCreateIEcallUIApp (protobuf) : OK", "GetUIStateFromSavedFile - Enter"}) {
        after = world.module.journal.Await(IsWithinConsoleLine(line), after).seq + 1;
    }
    world.module.journal.Await(IsTraced("XirCreateIEcallUIApp (protobuf) : OK"));
}

TEST(EcallUIAppImplOfTheService, ATakenPortLeavesTheServiceWithoutItsServer) {
    ServiceWorld world;
    const TakenPort taken(kUiPort);

    world.Start();

    EXPECT_THAT(world.SystemLog(), Contains("XirCreateIEcallUIApp failed (result=-2)"));
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIAppImplOfTheService, TheServerIsReachedFromThisMachineOnly) {
    ImplWorld world;
    world.StartAlone();

    const std::string listeners = world.module.root.ReadFile("/proc/net/tcp").value_or("");

    // 50101 is C3B5; an address shows with its bytes turned round.
    EXPECT_THAT(listeners, HasSubstr(" 0100007F:C3B5 00000000:0000 0A "));
    EXPECT_THAT(listeners, Not(HasSubstr(" 00000000:C3B5 ")));
}

// --- One at a time ---

TEST(EcallUIAppImplOfTheService, AnotherClientWaitsForTheMicrophoneTest) {
    ImplWorld world;
    world.StartAlone();
    LetScriptMeasure(world.module, "2", WaitFor("/tmp/go"));
    RawClient tester(kUiPort);
    RawClient other(kUiPort);
    tester.Request(kRunAnalogMicTest, "");
    world.module.journal.Await(world.IsScript(kMicScript, "begin"));

    other.Request(kGetUiVersion, "");
    other.Request(kGetUiCfgParameter, UiGetRequest(7));
    // The test's answer is written before the other client's request is even looked at.
    world.module.root.WriteFile("/tmp/go", "");

    EXPECT_EQ(kVersionReply, other.Receive().payload);
    EXPECT_EQ(UiGetReply({.number = 10}), other.Receive().payload);
    EXPECT_EQ(MicReply(0, 2), tester.Receive().payload);
    const std::vector<std::string> messages = world.TraceMessages();
    const auto tested = std::find(messages.begin(), messages.end(), "Script run without error, Value = 2.000000");
    const auto asked = std::find(messages.begin(), messages.end(), "pVersion =  0.1.0-r1, V0.22 ");
    ASSERT_NE(messages.end(), tested);
    EXPECT_LT(tested, asked);
}

TEST(EcallUIAppImplOfTheService, AMicrophoneTestThatNeverEndsHoldsNoCrashAndNoCall) {
    ServiceWorld world;
    world.module.SetScript(file::kMicrophoneTestScript, {.hangs = true});
    world.Start();
    world.AwaitRest();
    RawClient client(kUiPort);
    client.Request(kRunAnalogMicTest, "");
    world.module.journal.Await({.kind = Kind::Script, .subject = kMicScript, .text = "begin"});
    const uint64_t mark = world.module.journal.Mark();

    EXPECT_TRUE(world.IsCrashReported());

    // The call's outputs follow, too: the audio script has ended and the speaker is on.
    world.module.journal.Await({.kind = Kind::Script, .subject = kAudioScript, .text = "end 0"}, mark);
    world.module.journal.Await(IsWritten(line::kRelay, "1"), mark);
}

// --- Two scripts at once ---

namespace {

/// By hand, so that nothing follows by itself.
void StartCall(EcallPeer& peer) {
    EcallState state = peer.State();
    state.serviceState = ecall::kActiveManualCall + ecall::kAutomatic;
    peer.SetState(state);
}

/// How many ends of scripts were said, in the file itself.
std::ptrdiff_t SaidEnds(ServiceWorld& world) {
    return std::ranges::count_if(world.TraceMessages(),
                                 [](const std::string& message) { return message.starts_with("Child process"); });
}

/// What was said of the script that ended last.
std::string LastStatus(ServiceWorld& world) {
    std::string last;
    for (const std::string& message : world.TraceMessages()) {
        last = message.starts_with("Child process") ? message : last;
    }
    return last;
}

/// A call that has started during a microphone test, so that both scripts run. That of the test ends when
/// "/tmp/microphone" is there.
struct TwoScripts {
    ServiceWorld world;
    Journal& journal = world.module.journal;
    std::optional<RawClient> client;  ///< has asked for the test
    uint64_t mark = 0;                ///< before the call

    explicit TwoScripts(const ScriptBehaviour& audioScript) {
        LetScriptMeasure(world.module, "12.5", WaitFor("/tmp/microphone"));
        world.Start();
        world.AwaitRest();
        world.module.SetScript(file::kAudioScript, audioScript);
        client.emplace(kUiPort);
        client->Request(kRunAnalogMicTest, "");
        journal.Await({.kind = Kind::Script, .subject = kMicScript, .text = "begin"});
        mark = journal.Mark();
        StartCall(world.peer);
        journal.Await({.kind = Kind::Script, .subject = kAudioScript, .text = "begin start"}, mark);
    }

    void EndMicrophoneScript() { world.module.root.WriteFile("/tmp/microphone", ""); }
};

}  // namespace

TEST(EcallUIAppImplOfTheService, ACallThatStartsDuringAMicrophoneTestWaitsForItsOwnScriptOnly) {
    TwoScripts scripts({.exitStatus = 3});

    const Entry relayIsOn = scripts.journal.Await(IsWritten(line::kRelay, "1"), scripts.mark);
    // In the file itself: it has each line before the service goes on.
    EXPECT_THAT(scripts.world.TraceMessages(), Contains("Child process exited with status 768"));
    scripts.EndMicrophoneScript();

    EXPECT_EQ(MicReply(0, 12.5F), scripts.client->Receive().payload);
    const Entry tested = scripts.journal.Await({.kind = Kind::Script, .subject = kMicScript, .text = "end 0"});
    EXPECT_LT(relayIsOn.seq, tested.seq);
    EXPECT_EQ("Child process exited with status 0", LastStatus(scripts.world));
}

TEST(EcallUIAppImplOfTheService, ScriptsThatEndTheOtherWayRoundHoldNobody) {
    TwoScripts scripts({.exitStatus = 3, .commands = WaitFor("/tmp/audio")});
    const std::ptrdiff_t before = SaidEnds(scripts.world);

    // The relay's wait is given this end, or goes on until the audio script ends.
    scripts.EndMicrophoneScript();
    EXPECT_EQ(MicReply(0, 12.5F), scripts.client->Receive().payload);
    scripts.world.module.root.WriteFile("/tmp/audio", "");

    scripts.journal.Await(IsWritten(line::kRelay, "1"), scripts.mark);
    EXPECT_EQ(before + 2, SaidEnds(scripts.world));
    EXPECT_EQ(kVersionReply, scripts.client->Call(kGetUiVersion, "").payload);
}

TEST(EcallUIAppImplOfTheService, AnAudioScriptThatNeverEndsHoldsNoMicrophoneTest) {
    TwoScripts scripts({.hangs = true});

    scripts.EndMicrophoneScript();

    EXPECT_EQ(MicReply(0, 12.5F), scripts.client->Receive().payload);
    for (int i = 0; i < 5; ++i) {  // as long as the relay waits, either may be given each end
        EXPECT_EQ(MicReply(0, 12.5F), scripts.client->Call(kRunAnalogMicTest, "").payload);
        EXPECT_EQ(kVersionReply, scripts.client->Call(kGetUiVersion, "").payload);
    }
    // The relay may be waiting still, and then no state is followed. The crash is reported all the same.
    scripts.world.module.SensorBecomes(SensorStatus::Emergency);
    EXPECT_EQ("automatic=1", scripts.journal.Await(IsRpcRequest("triggerEcall"), scripts.mark).text);
}

// --- Clients without manners ---

namespace {

#ifdef __SANITIZE_ADDRESS__  // the sanitizer keeps up to 256 MiB of what was freed
constexpr size_t kModestMemory = size_t{288} << 20;
#else
constexpr size_t kModestMemory = size_t{32} << 20;
#endif

/// One visit of such a client, which is gone at its end.
void Misbehave(int kind) {
    const std::string request = FrameBytes({kGetUiVersion, kRequest, 0, 1, ""});
    RawClient client(kUiPort);
    switch (kind % 6) {
        case 0:  // says nothing
            break;
        case 1:  // half a header
            client.Send(request.substr(0, 5));
            break;
        case 2:  // a header whose payload never comes
            client.Send(FrameBytes({kSetUiCfgParameter, kRequest, 0, 1, std::string(100000, 'x')}).substr(0, 5000));
            break;
        case 3:  // no frame
            client.Send(std::string(64, '\xff'));
            client.WaitForEnd();
            break;
        case 4:  // a reply where only requests may come
            client.Send(FrameBytes({kGetUiVersion, kReply, 0, 1, ""}));
            client.WaitForEnd();
            break;
        default:  // asks and does not wait for the answers
            for (int i = 0; i < 50; ++i) {
                client.Send(request);
            }
            break;
    }
}

}  // namespace

TEST(EcallUIAppImplOfTheService, HundredsOfClientsWithoutMannersLeaveNothingBehind) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    RawClient polite(kUiPort);
    EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);
    const auto visit = [&polite](int count) {
        for (int i = 0; i < count; ++i) {
            Misbehave(i);
            if (i % 10 == 0) {
                EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);
            }
        }
        EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);
    };
    visit(60);  // what a server keeps for reuse it has by then
    const ProcessUsage before = world.module.Service().Usage();

    visit(300);

    const ProcessUsage after = world.module.Service().Usage();
    // The server accepts in order, and two visits of each six wait until it has closed them: what it may still hold of
    // those before is of the last six.
    EXPECT_LE(after.descriptors, before.descriptors + 6);
    EXPECT_LT(after.residentBytes, before.residentBytes + kModestMemory / 4);
    EXPECT_TRUE(world.IsCrashReported());
}

TEST(EcallUIAppImplOfTheService, ClientsThatStayWithHalfAFrameAreBounded) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    RawClient polite(kUiPort);
    EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);
    const ProcessUsage before = world.module.Service().Usage();

    // As many as the server takes, and as many again; each has begun a frame of the longest kind.
    std::list<RawClient> staying;
    const std::string begun =
        FrameBytes({kSetUiCfgParameter, kRequest, 0, 1, std::string(1 << 20, 'x')}).substr(0, 4096);
    for (int i = 0; i < 63; ++i) {
        staying.emplace_back(kUiPort).Send(begun);
    }
    for (int i = 0; i < 64; ++i) {
        staying.emplace_back(kUiPort).WaitForEnd();
    }

    EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);
    const ProcessUsage full = world.module.Service().Usage();
    EXPECT_LE(full.descriptors, before.descriptors + 64);
    EXPECT_LT(full.residentBytes, before.residentBytes + kModestMemory);
    EXPECT_TRUE(world.IsCrashReported());
    staying.clear();
    const auto served = [] { return RawClient(kUiPort).Call(kGetUiVersion, "").payload; };
    EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);  // the ends have been seen
    EXPECT_EQ(kVersionReply, served());
}

TEST(EcallUIAppImplOfTheService, AClientThatNeverReadsItsAnswersIsSentAway) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    RawClient polite(kUiPort);
    EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);
    const size_t before = world.module.Service().Usage().residentBytes;
    std::string requests;
    for (uint32_t id = 1; id <= 1000; ++id) {
        requests += FrameBytes({kGetIEcallUIAppVersion, kRequest, 0, id, ""});
    }

    // The answers fill the sockets' buffers first, and then what the server keeps for a client.
    RawClient(kUiPort).SendUntilEnd(requests, 2000);

    EXPECT_EQ(kVersionReply, polite.Call(kGetUiVersion, "").payload);
    EXPECT_LT(world.module.Service().Usage().residentBytes, before + kModestMemory);
    world.module.journal.Await({.kind = Kind::Stderr, .contains = "it does not read, and too much waits for it"});
    EXPECT_TRUE(world.IsCrashReported());
}
