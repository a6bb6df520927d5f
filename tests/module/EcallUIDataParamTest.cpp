// Parameters as a client of the service reads and changes them, and what becomes of them in the file, in the eCall
// service and after a restart.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <thread>

#include "Descriptor.h"
#include "RawPeer.h"
#include "ServiceWorld.h"
#include "UiParameters.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr int kEnableLine = 22;  ///< GpioForEnablingEcallLedControlUsed
constexpr int kMicrophone = 24;
const std::string kDone = ProtoBytes().Number(1, 0).bytes;

std::string Get(RawClient& client, int64_t number) {
    return client.Call(kGetUiCfgParameter, UiGetRequest(number)).payload;
}

std::string Set(RawClient& client, int64_t number, const UiValue& value) {
    return client.Call(kSetUiCfgParameter, UiSetRequest(number, value)).payload;
}

/// The parameter's value as its JSON text says.
UiValue ValueOf(UiKind kind, const std::string& json) {
    switch (kind) {
        case UiKind::Boolean:
            return {.boolean = json == "true"};
        case UiKind::Number:
            return {.number = std::stoll(json)};
        case UiKind::Text:
            return {.text = json.substr(1, json.size() - 2)};
    }
    return {};
}

/// Another value than the default, as JSON.
std::string OtherJson(const UiParameter& parameter) {
    switch (parameter.kind) {
        case UiKind::Boolean:
            return parameter.byDefault == std::string("true") ? "false" : "true";
        case UiKind::Number:
            return parameter.number == kMicrophone ? "0" : std::to_string(1000 + parameter.number);
        case UiKind::Text:
            return "\"another line\"";
    }
    return {};
}

/// The value with the members set, too, that do not stand for the parameter.
UiValue WithTheRest(UiKind kind, UiValue value) {
    value.boolean = kind == UiKind::Boolean ? value.boolean : 1;
    value.number = kind == UiKind::Number ? value.number : 77;
    value.text = kind == UiKind::Text ? value.text : "unused";
    return value;
}

std::string File(ServiceWorld& world) {
    return world.module.root.ReadFile(file::kConfiguration).value_or("");
}

std::string Member(const std::string& key, const std::string& json) {
    return "\t\"" + key + "\":\t" + json;
}

std::string StampOf(const std::string& file) {
    const std::string start = "{\n\t\"JsonTimeStamp\":\t\"";
    return file.starts_with(start) ? file.substr(start.size(), std::string("2024:01:31 23:59:59").size()) : file;
}

/// The time as a stamp shows it, in UTC. By the clock that the service reads: time() lags behind it by up to a tick of
/// the kernel, which shows at the end of a second.
std::string Now() {
    const time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    tm parts{};
    gmtime_r(&now, &parts);
    char text[32];
    return {text, strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &parts)};
}

/// The field's text as the file's JSON has it, with its quotes.
std::string JsonText(const std::string& file) {
    const std::string start = Member("GpioForEnablingEcallLedControlUsed", "");
    const size_t begin = file.find(start) + start.size();
    return file.substr(begin, file.find(",\n", begin) - begin);
}

struct ParameterWorld : ServiceWorld {
    /// Starts the service without its eCall service.
    void StartAlone(const std::string& members = "") {
        Configure(R"("ConnectEcallService": false)" + members);
        module.StartService();
        AwaitReady();
    }
};

}  // namespace

// --- Every number ---

TEST(EcallUIDataParamOfTheService, EveryNumberReadsItsFieldOfTheDefaults) {
    ServiceWorld world;
    world.Start();
    RawClient client(kUiPort);

    for (const UiParameter& parameter : kUiParameters) {
        const UiValue value = ValueOf(parameter.kind, parameter.byDefault);
        EXPECT_EQ(UiGetReply(value), Get(client, parameter.number)) << parameter.key;
    }
}

