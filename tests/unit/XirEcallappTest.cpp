// The client of the eCall service against a real server, and against a peer that controls every byte and its moment.

#include "XirEcallapp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "OpenedProxy.h"
#include "ProtoBytes.h"
#include "RawPeer.h"
#include "Scarcity.h"
#include "Seen.h"
#include "ServerPeer.h"
#include "XirRpcClient.h"

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

constexpr unsigned kNotifyNotifyState = 18;
constexpr unsigned kSubscribe = 19;
constexpr unsigned kUnsubscribe = 20;
constexpr unsigned kVersion = 21;
constexpr seconds kRequestLimit{30};
constexpr seconds kPrompt{10};  // far from the limit, and far from what a call takes

const std::string kGoodVersion = VersionReply(0, 2, "com.vantu.ecallapp.iecallapp");
const std::string kOk = ProtoBytes().Number(1, 0).bytes;

ProtoBytes State(int service, int sim, int network, int call, int audio, int selfTest) {
    return ProtoBytes()
        .Number(1, service)
        .Number(2, sim)
        .Number(3, network)
        .Number(4, call)
        .Number(5, audio)
        .Number(6, selfTest);
}

Seen<uint32_t> seen;
TEcallappState lastState;  // written before seen.Add, read after seen.Wait

int NoteState(const TEcallappState* state) {
    lastState = *state;
    seen.Add(state->serviceState);
    return 0;
}

int NoteStateFromAnother(const TEcallappState* state) {
    seen.Add(state->serviceState + 1000);
    return 0;
}

struct Client {
    IEcallAppPubProxy* proxy = nullptr;

    int32_t Connect(const std::string& url) {
        const XirConnection connection{"EcallAppClient", url.c_str()};
        const int32_t status = XirEcallapp_createProxy(&proxy, &connection);
        return status;
    }
    ~Client() { XirEcallapp_releaseProxy(proxy); }
};

class XirEcallapp : public testing::Test {
  protected:
    XirEcallapp() { seen.Clear(); }
    void SetUp() override {
        ASSERT_EQ(0, client.Connect(url));
        ASSERT_NE(nullptr, client.proxy);
        AwaitOpened(client.proxy);
    }

    ServerPeer peer;
    const std::string url = peer.Url();
    Client client;
    IEcallAppPubProxy*& proxy = client.proxy;
};

/// A connected client whose peer does only what the test tells it.
class XirEcallappRaw : public testing::Test {
  protected:
    XirEcallappRaw() { seen.Clear(); }
    void SetUp() override {
        auto creation = std::async(std::launch::async, [this] { return client.Connect(url); });
        peer.Accept();
        const RawFrame question = peer.Serve(kGoodVersion);
        EXPECT_EQ(kVersion, question.method);
        EXPECT_EQ(kRequest, question.kind);
        ASSERT_EQ(0, creation.get());
        AwaitOpened(client.proxy);
    }
    std::future<int32_t> Trigger() {
        return std::async(std::launch::async, [this] { return XirEcallapp_triggerEcall(client.proxy, 1); });
    }
    void Register(XirEcallappStateCallback callback) {
        auto registration = std::async(
            std::launch::async, [this, callback] { return XirEcallapp_registerNotifyState(client.proxy, callback); });
        peer.Serve(kOk);
        ASSERT_EQ(0, registration.get());
    }
    void NotifyState(int serviceState) {
        peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(serviceState, 0, 5, 0, 0, 2)).bytes);
    }

    RawPeer peer;
    const std::string url = peer.Url();
    Client client;
    IEcallAppPubProxy*& proxy = client.proxy;
};

// --- What each operation sends ---

constexpr TSelfTestAllDevicesState kSelfTest{0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2};
constexpr TGnssLocation kLocation{1, 0x123456789abcdef0, 48.5, -2.25, 1, 2, 3, 4, 5, 6, 7, 8};
constexpr TVehicleConfig kVehicle{"WVWZZZ1JZ3W386752", 1, 0, 1, 0, 1, 0, 1, 12, "tuning"};

ProtoBytes SelfTestBytes() {
    ProtoBytes bytes;
    for (unsigned field = 1; field <= 15; ++field) {
        bytes.Number(field, (field - 1) % 3);
    }
    return bytes;
}

ProtoBytes LocationBytes() {
    ProtoBytes bytes;
    bytes.Number(1, 1).Number(2, 0x123456789abcdef0).Double(3, 48.5).Double(4, -2.25);
    for (unsigned field = 5; field <= 12; ++field) {
        bytes.Float(field, static_cast<float>(field - 4));
    }
    return bytes;
}

ProtoBytes VehicleBytes(const std::string& vin = "WVWZZZ1JZ3W386752", const std::string& tuning = "tuning") {
    const ProtoBytes propulsion =
        ProtoBytes().Number(1, 1).Number(2, 0).Number(3, 1).Number(4, 0).Number(5, 1).Number(6, 0).Number(7, 1);
    return ProtoBytes().Text(1, vin).Message(2, propulsion).Number(3, 12).Text(4, tuning);
}

struct Command {
    const char* name;
    unsigned method;
    std::string request;
    std::function<int32_t(IEcallAppPubProxy*)> call;

    friend void PrintTo(const Command& command, std::ostream* out) { *out << command.name; }
};

