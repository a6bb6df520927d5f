// The simulated location service, seen by a client that knows nothing but the bytes on the wire.
#include "LocationPeer.h"

#include <gmock/gmock.h>

#include <limits>

#include "EcallPeer.h"
#include "WireClient.h"

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uint32_t kLocation = 3;
constexpr uint32_t kProviderState = 4;

class LocationClient : public WireClient {
  public:
    LocationClient() : WireClient(kLocationPort, com__vantu__ms__location__location_provider__descriptor) {}

    void Subscribe(uint32_t notification) {
        AskFor(LocationMethod::Subscribe, notification);
        EXPECT_EQ("responsecode=0", Text(Read(), com__vantu__ms__protobuf__void_response__descriptor));
    }

    /// The fields of the next position that is notified.
    std::string ReadLocation() {
        const Frame frame = Read();
        EXPECT_EQ(kNotification, frame.kind);
        EXPECT_EQ(kLocation, frame.method);
        return Text(frame, com__vantu__ms__location__notify_the_current_location_update__descriptor);
    }

    std::string ReadProviderState() {
        const Frame frame = Read();
        EXPECT_EQ(kNotification, frame.kind);
        EXPECT_EQ(kProviderState, frame.method);
        return Text(frame, com__vantu__ms__location__notify_the_current_provider_state_update__descriptor);
    }

    std::string LastKnown() {
        Ask(LocationMethod::GetLastKnownPosition);
        return Text(Read(), com__vantu__ms__location__get_last_known_position_response__descriptor);
    }

    std::string Current() {
        Ask(LocationMethod::GetCurrentPosition);
        return Text(Read(), com__vantu__ms__location__get_current_position_response__descriptor);
    }
};

/// Each field has a value of its own.
Position Distinct() {
    return {.extraInfo = "info",
            .heading = 1,
            .headingAccuracy = 2,
            .headingMag = 3,
            .headingMagAccuracy = 4,
            .altitude = 5,
            .longitude = 6,
            .latitude = 7,
            .altitudeMsl = 8,
            .ecefX = 9,
            .ecefY = 10,
            .ecefZ = 11,
            .ellipseOrientation = 12,
            .ellipseSemiMajor = 13,
            .ellipseSemiMinor = 14,
            .horizontalAccuracy = 15,
            .latitudeAccuracy = 16,
            .longitudeAccuracy = 17,
            .verticalAccuracy = 18,
            .valid2dFix = true,
            .valid3dFix = false,
            .speed = 19,
            .speedAccuracy = 20,
            .timeOfWeek = 21,
            .utcCorrection = 22,
            .weekNumber = 23,
            .localTimestamp = 24,
            .receiveTimestamp = 25,
            .timestamp = 26,
            .valid = true};
}

constexpr const char* kDistinctText =
    "extra_info=\"info\" heading=1 heading_accuracy=2 heading_mag=3 heading_mag_accuracy=4 altitude=5 longitude=6 "
    "latitude=7 altitude_msl=8 ecefx=9 ecefy=10 ecefz=11 axis_orientation=12 semi_major_axis=13 semi_minor_axis=14 "
    "horizontal_accuracy=15 latitude_accuracy=16 longitude_accuracy=17 vertical_accuracy=18 valid_2d_fix=1 "
    "valid_3d_fix=0 speed=19 speed_accuracy=20 tow=21 utc_correction=22 week_number=23 local_timestamp=24 "
    "receive_timestamp=25 timestamp=26 valid_flag=1";

constexpr double kFast = 1000;  ///< a second of the track in a millisecond
constexpr std::chrono::sys_days kDay = std::chrono::year(2026) / std::chrono::May / 4;

/// East from 0 degrees by a thousandth of a degree each second.
GpxTrack Equator(std::chrono::seconds length) {
    TrackPoint from;
    from.time = kDay;
    TrackPoint to;
    to.place.longitude = 0.001 * static_cast<double>(length.count());
    to.time = kDay + length;
    return {.points = {from, to}};
}

/// Of a position: that many seconds after the track's begin.
auto IsAfter(uint64_t second) {
    const auto begin = std::chrono::milliseconds(kDay.time_since_epoch()).count();
    return HasSubstr(" receive_timestamp=" + std::to_string(static_cast<uint64_t>(begin) + 1000 * second) + " ");
}

Match IsNotified(std::string part) {
    Match match = IsKind(Kind::RpcNotify);
    match.contains = std::move(part);
    return match;
}

