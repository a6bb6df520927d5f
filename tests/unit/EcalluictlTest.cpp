// The program against a service that is led by the test: what it prints, how it ends, and what it sends.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <thread>

#include "RawPeer.h"
#include "ToolRun.h"
#include "UiFields.h"
#include "UiPeer.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Json = nlohmann::json;

namespace {

constexpr const char* kTextName = "GpioForEnablingEcallLedControlUsed";
const std::string kCutText = "caf\xc3";
constexpr const char* kFile = "/data/etc/ecall/XirEcallUIappSrvc_Cfg.json";

/// The program, told where the peer is.
ToolResult Ask(const UiPeer& peer, std::vector<std::string> words, const std::string& input = "") {
    words.insert(words.begin(), {"--url", peer.Url()});
    return RunTool(words, input);
}

/// How each refusal ends: status, one complaint, and for programs the same as JSON; nothing was sent.
void ExpectRefused(const std::vector<std::string>& words, int status, const std::string& complaint,
                   const std::string& input = "") {
    UiPeer peer;
    const ToolResult plain = Ask(peer, words, input);
    EXPECT_EQ(status, plain.status);
    EXPECT_THAT(plain.output, IsEmpty());
    EXPECT_THAT(plain.errors, HasSubstr("ecalluictl: " + complaint + "\n"));

    std::vector<std::string> asJson{"--json"};
    asJson.insert(asJson.end(), words.begin(), words.end());
    const ToolResult json = Ask(peer, asJson, input);
    EXPECT_EQ(status, json.status);
    EXPECT_EQ(plain.errors, json.errors);
    const Json error = Json::parse(json.output).at("error");
    EXPECT_EQ(status, error.at("status").get<int>());
    EXPECT_EQ(complaint, error.at("message").get<std::string>());
    EXPECT_EQ(0U, peer.SetCount());
}

/// The row of the list that is about the name, in words.
std::vector<std::string> RowOf(const ToolResult& list, const std::string& name) {
    for (const std::string& line : list.Lines()) {
        std::istringstream text(line);
        std::vector<std::string> words{std::istream_iterator<std::string>(text), {}};
        if (words.size() > 1 && words[1] == name) {
            return words;
        }
    }
    return {};
}

Json Find(const Json& list, const std::string& name) {
    for (const Json& one : list) {
        if (one.at("name") == name) {
            return one;
        }
    }
    return {};
}

}  // namespace

// list

TEST(Ecalluictl, ListShowsEveryFieldWithValueAndDefault) {
    UiPeer peer;
    peer.Hold("LedPwmPeriodMs", int32_t{20});

    const ToolResult list = Ask(peer, {"list"});

    EXPECT_EQ(0, list.status);
    EXPECT_THAT(list.errors, IsEmpty());
    EXPECT_THAT(RowOf(list, "LedPwmPeriodMs"),
                ElementsAre("7", "LedPwmPeriodMs", "number", "ms", "20", "10", "no", "PWM", "period", "of", "the",
                            "LED,", "for", "all", "its", "patterns"));
    EXPECT_THAT(RowOf(list, "HW_Name"), ElementsAre("-", "HW_Name", "text", "-", "-", "\"KORVA_FDA803_ZX118A4\"",
                                                    "never", "name", "of", "the", "hardware"));
    for (const ConfigurationField& field : ConfigurationFields()) {
        EXPECT_THAT(RowOf(list, field.key), Not(IsEmpty())) << field.key;
    }
    EXPECT_EQ("What has no number is changed in " + std::string(kFile) + " only, while the service is stopped.",
              list.Lines().back());
}

TEST(Ecalluictl, ListForProgramsHoldsTheSame) {
    UiPeer peer;
    peer.Hold("EcallButtonUsed", false);

    const ToolResult list = Ask(peer, {"list", "--json"});

    const Json json = Json::parse(list.output);
    ASSERT_THAT(json, SizeIs(ConfigurationFields().size()));
    const Json expected = {{"number", 19},
                           {"name", "EcallButtonUsed"},
                           {"parameter", "TEcallUICfgParamName_ECALL_BUTTON_USED"},
                           {"type", "boolean"},
                           {"unit", ""},
                           {"value", false},
                           {"default", true},
                           {"restart", "no"},
                           {"meaning", "a press of the eCall button makes a call"}};
    EXPECT_EQ(expected, Find(json, "EcallButtonUsed"));
    EXPECT_EQ(100, Find(json, "LedEcallIdleBrightness1PerCent").at("maximum"));
    EXPECT_TRUE(Find(json, "HW_Name").at("value").is_null());
    EXPECT_TRUE(Find(json, "HW_Name").at("number").is_null());
}