const Command kCommands[] = {
    {"triggerAutomatic", 0, ProtoBytes().Number(1, 1).bytes,
     [](auto* proxy) { return XirEcallapp_triggerEcall(proxy, 1); }},
    {"triggerManual", 0, ProtoBytes().Number(1, 0).bytes,
     [](auto* proxy) { return XirEcallapp_triggerEcall(proxy, 0); }},
    {"userRequestCancelEcall", 1, "", XirEcallapp_userRequestCancelEcall},
    {"disconnectEcall", 2, "", XirEcallapp_disconnectEcall},
    {"updateVehicleConfig", 3, ProtoBytes().Message(1, VehicleBytes()).bytes,
     [](auto* proxy) { return XirEcallapp_updateVehicleConfig(proxy, &kVehicle); }},
    {"updateVehicleState", 4, ProtoBytes().Message(1, ProtoBytes().Number(1, 200).Number(2, 1).Number(3, 2)).bytes,
     [](auto* proxy) {
         const TVehicleState state{200, 1, 2};
         return XirEcallapp_updateVehicleState(proxy, &state);
     }},
    {"updateSelfTestAllDevicesState", 6, ProtoBytes().Message(1, SelfTestBytes()).bytes,
     [](auto* proxy) { return XirEcallapp_updateSelfTestAllDevicesState(proxy, &kSelfTest); }},
    {"updateGnssLocation", 7, ProtoBytes().Message(1, LocationBytes()).bytes,
     [](auto* proxy) { return XirEcallapp_updateGnssLocation(proxy, &kLocation); }},
    {"setCfgParameter", 10,
     ProtoBytes().Number(1, 53).Message(2, ProtoBytes().Number(1, 1).Number(2, -7).Text(3, "text")).bytes,
     [](auto* proxy) {
         const TCfgParamValue value{1, -7, "text"};
         return XirEcallapp_setCfgParameter(proxy, 53, &value);
     }},
    {"switchToTestMode", 13, "", XirEcallapp_switchToTestMode},
    {"switchFromTestMode", 14, "", XirEcallapp_switchFromTestMode},
};

class XirEcallappCommand : public XirEcallapp, public testing::WithParamInterface<Command> {};

TEST_P(XirEcallappCommand, SendsItsArgumentsAndReturnsTheResponsecode) {
    peer.Answer(GetParam().method, ProtoBytes().Number(1, 7).bytes);

    EXPECT_EQ(7, GetParam().call(proxy));

    EXPECT_EQ((PeerRequest{GetParam().method, GetParam().request}), peer.Requests().back());
}