TEST(EcallUIDataParamOfTheService, EveryNumberChangesItsFieldAloneAndRewritesTheFile) {
    ServiceWorld world;
    world.Start();
    RawClient client(kUiPort);

    for (const UiParameter& parameter : kUiParameters) {
        const std::string json = OtherJson(parameter);
        const UiValue value = ValueOf(parameter.kind, json);
        std::string expected = File(world);
        expected.replace(expected.find(Member(parameter.key, parameter.byDefault)),
                         Member(parameter.key, parameter.byDefault).size(), Member(parameter.key, json));
        world.module.root.Remove(file::kConfiguration);
        const std::string before = Now();

        EXPECT_EQ(kDone, Set(client, parameter.number, WithTheRest(parameter.kind, value))) << parameter.key;

        const std::string after = Now();
        const std::string written = File(world);
        const std::string stamp = StampOf(written);
        EXPECT_LE(before, stamp);
        EXPECT_GE(after, stamp);
        expected.replace(expected.find(StampOf(expected)), stamp.size(), stamp);
        EXPECT_EQ(expected, written) << parameter.key;
        EXPECT_EQ(UiGetReply(value), Get(client, parameter.number)) << parameter.key;
    }
}

TEST(EcallUIDataParamOfTheService, EveryChangeOutlivesARestart) {
    ServiceWorld world;
    world.Start();
    {
        RawClient client(kUiPort);
        for (const UiParameter& parameter : kUiParameters) {
            // What the service needs to come up as before stays.
            if (parameter.number > 4) {
                EXPECT_EQ(kDone, Set(client, parameter.number, ValueOf(parameter.kind, OtherJson(parameter))));
            }
        }
    }
    const uint64_t mark = world.module.journal.Mark();
    world.module.RestartService();
    world.AwaitReady(mark);

    RawClient client(kUiPort);
    for (const UiParameter& parameter : kUiParameters) {
        if (parameter.number > 4) {
            EXPECT_EQ(UiGetReply(ValueOf(parameter.kind, OtherJson(parameter))), Get(client, parameter.number))
                << parameter.key;
        }
    }
}

TEST(EcallUIDataParamOfTheService, ALaterSetRenewsTheStamp) {
    ParameterWorld world;
    world.StartAlone(R"(, "JsonTimeStamp": "long ago")");
    RawClient client(kUiPort);
    Set(client, 7, {.number = 11});
    const std::string first = StampOf(File(world));
    EXPECT_NE("long ago", first);

    while (Now() <= first) {
        std::this_thread::sleep_for(10ms);
    }
    Set(client, 7, {.number = 11});

    EXPECT_LT(first, StampOf(File(world)));
}

// --- Numbers that no field has ---

TEST(EcallUIDataParamOfTheService, AnUnknownNumberReadsAsNothing) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    for (const int64_t number : {26L, -1L, 2147483647L, -2147483648L}) {
        EXPECT_EQ(UiGetReply({}), Get(client, number));
        EXPECT_THAT(world.SystemLog(), Contains("bad parameter " + std::to_string(number)));
    }
}

TEST(EcallUIDataParamOfTheService, SettingAnUnknownNumberIsNotRefusedAndRewritesTheFile) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);
    Set(client, 7, {.number = 11});

    for (const int64_t number : {26L, -1L, 2147483647L, -2147483648L}) {
        std::string expected = File(world);
        world.module.root.Remove(file::kConfiguration);

        EXPECT_EQ(kDone, Set(client, number, {.boolean = 1, .number = 2, .text = "three"}));

        const std::string stamp = StampOf(File(world));
        expected.replace(expected.find(StampOf(expected)), stamp.size(), stamp);
        EXPECT_EQ(expected, File(world));
        EXPECT_THAT(world.SystemLog(), Contains("EcallUISetParameter - bad parameter : " + std::to_string(number)));
    }
}

TEST(EcallUIDataParamOfTheService, ABooleanOfTheWireIsTrueWhateverItsNumber) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    EXPECT_EQ(kDone, Set(client, 4, {.boolean = 5}));

    EXPECT_EQ(UiGetReply({.boolean = 1}), Get(client, 4));
    EXPECT_THAT(File(world), HasSubstr(Member("GpioInputButton_nRQST_ActiveLow", "true")));
}

TEST(EcallUIDataParamOfTheService, TheThresholdKeepsTheLow16BitsOnly) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    for (const auto& [given, kept] : {std::pair{-1, 65535}, {70000, 4464}}) {
        EXPECT_EQ(kDone, Set(client, 17, {.number = given}));
        EXPECT_EQ(UiGetReply({.number = kept}), Get(client, 17));
        EXPECT_THAT(File(world), HasSubstr(Member("EcallAntennaDetectionThresholdMv", std::to_string(kept))));
    }
}