/// What stands behind the name, up to the next blank.
std::string Field(const std::string& fields, const std::string& name) {
    const size_t at = fields.find(name);
    return at == std::string::npos ? "none" : fields.substr(at, fields.find(' ', at + 1) - at);
}

class LocationPeerTest : public testing::Test {
  protected:
    Journal journal;
    LocationPeer peer{journal};

    void SetUp() override { ASSERT_TRUE(peer.Start()); }
};

TEST_F(LocationPeerTest, ItIsTheLocationProviderOfMajorVersionZero) {
    LocationClient client;

    const uint32_t id = client.Ask(LocationMethod::GetLocationProviderVersion);

    const Frame reply = client.Read();
    EXPECT_EQ(id, reply.id);
    EXPECT_EQ(7, reply.method);
    EXPECT_EQ("responsecode=0 major=0 minor=0 name=\"com.vantu.ms.location.locationprovider\"",
              Text(reply, com__vantu__ms__protobuf__get_remote_version_response__descriptor));
}

TEST_F(LocationPeerTest, ItCanBeAnotherServiceOrAnotherVersion) {
    peer.With([](LocationService& service) { service.identity = {.name = "com.vantu.other", .major = 1, .minor = 2}; });
    LocationClient client;

    client.Ask(LocationMethod::GetLocationProviderVersion);

    EXPECT_EQ("responsecode=0 major=1 minor=2 name=\"com.vantu.other\"",
              Text(client.Read(), com__vantu__ms__protobuf__get_remote_version_response__descriptor));
}

TEST_F(LocationPeerTest, APositionIsNotifiedFieldByField) {
    LocationClient client;
    client.Subscribe(kLocation);

    peer.Send(Distinct());

    EXPECT_EQ(kDistinctText, client.ReadLocation());
}

TEST_F(LocationPeerTest, APositionCanHoldWhatNoReceiverWouldSay) {
    LocationClient client;
    client.Subscribe(kLocation);

    peer.Send({.heading = -720,
               .longitude = std::numeric_limits<double>::infinity(),
               .latitude = 91,
               .speed = std::numeric_limits<float>::quiet_NaN(),
               .weekNumber = 65536 + 7,
               .receiveTimestamp = UINT64_MAX});

    EXPECT_THAT(client.ReadLocation(),
                AllOf(HasSubstr(" heading=-720 "), HasSubstr(" longitude=inf latitude=91 "), HasSubstr(" speed=nan "),
                      HasSubstr(" week_number=65543 "), HasSubstr(" receive_timestamp=18446744073709551615 "),
                      HasSubstr(" valid_flag=0")));
}

TEST_F(LocationPeerTest, EachNotificationGoesToItsOwnSubscribers) {
    LocationClient traveller;
    LocationClient operatorClient;
    traveller.Subscribe(kLocation);
    operatorClient.Subscribe(kProviderState);

    peer.Send({.latitude = 1});
    peer.SetProviderState(6);
    peer.Send({.latitude = 2});
    peer.SetProviderState(77);

    EXPECT_THAT(traveller.ReadLocation(), HasSubstr(" latitude=1 "));
    EXPECT_THAT(traveller.ReadLocation(), HasSubstr(" latitude=2 "));
    EXPECT_EQ("status=UNAVAILABLE(6)", operatorClient.ReadProviderState());
    EXPECT_EQ("status=?(77)", operatorClient.ReadProviderState());
}

TEST_F(LocationPeerTest, ASubscriptionThatWasWithdrawnBringsNothingMore) {
    LocationClient client;
    client.Subscribe(kLocation);
    peer.Send({.latitude = 1});
    EXPECT_THAT(client.ReadLocation(), HasSubstr(" latitude=1 "));

    client.AskFor(LocationMethod::Unsubscribe, kLocation);
    EXPECT_EQ("responsecode=0", Text(client.Read(), com__vantu__ms__protobuf__void_response__descriptor));
    peer.Send({.latitude = 2});
    client.Ask(LocationMethod::Close);

    const Frame next = client.Read();
    EXPECT_EQ(kReply, next.kind);
    EXPECT_EQ("responsecode=0", Text(next, com__vantu__ms__protobuf__void_response__descriptor));
}

TEST_F(LocationPeerTest, AnUnknownNotificationCannotBeSubscribed) {
    LocationClient client;

    client.AskFor(LocationMethod::Subscribe, 18);

    EXPECT_EQ("responsecode=2", Text(client.Read(), com__vantu__ms__protobuf__void_response__descriptor));
}