INSTANTIATE_TEST_SUITE_P(Each, XirEcallappCommand, testing::ValuesIn(kCommands),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(XirEcallapp, NullTextsOfTheCallerAreSentEmpty) {
    const TCfgParamValue value{0, 1, nullptr};
    TVehicleConfig vehicle = kVehicle;
    vehicle.VIN = nullptr;
    vehicle.audioTuningSet = nullptr;

    EXPECT_EQ(0, XirEcallapp_setCfgParameter(proxy, 10, &value));
    EXPECT_EQ(0, XirEcallapp_updateVehicleConfig(proxy, &vehicle));

    EXPECT_EQ(ProtoBytes().Number(1, 10).Message(2, ProtoBytes().Number(1, 0).Number(2, 1).Text(3, "")).bytes,
              peer.WaitFor(10).payload);
    EXPECT_EQ(ProtoBytes().Message(1, VehicleBytes("", "")).bytes, peer.WaitFor(3).payload);
}

TEST_F(XirEcallapp, ParameterNumbersOutsideTheEnumerationAreSentAsTheyAre) {
    const TCfgParamValue value{0, 0, ""};

    EXPECT_EQ(0, XirEcallapp_setCfgParameter(proxy, 0xfffffffe, &value));

    const ProtoBytes empty = ProtoBytes().Number(1, 0).Number(2, 0).Text(3, "");
    EXPECT_EQ(ProtoBytes().Number(1, -2).Message(2, empty).bytes, peer.WaitFor(10).payload);
}

// --- What each get operation asks and returns ---

TEST_F(XirEcallapp, GetSelfTestAllDevicesStateReturnsAllFifteenResults) {
    peer.Answer(5, ProtoBytes().Number(1, 0).Message(2, SelfTestBytes()).bytes);
    XirRecord<TSelfTestAllDevicesState>* result = nullptr;

    ASSERT_EQ(0, XirEcallapp_getSelfTestAllDevicesState(proxy, &result));

    EXPECT_EQ((PeerRequest{5, ""}), peer.Requests().back());
    EXPECT_EQ(0, std::memcmp(&kSelfTest, static_cast<TSelfTestAllDevicesState*>(result), sizeof kSelfTest));
    EXPECT_EQ(0, result->release(result));
}

TEST_F(XirEcallapp, RequestStateReturnsTheSixStates) {
    peer.Answer(8, ProtoBytes().Number(1, 0).Message(2, State(106, 1, 5, 7, 2, 3)).bytes);
    XirRecord<TEcallappState>* state = nullptr;

    ASSERT_EQ(0, XirEcallapp_requestState(proxy, &state));

    EXPECT_EQ((PeerRequest{8, ""}), peer.Requests().back());
    EXPECT_EQ(106U, state->serviceState);
    EXPECT_EQ(1U, state->simProfileState);
    EXPECT_EQ(5U, state->networkState);
    EXPECT_EQ(7U, state->callState);
    EXPECT_EQ(2U, state->audioOutState);
    EXPECT_EQ(3U, state->selfTestState);
    EXPECT_EQ(0, state->release(state));
}

TEST_F(XirEcallapp, GetCfgParameterReturnsTheTriple) {
    peer.Answer(9, ProtoBytes().Number(1, 0).Message(2, ProtoBytes().Number(1, 1).Number(2, -53).Text(3, "abc")).bytes);
    XirRecord<TCfgParamValue>* value = nullptr;

    ASSERT_EQ(0, XirEcallapp_getCfgParameter(proxy, 53, &value));

    EXPECT_EQ((PeerRequest{9, ProtoBytes().Number(1, 53).bytes}), peer.Requests().back());
    EXPECT_EQ(1, value->boolValue);
    EXPECT_EQ(-53, value->intValue);
    EXPECT_STREQ("abc", value->StrValue);
    EXPECT_EQ(0, value->release(value));
}

TEST_F(XirEcallapp, GetGnssLocationHistoryReturnsCountersAndPosition) {
    peer.Answer(11,
                ProtoBytes()
                    .Number(1, 0)
                    .Message(2, ProtoBytes().Number(1, 250).Number(2, 3).Number(3, 1000).Message(4, LocationBytes()))
                    .bytes);
    XirRecord<TEcallGnssLocationHistory>* history = nullptr;

    ASSERT_EQ(0, XirEcallapp_getGnssLocationHistory(proxy, -2, &history));

    EXPECT_EQ((PeerRequest{11, ProtoBytes().Number(1, -2).bytes}), peer.Requests().back());
    EXPECT_EQ(250, history->totalGnssLocationStoredBeforeCrash);
    EXPECT_EQ(3, history->totalGnssLocationStoredAfterCrash);
    EXPECT_EQ(1000, history->index);
    EXPECT_EQ(1, history->data.isValid);
    EXPECT_EQ(kLocation.utcTime, history->data.utcTime);
    EXPECT_EQ(48.5, history->data.latitude);
    EXPECT_EQ(-2.25, history->data.longitude);
    EXPECT_EQ(1, history->data.altitude);
    EXPECT_EQ(2, history->data.horizontalAccuracy);
    EXPECT_EQ(3, history->data.course);
    EXPECT_EQ(4, history->data.courseAccuracy);
    EXPECT_EQ(5, history->data.speed);
    EXPECT_EQ(6, history->data.speedAccuracy);
    EXPECT_EQ(7, history->data.courseMagnetic);
    EXPECT_EQ(8, history->data.courseMagneticAccuracy);
    EXPECT_EQ(0, history->release(history));
}

TEST_F(XirEcallapp, LocationHistoryCountersAreCutToTheirFields) {
    peer.Answer(
        11, ProtoBytes()
                .Number(1, 0)
                .Message(2, ProtoBytes().Number(1, 256).Number(2, 511).Number(3, 0x12345).Message(4, LocationBytes()))
                .bytes);
    XirRecord<TEcallGnssLocationHistory>* history = nullptr;

    ASSERT_EQ(0, XirEcallapp_getGnssLocationHistory(proxy, 0, &history));

    EXPECT_EQ(0, history->totalGnssLocationStoredBeforeCrash);
    EXPECT_EQ(255, history->totalGnssLocationStoredAfterCrash);
    EXPECT_EQ(0x2345, history->index);
    history->release(history);
}

TEST_F(XirEcallapp, GetMsdHistoryReturnsInfoAndCountersCutToTheirFields) {
    peer.Answer(12,
                ProtoBytes().Number(1, 0).Message(2, ProtoBytes().Number(1, 258).Number(2, 769).Text(3, "msd")).bytes);
    XirRecord<TEcallMsdHistory>* history = nullptr;

    ASSERT_EQ(0, XirEcallapp_getMsdHistory(proxy, 300, &history));

    EXPECT_EQ((PeerRequest{12, ProtoBytes().Number(1, 300).bytes}), peer.Requests().back());
    EXPECT_EQ(2, history->totalMsdStored);
    EXPECT_EQ(1, history->index);
    EXPECT_STREQ("msd", history->info);
    EXPECT_EQ(0, history->release(history));
}

TEST_F(XirEcallapp, GetOperatingModeReturnsTheMode) {
    peer.Answer(15, ProtoBytes().Number(1, 0).Number(2, 2).bytes);
    XirRecord<TEcallOperatingMode>* mode = nullptr;

    ASSERT_EQ(0, XirEcallapp_getOperatingMode(proxy, &mode));

    EXPECT_EQ((PeerRequest{15, ""}), peer.Requests().back());
    EXPECT_EQ(2U, mode->mode);
    EXPECT_EQ(0, mode->release(mode));
}

TEST_F(XirEcallapp, GetSimInfoReturnsNumbersAndFlagsCutToTheirFields) {
    peer.Answer(16, ProtoBytes()
                        .Number(1, 0)
                        .Message(2, ProtoBytes()
                                        .Number(1, 1)
                                        .Number(2, 257)
                                        .Text(3, "+33612345678")
                                        .Text(4, "+33700000000")
                                        .Number(5, 2)
                                        .Number(6, 1027))
                        .bytes);
    XirRecord<TEcallSimInfo>* info = nullptr;

    ASSERT_EQ(0, XirEcallapp_getSimInfo(proxy, &info));

    EXPECT_EQ((PeerRequest{16, ""}), peer.Requests().back());
    EXPECT_EQ(1, info->simPresent);
    EXPECT_EQ(1, info->ecallCapable);
    EXPECT_STREQ("+33612345678", info->ecallTestNumber);
    EXPECT_STREQ("+33700000000", info->ecallReconfigureNumber);
    EXPECT_EQ(2, info->ecallDualProfileEnable);
    EXPECT_EQ(3, info->ecallCurrentProfile);
    EXPECT_EQ(0, info->release(info));
}

TEST_F(XirEcallapp, GetVersionReturnsTheText) {
    peer.Answer(17, ProtoBytes().Number(1, 0).Text(2, "1.2.3").bytes);
    XirRecord<TEcallVersion>* version = nullptr;

    ASSERT_EQ(0, XirEcallapp_getVersion(proxy, &version));

    EXPECT_EQ((PeerRequest{17, ""}), peer.Requests().back());
    EXPECT_STREQ("1.2.3", version->strVersion);
    EXPECT_EQ(0, version->release(version));
}

TEST_F(XirEcallapp, ARecordLivesUntilItsLastReference) {
    peer.Answer(17, ProtoBytes().Number(1, 0).Text(2, "1.2.3").bytes);
    XirRecord<TEcallVersion>* version = nullptr;
    ASSERT_EQ(0, XirEcallapp_getVersion(proxy, &version));

    EXPECT_EQ(2, version->retain(version));
    EXPECT_EQ(1, version->release(version));

    EXPECT_STREQ("1.2.3", version->strVersion);
    EXPECT_EQ(0, version->release(version));
}

TEST_F(XirEcallapp, ARecordComesAlsoWithABadResponsecode) {
    peer.Answer(17, ProtoBytes().Number(1, 9).Text(2, "1.2.3").bytes);
    XirRecord<TEcallVersion>* version = nullptr;

    EXPECT_EQ(9, XirEcallapp_getVersion(proxy, &version));

    ASSERT_NE(nullptr, version);
    EXPECT_STREQ("1.2.3", version->strVersion);
    version->release(version);
}

/// What a get operation without memory answers when it leaves its out argument alone.
template <typename Record>
int32_t GetScarce(int32_t (*get)(IEcallAppPubProxy*, XirRecord<Record>**), IEcallAppPubProxy* proxy) {
    XirRecord<Record> untouched{};
    XirRecord<Record>* record = &untouched;
    const int32_t status = get(proxy, &record);
    EXPECT_EQ(&untouched, record);
    return status;
}

TEST_F(XirEcallapp, ARecordForWhichThereIsNoMemoryIsMissingWhole) {
    peer.Answer(15, ProtoBytes().Number(1, 0).Number(2, 2).bytes);
    peer.Answer(
        16, ProtoBytes()
                .Number(1, 0)
                .Message(2, ProtoBytes().Number(1, 1).Number(2, 1).Text(3, "1").Text(4, "2").Number(5, 2).Number(6, 3))
                .bytes);
    const auto getMode = [this] { return GetScarce<TEcallOperatingMode>(XirEcallapp_getOperatingMode, proxy); };
    const auto getSim = [this] { return GetScarce<TEcallSimInfo>(XirEcallapp_getSimInfo, proxy); };

    {
        const NoRecordMemory scarcity(0);
        EXPECT_EQ(-11, getMode());
    }
    for (const int blocks : {0, 1, 2}) {  // the record, its first text, its second
        const NoRecordMemory scarcity(blocks);
        EXPECT_EQ(-11, getSim()) << blocks;
    }

    XirRecord<TEcallSimInfo>* info = nullptr;
    const NoRecordMemory enough(3);
    EXPECT_EQ(0, XirEcallapp_getSimInfo(proxy, &info));
    EXPECT_STREQ("2", info->ecallReconfigureNumber);
    info->release(info);
}

// --- Statuses ---

TEST(XirEcallappNoProxy, EveryOperationAnswersNotConnected) {
    XirRecord<TSelfTestAllDevicesState>* selfTest = nullptr;
    XirRecord<TEcallappState>* state = nullptr;
    XirRecord<TCfgParamValue>* value = nullptr;
    XirRecord<TEcallGnssLocationHistory>* locations = nullptr;
    XirRecord<TEcallMsdHistory>* messages = nullptr;
    XirRecord<TEcallOperatingMode>* mode = nullptr;
    XirRecord<TEcallSimInfo>* sim = nullptr;
    XirRecord<TEcallVersion>* version = nullptr;

    for (const Command& command : kCommands) {
        EXPECT_EQ(-12, command.call(nullptr)) << command.name;
    }
    EXPECT_EQ(-12, XirEcallapp_getSelfTestAllDevicesState(nullptr, &selfTest));
    EXPECT_EQ(-12, XirEcallapp_requestState(nullptr, &state));
    EXPECT_EQ(-12, XirEcallapp_getCfgParameter(nullptr, 53, &value));
    EXPECT_EQ(-12, XirEcallapp_getGnssLocationHistory(nullptr, 0, &locations));
    EXPECT_EQ(-12, XirEcallapp_getMsdHistory(nullptr, 0, &messages));
    EXPECT_EQ(-12, XirEcallapp_getOperatingMode(nullptr, &mode));
    EXPECT_EQ(-12, XirEcallapp_getSimInfo(nullptr, &sim));
    EXPECT_EQ(-12, XirEcallapp_getVersion(nullptr, &version));
    EXPECT_EQ(-12, XirEcallapp_registerNotifyState(nullptr, NoteState));
    EXPECT_EQ(-12, XirEcallapp_deregisterNotifyState(nullptr, NoteState));
    XirEcallapp_releaseProxy(nullptr);
    EXPECT_EQ(nullptr, version);
}

TEST_F(XirEcallapp, ACallWithoutConnectionAnswersNotConnectedAndLeavesTheOutArgument) {
    peer.Stop();
    XirRecord<TEcallVersion> untouched{};
    XirRecord<TEcallVersion>* version = &untouched;

    EXPECT_EQ(-12, XirEcallapp_getVersion(proxy, &version));
    EXPECT_EQ(-12, XirEcallapp_triggerEcall(proxy, 1));
    EXPECT_EQ(-12, XirEcallapp_registerNotifyState(proxy, NoteState));

    EXPECT_EQ(&untouched, version);
}

TEST_F(XirEcallapp, ARefusedRequestIsAMissingReply) {
    peer.Answer(0, "not a reply");

    EXPECT_EQ(-12, XirEcallapp_triggerEcall(proxy, 1));
    EXPECT_EQ(0, XirEcallapp_disconnectEcall(proxy));
}

TEST_F(XirEcallappRaw, EveryBadStatusOfAReplyIsAMissingReply) {
    for (const uint8_t status : {uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
        auto call = Trigger();
        const RawFrame request = peer.Receive();
        peer.Send({request.method, kReply, status, request.id, ""});
        EXPECT_EQ(-12, call.get()) << int{status};
    }
}

TEST_F(XirEcallappRaw, ALostConnectionCompletesTheCallUnderWay) {
    auto call = Trigger();
    peer.Receive();

    peer.Drop();

    EXPECT_EQ(-12, call.get());
}

TEST_F(XirEcallappRaw, ATransportErrorGoesToStandardError) {
    CaptureStderr();
    auto call = Trigger();
    const RawFrame request = peer.Receive();

    peer.Send({request.method, 99, 0, request.id, kOk});

    EXPECT_EQ(-12, call.get());
    EXPECT_THAT(GetCapturedStderr(),
                testing::MatchesRegex("\\*\\*\\* error\\(proxyErrorHandler\\): -?[0-9]+: [^\n]+\n"));
}

TEST_F(XirEcallappRaw, AResponsecodeThatLooksLikePendingEndsTheCallToo) {
    auto call = Trigger();

    peer.Serve(ProtoBytes().Number(1, 0x7fffffff).bytes);

    EXPECT_EQ(0x7fffffff, call.get());
}

TEST_F(XirEcallappRaw, ASilentPeerHoldsTheCallerForTheRequestLimitOnly) {
    const auto start = steady_clock::now();

    EXPECT_EQ(-12, XirEcallapp_triggerEcall(proxy, 1));

    EXPECT_GE(steady_clock::now() - start, kRequestLimit - seconds(1));
    EXPECT_LE(steady_clock::now() - start, kRequestLimit + kPrompt);
    auto next = Trigger();
    const RawFrame forgotten = peer.Receive();
    peer.Serve(kOk);
    EXPECT_EQ(0, next.get());
    peer.Reply(forgotten, ProtoBytes().Number(1, 5).bytes);  // too late: it belongs to no call any more
    auto last = Trigger();
    peer.Serve(kOk);
    EXPECT_EQ(0, last.get());
}

TEST_F(XirEcallapp, TwoThreadsCallingOneMethodEachGetTheirOwnReply) {
    peer.Handle(9, [](const std::string& request) {
        return ProtoBytes().Number(1, 0).Message(2, ProtoBytes().Number(1, 0).Number(2, request[1]).Text(3, "")).bytes;
    });
    const auto callMany = [this](uint32_t number) {
        int strangers = 0;
        for (int i = 0; i < 500; ++i) {
            XirRecord<TCfgParamValue>* value = nullptr;
            const int32_t status = XirEcallapp_getCfgParameter(proxy, number, &value);
            strangers += status != 0 || value->intValue != static_cast<int32_t>(number);
            if (value != nullptr) {
                value->release(value);
            }
        }
        return strangers;
    };

    auto other = std::async(std::launch::async, callMany, 3);

    EXPECT_EQ(0, callMany(4));
    EXPECT_EQ(0, other.get());
}

TEST_F(XirEcallappRaw, CallsOfDifferentMethodsAreUnderWayAtOnceAndMayBeAnsweredInAnyOrder) {
    auto trigger = Trigger();
    const RawFrame first = peer.Receive();
    auto disconnect = std::async(std::launch::async, [this] { return XirEcallapp_disconnectEcall(proxy); });
    const RawFrame second = peer.Receive();

    peer.Reply(second, ProtoBytes().Number(1, 2).bytes);
    EXPECT_EQ(2, disconnect.get());
    peer.Reply(first, ProtoBytes().Number(1, 1).bytes);
    EXPECT_EQ(1, trigger.get());
}

// --- The proxy's life ---

TEST(XirEcallappCreate, SaysWhatItDoes) {
    RawPeer peer;
    const std::string url = peer.Url();
    Client client;
    CaptureStdout();
    auto creation = std::async(std::launch::async, [&] { return client.Connect(url); });
    peer.Accept();
    peer.Serve(kGoodVersion);
    ASSERT_EQ(0, creation.get());
    XirEcallapp_releaseProxy(std::exchange(client.proxy, nullptr));
    std::string text = GetCapturedStdout();

    // Where the dispatch thread's line stands among those of the creator is open.
    const std::string opened = "connectionStatusCbFn - OPENED";
    ASSERT_THAT(text, HasSubstr(opened));
    text.erase(text.find(opened), opened.size());
    EXPECT_THAT(text, testing::StartsWith("XirEcallapp_createProxy - dispatchThread started Connecting... (srvcUrl=" +
                                          url + ")\nConnected. (srvcUrl=" + url + ")\nreleaseIEcallAppPubProxy (0x"));
}

TEST_F(XirEcallapp, TheRecordBeginsWithInterfaceMajorVersionAndNumberOfNotifications) {
    const auto& header = reinterpret_cast<const XirRpcProxy*>(proxy)->header;

    EXPECT_EQ(112, header.id);
    EXPECT_EQ(2, header.major);
    EXPECT_EQ(1, header.notification_count);
}

TEST_F(XirEcallappRaw, ReleaseSaysWhatItDoes) {
    char address[32];
    snprintf(address, sizeof address, "%p", static_cast<void*>(proxy));

    CaptureStdout();
    XirEcallapp_releaseProxy(std::exchange(proxy, nullptr));

    EXPECT_EQ("releaseIEcallAppPubProxy (" + std::string(address) +
                  ").\nIEcallApp_dispatchThread destroy clientIEcallApp_dispatchThread end",
              GetCapturedStdout());
}

TEST_F(XirEcallapp, TheDispatchThreadIsNamedAfterTheService) {
    std::size_t found = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        found += name == "IEcallApp";
    }
    EXPECT_EQ(1U, found);
}

TEST(XirEcallappCreate, WaitsForAServiceThatComesLater) {
    ServerPeer peer;
    const std::string url = peer.Url();
    peer.Stop();
    Client client;

    auto creation = std::async(std::launch::async, [&] { return client.Connect(url); });
    EXPECT_EQ(std::future_status::timeout, creation.wait_for(seconds(2)));
    peer.Start();

    EXPECT_EQ(0, creation.get());
    EXPECT_NE(nullptr, client.proxy);
}

TEST(XirEcallappCreate, WithoutMemoryThereIsNoProxy) {
    const NoMemory scarcity;
    Client client;
    client.proxy = reinterpret_cast<IEcallAppPubProxy*>(&client);  // to see that it is cleared

    EXPECT_EQ(-11, client.Connect("xirfile:///nowhere"));

    EXPECT_EQ(nullptr, client.proxy);
}

TEST(XirEcallappCreateDeathTest, WithoutAThreadTheResultIsZeroAndTheOutArgumentStays) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto createWithoutThread = [] {
        ForbidNewThreads();
        Client client;
        auto* const before = reinterpret_cast<IEcallAppPubProxy*>(&client);
        client.proxy = before;
        const int32_t status = client.Connect("xirfile:///nowhere");
        _exit(status == 0 && client.proxy == before ? 0 : 1);
    };
    EXPECT_EXIT(createWithoutThread(), testing::ExitedWithCode(0), "");
}

