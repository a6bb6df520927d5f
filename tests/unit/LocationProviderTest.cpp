// The client of the location service against a real server, and against a peer that controls every byte.

#include "LocationProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LocationBytes.h"
#include "OpenedProxy.h"
#include "ProtoBytes.h"
#include "RawPeer.h"
#include "Scarcity.h"
#include "Seen.h"
#include "ServerPeer.h"
#include "XirRpcClient.h"
#include "lib_Location/src/location.pb-c.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

constexpr unsigned kGetLastKnownPosition = 0;
constexpr unsigned kGetCurrentPosition = 1;
constexpr unsigned kClose = 2;
constexpr unsigned kNotifyLocation = 3;
constexpr unsigned kNotifyProviderState = 4;
constexpr unsigned kSubscribe = 5;
constexpr unsigned kUnsubscribe = 6;
constexpr unsigned kVersion = 7;
constexpr char kInterfaceName[] = "com.vantu.ms.location.locationprovider";
const PeerService kLocationService{&com__vantu__ms__location__location_provider__descriptor, kVersion, 0,
                                   kInterfaceName};
const std::string kOk = ProtoBytes().Number(1, 0).bytes;

/// Locations are field 2 of their notification, provider states too.
std::string LocationUpdate(const LocationValues& values = {}) {
    return ProtoBytes().Message(2, LocationBytes(values)).bytes;
}
std::string ProviderStateUpdate(int64_t status) {
    return ProtoBytes().Number(2, status).bytes;
}
std::string Subscription(unsigned notification) {
    return ProtoBytes().Number(1, notification).Text(2, "LocationProviderClient").bytes;
}

/// A location as a callback saw it, with its text, which is gone after the call.
struct SeenLocation {
    TLocation location;
    std::string extraInfo;
};
Seen<SeenLocation> seenLocations;
Seen<uint32_t> seenStates;

int NoteLocation(const TLocation* location) {
    seenLocations.Add({*location, location->extra_info});
    return 0;
}
int NoteLocationFromAnother(const TLocation* location) {
    seenLocations.Add({*location, "seen by another"});
    return 0;
}
int NoteState(uint32_t status) {
    seenStates.Add(status);
    return 0;
}
int NoteStateFromAnother(uint32_t status) {
    seenStates.Add(status + 1000);
    return 0;
}

struct Client {
    LocationProviderPubProxy* proxy = nullptr;

    int32_t Connect(const std::string& url) {
        const XirConnection connection{"LocationProviderClient", url.c_str()};
        return loc_createProxy(&proxy, &connection);
    }
    ~Client() { loc_releaseProxy(proxy); }
};

class LocationProvider : public testing::Test {
  protected:
    LocationProvider() {
        seenLocations.Clear();
        seenStates.Clear();
    }
    void SetUp() override {
        ASSERT_EQ(0, client.Connect(url));
        ASSERT_NE(nullptr, client.proxy);
        AwaitOpened(client.proxy);
    }

    ServerPeer peer{kLocationService};
    const std::string url = peer.Url();
    Client client;
    LocationProviderPubProxy*& proxy = client.proxy;
};

/// A connected client whose peer does only what the test tells it.
class LocationProviderRaw : public testing::Test {
  protected:
    LocationProviderRaw() {
        seenLocations.Clear();
        seenStates.Clear();
    }
    void SetUp() override {
        auto creation = std::async(std::launch::async, [this] { return client.Connect(url); });
        peer.Accept();
        const RawFrame question = peer.Serve(VersionReply(0, 0, kInterfaceName));
        EXPECT_EQ(kVersion, question.method);
        ASSERT_EQ(0, creation.get());
        AwaitOpened(client.proxy);
    }
    void RegisterForLocations() {
        auto registration =
            std::async(std::launch::async, [this] { return loc_registerTheCurrentLocation(proxy, NoteLocation); });
        peer.Serve(kOk);
        ASSERT_EQ(0, registration.get());
    }
    /// The connection is read in order: after this exchange the client has got all that was sent before.
    void Settle() {
        auto close = std::async(std::launch::async, [this] { return loc_close(proxy); });
        peer.Serve(kOk);
        ASSERT_EQ(0, close.get());
    }

    RawPeer peer;
    const std::string url = peer.Url();
    Client client;
    LocationProviderPubProxy*& proxy = client.proxy;
};