TEST(Ecalluictl, ListWorksWithoutAServiceWhenAskedTo) {
    const ToolResult list = RunTool({"--url", "nonsense", "list", "--offline"});

    EXPECT_EQ(0, list.status);
    EXPECT_THAT(RowOf(list, "LedPwmPeriodMs"), Contains("-"));
    EXPECT_TRUE(
        Find(Json::parse(RunTool({"list", "--offline", "--json"}).output), "LedPwmPeriodMs").at("value").is_null());
}

TEST(Ecalluictl, TheTableForTheDocumentsNeedsNoService) {
    const ToolResult list = RunTool({"--url", "xirtcp://127.0.0.1:1", "list", "--markdown"});

    EXPECT_EQ(0, list.status);
    EXPECT_THAT(list.Lines(), SizeIs(ConfigurationFields().size() + 2));
    EXPECT_THAT(
        list.Lines(),
        Contains("| 8 | `LedEcallIdleBrightness1PerCent` | `LED_ECALL_IDLE_BRIGHTNESS1_PER_CENT` | number | `25` "
                 "| 0 to 100 % | no | first brightness of the LED while no call is made |"));
    EXPECT_THAT(list.Lines(),
                Contains("| - | `HW_Name` |  | text | `\"KORVA_FDA803_ZX118A4\"` |  | never | name of the "
                         "hardware |"));
}

TEST(Ecalluictl, TheTableIsForDocumentsOrForPrograms) {
    const ToolResult both = RunTool({"list", "--markdown", "--json"});

    EXPECT_EQ(2, both.status);
    EXPECT_EQ("ecalluictl: --markdown is for documents and --json for programs: give one of them\n", both.errors);
}

// get

TEST(Ecalluictl, GetShowsParametersByAnyOfTheirNames) {
    UiPeer peer;
    peer.Hold("GpioForEnablingEcallLedControlUsed", std::string("RTS"));

    const ToolResult got = Ask(peer, {"get", "ledpwmperiodms", "22", "TEcallUICfgParamName_ECALL_BUTTON_USED"});

    EXPECT_EQ(0, got.status);
    EXPECT_EQ("LedPwmPeriodMs = 10 ms\nGpioForEnablingEcallLedControlUsed = \"RTS\"\nEcallButtonUsed = true\n",
              got.output);
}

TEST(Ecalluictl, GetForProgramsIsAList) {
    UiPeer peer;

    const ToolResult got = Ask(peer, {"--json", "get", "7", "EcallButtonUsed"});

    const Json expected = {{{"number", 7}, {"name", "LedPwmPeriodMs"}, {"value", 10}, {"unit", "ms"}},
                           {{"number", 19}, {"name", "EcallButtonUsed"}, {"value", true}, {"unit", ""}}};
    EXPECT_EQ(expected, Json::parse(got.output));
}

TEST(Ecalluictl, GetRefusesWhatIsNoParameter) {
    ExpectRefused({"get", "LedPwmPeriod"}, 2,
                  "no parameter is called \"LedPwmPeriod\", did you mean LedPwmPeriodMs; \"list\" shows them all");
    ExpectRefused({"get", "HW_Name"}, 2,
                  "HW_Name cannot be reached over the interface: it is in the file " + std::string(kFile) +
                      " only; stop the service, edit it there, and start it again");
}

// set

TEST(Ecalluictl, SetSaysWhatChangedAndTheServiceHoldsIt) {
    UiPeer peer;

    const ToolResult set = Ask(peer, {"set", "LedPwmPeriodMs", "20", "19=off", "GpioForEnablingEcallLedControlUsed=a=b",
                                      "LedEcallIdleBrightness1PerCent", "25"});

    EXPECT_EQ(0, set.status);
    EXPECT_EQ(
        "LedPwmPeriodMs: 10 -> 20 ms\n"
        "EcallButtonUsed: true -> false\n"
        "GpioForEnablingEcallLedControlUsed: \"DTR\" -> \"a=b\"\n"
        "LedEcallIdleBrightness1PerCent: 25 %, as before\n",
        set.output);
    EXPECT_EQ("ecalluictl: GpioForEnablingEcallLedControlUsed takes effect when the service is restarted\n",
              set.errors);
    EXPECT_EQ(UiValue(int32_t{20}), peer.Held("LedPwmPeriodMs"));
    EXPECT_EQ(UiValue(false), peer.Held("EcallButtonUsed"));
    EXPECT_EQ(UiValue(std::string("a=b")), peer.Held("GpioForEnablingEcallLedControlUsed"));
}