struct Stranger {
    const char* name;
    std::string version;
    int32_t status;

    friend void PrintTo(const Stranger& stranger, std::ostream* out) { *out << stranger.name; }
};

class XirEcallappStranger : public testing::TestWithParam<Stranger> {};

TEST_P(XirEcallappStranger, LeavesNoProxy) {
    ServerPeer peer;
    const std::string url = peer.Url();
    peer.Answer(kVersion, GetParam().version);
    Client client;
    client.proxy = reinterpret_cast<IEcallAppPubProxy*>(&client);  // to see that it is cleared

    EXPECT_EQ(GetParam().status, client.Connect(url));

    EXPECT_EQ(nullptr, client.proxy);
    EXPECT_EQ(1U, peer.Requests().size());
}

INSTANTIATE_TEST_SUITE_P(
    Each, XirEcallappStranger,
    testing::Values(Stranger{"MajorThree", VersionReply(0, 3, "com.vantu.ecallapp.iecallapp"), -14},
                    Stranger{"MajorOne", VersionReply(0, 1, "com.vantu.ecallapp.iecallapp"), -14},
                    Stranger{"WrongName", VersionReply(0, 2, "com.vantu.ecallapp.IEcallApp"), -13},
                    Stranger{"WrongNameAndMajor", VersionReply(0, 3, "com.vantu.ecallapp"), -13},
                    Stranger{"WrongMajorAndResponsecode", VersionReply(6, 3, "com.vantu.ecallapp.iecallapp"), -14},
                    Stranger{"BadResponsecode", VersionReply(6, 2, "com.vantu.ecallapp.iecallapp"), 6},
                    Stranger{"NoReply", "no message", -12}),
    [](const auto& instance) { return std::string(instance.param.name); });