TEST_F(LocationPeerTest, NobodyCanAskForANotification) {
    LocationClient client;

    client.Ask(LocationMethod::NotifyTheCurrentLocation);
    EXPECT_EQ(3, client.Read().status);
    client.Ask(LocationMethod::NotifyTheCurrentProviderState);
    EXPECT_EQ(3, client.Read().status);
}

TEST_F(LocationPeerTest, BeforeTheFirstFixThereIsNoPositionToAnswer) {
    LocationClient client;

    EXPECT_EQ("responsecode=1 error_code=NO_POSITION_AVAILABLE(0)", client.LastKnown());
    EXPECT_EQ("responsecode=1 error_code=TIME_OUT(0)", client.Current());
}

TEST_F(LocationPeerTest, APositionIsAnsweredFieldByField) {
    peer.Send(Distinct());
    LocationClient client;

    EXPECT_EQ(std::string("responsecode=0 ") + kDistinctText, client.LastKnown());
    EXPECT_EQ(std::string("responsecode=0 ") + kDistinctText, client.Current());
}

TEST_F(LocationPeerTest, AfterTheFixIsLostOnlyTheLastKnownPositionIsAnswered) {
    peer.Send(Distinct());
    peer.Send({.latitude = 50});
    LocationClient client;

    EXPECT_EQ(std::string("responsecode=0 ") + kDistinctText, client.LastKnown());
    EXPECT_EQ("responsecode=1 error_code=TIME_OUT(0)", client.Current());
}

TEST_F(LocationPeerTest, AReplyWithoutAPositionCanClaimSuccess) {
    peer.With([](LocationService& service) { service.noPositionCode = 0; });
    LocationClient client;

    EXPECT_EQ("responsecode=0 error_code=NO_POSITION_AVAILABLE(0)", client.LastKnown());
}

TEST_F(LocationPeerTest, AChosenCodeIsAnsweredWithoutAPosition) {
    peer.Send(Distinct());
    peer.Answer(LocationMethod::GetLastKnownPosition, {.code = 9});
    LocationClient client;

    EXPECT_EQ("responsecode=9", client.LastKnown());
}

TEST_F(LocationPeerTest, ItCanBeSilentForAWhile) {
    LocationClient client;
    peer.AnswerAll({.held = true});

    const uint32_t held = client.Ask(LocationMethod::Close);
    ASSERT_TRUE(peer.AwaitRequests(LocationMethod::Close, 1));
    EXPECT_EQ(1U, peer.Release());

    EXPECT_EQ(held, client.Read().id);
    EXPECT_EQ(1U, peer.Requests(LocationMethod::Close));
    EXPECT_EQ(0U, peer.Requests(LocationMethod::Subscribe));
}

TEST_F(LocationPeerTest, GarbageTakesTheReplysPlace) {
    LocationClient client;
    peer.Answer(LocationMethod::Close, {.garbage = RpcGarbage::BadPayload});

    client.Ask(LocationMethod::Close);

    EXPECT_EQ((Bytes{4, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}), client.ReadBytes(16));
}

TEST_F(LocationPeerTest, ItsWireIsInTheJournalUnderItsName) {
    EcallPeer other(journal);
    ASSERT_TRUE(other.Start());
    LocationClient client;
    client.Subscribe(kLocation);
    other.SetState({});

    peer.SetProviderState(1);
    peer.Send({});
    client.ReadLocation();

    Match match;
    match.peer = "LocationProvider";
    std::vector<std::string> entries;
    for (const Entry& entry : journal.All(match)) {
        entries.push_back(std::string(KindName(entry.kind)) + " " + entry.subject + " " + entry.text);
    }
    EXPECT_THAT(entries, ElementsAre(StartsWith("RpcConnect "),  //
                                     "RpcRequest subscribe messageid=3 clientName=\"WireClient\"",
                                     "RpcReply subscribe responsecode=0",
                                     "RpcNotify notifyTheCurrentProviderState status=DEEP_LOW_POWER(1)",
                                     StartsWith("RpcNotify notifyTheCurrentLocation extra_info=\"\" heading=0 ")));
}

TEST_F(LocationPeerTest, ARestartedServiceHasForgottenItsSubscribersButNotItsPosition) {
    LocationClient before;
    before.Subscribe(kLocation);
    peer.Send(Distinct());
    before.ReadLocation();

    peer.Stop();
    EXPECT_TRUE(before.IsClosed());
    EXPECT_FALSE(LocationClient().IsConnected());
    ASSERT_TRUE(peer.Start());
    LocationClient after;

    EXPECT_EQ(std::string("responsecode=0 ") + kDistinctText, after.LastKnown());
    peer.Send({.latitude = 2});
    after.Subscribe(kLocation);  // its reply is what comes next
    peer.Send({.latitude = 3});
    EXPECT_THAT(after.ReadLocation(), HasSubstr(" latitude=3 "));
}