TEST(Ecalluictl, SetForProgramsShowsBeforeAndAfter) {
    UiPeer peer;

    const ToolResult set = Ask(peer, {"set", "--json", "ConnectEcallService", "no"});

    EXPECT_EQ(0, set.status);
    const Json expected = {{"number", 0},
                           {"name", "ConnectEcallService"},
                           {"before", true},
                           {"wanted", false},
                           {"after", false},
                           {"restart", "yes"},
                           {"warning", "ConnectEcallService takes effect when the service is restarted"}};
    EXPECT_EQ(expected, Json::parse(set.output).at("changes").at(0));
}

TEST(Ecalluictl, SetNoticesAValueThatTheServiceNarrows) {
    UiPeer peer;
    peer.OnSet([](const UiValue& value) { return UiValue(std::get<int32_t>(value) % 1000); });

    const ToolResult set = Ask(peer, {"set", "EcallAntennaDetectionThresholdMv", "1234"});

    EXPECT_EQ(1, set.status);
    EXPECT_EQ("EcallAntennaDetectionThresholdMv: 900 -> 234 mV\n", set.output);
    EXPECT_EQ("ecalluictl: EcallAntennaDetectionThresholdMv should be 1234 mV, but the service holds 234 mV\n",
              set.errors);
}

TEST(Ecalluictl, SetWarnsOfADeadButton) {
    UiPeer peer;

    const ToolResult set = Ask(peer, {"set", "EcallButtonPullingDetectionMode", "on"});

    EXPECT_EQ(0, set.status);
    EXPECT_THAT(set.errors, HasSubstr("until then the button is dead"));
}

TEST(Ecalluictl, SetSendsNothingWhenAnythingIsWrong) {
    ExpectRefused({"set", "LedPwmPeriodMs", "20", "LedEcallIdleBrightness1PerCent", "101"}, 2,
                  "LedEcallIdleBrightness1PerCent may be 0 to 100 %, not 101");
    ExpectRefused({"set", "LedPwmPeriodMs=20", "zebra=1"}, 2,
                  "no parameter is called \"zebra\"; \"list\" shows them all");
    ExpectRefused({"set", "LedPwmPeriodMs", "-5"}, 2, "LedPwmPeriodMs may be 1 to 4294 ms, not -5");
    ExpectRefused({"set", "LedPwmPeriodMs"}, 2, "set LedPwmPeriodMs to what? Its value is missing");
    ExpectRefused({"set", "LedPwmPeriodMs", "20", "7", "30"}, 2, "LedPwmPeriodMs is to be set twice: give it once");
    ExpectRefused({"set", "AudioRelayUsed", "0"}, 2,
                  "AudioRelayUsed cannot be reached over the interface: it is in the file " + std::string(kFile) +
                      " only; stop the service, edit it there, and start it again");
}

TEST(Ecalluictl, SetTakesAWordInBracketsForOneWord) {
    for (const std::string& text : {std::string("[a,b]"), std::string("[8,5]"), std::string("[]"), std::string("["),
                                    std::string("\x1f[a]"), std::string("{}"), std::string("%%"), std::string("=")}) {
        UiPeer peer;

        EXPECT_EQ(0, Ask(peer, {"set", kTextName, text}).status) << text;

        EXPECT_EQ(UiValue(text), peer.Held(kTextName));
        EXPECT_EQ(1U, peer.SetCount());
    }
    ExpectRefused({"set", kTextName, "[x,8,5]", "[7,20]"}, 2,
                  "no parameter is called \"[7,20]\"; \"list\" shows them all");
    ExpectRefused({"list", "[7]"}, 2, "The following argument was not expected: [7]; \"ecalluictl --help\" tells more");
    ExpectRefused({"check", "[7]"}, 5,
                  "cannot read [7]: No such file or directory; a service that finds no configuration file creates one "
                  "with its defaults");
}