class XirEcallappBadUrl : public testing::TestWithParam<const char*> {};

TEST_P(XirEcallappBadUrl, GivesNoClientAndNoProxy) {
    const std::string url = GetParam();
    Client client;

    CaptureStdout();
    EXPECT_EQ(-2, client.Connect(url));

    EXPECT_THAT(GetCapturedStdout(),
                testing::MatchesRegex("thread_init_fn - ERROR invalid XIR srvcUrl .srvcUrl=" + url +
                                      ".\nXirEcallapp_createProxy-ERROR: failed to create service"
                                      "releaseIEcallAppPubProxy .0x[0-9a-f]+.\\.\n"
                                      "IEcallApp_dispatchThread destroy clientIEcallApp_dispatchThread end"));
    EXPECT_EQ(nullptr, client.proxy);
}

INSTANTIATE_TEST_SUITE_P(Each, XirEcallappBadUrl,
                         testing::Values("xirtcp://", "xirfile://", "XIRTCP://127.0.0.1:50911", "tcp://127.0.0.1:50911",
                                         "", "127.0.0.1:50911"));

// --- Notifications ---

TEST_F(XirEcallapp, RegistrationSubscribesUnderTheClientsName) {
    CaptureStdout();
    EXPECT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));

    EXPECT_EQ(
        "SendSubscribeRequest send subscription message to server side (msgId=18)\n"
        "SendSubscribeRequest- subscription response = 0\n",
        GetCapturedStdout());
    EXPECT_EQ((PeerRequest{kSubscribe, ProtoBytes().Number(1, 18).Text(2, "EcallAppClient").bytes}),
              peer.Requests().back());
}