// --- Texts ---

TEST(EcallUIDataParamOfTheService, ATextKeepsItsFirst63Bytes) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    for (const size_t length : {0U, 1U, 62U, 63U, 64U, 127U, 128U, 4096U}) {
        EXPECT_EQ(kDone, Set(client, kEnableLine, {.text = std::string(length, 'a')}));

        const std::string kept(std::min(length, size_t{63}), 'a');
        EXPECT_EQ(UiGetReply({.text = kept}), Get(client, kEnableLine)) << length;
        EXPECT_EQ("\"" + kept + "\"", JsonText(File(world))) << length;
    }
}

TEST(EcallUIDataParamOfTheService, TheCutGoesByBytesAlsoWithinACharacter) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);
    std::string text;
    for (int i = 0; i < 32; ++i) {
        text += "\xc3\xa9";
    }

    Set(client, kEnableLine, {.text = text});

    EXPECT_EQ(UiGetReply({.text = text.substr(0, 63)}), Get(client, kEnableLine));
}

TEST(EcallUIDataParamOfTheService, ATextEndsAtItsFirstNul) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    Set(client, kEnableLine, {.text = std::string("DTR\0more", 8)});

    EXPECT_EQ(UiGetReply({.text = "DTR"}), Get(client, kEnableLine));
}

TEST(EcallUIDataParamOfTheService, AnyTextSurvivesTheFile) {
    std::string controls;
    for (char character = 1; character < ' '; ++character) {
        controls += character;
    }
    for (const std::string& text :
         {std::string("say \"DTR\""), std::string("back\\slash \\u0041 \\"), controls, std::string("\x7f/<>&{}[],:'"),
          std::string("d\xc3\xa9j\xc3\xa0 vu \xf0\x9f\x9a\x97"), std::string("%s%d%n%%")}) {
        ParameterWorld world;
        world.StartAlone();
        EXPECT_EQ(kDone,
                  RawClient(kUiPort).Call(kSetUiCfgParameter, UiSetRequest(kEnableLine, {.text = text})).payload);
        const uint64_t mark = world.module.journal.Mark();
        world.module.RestartService();
        world.AwaitReady(mark);

        RawClient client(kUiPort);
        EXPECT_EQ(UiGetReply({.text = text}), Get(client, kEnableLine));
    }
}

TEST(EcallUIDataParamOfTheService, ATextUpToTheFramesLimitIsTakenAndOneBeyondEndsItsClientAlone) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);
    constexpr size_t kLongestPayload = 1 << 20;
    const auto filled = [](size_t length) { return UiSetRequest(kEnableLine, {.text = std::string(length, 'a')}); };
    const size_t around = filled(kLongestPayload).size() - kLongestPayload;
    const std::string longest = filled(kLongestPayload - around);
    ASSERT_EQ(kLongestPayload, longest.size());

    EXPECT_EQ(kDone, client.Call(kSetUiCfgParameter, longest).payload);
    RawClient other(kUiPort);
    other.Send(FrameBytes({kSetUiCfgParameter, kRequest, 0, 1, filled(kLongestPayload - around + 1)}).substr(0, 12));
    other.WaitForEnd();

    EXPECT_EQ(UiGetReply({.text = std::string(63, 'a')}), Get(client, kEnableLine));
}

namespace {

/// The service's standard output, of which nothing is read until somebody asks for it.
class UnreadConsole {
  public:
    explicit UnreadConsole(ServiceWorld& world) {
        const std::string path = world.module.root.Outside(kInside);
        EXPECT_EQ(0, mkfifo(path.c_str(), 0666));
        reader = Descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    }
    static std::string Redirection() { return std::string(">") + kInside; }