TEST(Ecalluictl, SetTakesAValueThatLooksLikeAnOptionBehindAnEqualsSign) {
    UiPeer peer;

    EXPECT_EQ(0, Ask(peer, {"set", std::string(kTextName) + "=--json"}).status);

    EXPECT_EQ(UiValue(std::string("--json")), peer.Held(kTextName));
    ExpectRefused({"set", kTextName, "-x"}, 2,
                  "The following argument was not expected: -x; a value that begins with - is given as NAME=VALUE; "
                  "\"ecalluictl --help\" tells more");
}

TEST(Ecalluictl, SetSaysHowFarItCameWhenTheServiceGoesAway) {
    RawPeer raw;
    std::thread steps([&] {
        raw.Accept();
        raw.Serve(VersionReply(0, 1, "com.vantu.ecalluiapp.iecalluiapp"));
        raw.Serve(GetReply(int32_t{10}));
        raw.Serve(GetReply(int32_t{25}));
        raw.Serve(ProtoBytes().Number(1, 0).bytes);
        raw.Serve(GetReply(int32_t{20}));
        raw.Receive();
        raw.Drop();
    });

    const ToolResult set = RunTool({"--url", raw.Url(), "set", "7", "20", "8", "30"});
    steps.join();

    EXPECT_EQ(3, set.status);
    EXPECT_THAT(set.errors,
                EndsWith("; set before that: LedPwmPeriodMs; perhaps set: LedEcallIdleBrightness1PerCent\n"));
}

// version, mic-test

TEST(Ecalluictl, VersionShowsBothVersions) {
    UiPeer peer;

    EXPECT_EQ("service    \"0.1.0-r1, V0.22\"\ninterface  com.vantu.ecalluiapp.iecalluiapp 1.7\n",
              Ask(peer, {"version"}).output);
    const Json expected = {{"service", "0.1.0-r1, V0.22"},
                           {"interface", {{"name", "com.vantu.ecalluiapp.iecalluiapp"}, {"version", "1.7"}}}};
    EXPECT_EQ(expected, Json::parse(Ask(peer, {"version", "--json"}).output));
}

TEST(Ecalluictl, MicTestShowsTheValue) {
    UiPeer peer;

    const ToolResult plain = Ask(peer, {"mic-test"});
    const ToolResult json = Ask(peer, {"mic-test", "--json"});

    EXPECT_EQ(0, plain.status);
    EXPECT_EQ("12.5\n", plain.output);
    EXPECT_THAT(plain.errors, IsEmpty()) << "the hint is for a terminal";
    EXPECT_EQ(Json({{"value", 12.5}}), Json::parse(json.output));
}

TEST(Ecalluictl, MicTestShowsAllDigitsThatTheServiceHasSentAndNoMore) {
    UiPeer peer;
    for (const auto& [value, text] : {std::pair(12.3F, "12.3"),
                                      {1234567.9F, "1234567.9"},
                                      {123456789.0F, "123456792"},
                                      {0.0F, "0"},
                                      {0.001F, "0.001"}}) {
        peer.server.Answer(kUiMicTest, ProtoBytes().Number(1, 0).Float(2, value).bytes);

        EXPECT_EQ(std::string(text) + "\n", Ask(peer, {"mic-test"}).output);
        const Json json = Json::parse(Ask(peer, {"mic-test", "--json"}).output);
        EXPECT_EQ(std::stod(text), json.at("value").get<double>());
    }
}

TEST(Ecalluictl, AFailedMicTestEndsWithOne) {
    UiPeer peer;
    peer.server.Answer(kUiMicTest, ProtoBytes().Number(1, 4294967280).Float(2, 0).bytes);

    const ToolResult test = Ask(peer, {"mic-test"});

    EXPECT_EQ(1, test.status);
    EXPECT_THAT(test.output, IsEmpty());
    EXPECT_EQ("ecalluictl: the microphone test failed: the service answered -16\n", test.errors);
}

// dump, load, check

TEST(Ecalluictl, ADumpCanBeLoadedAgain) {
    UiPeer peer;
    peer.Hold("LedPwmPeriodMs", int32_t{20});
    peer.Hold("GpioForEnablingEcallLedControlUsed", std::string("\"ü\n"));
    const ToolResult dump = Ask(peer, {"dump"});
    EXPECT_EQ(0, dump.status);
    EXPECT_THAT(Json::parse(dump.output), SizeIs(26));

    UiPeer other;
    const ToolResult load = Ask(other, {"load", "-"}, dump.output);
    const ToolResult again = Ask(other, {"load", "-"}, dump.output);

    EXPECT_EQ(0, load.status);
    EXPECT_THAT(load.Lines(), ElementsAre("LedPwmPeriodMs: 10 -> 20 ms",
                                          StartsWith("GpioForEnablingEcallLedControlUsed: \"DTR\" -> "),
                                          "2 parameters of 26 differed and were set"));
    EXPECT_EQ("0 parameters of 26 differed and were set\n", again.output);
    EXPECT_EQ(2U, other.SetCount());
    EXPECT_EQ(dump.output, Ask(other, {"dump"}).output);
    EXPECT_EQ(0, RunTool({"check", "-"}, dump.output).status);
}