TEST_F(XirEcallapp, ANotificationReachesTheCallbackWithAllSixStates) {
    ASSERT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));

    EXPECT_EQ(1, peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(101, 1, 5, 4, 2, 3)).bytes));

    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(101U));
    EXPECT_EQ(1U, lastState.simProfileState);
    EXPECT_EQ(5U, lastState.networkState);
    EXPECT_EQ(4U, lastState.callState);
    EXPECT_EQ(2U, lastState.audioOutState);
    EXPECT_EQ(3U, lastState.selfTestState);
}

TEST_F(XirEcallapp, ASecondRegistrationIsRefusedAndTheFirstStays) {
    ASSERT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));
    const auto before = peer.Requests();

    EXPECT_EQ(-5, XirEcallapp_registerNotifyState(proxy, NoteStateFromAnother));

    EXPECT_EQ(before, peer.Requests());
    peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(3, 0, 0, 0, 0, 0)).bytes);
    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(3U));
}

TEST_F(XirEcallapp, ACallbackStaysRegisteredWhenTheServiceRefuses) {
    peer.Answer(kSubscribe, ProtoBytes().Number(1, 4).bytes);

    CaptureStdout();
    EXPECT_EQ(4, XirEcallapp_registerNotifyState(proxy, NoteState));

    EXPECT_THAT(GetCapturedStdout(), HasSubstr("SendSubscribeRequest- subscription response = 4\n"));
    EXPECT_EQ(-5, XirEcallapp_registerNotifyState(proxy, NoteState));
}