    /// Reads until the text has come; answers all that has come.
    std::string ReadUntil(const std::string& text) {
        std::string output;
        std::array<char, 65536> buffer;
        while (output.find(text) == std::string::npos) {
            pollfd readable{reader.Get(), POLLIN, 0};
            if (poll(&readable, 1, static_cast<int>(std::chrono::milliseconds(Journal::kLimit).count())) <= 0) {
                ADD_FAILURE() << "no more output";
                break;
            }
            const ssize_t count = read(reader.Get(), buffer.data(), buffer.size());
            if (count == 0) {
                ADD_FAILURE() << "the output ended";
                break;
            }
            output.append(buffer.data(), static_cast<size_t>(std::max(count, ssize_t{0})));
        }
        return output;
    }

  private:
    static constexpr char kInside[] = "/tmp/console";
    Descriptor reader;
};

}  // namespace

TEST(EcallUIDataParamOfTheService, ALongTextThatTheConsoleTakesLateIsSaidWholeAndHoldsNobodyForGood) {
    ServiceWorld world;
    ASSERT_TRUE(world.peer.Start());
    UnreadConsole console(world);
    const std::string service = world.module.root.Install(Module::ServiceProgram());
    const ModuleProcess& process =
        world.module.Start("/bin/sh", {"-c", "exec " + service + " " + UnreadConsole::Redirection()});
    world.module.journal.Await(IsTraced("Wait for an event (blocking wait)"));
    const std::string text(1000000, 'a');
    RawClient client(kUiPort);

    client.Request(kSetUiCfgParameter, UiSetRequest(kEnableLine, {.text = text}));
    AwaitLongWrite(process, "IEcallUIAppSrvc");
    world.module.SensorBecomes(SensorStatus::Emergency);
    AwaitLockWait(process, "Thread_GPIO_UEV");  // its messages come after the text
    const std::string output = console.ReadUntil("EcallUISetParameter - Exit");

    EXPECT_NE(std::string::npos, output.find("int=0, Str=" + text + "\n"));
    EXPECT_NE(std::string::npos, output.find("IntValue=0, StrValue=" + text + "\n"));
    EXPECT_EQ(kDone, client.Receive().payload);
    EXPECT_TRUE(world.peer.AwaitRequests(EcallMethod::TriggerEcall, 1));
}

// --- The microphone ---

TEST(EcallUIDataParamOfTheService, AMicrophoneIsPassedOnToTheEcallService) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    RawClient client(kUiPort);

    for (const int source : {0, 1}) {
        const uint64_t mark = world.module.journal.Mark();
        EXPECT_EQ(kDone, Set(client, kMicrophone, {.boolean = 1, .number = source, .text = "unused"}));

        EXPECT_THAT(world.module.journal.Texts(IsRpcRequest("setCfgParameter"), mark),
                    ElementsAre("cfgParamName=APP_AUDIO_CONFIG_NUMBER(53) boolValue=0 intValue=" +
                                std::to_string(source) + " StrValue=\"\""));
        EXPECT_EQ(UiGetReply({.number = source}), Get(client, kMicrophone));
        EXPECT_THAT(File(world), HasSubstr(Member("EcallMicrophoneSource", std::to_string(source))));
    }
    EXPECT_THAT(world.SystemLog(), Not(Contains(HasSubstr("XirEcallapp_setCfgParameter"))));
}

TEST(EcallUIDataParamOfTheService, AMicrophoneThatDoesNotExistChangesNothingAndIsNotPassedOn) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    RawClient client(kUiPort);
    const uint64_t mark = world.module.journal.Mark();

    for (const int source : {2, -1}) {
        world.module.root.Remove(file::kConfiguration);
        EXPECT_EQ(kDone, Set(client, kMicrophone, {.number = source}));
        EXPECT_EQ(UiGetReply({.number = 1}), Get(client, kMicrophone));
        EXPECT_THAT(File(world), HasSubstr(Member("EcallMicrophoneSource", "1")));
        EXPECT_THAT(world.SystemLog(),
                    Contains("bad TEcallUICfgParamName_ECALL_MICROPHONE_SOURCE parameter : " + std::to_string(source)));
    }

    Set(client, kMicrophone, {.number = 1});  // is passed on, after what would have been
    EXPECT_THAT(world.module.journal.All(IsRpcRequest("setCfgParameter"), mark), SizeIs(1));
}