TEST(Ecalluictl, ADumpThatWouldNotBeTrueIsRefused) {
    UiPeer peer;
    peer.Hold(kTextName, kCutText);

    const ToolResult dump = Ask(peer, {"dump"});

    EXPECT_EQ(1, dump.status);
    EXPECT_THAT(dump.output, IsEmpty());
    EXPECT_EQ("ecalluictl: GpioForEnablingEcallLedControlUsed is no UTF-8, which no JSON can carry: set it anew\n",
              dump.errors);
}

TEST(Ecalluictl, ATextThatIsCutWithinACharacterIsMarked) {
    UiPeer peer;
    const auto list = [&] { return Find(Json::parse(Ask(peer, {"list", "--json"}).output), kTextName); };
    const auto get = [&] { return Json::parse(Ask(peer, {"get", "--json", kTextName}).output).at(0); };
    EXPECT_FALSE(list().contains("notUtf8"));
    EXPECT_FALSE(get().contains("notUtf8"));
    ToolProcess watch({"--url", peer.Url(), "--json", "watch", kTextName, "--interval", "0.01"});
    EXPECT_FALSE(Json::parse(watch.Line()).contains("notUtf8"));

    peer.Hold(kTextName, kCutText);

    EXPECT_EQ(true, list().at("notUtf8"));
    EXPECT_EQ(true, get().at("notUtf8"));
    EXPECT_EQ(true, Json::parse(watch.Line()).at("notUtf8"));
    ToolProcess late({"--url", peer.Url(), "--json", "watch"});
    EXPECT_EQ(true, Json::parse(late.Line()).at("notUtf8"));
    const Json set = Json::parse(Ask(peer, {"set", "--json", kTextName, "DTR"}).output);
    EXPECT_EQ(true, set.at("changes").at(0).at("notUtf8"));
    EXPECT_FALSE(get().contains("notUtf8"));
}

TEST(Ecalluictl, LoadSendsOnlyWhatDiffersAndSaysWhatNeedsARestart) {
    UiPeer peer;

    const ToolResult load =
        Ask(peer, {"load", "-"}, R"({"HW_Name": "X", "ConnectEcallService": false, "LedPwmPeriodMs": 10})");

    EXPECT_EQ(0, load.status);
    EXPECT_EQ("ConnectEcallService: true -> false\n1 parameter of 2 differed and was set\n", load.output);
    EXPECT_EQ("ecalluictl: not sent, because they are changed in " + std::string(kFile) +
                  " only: HW_Name\necalluictl: ConnectEcallService takes effect when the service is restarted\n",
              load.errors);
    EXPECT_EQ(1U, peer.SetCount());
}

TEST(Ecalluictl, LoadForProgramsShowsTheChanges) {
    UiPeer peer;

    const Json json = Json::parse(Ask(peer, {"load", "--json", "-"}, R"({"ledpwmperiodms": 20})").output);

    EXPECT_EQ(20, json.at("changes").at(0).at("after"));
    EXPECT_EQ("note", json.at("findings").at(0).at("severity"));
}

TEST(Ecalluictl, LoadSendsNothingWhenTheFileHasAnyError) {
    ExpectRefused({"load", "-"}, 5, "standard input has errors; nothing was sent",
                  R"({"LedPwmPeriodMs": 20, "zebra": 1})");
    ExpectRefused({"load", "-"}, 5, "standard input has errors; nothing was sent",
                  R"({"LedPwmPeriodMs": 20, "LedEcallIdleBrightness1PerCent": 101})");
    ExpectRefused({"load", "-"}, 5, "standard input has errors; nothing was sent", "{");
}

