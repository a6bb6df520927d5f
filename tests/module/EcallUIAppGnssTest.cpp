// Positions on their way from the location service to the eCall service, on the whole unit: what goes over both wires,
// which reports go with it, and that nothing of it stands in the way of a crash.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "GpioTest.h"
#include "LocationPeer.h"
#include "ServiceWorld.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

namespace {

using Members = std::vector<std::pair<std::string, std::string>>;

constexpr char kThread[] = "Thread_GNSS";
constexpr char kDispatchThread[] = "LocationProvide";  // as much as the kernel shows
constexpr auto kWatchPeriod = 10s;

// Self-test results as the eCall service is sent them: fifteen states in their order.
constexpr char kValidReport[] = "222200022222222";
constexpr char kInvalidReport[] = "222211022222222";
constexpr char kNoPositionReport[] = "022222122222222";
constexpr char kSelfTestOfHealthyModule[] = "002222202200222";

Match IsOf(const char* peer, Match match) {
    match.peer = peer;
    return match;
}

/// Said for information: a failure shows the whole path of the source.
Match IsSaidAs(std::string message) {
    Match match = IsTracedAs(std::move(message));
    match.subject = "EcallUIAppGnss.cpp";
    return match;
}

/// Said of each position before it is sent.
Match IsForwarding(bool isValid) {
    return IsSaidAs(std::string("location_cb: ==> XirEcallapp_updateGnssLocation : isValid = ") +
                    (isValid ? "1" : "0"));
}

/// A position with a value of its own in each field that is forwarded, and in each that is not.
Position Somewhere(bool isValid = true) {
    return {.extraInfo = "track",
            .heading = 90.5F,
            .headingAccuracy = 1.5F,
            .headingMag = 88.25F,
            .headingMagAccuracy = 2.5F,
            .altitude = 35.123456789,
            .longitude = 2.3522219876,
            .latitude = 48.8566140123,
            .altitudeMsl = 30.5F,
            .ecefX = 4200.5F,
            .ecefY = 172.5F,
            .ecefZ = 4780.5F,
            .ellipseOrientation = 45.5F,
            .ellipseSemiMajor = 6.5F,
            .ellipseSemiMinor = 5.5F,
            .horizontalAccuracy = 3.5F,
            .latitudeAccuracy = 7.5F,
            .longitudeAccuracy = 8.5F,
            .verticalAccuracy = 9.5F,
            .speed = 13.75F,
            .speedAccuracy = 0.25F,
            .timeOfWeek = 345600,
            .utcCorrection = 18,
            .weekNumber = 2288,
            .localTimestamp = 1'699'999'999'111,
            .receiveTimestamp = 1'699'999'999'999,
            .timestamp = 18'446'744'073'709'551'615U,
            .valid = isValid};
}

std::filesystem::path TaskNamed(const ModuleProcess& process, const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process.Pid()) + "/task")) {
        std::string found;
        std::getline(std::ifstream(task.path() / "comm"), found);
        if (found == name) {
            return task.path();
        }
    }
    return {};
}

/// How often the thread has gone to sleep so far.
uint64_t SleepsOf(const ModuleProcess& process, const std::string& name) {
    std::ifstream status(TaskNamed(process, name) / "status");
    constexpr char kKey[] = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(kKey)) {
            return std::stoull(line.substr(sizeof kKey - 1));
        }
    }
    ADD_FAILURE() << "no thread " << name;
    return 0;
}