/// All fields of the record in their order, with what LocationBytes puts on the wire.
void ExpectTheLocationOfTheWire(const TLocation& location) {
    EXPECT_EQ(0.5F, location.heading);
    EXPECT_EQ(1.5F, location.heading_accuracy);
    EXPECT_EQ(2.5F, location.heading_mag);
    EXPECT_EQ(3.5F, location.heading_mag_accuracy);
    EXPECT_EQ(35.1, location.altitude);
    EXPECT_EQ(2.3522219, location.longitude);
    EXPECT_EQ(48.8566140, location.latitude);
    EXPECT_EQ(4.5F, location.altitude_msl);
    EXPECT_EQ(5.5F, location.ecefx);
    EXPECT_EQ(6.5F, location.ecefy);
    EXPECT_EQ(7.5F, location.ecefz);
    EXPECT_EQ(8.5F, location.axis_orientation);
    EXPECT_EQ(9.5F, location.semi_major_axis);
    EXPECT_EQ(10.5F, location.semi_minor_axis);
    EXPECT_EQ(11.5F, location.horizontal_accuracy);
    EXPECT_EQ(12.5F, location.latitude_accuracy);
    EXPECT_EQ(13.5F, location.longitude_accuracy);
    EXPECT_EQ(14.5F, location.vertical_accuracy);
    EXPECT_EQ(1, location.valid_2d_fix);
    EXPECT_EQ(0, location.valid_3d_fix);
    EXPECT_EQ(15.5F, location.speed);
    EXPECT_EQ(16.5F, location.speed_accuracy);
    EXPECT_EQ(345600.25, location.tow);
    EXPECT_EQ(18.75, location.utc_correction);
    EXPECT_EQ(2288, location.week_number);
    EXPECT_EQ(1'699'999'999'000U, location.local_timestamp);
    EXPECT_EQ(1'699'999'999'999U, location.receive_timestamp);
    EXPECT_EQ(1'699'999'998'500U, location.timestamp);
    EXPECT_EQ(1, location.valid_flag);
}

// --- Location notifications ---

TEST_F(LocationProvider, ALocationReachesTheCallbackWithAllItsFields) {
    ASSERT_EQ(0, loc_registerTheCurrentLocation(proxy, NoteLocation));

    EXPECT_EQ(1, peer.Notify(kNotifyLocation, LocationUpdate()));

    const auto locations = seenLocations.Wait(1);
    ASSERT_EQ(1U, locations.size());
    EXPECT_EQ("fix of the antenna", locations[0].extraInfo);
    ExpectTheLocationOfTheWire(locations[0].location);
}

TEST_F(LocationProvider, WeekNumbersArriveWithTheirLow16Bits) {
    ASSERT_EQ(0, loc_registerTheCurrentLocation(proxy, NoteLocation));

    for (const int64_t week : {65535, 65536, 65536 + 5}) {
        peer.Notify(kNotifyLocation, LocationUpdate({.weekNumber = week}));
    }

    const auto locations = seenLocations.Wait(3);
    ASSERT_EQ(3U, locations.size());
    EXPECT_EQ(65535, locations[0].location.week_number);
    EXPECT_EQ(0, locations[1].location.week_number);
    EXPECT_EQ(5, locations[2].location.week_number);
}

TEST_F(LocationProvider, EachOfTheThreeFlagsArrivesOnItsOwn) {
    ASSERT_EQ(0, loc_registerTheCurrentLocation(proxy, NoteLocation));

    peer.Notify(kNotifyLocation, LocationUpdate({.is2dFix = true, .is3dFix = false, .isValid = false}));
    peer.Notify(kNotifyLocation, LocationUpdate({.is2dFix = false, .is3dFix = true, .isValid = false}));
    peer.Notify(kNotifyLocation, LocationUpdate({.is2dFix = false, .is3dFix = false, .isValid = true}));

    std::vector<std::array<int, 3>> flags;
    for (const auto& [location, text] : seenLocations.Wait(3)) {
        flags.push_back({location.valid_2d_fix, location.valid_3d_fix, location.valid_flag});
    }
    EXPECT_THAT(flags, ElementsAre(std::array{1, 0, 0}, std::array{0, 1, 0}, std::array{0, 0, 1}));
}