TEST(Ecalluictl, LoadShowsTheErrorsOfTheFileWithTheirPlaces) {
    UiPeer peer;

    const ToolResult load = Ask(peer, {"load", "--json", "-"}, "{\n \"zebra\": 1}");

    EXPECT_THAT(load.errors, HasSubstr("ecalluictl: standard input:2:2: error: the service knows no key \"zebra\""));
    EXPECT_EQ(2, Json::parse(load.output).at("findings").at(0).at("line"));
}

TEST(Ecalluictl, CheckJudgesAFileWithoutAService) {
    const ToolResult good = RunTool({"check", "-"}, R"({"LedPwmPeriodMs": 20})");
    const ToolResult bad = RunTool({"check", "-"}, "{\n\"LedPwmPeriodMs\": \"20\",\n\"ledecall\": 1}");

    EXPECT_EQ(0, good.status);
    EXPECT_THAT(good.Lines(), ElementsAre(StartsWith("standard input: note: not in the file, so with their defaults: "
                                                     "JsonTimeStamp, HW_Name, "),
                                          "standard input: good, 1 field of 33 taken from it"));
    EXPECT_EQ(5, bad.status);
    EXPECT_THAT(bad.errors, IsEmpty());
    EXPECT_THAT(bad.Lines(),
                ElementsAre("standard input:2:19: error: LedPwmPeriodMs is a number, not a text: the service takes 0 "
                            "for \"20\"",
                            StartsWith("standard input:3:1: error: the service knows no key \"ledecall\""),
                            StartsWith("standard input: note: not in the file"),
                            "standard input: 2 errors, 1 field of 33 taken from it"));
}

TEST(Ecalluictl, CheckForProgramsShowsWhatTheServiceWouldHold) {
    const ToolResult check = RunTool({"check", "-", "--json"}, R"({"MaxSizeOfTraceFileInKb": 70000})");

    EXPECT_EQ(5, check.status);
    const Json json = Json::parse(check.output);
    EXPECT_FALSE(json.at("good").get<bool>());
    EXPECT_EQ(4464, json.at("loaded").at("MaxSizeOfTraceFileInKb"));
    EXPECT_EQ(true, json.at("loaded").at("ConnectEcallService"));
    const Json finding = json.at("findings").at(0);
    EXPECT_EQ(1, finding.at("line"));
    EXPECT_EQ(28, finding.at("column"));
    EXPECT_EQ("error", finding.at("severity"));
}

TEST(Ecalluictl, AFileThatIsNotThereIsNamed) {
    ExpectRefused({"check", "/nowhere/x.json"}, 5,
                  "cannot read /nowhere/x.json: No such file or directory; a service that finds no configuration file "
                  "creates one with its defaults");
    ExpectRefused({"load", "/"}, 5, "cannot read /: Is a directory");
}

// watch

TEST(Ecalluictl, WatchShowsChangesUntilItIsInterrupted) {
    UiPeer peer;
    ToolProcess watch({"--url", peer.Url(), "watch", "--interval", "0.01"});
    EXPECT_THAT(watch.Line(), EndsWith("  watching 26 parameters at " + peer.Url() + ", until Ctrl-C"));

    peer.Hold("LedPwmPeriodMs", int32_t{20});
    EXPECT_THAT(watch.Line(), MatchesRegex("[0-9-]{10} [0-9:]{8}[.][0-9]{3}  LedPwmPeriodMs: 10 -> 20 ms"));
    peer.Hold("EcallButtonUsed", false);
    EXPECT_THAT(watch.Line(), EndsWith("  EcallButtonUsed: true -> false"));

    watch.Signal(SIGINT);
    EXPECT_EQ(0, watch.Wait());
}

TEST(Ecalluictl, WatchGoesOnOverARestartOfTheService) {
    UiPeer peer;
    ToolProcess watch({"--url", peer.Url(), "--json", "watch", "LedPwmPeriodMs", "--interval", "0.01"});
    const Json start = Json::parse(watch.Line());
    EXPECT_EQ("start", start.at("event"));
    EXPECT_EQ(Json({{"LedPwmPeriodMs", 10}}), start.at("values"));

    peer.server.Stop();
    EXPECT_EQ("gone", Json::parse(watch.Line()).at("event"));
    peer.Hold("LedPwmPeriodMs", int32_t{30});
    peer.Hold("EcallButtonUsed", false);
    peer.server.Start();
    EXPECT_EQ("back", Json::parse(watch.Line()).at("event"));

    const Json change = Json::parse(watch.Line());
    EXPECT_EQ("change", change.at("event"));
    EXPECT_EQ("LedPwmPeriodMs", change.at("name"));
    EXPECT_EQ(10, change.at("before"));
    EXPECT_EQ(30, change.at("after"));
    watch.Signal(SIGTERM);
    EXPECT_EQ(0, watch.Wait());
}