TEST_F(XirEcallapp, ARefusedSubscriptionIsAMissingReply) {
    peer.Answer(kSubscribe, "not a reply");
    peer.Answer(kUnsubscribe, "not a reply");

    CaptureStdout();
    EXPECT_EQ(-12, XirEcallapp_registerNotifyState(proxy, NoteState));
    EXPECT_EQ(-12, XirEcallapp_deregisterNotifyState(proxy, NoteState));

    EXPECT_EQ(
        "SendSubscribeRequest send subscription message to server side (msgId=18)\n"
        "SendSubscribeRequest- subscription response = -12\n"
        "SendUnSubscribeRequest send unsubscription message to server side (msgId=18)\n"
        "SendUnSubscribeRequest- subscription response = -12\n",
        GetCapturedStdout());
    EXPECT_EQ(-6, XirEcallapp_deregisterNotifyState(proxy, NoteState));  // it is cleared all the same
}

TEST_F(XirEcallapp, OnlyTheRegisteredCallbackCanBeDeregistered) {
    EXPECT_EQ(1, XirEcallapp_deregisterNotifyState(proxy, nullptr));
    EXPECT_EQ(-6, XirEcallapp_deregisterNotifyState(proxy, NoteState));
    ASSERT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));
    const auto before = peer.Requests();

    EXPECT_EQ(-6, XirEcallapp_deregisterNotifyState(proxy, NoteStateFromAnother));
    EXPECT_EQ(1, XirEcallapp_deregisterNotifyState(proxy, nullptr));

    EXPECT_EQ(before, peer.Requests());
    peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(3, 0, 0, 0, 0, 0)).bytes);
    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(3U));
}

TEST_F(XirEcallapp, DeregistrationWithdrawsTheSubscription) {
    ASSERT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));
    peer.Answer(kUnsubscribe, ProtoBytes().Number(1, 0).bytes);

    CaptureStdout();
    EXPECT_EQ(0, XirEcallapp_deregisterNotifyState(proxy, NoteState));

    EXPECT_EQ(
        "SendUnSubscribeRequest send unsubscription message to server side (msgId=18)\n"
        "SendUnSubscribeRequest- subscription response = 0\n",
        GetCapturedStdout());
    EXPECT_EQ((PeerRequest{kUnsubscribe, ProtoBytes().Number(1, 18).Text(2, "EcallAppClient").bytes}),
              peer.Requests().back());
    EXPECT_EQ(0, peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(3, 0, 0, 0, 0, 0)).bytes));
    EXPECT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteStateFromAnother));
}

TEST_F(XirEcallapp, ARestartedServiceFindsItsSubscriberAgain) {
    ASSERT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));

    peer.Stop();
    EXPECT_EQ(-12, XirEcallapp_triggerEcall(proxy, 1));
    peer.Start();
    const PeerRequest again = peer.WaitFor(kSubscribe, 2);
    EXPECT_EQ(1, peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(4, 0, 0, 0, 0, 0)).bytes));

    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(4U));
    EXPECT_EQ(ProtoBytes().Number(1, 18).Text(2, "EcallAppClient").bytes, again.payload);
    EXPECT_EQ(0, XirEcallapp_triggerEcall(proxy, 1));
}

TEST_F(XirEcallapp, AWithdrawnSubscriptionDoesNotComeBackWithTheService) {
    ASSERT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));
    ASSERT_EQ(0, XirEcallapp_deregisterNotifyState(proxy, NoteState));

    peer.Stop();
    peer.Start();
    while (XirEcallapp_triggerEcall(proxy, 1) != 0) {  // until it is connected again
        std::this_thread::yield();
    }

    EXPECT_EQ(0, peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(4, 0, 0, 0, 0, 0)).bytes));
    const auto requests = peer.Requests();
    EXPECT_EQ(1, std::count_if(requests.begin(), requests.end(),
                               [](const PeerRequest& request) { return request.method == kSubscribe; }));
}

TEST_F(XirEcallapp, ADeregistrationWithoutConnectionClearsTheCallback) {
    ASSERT_EQ(0, XirEcallapp_registerNotifyState(proxy, NoteState));
    peer.Stop();

    EXPECT_EQ(-12, XirEcallapp_deregisterNotifyState(proxy, NoteState));

    EXPECT_EQ(-6, XirEcallapp_deregisterNotifyState(proxy, NoteState));
}

TEST_F(XirEcallappRaw, ALossIsPrintedAndTheNextConnectionToo) {
    Register(NoteState);
    CaptureStdout();

    peer.Drop();
    peer.Accept();
    peer.Serve(kOk);  // the repeated subscription
    NotifyState(3);

    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(3U));
    EXPECT_EQ(
        "connectionStatusCbFn - CLOSEDconnectionStatusCbFn - OPENED"
        "dispatchNonRpcMessage - notification received (method_index=18)\n",
        GetCapturedStdout());
}