TEST(EcallUIDataParamOfTheService, AnEcallServiceThatRefusesTheMicrophoneIsToldAndTheFieldKeepsIt) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    world.peer.Answer(EcallMethod::SetCfgParameter, {.code = 5});
    RawClient client(kUiPort);

    EXPECT_EQ(kDone, Set(client, kMicrophone, {.number = 0}));

    EXPECT_THAT(world.SystemLog(), Contains("XirEcallapp_setCfgParameter error :  srvcResult = 5"));
    EXPECT_EQ(UiGetReply({.number = 0}), Get(client, kMicrophone));
    EXPECT_THAT(File(world), HasSubstr(Member("EcallMicrophoneSource", "0")));
}

TEST(EcallUIDataParamOfTheService, WithoutAnEcallServiceTheMicrophoneIsKeptAndTheFailureTold) {
    ParameterWorld world;
    world.StartAlone();
    RawClient client(kUiPort);

    EXPECT_EQ(kDone, Set(client, kMicrophone, {.number = 0}));

    EXPECT_THAT(world.SystemLog(), Contains("XirEcallapp_setCfgParameter error :  srvcResult = -12"));
    EXPECT_THAT(File(world), HasSubstr(Member("EcallMicrophoneSource", "0")));
}

TEST(EcallUIDataParamOfTheService, WithItsEcallServiceGoneTheMicrophoneIsKeptAndTheFailureTold) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    world.peer.Stop();
    world.module.journal.Await(IsWithinConsoleLine("connectionStatusCbFn - CLOSED"));
    RawClient client(kUiPort);

    EXPECT_EQ(kDone, Set(client, kMicrophone, {.number = 0}));

    EXPECT_THAT(world.SystemLog(), Contains("XirEcallapp_setCfgParameter error :  srvcResult = -12"));
    EXPECT_EQ(UiGetReply({.number = 0}), Get(client, kMicrophone));
}

TEST(EcallUIDataParamOfTheService, ASilentEcallServiceHoldsTheClientButNoCrash) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    world.peer.Answer(EcallMethod::SetCfgParameter, {.held = true});
    RawClient client(kUiPort);
    const size_t before = world.peer.Requests(EcallMethod::SetCfgParameter);
    client.Request(kSetUiCfgParameter, UiSetRequest(kMicrophone, {.number = 0}));
    ASSERT_TRUE(world.peer.AwaitRequests(EcallMethod::SetCfgParameter, before + 1));

    EXPECT_TRUE(world.IsCrashReported());

    EXPECT_EQ(1U, world.peer.Release());
    EXPECT_EQ(kDone, client.Receive().payload);
}

TEST(EcallUIDataParamOfTheService, AMicrophoneIsInForceBeforeTheEcallServiceHasAnswered) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    world.peer.Answer(EcallMethod::SetCfgParameter, {.held = true});
    const auto audioScripts = [&world] {
        return std::ranges::count_if(world.TraceMessages(), [](const std::string& message) {
            return message.starts_with("launches the external script");
        });
    };
    const std::ptrdiff_t before = audioScripts();
    RawClient client(kUiPort);
    const size_t requests = world.peer.Requests(EcallMethod::SetCfgParameter);
    client.Request(kSetUiCfgParameter, UiSetRequest(kMicrophone, {.number = 0}));
    ASSERT_TRUE(world.peer.AwaitRequests(EcallMethod::SetCfgParameter, requests + 1));
    const uint64_t mark = world.module.journal.Mark();

    EXPECT_TRUE(world.IsCrashReported());

    // The call's state has been followed, and the analog microphone has no script.
    world.module.journal.Await(IsWritten(line::kRelay, "1"), mark);
    EXPECT_EQ(before, audioScripts());
    EXPECT_EQ(1U, world.peer.Release());
    EXPECT_EQ(kDone, client.Receive().payload);
}

// --- Effect ---

TEST(EcallUIDataParamOfTheService, AChangedBrightnessShowsWithTheNextState) {
    ServiceWorld world;
    world.Start();
    world.AwaitRest();
    RawClient client(kUiPort);
    Set(client, 11, {.number = 77});
    const uint64_t mark = world.module.journal.Mark();

    EXPECT_TRUE(world.IsCrashReported());

    world.module.journal.Await({.kind = Kind::Write, .contains = "77"}, mark);
}