TEST_F(LocationPeerTest, ItDrivesAlongATrackSecondBySecondAndStandsAtItsEnd) {
    LocationClient client;
    client.Subscribe(kLocation);

    peer.Drive(Equator(3s), kFast);

    EXPECT_THAT(client.ReadLocation(), AllOf(HasSubstr(" heading=90 "), HasSubstr(" longitude=0 "), IsAfter(0)));
    EXPECT_THAT(client.ReadLocation(), AllOf(HasSubstr(" longitude=0.001 "), HasSubstr(" speed=111.1"), IsAfter(1)));
    EXPECT_THAT(client.ReadLocation(), AllOf(HasSubstr(" longitude=0.002 "), HasSubstr(" speed=111.1"), IsAfter(2)));
    EXPECT_THAT(client.ReadLocation(), AllOf(HasSubstr(" longitude=0.003 "), HasSubstr(" speed=0 "), IsAfter(3)));
    EXPECT_THAT(client.ReadLocation(), AllOf(HasSubstr(" longitude=0.003 "), HasSubstr(" speed=0 "), IsAfter(4)));
}

TEST_F(LocationPeerTest, AVehicleThatStandsTellsItsPlaceUntilItDrivesOn) {
    LocationClient client;
    client.Subscribe(kLocation);
    peer.Drive(Equator(1h), kFast);
    EXPECT_THAT(client.ReadLocation(), HasSubstr(" speed=111.1"));

    peer.Stand();

    std::string standing;
    do {
        standing = client.ReadLocation();
    } while (standing.find(" speed=0 ") == std::string::npos && !HasFailure());
    EXPECT_EQ(Field(standing, " longitude="), Field(client.ReadLocation(), " longitude="));
    EXPECT_THAT(client.ReadLocation(), HasSubstr(" heading=90 "));
    peer.DriveOn();
    journal.Await(IsNotified(" speed=111.1"), journal.Mark());
}

TEST_F(LocationPeerTest, AParkedVehicleTellsNothing) {
    LocationClient client;
    peer.Drive(Equator(1h), kFast);
    journal.AwaitCount(3, IsKind(Kind::RpcNotify));

    peer.Park();

    const uint64_t from = journal.Mark();
    peer.Answer(LocationMethod::Close, {.delay = 50ms});  // by a timer of the same dispatcher, and a late one
    client.Ask(LocationMethod::Close);
    client.Read();
    EXPECT_EQ(0U, journal.Count(IsKind(Kind::RpcNotify), from));
}

TEST_F(LocationPeerTest, AnotherTrackBeginsAtItsBeginning) {
    LocationClient client;
    client.Subscribe(kLocation);
    peer.Drive(Equator(1h), 1);
    EXPECT_THAT(client.ReadLocation(), IsAfter(0));

    peer.Drive(Equator(1s), kFast);

    EXPECT_THAT(client.ReadLocation(), AllOf(HasSubstr(" longitude=0 "), IsAfter(0)));
    EXPECT_THAT(client.ReadLocation(), AllOf(HasSubstr(" longitude=0.001 "), IsAfter(1)));
}

TEST_F(LocationPeerTest, TheDrivePausesWhileTheServiceIsStopped) {
    peer.Stop();
    peer.Drive(Equator(1h), kFast);
    EXPECT_EQ(0U, journal.Count(IsKind(Kind::RpcNotify)));

    ASSERT_TRUE(peer.Start());
    journal.AwaitCount(2, IsKind(Kind::RpcNotify));
    peer.Stop();
    const size_t told = journal.Count(IsKind(Kind::RpcNotify));
    ASSERT_TRUE(peer.Start());

    const auto positions = journal.AwaitCount(told + 1, IsKind(Kind::RpcNotify));
    for (size_t second = 0; second <= told; ++second) {
        EXPECT_THAT(positions.at(second).text, IsAfter(second));
    }
}

TEST_F(LocationPeerTest, WhatIsSentWhileItIsStoppedIsOnlyRemembered) {
    peer.Stop();
    const uint64_t from = journal.Mark();

    peer.Send(Distinct());

    EXPECT_EQ(0U, journal.Count(IsKind(Kind::RpcNotify), from));
    ASSERT_TRUE(peer.Start());
    LocationClient client;
    EXPECT_EQ(std::string("responsecode=0 ") + kDistinctText, client.LastKnown());
}

}  // namespace