TEST_F(LocationProvider, TextsOfAnyLengthKeepTheirTerminator) {
    ASSERT_EQ(0, loc_registerTheCurrentLocation(proxy, NoteLocation));
    const std::vector<std::string> texts = {"", "x", std::string(16, 'a'), std::string(100'000, 'b')};

    for (const std::string& text : texts) {
        peer.Notify(kNotifyLocation, LocationUpdate({.extraInfo = text}));
    }

    const auto locations = seenLocations.Wait(texts.size());
    ASSERT_EQ(texts.size(), locations.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(texts[i], locations[i].extraInfo);
    }
}

TEST_F(LocationProvider, TheWholeRangeOf64BitTimesArrives) {
    ASSERT_EQ(0, loc_registerTheCurrentLocation(proxy, NoteLocation));

    peer.Notify(kNotifyLocation,
                LocationUpdate({.localTimestamp = 0, .receiveTimestamp = UINT64_MAX, .timestamp = 1ULL << 63U}));

    const auto locations = seenLocations.Wait(1);
    ASSERT_EQ(1U, locations.size());
    EXPECT_EQ(0U, locations[0].location.local_timestamp);
    EXPECT_EQ(UINT64_MAX, locations[0].location.receive_timestamp);
    EXPECT_EQ(1ULL << 63U, locations[0].location.timestamp);
}

TEST_F(LocationProvider, WithoutMemoryALocationIsDroppedAndTheNextOneArrives) {
    ASSERT_EQ(0, loc_registerTheCurrentLocation(proxy, NoteLocation));
    ASSERT_EQ(0, loc_registerTheCurrentProviderState(proxy, NoteState));

    CaptureStderr();
    for (const int blocks : {0, 1}) {  // the record, its text
        const NoRecordMemory scarcity(blocks);
        peer.Notify(kNotifyLocation, LocationUpdate({.weekNumber = blocks}));
        peer.Notify(kNotifyProviderState, ProviderStateUpdate(blocks));
        seenStates.Wait(static_cast<std::size_t>(blocks) + 1);  // so what came before is done with
    }
    peer.Notify(kNotifyLocation, LocationUpdate({.weekNumber = 7}));
    const auto locations = seenLocations.Wait(1);

    ASSERT_EQ(1U, locations.size());
    EXPECT_EQ(7, locations[0].location.week_number);
    EXPECT_EQ(
        "LocationProvider: no memory for a position, it is dropped\n"
        "LocationProvider: no memory for a position, it is dropped\n",
        GetCapturedStderr());
}

TEST_F(LocationProviderRaw, ALocationIsFieldTwoAndAFieldOneIsIgnored) {
    RegisterForLocations();

    peer.Notify(
        kNotifyLocation,
        ProtoBytes().Message(1, LocationBytes({.weekNumber = 1})).Message(2, LocationBytes({.weekNumber = 2})).bytes);
    peer.Notify(kNotifyLocation, ProtoBytes().Message(1, LocationBytes({.weekNumber = 3})).bytes);
    peer.Notify(kNotifyLocation, LocationUpdate({.weekNumber = 4}));

    const auto locations = seenLocations.Wait(2);
    ASSERT_EQ(2U, locations.size());
    EXPECT_EQ(2, locations[0].location.week_number);
    EXPECT_EQ(4, locations[1].location.week_number);
}

TEST_F(LocationProviderRaw, ALocationThatLacksAPartIsNoLocation) {
    RegisterForLocations();

    peer.Notify(kNotifyLocation, ProtoBytes().Message(2, ProtoBytes().Text(1, "alone")).bytes);
    peer.Notify(kNotifyLocation, LocationUpdate({.weekNumber = 4}));

    const auto locations = seenLocations.Wait(1);
    ASSERT_EQ(1U, locations.size());
    EXPECT_EQ(4, locations[0].location.week_number);
}

TEST_F(LocationProviderRaw, NotificationsWithoutCallbackAreLoggedAndDropped) {
    CaptureStdout();
    peer.Notify(kNotifyLocation, LocationUpdate());
    peer.Notify(kNotifyProviderState, ProviderStateUpdate(1));
    Settle();
    loc_releaseProxy(std::exchange(proxy, nullptr));

    const std::string text = GetCapturedStdout();
    EXPECT_THAT(text, HasSubstr("dispatchNonRpcMessage - notification received (method_index=3)\n"
                                "dispatchNonRpcMessage - notification received (method_index=4)\n"));
    EXPECT_TRUE(seenLocations.Wait(0).empty());
    EXPECT_TRUE(seenStates.Wait(0).empty());
}

TEST_F(LocationProviderRaw, ALocationAheadOfTheSubscriptionsReplyReachesTheCallback) {
    auto registration =
        std::async(std::launch::async, [this] { return loc_registerTheCurrentLocation(proxy, NoteLocation); });
    const RawFrame question = peer.Receive();

    peer.Notify(kNotifyLocation, LocationUpdate({.weekNumber = 4}));
    peer.Reply(question, kOk);
    EXPECT_EQ(0, registration.get());
    peer.Notify(kNotifyLocation, LocationUpdate({.weekNumber = 5}));

    const auto locations = seenLocations.Wait(2);
    ASSERT_EQ(2U, locations.size());
    EXPECT_EQ(4, locations[0].location.week_number);
    EXPECT_EQ(5, locations[1].location.week_number);
}

TEST_F(LocationProviderRaw, ALocationAheadOfTheReplyToAWithdrawalReachesNobody) {
    RegisterForLocations();
    auto withdrawal =
        std::async(std::launch::async, [this] { return loc_deregisterTheCurrentLocation(proxy, NoteLocation); });
    const RawFrame question = peer.Receive();

    peer.Notify(kNotifyLocation, LocationUpdate());
    peer.Reply(question, kOk);

    EXPECT_EQ(0, withdrawal.get());
    EXPECT_TRUE(seenLocations.Wait(0).empty());  // it was read before the reply
}

// --- Provider-state notifications ---

TEST_F(LocationProvider, ProviderStatesReachTheirCallbackInAndOutOfTheEnumeration) {
    ASSERT_EQ(0, loc_registerTheCurrentProviderState(proxy, NoteState));

    for (const int64_t state : {0, 1, 2, 3, 4, 5, 6, 7, 8, -1}) {
        EXPECT_EQ(1, peer.Notify(kNotifyProviderState, ProviderStateUpdate(state)));
    }

    EXPECT_THAT(seenStates.Wait(10), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 4294967295U));
}

TEST_F(LocationProviderRaw, AProviderStateIsFieldTwoAndAFieldOneIsIgnored) {
    auto registration =
        std::async(std::launch::async, [this] { return loc_registerTheCurrentProviderState(proxy, NoteState); });
    peer.Serve(kOk);
    ASSERT_EQ(0, registration.get());

    peer.Notify(kNotifyProviderState, ProtoBytes().Number(1, 1).Number(2, 2).bytes);
    peer.Notify(kNotifyProviderState, ProtoBytes().Number(1, 3).bytes);
    peer.Notify(kNotifyProviderState, ProviderStateUpdate(4));

    EXPECT_THAT(seenStates.Wait(2), ElementsAre(2U, 4U));
}

TEST_F(LocationProviderRaw, AProviderStateForLocationsOnlyIsLoggedAndIgnored) {
    RegisterForLocations();
    CaptureStdout();

    peer.Notify(kNotifyProviderState, ProviderStateUpdate(6));
    peer.Notify(kNotifyLocation, LocationUpdate());
    seenLocations.Wait(1);

    EXPECT_TRUE(seenStates.Wait(0).empty());
    EXPECT_EQ(
        "dispatchNonRpcMessage - notification received (method_index=4)\n"
        "dispatchNonRpcMessage - notification received (method_index=3)\n",
        GetCapturedStdout());
}

// --- Registration: the same rules for both notifications ---

struct Slot {
    const char* name;
    unsigned notification;
    int32_t (*enroll)(LocationProviderPubProxy*);
    int32_t (*enrollAnother)(LocationProviderPubProxy*);
    int32_t (*withdraw)(LocationProviderPubProxy*);
    int32_t (*withdrawAnother)(LocationProviderPubProxy*);
    int32_t (*withdrawNone)(LocationProviderPubProxy*);
    std::string update;
    bool (*isSeenByTheFirst)();

    friend void PrintTo(const Slot& slot, std::ostream* out) { *out << slot.name; }
};

const Slot kSlots[] = {
    {"Location", kNotifyLocation, [](auto* proxy) { return loc_registerTheCurrentLocation(proxy, NoteLocation); },
     [](auto* proxy) { return loc_registerTheCurrentLocation(proxy, NoteLocationFromAnother); },
     [](auto* proxy) { return loc_deregisterTheCurrentLocation(proxy, NoteLocation); },
     [](auto* proxy) { return loc_deregisterTheCurrentLocation(proxy, NoteLocationFromAnother); },
     [](auto* proxy) { return loc_deregisterTheCurrentLocation(proxy, nullptr); }, LocationUpdate(),
     [] { return seenLocations.Wait(1).at(0).extraInfo == "fix of the antenna"; }},
    {"ProviderState", kNotifyProviderState,
     [](auto* proxy) { return loc_registerTheCurrentProviderState(proxy, NoteState); },
     [](auto* proxy) { return loc_registerTheCurrentProviderState(proxy, NoteStateFromAnother); },
     [](auto* proxy) { return loc_deregisterTheCurrentProviderState(proxy, NoteState); },
     [](auto* proxy) { return loc_deregisterTheCurrentProviderState(proxy, NoteStateFromAnother); },
     [](auto* proxy) { return loc_deregisterTheCurrentProviderState(proxy, nullptr); }, ProviderStateUpdate(5),
     [] { return seenStates.Wait(1).at(0) == 5; }},
};

class LocationProviderSlot : public LocationProvider, public testing::WithParamInterface<Slot> {};

TEST_P(LocationProviderSlot, SubscribesUnderTheClientsName) {
    CaptureStdout();
    EXPECT_EQ(0, GetParam().enroll(proxy));

    EXPECT_EQ("SendSubscribeRequest send subscription message to server side (msgId=" +
                  std::to_string(GetParam().notification) + ")\nSendSubscribeRequest- subscription response = 0\n",
              GetCapturedStdout());
    EXPECT_EQ((PeerRequest{kSubscribe, Subscription(GetParam().notification)}), peer.Requests().back());
}

TEST_P(LocationProviderSlot, ASecondRegistrationIsRefusedAndTheFirstStays) {
    ASSERT_EQ(0, GetParam().enroll(proxy));
    const auto before = peer.Requests();

    EXPECT_EQ(-5, GetParam().enrollAnother(proxy));
    EXPECT_EQ(-5, GetParam().enroll(proxy));

    EXPECT_EQ(before, peer.Requests());
    EXPECT_EQ(1, peer.Notify(static_cast<uint16_t>(GetParam().notification), GetParam().update));
    EXPECT_TRUE(GetParam().isSeenByTheFirst());
}

TEST_P(LocationProviderSlot, OnlyTheRegisteredCallbackCanBeDeregistered) {
    EXPECT_EQ(1, GetParam().withdrawNone(proxy));
    EXPECT_EQ(-6, GetParam().withdraw(proxy));
    ASSERT_EQ(0, GetParam().enroll(proxy));
    const auto before = peer.Requests();

    EXPECT_EQ(-6, GetParam().withdrawAnother(proxy));
    EXPECT_EQ(1, GetParam().withdrawNone(proxy));

    EXPECT_EQ(before, peer.Requests());
    peer.Notify(static_cast<uint16_t>(GetParam().notification), GetParam().update);
    EXPECT_TRUE(GetParam().isSeenByTheFirst());
}

TEST_P(LocationProviderSlot, DeregistrationWithdrawsTheSubscription) {
    ASSERT_EQ(0, GetParam().enroll(proxy));

    CaptureStdout();
    EXPECT_EQ(0, GetParam().withdraw(proxy));

    EXPECT_EQ("SendUnSubscribeRequest send unsubscription message to server side (msgId=" +
                  std::to_string(GetParam().notification) + ")\nSendUnSubscribeRequest- subscription response = 0\n",
              GetCapturedStdout());
    EXPECT_EQ((PeerRequest{kUnsubscribe, Subscription(GetParam().notification)}), peer.Requests().back());
    EXPECT_EQ(0, peer.Notify(static_cast<uint16_t>(GetParam().notification), GetParam().update));
    EXPECT_EQ(0, GetParam().enrollAnother(proxy));
}

TEST_P(LocationProviderSlot, ARefusedSubscriptionAnswersItsResponsecodeAndKeepsTheCallback) {
    peer.Answer(kSubscribe, ProtoBytes().Number(1, 4).bytes);
    peer.Answer(kUnsubscribe, ProtoBytes().Number(1, 9).bytes);

    EXPECT_EQ(4, GetParam().enroll(proxy));

    EXPECT_EQ(-5, GetParam().enroll(proxy));
    EXPECT_EQ(9, GetParam().withdraw(proxy));
}

TEST_P(LocationProviderSlot, AMissingReplyToASubscriptionIsNotConnected) {
    peer.Answer(kSubscribe, "no reply");
    peer.Answer(kUnsubscribe, "no reply");

    EXPECT_EQ(-12, GetParam().enroll(proxy));
    EXPECT_EQ(-12, GetParam().withdraw(proxy));
    EXPECT_EQ(-6, GetParam().withdraw(proxy));  // it is cleared all the same
}

TEST_P(LocationProviderSlot, WithoutConnectionNothingIsRegistered) {
    peer.Stop();
    AwaitLost(proxy);

    EXPECT_EQ(-12, GetParam().enroll(proxy));

    EXPECT_EQ(-6, GetParam().withdraw(proxy));
}

TEST_P(LocationProviderSlot, ARestartedServiceFindsItsSubscriberAgain) {
    ASSERT_EQ(0, GetParam().enroll(proxy));

    peer.Stop();
    peer.Start();
    const PeerRequest again = peer.WaitFor(kSubscribe, 2);
    EXPECT_EQ(1, peer.Notify(static_cast<uint16_t>(GetParam().notification), GetParam().update));

    EXPECT_TRUE(GetParam().isSeenByTheFirst());
    EXPECT_EQ(Subscription(GetParam().notification), again.payload);
}

INSTANTIATE_TEST_SUITE_P(Each, LocationProviderSlot, testing::ValuesIn(kSlots),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(LocationProvider, BothNotificationsAreRegisteredBesideEachOther) {
    ASSERT_EQ(0, loc_registerTheCurrentLocation(proxy, NoteLocation));
    ASSERT_EQ(0, loc_registerTheCurrentProviderState(proxy, NoteState));
    ASSERT_EQ(0, loc_deregisterTheCurrentLocation(proxy, NoteLocation));

    EXPECT_EQ(0, peer.Notify(kNotifyLocation, LocationUpdate()));
    EXPECT_EQ(1, peer.Notify(kNotifyProviderState, ProviderStateUpdate(3)));

    EXPECT_THAT(seenStates.Wait(1), ElementsAre(3U));
    EXPECT_TRUE(seenLocations.Wait(0).empty());
}

// --- Methods ---

struct Question {
    const char* name;
    unsigned method;
    std::string request;
    int32_t (*ask)(LocationProviderPubProxy*, XirRecord<TLocation>**);

    friend void PrintTo(const Question& question, std::ostream* out) { *out << question.name; }
};

/// Both questions for a position have replies of one form.
class LocationProviderQuestion : public LocationProvider, public testing::WithParamInterface<Question> {
  protected:
    static std::string Value(int code, const LocationValues& values = {}) {
        return ProtoBytes().Number(1, code).Message(3, ProtoBytes().Message(1, LocationBytes(values))).bytes;
    }
    int32_t Ask() { return GetParam().ask(proxy, &location); }
    /// The out pointer keeps what it held.
    void ExpectUntouched(int32_t status) {
        XirRecord<TLocation> untouched{};
        location = &untouched;
        EXPECT_EQ(status, Ask());
        EXPECT_EQ(&untouched, location);
    }

    XirRecord<TLocation>* location = nullptr;
};

TEST_P(LocationProviderQuestion, ReturnsTheLocationWithAllItsFields) {
    peer.Answer(GetParam().method, Value(0));

    ASSERT_EQ(0, Ask());

    EXPECT_EQ((PeerRequest{GetParam().method, GetParam().request}), peer.Requests().back());
    ASSERT_NE(nullptr, location);
    EXPECT_STREQ("fix of the antenna", location->extra_info);
    ExpectTheLocationOfTheWire(*location);
    EXPECT_EQ(0, location->release(location));
}

TEST_P(LocationProviderQuestion, ALocationComesAlsoWithABadResponsecodeAndLivesUntilItsLastReference) {
    peer.Answer(GetParam().method, Value(9, {.weekNumber = 65536 + 5}));

    EXPECT_EQ(9, Ask());

    ASSERT_NE(nullptr, location);
    EXPECT_EQ(2, location->retain(location));
    EXPECT_EQ(1, location->release(location));
    EXPECT_EQ(5, location->week_number);
    EXPECT_EQ(0, location->release(location));
}

TEST_P(LocationProviderQuestion, WithoutALocationTheResponsecodeIsTheStatusAndNothingIsWritten) {
    peer.Answer(GetParam().method, ProtoBytes().Number(1, 3).Number(2, 0).bytes);
    ExpectUntouched(3);  // an error code in the location's place

    peer.Answer(GetParam().method, ProtoBytes().Number(1, 0).Number(2, 0).bytes);
    ExpectUntouched(0);

    peer.Answer(GetParam().method, ProtoBytes().Number(1, 5).Number(2, 77).bytes);
    ExpectUntouched(5);  // none that the enumeration names

    peer.Answer(GetParam().method, ProtoBytes().Number(1, 4).bytes);
    ExpectUntouched(4);  // neither
}

TEST_P(LocationProviderQuestion, WithoutMemoryNothingIsWritten) {
    peer.Answer(GetParam().method, Value(0));

    for (const int blocks : {0, 1}) {  // the record, its text
        const NoRecordMemory scarcity(blocks);
        ExpectUntouched(-11);
    }
}

TEST_P(LocationProviderQuestion, AMissingReplyIsNotConnectedAndNothingIsWritten) {
    peer.Answer(GetParam().method, "no reply");
    ExpectUntouched(-12);

    peer.Stop();
    ExpectUntouched(-12);
}

INSTANTIATE_TEST_SUITE_P(Each, LocationProviderQuestion,
                         testing::Values(Question{"LastKnown", kGetLastKnownPosition, "", loc_getLastKnownPosition},
                                         Question{"Current", kGetCurrentPosition,
                                                  ProtoBytes().Number(1, 4'000'000'000).bytes,
                                                  [](auto* proxy, auto** location) {
                                                      return loc_getCurrentPosition(proxy, 4'000'000'000, location);
                                                  }}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(LocationProvider, CloseAnswersTheResponsecode) {
    peer.Answer(kClose, ProtoBytes().Number(1, 7).bytes);

    EXPECT_EQ(7, loc_close(proxy));

    EXPECT_EQ((PeerRequest{kClose, ""}), peer.Requests().back());
    peer.Stop();
    EXPECT_EQ(-12, loc_close(proxy));
}

TEST(LocationProviderNoProxy, EveryOperationAnswersNotConnected) {
    XirRecord<TLocation>* location = nullptr;

    EXPECT_EQ(-12, loc_getLastKnownPosition(nullptr, &location));
    EXPECT_EQ(-12, loc_getCurrentPosition(nullptr, 1, &location));
    EXPECT_EQ(-12, loc_close(nullptr));
    for (const Slot& slot : kSlots) {
        EXPECT_EQ(-12, slot.enroll(nullptr)) << slot.name;
        EXPECT_EQ(-12, slot.withdraw(nullptr)) << slot.name;
        EXPECT_EQ(-12, slot.withdrawNone(nullptr)) << slot.name;
    }
    loc_releaseProxy(nullptr);
    EXPECT_EQ(nullptr, location);
}

// --- The proxy's life ---

TEST_F(LocationProvider, TheRecordBeginsWithInterfaceMajorVersionAndNumberOfNotifications) {
    const auto& header = reinterpret_cast<const XirRpcProxy*>(proxy)->header;

    EXPECT_EQ(129, header.id);
    EXPECT_EQ(0, header.major);
    EXPECT_EQ(2, header.notification_count);
}

/// Threads under the name of the dispatch thread, as much of it as the kernel shows: that of this program too.
std::size_t ThreadsNamedAfterTheService() {
    std::size_t found = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        found += name == "LocationProvide";
    }
    return found;
}

TEST_F(LocationProvider, TheDispatchThreadIsNamedAfterTheService) {
    const std::size_t withOne = ThreadsNamedAfterTheService();
    Client another;

    ASSERT_EQ(0, another.Connect(url));

    EXPECT_EQ(withOne + 1, ThreadsNamedAfterTheService());
}

TEST(LocationProviderCreate, SaysWhatItDoes) {
    RawPeer peer;
    const std::string url = peer.Url();
    Client client;
    CaptureStdout();
    auto creation = std::async(std::launch::async, [&] { return client.Connect(url); });
    peer.Accept();
    peer.Serve(VersionReply(0, 0, kInterfaceName));
    ASSERT_EQ(0, creation.get());
    loc_releaseProxy(std::exchange(client.proxy, nullptr));
    std::string text = GetCapturedStdout();

    // Where the dispatch thread's line stands among those of the creator is open.
    const std::string opened = "connectionStatusCbFn - OPENED";
    ASSERT_THAT(text, HasSubstr(opened));
    text.erase(text.find(opened), opened.size());
    EXPECT_THAT(text, testing::StartsWith("loc_createProxy - dispatchThread started Connecting... (srvcUrl=" + url +
                                          ")\nConnected. (srvcUrl=" + url + ")\nreleaseLocationProviderPubProxy (0x"));
}

TEST_F(LocationProviderRaw, ReleaseSaysWhatItDoes) {
    char address[32];
    snprintf(address, sizeof address, "%p", static_cast<void*>(proxy));

    CaptureStdout();
    loc_releaseProxy(std::exchange(proxy, nullptr));

    EXPECT_EQ("releaseLocationProviderPubProxy (" + std::string(address) +
                  ").\nLocationProvider_dispatchThread destroy clientLocationProvider_dispatchThread end",
              GetCapturedStdout());
}

TEST(LocationProviderCreate, WaitsForAServiceThatComesLater) {
    ServerPeer peer(kLocationService);
    const std::string url = peer.Url();
    peer.Stop();
    Client client;

    auto creation = std::async(std::launch::async, [&] { return client.Connect(url); });
    EXPECT_EQ(std::future_status::timeout, creation.wait_for(std::chrono::seconds(1)));
    peer.Start();

    EXPECT_EQ(0, creation.get());
    EXPECT_NE(nullptr, client.proxy);
}

TEST(LocationProviderCreate, WithoutMemoryThereIsNoProxy) {
    const NoMemory scarcity;
    Client client;
    client.proxy = reinterpret_cast<LocationProviderPubProxy*>(&client);  // to see that it is cleared

    EXPECT_EQ(-11, client.Connect("xirfile:///nowhere"));

    EXPECT_EQ(nullptr, client.proxy);
}

TEST(LocationProviderCreateDeathTest, WithoutAThreadTheResultIsZeroAndTheOutArgumentStays) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto createWithoutThread = [] {
        ForbidNewThreads();
        Client client;
        auto* const before = reinterpret_cast<LocationProviderPubProxy*>(&client);
        client.proxy = before;
        const int32_t status = client.Connect("xirfile:///nowhere");
        _exit(status == 0 && client.proxy == before ? 0 : 1);
    };
    EXPECT_EXIT(createWithoutThread(), testing::ExitedWithCode(0), "");
}

TEST(LocationProviderCreate, ABadUrlGivesNoClientAndNoProxy) {
    Client client;

    CaptureStdout();
    EXPECT_EQ(-2, client.Connect("xirtcp://"));

    EXPECT_THAT(GetCapturedStdout(),
                testing::MatchesRegex("thread_init_fn - ERROR invalid XIR srvcUrl .srvcUrl=xirtcp://.\n"
                                      "loc_createProxy-ERROR: failed to create service"
                                      "releaseLocationProviderPubProxy .0x[0-9a-f]+.\\.\n"
                                      "LocationProvider_dispatchThread destroy client"
                                      "LocationProvider_dispatchThread end"));
    EXPECT_EQ(nullptr, client.proxy);
}

struct Stranger {
    const char* name;
    std::string version;
    int32_t status;

    friend void PrintTo(const Stranger& stranger, std::ostream* out) { *out << stranger.name; }
};

class LocationProviderStranger : public testing::TestWithParam<Stranger> {};

TEST_P(LocationProviderStranger, LeavesNoProxy) {
    ServerPeer peer(kLocationService);
    const std::string url = peer.Url();
    peer.Answer(kVersion, GetParam().version);
    Client client;
    client.proxy = reinterpret_cast<LocationProviderPubProxy*>(&client);  // to see that it is cleared

    EXPECT_EQ(GetParam().status, client.Connect(url));

    EXPECT_EQ(nullptr, client.proxy);
    EXPECT_EQ(1U, peer.Requests().size());
}

INSTANTIATE_TEST_SUITE_P(
    Each, LocationProviderStranger,
    testing::Values(Stranger{"MajorOne", VersionReply(0, 1, kInterfaceName), -14},
                    Stranger{"MajorTwo", VersionReply(0, 2, kInterfaceName), -14},
                    Stranger{"WrongName", VersionReply(0, 0, "com.vantu.ms.location.LocationProvider"), -13},
                    Stranger{"TheEcallService", VersionReply(0, 2, "com.vantu.ecallapp.iecallapp"), -13},
                    Stranger{"WrongMajorAndResponsecode", VersionReply(6, 1, kInterfaceName), -14},
                    Stranger{"BadResponsecode", VersionReply(6, 0, kInterfaceName), 6},
                    Stranger{"NoReply", "no message", -12}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