TEST(Ecalluictl, WatchNoticesARestartBetweenTwoLooks) {
    UiPeer peer;
    ToolProcess watch({"--url", peer.Url(), "--json", "watch", "LedPwmPeriodMs", "--interval", "2"});
    EXPECT_EQ("start", Json::parse(watch.Line()).at("event"));

    peer.server.Stop();
    peer.Hold("LedPwmPeriodMs", int32_t{30});
    peer.server.Start();

    EXPECT_EQ("gone", Json::parse(watch.Line()).at("event"));
    EXPECT_EQ("back", Json::parse(watch.Line()).at("event"));
    EXPECT_EQ("change", Json::parse(watch.Line()).at("event"));
}

TEST(Ecalluictl, WatchDoesNotCallASilentServiceGone) {
    UiPeer peer;
    std::promise<void> go;
    const std::shared_future<void> mayGoOn = go.get_future().share();
    ToolProcess watch(
        {"--url", peer.Url(), "--timeout", "5", "--json", "watch", "LedPwmPeriodMs", "--interval", "0.01"});
    EXPECT_EQ("start", Json::parse(watch.Line()).at("event"));

    peer.server.Handle(kUiGet, [mayGoOn](const std::string& /*request*/) {
        mayGoOn.wait();
        return GetReply(int32_t{30});
    });
    const Json silent = Json::parse(watch.Line());
    go.set_value();

    EXPECT_EQ("silent", silent.at("event"));
    EXPECT_EQ("no reply to getUiCfgParameter from " + peer.Url() +
                  " within 5 s: does a microphone test run, or hang? Try again, or restart the service",
              silent.at("message"));
    EXPECT_EQ("back", Json::parse(watch.Line()).at("event")) << "and it is told once";
    EXPECT_EQ(30, Json::parse(watch.Line()).at("after"));
}

TEST(Ecalluictl, WatchEndsWhenNobodyReadsItAnyMore) {
    UiPeer peer;
    ToolProcess watch({"--url", peer.Url(), "watch", "--interval", "0.01"});
    watch.Line();

    watch.CloseOutput();

    EXPECT_EQ(6, watch.Wait());
}

// The command line and the rest of the world.

TEST(Ecalluictl, WithoutAServiceEachCommandSaysSo) {
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{{"list"},
                                                                                       {"get", "7"},
                                                                                       {"set", "7", "20"},
                                                                                       {"version"},
                                                                                       {"mic-test"},
                                                                                       {"dump"},
                                                                                       {"load", "-"},
                                                                                       {"watch"}}) {
        const ScratchSocket nobody;
        std::vector<std::string> all{"--url", nobody.Url(), "--timeout", "0.2", "--json"};
        all.insert(all.end(), words.begin(), words.end());

        const ToolResult result = RunTool(all, R"({"LedPwmPeriodMs": 20})");

        EXPECT_EQ(3, result.status) << words.front();
        EXPECT_THAT(result.errors, HasSubstr("ecalluictl: no service at " + nobody.Url() + ": is it running?"));
        EXPECT_EQ(3, Json::parse(result.output).at("error").at("status"));
    }
}

TEST(Ecalluictl, AnotherServiceEndsWithFour) {
    const ServerPeer ecall;

    EXPECT_EQ(4, RunTool({"--url", ecall.Url(), "dump"}).status);
}

TEST(Ecalluictl, ASilentServiceIsGivenUp) {
    const RawPeer listensOnly;

    const ToolResult result = RunTool({"--url", listensOnly.Url(), "--timeout", "3", "version"});

    EXPECT_EQ(3, result.status);
    EXPECT_THAT(result.errors,
                StartsWith("ecalluictl: no reply to getIEcallUIAppVersion from " + listensOnly.Url() + " within 3 s"));
}

TEST(Ecalluictl, AMicTestIsNotWaitedForLongerThanTheTransportDoes) {
    ExpectRefused({"--timeout", "30.1", "mic-test"}, 2,
                  "mic-test can wait for 30 s at most, because its reply is given up then: give a shorter --timeout");
    UiPeer peer;
    EXPECT_EQ(0, Ask(peer, {"--timeout", "30", "mic-test"}).status);
}