template <typename Condition>
bool Becomes(Condition condition) {
    for (const auto deadline = Journal::Clock::now() + Journal::kLimit; Journal::Clock::now() < deadline;) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

class EcallUIAppGnss : public testing::Test {
  protected:
    /// Starts all three services, and waits until positions are subscribed and start-up is over.
    void Start(Members members = {}) {
        ASSERT_TRUE(location.Start());
        StartUnit(std::move(members));
        AwaitSubscription();
    }
    void StartUnit(Members members = {}) {
        members.emplace_back("ConnectLocationService", "true");
        unit.Start(members);
    }
    Entry AwaitSubscription(uint64_t from = 0) {
        return journal.Await(IsOf("LocationProvider", IsReplyTo("subscribe")), from);
    }
    /// Restarts the location service, and waits until it is found again.
    void AwaitReconnection() {
        location.Stop();
        const uint64_t mark = journal.Mark();
        ASSERT_TRUE(location.Start());
        journal.Await({.kind = Kind::RpcConnect, .peer = "LocationProvider", .text = "connected"}, mark);
    }
    /// One position, and waits until the eCall service has answered what it was sent of it.
    void Drive(bool isValid) {
        const uint64_t mark = journal.Mark();
        location.Send(Somewhere(isValid));
        journal.Await(IsReplyTo("updateGnssLocation"), mark);
    }
    /// One more self-test, until its end: the next position is to report.
    void TestItself() {
        const uint64_t mark = journal.Mark();
        unit.peer.With([](EcallService& service) { service.state.selfTestState = 2; });
        unit.peer.RequestSelfTest();
        journal.Await(IsTraced("RunSelfTest - Exit"), mark);
        // The worker goes to sleep when the request is withdrawn: only then is the next one not lost.
        AwaitSleep(unit.module.Service(), "SelfTest");
    }
    /// Positions ("position 1" is a valid one) and self-test results that the eCall service was sent, but for those
    /// that say that no position came: on a machine that is slow there may be one anywhere.
    Texts Forwarded(uint64_t from = 0) {
        Texts sent;
        for (const Entry& entry : journal.All(IsKind(Kind::RpcRequest), from)) {
            if (entry.subject == "updateGnssLocation") {
                sent.push_back(entry.text.starts_with("isValid=1 ") ? "position 1" : "position 0");
            } else if (entry.subject == "updateSelfTestAllDevicesState" && StatesIn(entry.text) != kNoPositionReport) {
                sent.push_back(StatesIn(entry.text));
            }
        }
        return sent;
    }
    /// The next result that says that no position came.
    Entry AwaitNoPositionReport(uint64_t from = 0) { return journal.Await(IsNoPositionReport(), from); }
    void ExpectCrashReported() {
        const uint64_t mark = journal.Mark();
        unit.module.SensorBecomes(SensorStatus::Emergency);
        journal.Await(IsRpcRequest("triggerEcall"), mark);
        EXPECT_THAT(unit.Triggers(mark), ElementsAre(kAutomaticCall));
    }
    /// A failure is on the system log and, with the whole path of the source, in the trace file.
    void ExpectFailureSaid(const std::string& message, uint64_t from = 0) {
        journal.Await(IsInSyslogAs(message), from);
        const Entry traced = journal.Await(IsTracedAs(message.substr(0, message.find('\n'))), from);
        EXPECT_THAT(traced.subject, EndsWith("srvc_c/src/EcallUIAppGnss.cpp"));
    }
    void ExpectThreadEnds() {
        journal.Await(IsSaidAs("Thread_GNSS, exit"));
        EXPECT_TRUE(Becomes([this] { return TaskNamed(unit.module.Service(), kThread).empty(); }));
    }

    Unit unit;
    Journal& journal = unit.journal;
    LocationPeer location{journal};

  private:
    /// The numbers in parentheses.
    static std::string StatesIn(const std::string& text) {
        std::string states;
        for (size_t place = text.find('('); place != std::string::npos; place = text.find('(', place + 1)) {
            states += text.substr(place + 1, text.find(')', place) - place - 1);
        }
        return states;
    }
    static Match IsNoPositionReport() {
        Match match = IsRpcRequest("updateSelfTestAllDevicesState");
        match.also = [](const Entry& entry) { return StatesIn(entry.text) == kNoPositionReport; };
        return match;
    }
};

// --- The connection ---

TEST_F(EcallUIAppGnss, UnusedThereIsNeitherThreadNorConnectionAndTheSelfTestLeavesTheGnssItemsAlone) {
    ASSERT_TRUE(location.Start());
    unit.Start();
    TestItself();
    AwaitSleep(unit.module.Service(), "XirEcallUIappSr");  // start-up is over

    EXPECT_EQ("", TaskNamed(unit.module.Service(), kThread));
    EXPECT_EQ("", TaskNamed(unit.module.Service(), kDispatchThread));
    EXPECT_EQ(0U, journal.Count(IsOf("LocationProvider", IsKind(Kind::RpcConnect))));
    EXPECT_EQ(0U, journal.Count(IsWritten(line::kGnssOnOff)));
    EXPECT_EQ(0U, journal.Count(IsTraced(kThread)));
    EXPECT_THAT(Forwarded(), ElementsAre(kSelfTestOfHealthyModule));
}

TEST_F(EcallUIAppGnss, TheReceiverIsSwitchedOnBeforeThePositionsAreSubscribed) {
    Start();

    const Entry on = journal.Await(IsWritten(line::kGnssOnOff));
    const Entry connected = journal.Await(IsOf("LocationProvider", IsKind(Kind::RpcConnect)));
    const Entry asked = journal.Await(IsRpcRequest("getLocationProviderVersion"));
    const Entry subscribed = journal.Await(IsOf("LocationProvider", IsRpcRequest("subscribe")));
    EXPECT_EQ("1", on.text);
    EXPECT_EQ(1U, journal.Count(IsWritten(line::kGnssOnOff)));
    EXPECT_LT(on.seq, connected.seq);
    EXPECT_LT(connected.seq, asked.seq);
    EXPECT_LT(asked.seq, subscribed.seq);
    EXPECT_EQ("messageid=3 clientName=\"LocationProviderClient\"", subscribed.text);
    EXPECT_EQ(1U, location.Requests(LocationMethod::Subscribe));  // and nothing of the provider's states
    journal.Await(IsSaidAs("Thread_GNSS, enter"));
    EXPECT_EQ(kWatchPeriod, AwaitSleep(unit.module.Service(), kThread));
    EXPECT_EQ(0U, journal.Count(IsTraced("Thread_GNSS, exit")));
}

TEST_F(EcallUIAppGnss, WithoutALocationServiceItsThreadWaitsAndEverythingElseWorks) {
    StartUnit();
    journal.Await(IsWithinConsoleLine("loc_createProxy - dispatchThread started "));
    journal.Await(IsWithinConsoleLine("Connecting... (srvcUrl=xirtcp://127.0.0.1:50778)"));
    TestItself();
    ExpectCrashReported();
    EXPECT_EQ(0U, journal.Count(IsTraced("Thread_GNSS, exit")));

    ASSERT_TRUE(location.Start());
    AwaitSubscription();
    Drive(true);

    EXPECT_THAT(Forwarded(), ElementsAre(kSelfTestOfHealthyModule, kValidReport, "position 1"));
}

struct Stranger {
    const char* name;
    LocationIdentity identity;
    const char* message;

    friend void PrintTo(const Stranger& stranger, std::ostream* out) { *out << stranger.name; }
};

class EcallUIAppGnssStranger : public EcallUIAppGnss, public testing::WithParamInterface<Stranger> {};

TEST_P(EcallUIAppGnssStranger, EndsTheThreadAndNothingElse) {
    location.With([](LocationService& service) { service.identity = GetParam().identity; });
    ASSERT_TRUE(location.Start());
    StartUnit();

    ExpectFailureSaid(GetParam().message);
    ExpectThreadEnds();
    ExpectCrashReported();

    EXPECT_EQ(1U, location.Requests(LocationMethod::GetLocationProviderVersion));
    EXPECT_EQ(0U, location.Requests(LocationMethod::Subscribe));
    EXPECT_THAT(Forwarded(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, EcallUIAppGnssStranger,
                         testing::Values(Stranger{"OfAnotherVersion", LocationIdentity{.major = 1},
                                                  "loc_createProxy error, srvcResult = -14 "},
                                         Stranger{"OfAnotherName", LocationIdentity{.name = "com.vantu.ms.location"},
                                                  "loc_createProxy error, srvcResult = -13 "}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(EcallUIAppGnss, ARefusedSubscriptionEndsTheThreadAndNothingElse) {
    location.Answer(LocationMethod::Subscribe, {.code = 3});
    ASSERT_TRUE(location.Start());
    StartUnit();

    ExpectFailureSaid("ERROR loc_registerTheCurrentLocation : srvcResult = 3 \n");
    ExpectThreadEnds();
    location.Send(Somewhere());
    ExpectCrashReported();

    AwaitReconnection();  // by the thread that would have forwarded it
    EXPECT_EQ(1U, location.Requests(LocationMethod::Subscribe));
    EXPECT_THAT(Forwarded(), IsEmpty());
}

// --- Positions ---

TEST_F(EcallUIAppGnss, APositionArrivesWithItsTwelveFields) {
    Start();

    Drive(true);

    unit.peer.With([](EcallService& service) {
        ASSERT_EQ(1U, service.before.size());
        const auto& position = service.before.front();
        EXPECT_TRUE(position.isvalid);
        EXPECT_EQ(1'699'999'999U, position.utctime);
        EXPECT_EQ(48.8566140123, position.latitude);
        EXPECT_EQ(2.3522219876, position.longitude);
        EXPECT_EQ(35.123456789F, position.altitude);
        EXPECT_EQ(3.5F, position.horizontalaccuracy);
        EXPECT_EQ(90.5F, position.course);
        EXPECT_EQ(1.5F, position.courseaccuracy);
        EXPECT_EQ(13.75F, position.speed);
        EXPECT_EQ(0.25F, position.speedaccuracy);
        EXPECT_EQ(88.25F, position.coursemagnetic);
        EXPECT_EQ(2.5F, position.coursemagneticaccuracy);
    });
    const Entry times =
        journal.Await(IsSaidAs("local_timestamp = 1699999999111, receive_timestamp = 1699999999999, timestamp = "
                               "18446744073709551615"));
    const Entry forwarding = journal.Await(IsForwarding(true));
    EXPECT_LT(times.seq, forwarding.seq);
}

TEST_F(EcallUIAppGnss, InvalidPositionsAreForwardedLikeValidOnesAndNoReportComesBeforeTheFirstSelfTest) {
    Start();

    for (const bool isValid : {true, false, false, true, false}) {
        Drive(isValid);
    }

    EXPECT_THAT(Forwarded(), ElementsAre("position 1", "position 0", "position 0", "position 1", "position 0"));
    unit.peer.With([](EcallService& service) { EXPECT_EQ(48.8566140123, service.before.front().latitude); });
    journal.Await(IsForwarding(false));
}

TEST_F(EcallUIAppGnss, ARefusedPositionIsDroppedAndTheNextOneComes) {
    Start();
    unit.peer.Answer(EcallMethod::UpdateGnssLocation, {.code = 9});

    Drive(true);
    ExpectFailureSaid("srvcResult ERROR  = 9 !!!!!!");
    unit.peer.Answer(EcallMethod::UpdateGnssLocation, {});
    Drive(false);

    EXPECT_THAT(Forwarded(), ElementsAre("position 1", "position 0"));
}

TEST_F(EcallUIAppGnss, PositionsAreDroppedWhileTheEcallServiceIsGone) {
    Start();
    unit.peer.Stop();
    const uint64_t gone = journal.Mark();

    location.Send(Somewhere(true));
    const Entry forwarding = journal.Await(IsForwarding(true), gone);
    journal.Await(IsTracedAs("srvcResult ERROR  = -12 !!!!!!"), forwarding.seq);  // not that of the watch
    ASSERT_TRUE(unit.peer.Start());
    journal.Await(IsOf("IEcallApp", IsReplyTo("subscribe")), gone);
    Drive(false);

    EXPECT_THAT(Forwarded(), ElementsAre("position 0"));
}

TEST_F(EcallUIAppGnss, PositionsFlowAgainWhenTheLocationServiceHasRestarted) {
    Start();
    Drive(true);
    const uint64_t mark = journal.Mark();

    location.Stop();
    ASSERT_TRUE(location.Start());
    EXPECT_EQ("messageid=3 clientName=\"LocationProviderClient\"",
              journal.Await(IsOf("LocationProvider", IsRpcRequest("subscribe")), mark).text);
    AwaitSubscription(mark);
    Drive(false);

    EXPECT_THAT(Forwarded(), ElementsAre("position 1", "position 0"));
    EXPECT_EQ(1U, journal.Count(IsWritten(line::kGnssOnOff)));
}

TEST_F(EcallUIAppGnss, WithoutEcallServiceNothingIsSentAndTheWatchGoesOn) {
    ASSERT_TRUE(location.Start());
    ASSERT_TRUE(unit.peer.Start());
    unit.StartAlone({{"ConnectLocationService", "true"}});
    AwaitSubscription();
    EXPECT_EQ(kWatchPeriod, AwaitSleep(unit.module.Service(), kThread));
    const uint64_t sleeps = SleepsOf(unit.module.Service(), kThread);
    // Without a position the watch finds something to report.
    ASSERT_TRUE(Becomes([&] { return SleepsOf(unit.module.Service(), kThread) > sleeps; }));

    location.Send(Somewhere(true));
    location.Send(Somewhere(false));
    location.Send(Somewhere(true));
    const auto received = IsWithinConsoleLine("dispatchNonRpcMessage - notification received (method_index=3)");
    const Entry third = journal.AwaitCount(3, received).back();  // the two before it are done with
    unit.Announce("EVENT=EMERGENCY");

    EXPECT_THAT(journal.Texts(IsTraced("pProxyEcallapp == NULL")),
                ElementsAre("pProxyEcallapp == NULL ==> do nothing"));
    EXPECT_EQ(0U, journal.Count(IsOf("IEcallApp", IsKind(Kind::RpcConnect))));
    EXPECT_EQ(0U, journal.Count(IsWithinConsoleLine("srvcResult ERROR"), 0, third.seq + 1));
    EXPECT_EQ(0U, journal.Count(IsWithinConsoleLine("location_cb"), 0, third.seq + 1));
}

// --- Reports ---

TEST_F(EcallUIAppGnss, AReportFollowsTheSelfTestOnceAndThenEachChangeOfTheValidity) {
    Start();
    Drive(true);
    TestItself();
    const uint64_t mark = journal.Mark();

    for (const bool isValid : {true, true, false, false, true, true}) {
        Drive(isValid);
    }

    EXPECT_THAT(Forwarded(mark), ElementsAre(kValidReport, "position 1", "position 1", kInvalidReport, "position 0",
                                             "position 0", kValidReport, "position 1", "position 1"));
}

TEST_F(EcallUIAppGnss, AfterASelfTestThePositionIsReportedEvenIfNothingChanged) {
    Start();
    TestItself();
    Drive(false);
    TestItself();
    const uint64_t mark = journal.Mark();

    Drive(false);
    Drive(false);

    EXPECT_THAT(Forwarded(mark), ElementsAre(kInvalidReport, "position 0", "position 0"));
}

TEST_F(EcallUIAppGnss, AFailedReportAfterASelfTestIsNotRepeated) {
    Start();
    TestItself();
    const uint64_t mark = journal.Mark();
    unit.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {.code = 7});

    Drive(true);
    ExpectFailureSaid("srvcResult ERROR  = 7 !!!!!!", mark);
    unit.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {});
    Drive(true);
    Drive(false);

    // Nothing has been reported yet, so no change of the validity can be.
    EXPECT_THAT(Forwarded(mark), ElementsAre(kValidReport, "position 1", "position 1", "position 0"));
}

TEST_F(EcallUIAppGnss, AFailedReportOfAChangeIsMadeAgainWithTheNextPosition) {
    Start();
    TestItself();
    Drive(true);
    const uint64_t mark = journal.Mark();
    unit.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {.missing = true});

    Drive(false);
    ExpectFailureSaid("srvcResult ERROR  = -12 !!!!!!", mark);
    unit.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {});
    Drive(false);
    Drive(false);

    EXPECT_THAT(Forwarded(mark), ElementsAre(kInvalidReport, "position 0", kInvalidReport, "position 0", "position 0"));
}

// --- The watch; its time is real ---

TEST_F(EcallUIAppGnss, WithoutPositionsEachTenSecondsAreReportedAlsoAfterAFailedReport) {
    Start();
    const Entry subscribed = AwaitSubscription();

    const Entry first = AwaitNoPositionReport();
    const Entry firstReply = journal.Await(IsReplyTo(first.subject), first.seq);
    unit.peer.Answer(EcallMethod::UpdateSelfTestAllDevicesState, {.code = 7});
    const Entry second = AwaitNoPositionReport(first.seq + 1);
    const Entry secondReply = journal.Await(IsReplyTo(second.subject), second.seq);
    ExpectFailureSaid("srvcResult ERROR  = 7 !!!!!!");
    AwaitSleep(unit.module.Service(), kThread);
    Drive(true);
    Drive(false);
    const Entry third = AwaitNoPositionReport(second.seq + 1);

    // From an answer: a request may be seen late, but is never made early.
    EXPECT_GE(first.time - subscribed.time, kWatchPeriod);
    EXPECT_GE(second.time - firstReply.time, kWatchPeriod);
    EXPECT_GE(third.time - secondReply.time, 2 * kWatchPeriod);
    EXPECT_THAT(Forwarded(), ElementsAre("position 1", "position 0"));
}

TEST_F(EcallUIAppGnss, OnePositionIsEnoughForTheFirstTenSecondsAlsoWhenItIsNotAnswered) {
    Start();
    const Entry subscribed = AwaitSubscription();
    unit.peer.Answer(EcallMethod::UpdateGnssLocation, {.held = true});
    location.Send(Somewhere());

    const Entry report = AwaitNoPositionReport();

    EXPECT_GE(report.time - subscribed.time, 2 * kWatchPeriod);
}

TEST_F(EcallUIAppGnss, ARequestedReportAndTheLastValidityOutliveTheWatchsReports) {
    Start();
    TestItself();
    const uint64_t mark = journal.Mark();

    const Entry first = AwaitNoPositionReport(mark);
    AwaitSleep(unit.module.Service(), kThread);  // the report is over
    Drive(true);
    AwaitNoPositionReport(first.seq + 1);
    AwaitSleep(unit.module.Service(), kThread);
    Drive(false);

    EXPECT_THAT(Forwarded(mark), ElementsAre(kValidReport, "position 1", kInvalidReport, "position 0"));
}

// --- Crashes ---

TEST_F(EcallUIAppGnss, ACrashAmongManyPositionsIsReportedAndNoPositionIsLost) {
    Start();
    constexpr size_t kMany = 500;

    auto drive = std::async(std::launch::async, [this] {
        for (size_t i = 0; i < kMany; ++i) {
            location.Send(Somewhere());
        }
    });
    ASSERT_TRUE(unit.peer.AwaitRequests(EcallMethod::UpdateGnssLocation, 10));
    ExpectCrashReported();
    drive.get();

    EXPECT_TRUE(unit.peer.AwaitRequests(EcallMethod::UpdateGnssLocation, kMany));
}

TEST_F(EcallUIAppGnss, APositionThatTheEcallServiceDoesNotAnswerHoldsNoCrashBack) {
    Start();
    unit.peer.Answer(EcallMethod::UpdateGnssLocation, {.held = true});

    location.Send(Somewhere(true));
    location.Send(Somewhere(false));
    ASSERT_TRUE(unit.peer.AwaitRequests(EcallMethod::UpdateGnssLocation, 1));
    journal.Await(IsForwarding(true));
    ExpectCrashReported();
    unit.peer.Answer(EcallMethod::UpdateGnssLocation, {});
    EXPECT_EQ(1U, unit.peer.Release());
    ASSERT_TRUE(unit.peer.AwaitRequests(EcallMethod::UpdateGnssLocation, 2));

    EXPECT_THAT(Forwarded(), ElementsAre("position 1", "position 0"));
    journal.Await(IsForwarding(false));
    EXPECT_EQ(0U, journal.Count(IsTraced("srvcResult ERROR")));  // the first was not given up
}

}  // namespace