TEST_F(XirEcallappRaw, TheStateIsFieldTwoAndAFieldOneIsIgnored) {
    Register(NoteState);

    peer.Notify(kNotifyNotifyState,
                ProtoBytes().Message(1, State(1, 1, 1, 1, 1, 1)).Message(2, State(100, 0, 0, 0, 0, 0)).bytes);
    peer.Notify(kNotifyNotifyState, ProtoBytes().Message(1, State(2, 0, 0, 0, 0, 0)).bytes);
    NotifyState(102);

    EXPECT_THAT(seen.Wait(2), testing::ElementsAre(100U, 102U));
}

TEST_F(XirEcallappRaw, NumbersOutsideTheEnumerationsPassThrough) {
    Register(NoteState);

    peer.Notify(kNotifyNotifyState, ProtoBytes().Message(2, State(50, 2, 6, 9, 3, -1)).bytes);

    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(50U));
    EXPECT_EQ(2U, lastState.simProfileState);
    EXPECT_EQ(6U, lastState.networkState);
    EXPECT_EQ(9U, lastState.callState);
    EXPECT_EQ(3U, lastState.audioOutState);
    EXPECT_EQ(4294967295U, lastState.selfTestState);
}

TEST_F(XirEcallappRaw, AMessageOfKindOneIsReportedAndDropped) {
    Register(NoteState);
    CaptureStdout();

    peer.Send(
        {kNotifyNotifyState, kRequest, 0, 0, ProtoBytes().Number(1, 0).Message(2, State(1, 0, 0, 0, 0, 0)).bytes});
    NotifyState(2);

    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(2U));
    EXPECT_EQ(
        "dispatchNonRpcMessage - unexpected msgType=1 received (method_index=18)\n"
        "dispatchNonRpcMessage - notification received (method_index=18)\n",
        GetCapturedStdout());
}

TEST_F(XirEcallappRaw, ANotificationWithoutHandlerIsDropped) {
    Register(NoteState);
    CaptureStdout();

    peer.Notify(17, ProtoBytes().Number(1, 0).Text(2, "1.0").bytes);
    NotifyState(2);

    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(2U));
    EXPECT_THAT(GetCapturedStdout(), HasSubstr("dispatchNonRpcMessage - notification received (method_index=17)\n"));
}

TEST_F(XirEcallappRaw, ANotificationWithoutCallbackIsDropped) {
    CaptureStdout();
    NotifyState(1);
    auto call = Trigger();
    peer.Serve(kOk);
    EXPECT_EQ(0, call.get());
    XirEcallapp_releaseProxy(std::exchange(proxy, nullptr));

    // Where it stands among the other lines is open: the caller may have its reply while the handler still runs.
    EXPECT_THAT(GetCapturedStdout(),
                testing::HasSubstr("dispatchNonRpcMessage - notification received (method_index=18)\n"));
}

TEST_F(XirEcallappRaw, AReplyWaitsNotForItsConnectionsNotificationHandlerOfTheSameLock) {
    static std::mutex state;
    Register([](const TEcallappState* notified) {
        seen.Add(1);  // the handler has begun
        const std::lock_guard lock(state);
        return NoteState(notified);
    });
    const auto start = steady_clock::now();
    auto call = std::async(std::launch::async, [this] {
        const std::lock_guard lock(state);
        return XirEcallapp_triggerEcall(proxy, 1);
    });

    const RawFrame request = peer.Receive();
    NotifyState(101);
    seen.Wait(1);
    peer.Reply(request, kOk);

    EXPECT_EQ(0, call.get());
    EXPECT_LT(steady_clock::now() - start, kPrompt);
    EXPECT_THAT(seen.Wait(2), testing::ElementsAre(1U, 101U));
}

TEST_F(XirEcallappRaw, AReplyThatCameTogetherWithTheNotificationIsNotHeldBackByItsHandler) {
    static std::mutex state;
    Register([](const TEcallappState* notified) {
        const std::lock_guard lock(state);
        return NoteState(notified);
    });
    const auto start = steady_clock::now();
    auto call = std::async(std::launch::async, [this] {
        const std::lock_guard lock(state);
        return XirEcallapp_triggerEcall(proxy, 1);
    });

    const RawFrame request = peer.Receive();
    peer.SendTogether(
        {{kNotifyNotifyState, kNotification, 0, 0, ProtoBytes().Message(2, State(101, 0, 5, 0, 0, 2)).bytes},
         {request.method, kReply, 0, request.id, kOk}});

    EXPECT_EQ(0, call.get());
    EXPECT_LT(steady_clock::now() - start, kPrompt);
    EXPECT_THAT(seen.Wait(1), testing::ElementsAre(101U));
}

TEST_F(XirEcallappRaw, NotificationsKeepTheirOrderBehindAHandlerThatTakesLong) {
    static std::mutex gate;
    std::unique_lock closed(gate);
    Register([](const TEcallappState* notified) {
        NoteState(notified);
        const std::lock_guard passing(gate);
        return 0;
    });
    NotifyState(100);
    seen.Wait(1);

    for (const int serviceState : {101, 102, 103}) {
        NotifyState(serviceState);
        auto call = Trigger();
        peer.Serve(kOk);
        EXPECT_EQ(0, call.get());
    }
    closed.unlock();

    EXPECT_THAT(seen.Wait(4), testing::ElementsAre(100U, 101U, 102U, 103U));
}

}  // namespace