TEST(Ecalluictl, SecondsAreANumberInTheirRange) {
    for (const char* seconds : {"0", "-1", "86401", "nan", "inf", "5s", ""}) {
        const std::string end =
            " to 86400 seconds, not \"" + std::string(seconds) + "\"; \"ecalluictl --help\" tells more";
        ExpectRefused({"get", "7", "--timeout", seconds}, 2, "--timeout: may be 0.001" + end);
        ExpectRefused({"watch", "--interval", seconds}, 2, "--interval: may be 0.01" + end);
    }
    UiPeer peer;
    EXPECT_EQ(0, Ask(peer, {"get", "7", "--timeout", "86400"}).status);
}

TEST(Ecalluictl, AWrongCommandIsNamedWithTheRightOne) {
    const std::string more = "; \"ecalluictl --help\" tells more\n";
    EXPECT_EQ("ecalluictl: no command is called \"lits\", did you mean list" + more, RunTool({"lits"}).errors);
    EXPECT_EQ("ecalluictl: no command is called \"frob\"" + more, RunTool({"--url", "get", "frob", "7"}).errors);
    EXPECT_EQ("ecalluictl: no command is called \"?[31m\"" + more, RunTool({"\033[31m"}).errors);
}

TEST(Ecalluictl, ItsOwnVersionIsThatOfTheInterface) {
    const ToolResult version = RunTool({"--version"});

    EXPECT_EQ(0, version.status);
    EXPECT_EQ("ecalluictl for com.vantu.ecalluiapp.iecalluiapp 1\n", version.output);
}

TEST(Ecalluictl, NothingThatATerminalWouldObeyIsPrinted) {
    UiPeer peer;
    const std::string evil = "\033[31m\xc2\x9b";
    const ScratchSocket folder;
    const std::string file = folder.Path() + evil;
    std::ofstream(file) << "{";

    const ToolResult check = RunTool({"check", file});

    EXPECT_THAT(check.output, HasSubstr(folder.Path() + "?[31m?:1:2: error: "));
    EXPECT_THAT(check.output, Not(HasSubstr("\033")));
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"get", evil}, {"load", file}, {"check", evil}, {"check", file, evil}, {"list", "--" + evil}}) {
        const ToolResult result = Ask(peer, words);
        EXPECT_THAT(result.errors, AllOf(HasSubstr("?[31m?"), Not(HasSubstr("\033")))) << words.front();
    }
}

TEST(Ecalluictl, AWrongCommandLineIsMisuse) {
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{{},
                                                                                       {"zebra"},
                                                                                       {"get"},
                                                                                       {"set"},
                                                                                       {"check"},
                                                                                       {"list", "--zebra"},
                                                                                       {"--zebra", "5", "list"},
                                                                                       {"version", "7"},
                                                                                       {"check", "a", "b"},
                                                                                       {"--url"},
                                                                                       {"--timeout", "-1", "version"},
                                                                                       {"watch", "--interval", "0"},
                                                                                       {"get"}}) {
        std::vector<std::string> all{"--json"};
        all.insert(all.end(), words.begin(), words.end());
        const ToolResult result = RunTool(all);

        EXPECT_EQ(2, result.status) << result.output;
        EXPECT_THAT(result.errors, AllOf(StartsWith("ecalluictl: "), HasSubstr("\"ecalluictl --help\" tells more\n")));
        EXPECT_EQ(2, Json::parse(result.output).at("error").at("status"));
    }
    EXPECT_EQ(2, RunTool({"--url", "nonsense", "version"}).status);
}

TEST(Ecalluictl, HelpTellsCommandsAndExitStatuses) {
    const ToolResult help = RunTool({"--help"});

    EXPECT_EQ(0, help.status);
    for (const char* text :
         {"list", "get", "set", "watch", "dump", "load", "check", "version", "mic-test", "--json", "--url",
          "  0  done\n", "  6  the output cannot be written: a closed pipe, a full disk\n"}) {
        EXPECT_THAT(help.output, HasSubstr(text));
    }
    EXPECT_THAT(RunTool({"watch", "--help"}).output, HasSubstr("--interval"));
}

TEST(Ecalluictl, AnOutputThatCannotBeWrittenIsNoticed) {
    UiPeer peer;
    const ToolResult full = RunTool({"--url", peer.Url(), "list"}, "", "/dev/full");

    EXPECT_EQ(6, full.status);
    EXPECT_EQ("ecalluictl: cannot write the output: No space left on device\n", full.errors);
}
