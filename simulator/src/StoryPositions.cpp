// The stories of positions: a location service, a track, and what the unit makes of it. None depends on the track's
// places, so a track of one's own can take the place of the shipped one.
#include <optional>
#include <stdexcept>

#include "LocationPeer.h"
#include "Module.h"
#include "Story.h"
#include "StoryParts.h"

namespace {

using namespace std::chrono_literals;

/// How much faster than the clock the vehicle drives: as fast as people can read.
constexpr double kPace = 2;
/// Where the account only waits for a change in the reception.
constexpr double kFastPace = 4;

// --- Verbs ----------------------------------------------------------------------------------------------------------

void SwitchOnWithPositions(StoryWorld& world) {
    world.module.root.WriteFile(file::kConfiguration, R"({"ConnectLocationService": true})");
    SwitchOn(world);
}

void StartLocationService(StoryWorld& world) {
    if (!world.locations.Start()) {
        throw std::runtime_error("the location service's port cannot be bound");
    }
}

void DriveOff(StoryWorld& world) {
    world.locations.Drive(world.track, kPace);
}

void ComeToRest(StoryWorld& world) {
    world.locations.Stand();
}

/// The vehicle stands at the beginning of its track, so the fix lasts for as long as the self-test takes.
void TestBeforeTheDrive(StoryWorld& world) {
    world.locations.Drive(world.track, kFastPace);
    world.locations.Stand();
    AskForSelfTest(world);
}

void DriveOn(StoryWorld& world) {
    world.locations.DriveOn();
}

/// A position's time says where on its track the vehicle was then. Numbers go over both wires unchanged, so they
/// compare exactly.
bool IsOnTrack(const GpxTrack& track, const Com__Vantu__Ecallapp__TGnssLocation& location) {
    const auto begin = std::chrono::floor<std::chrono::seconds>(track.points.front().time).time_since_epoch();
    const std::chrono::seconds driven = std::chrono::seconds(location.utctime) - begin;
    const Position position = TrackPosition(track, {.driven = driven});
    return position.latitude == location.latitude && position.longitude == location.longitude &&
           position.heading == location.course && position.speed == location.speed;
}

/// Looks up what the call's data were made from.
void LookUpLastPosition(StoryWorld& world) {
    std::optional<Com__Vantu__Ecallapp__TGnssLocation> last;
    world.peer.With([&](const EcallService& service) {
        if (!service.before.empty()) {
            last = service.before.front();
        }
    });
    std::string words = "none";
    if (last) {
        words = PositionText({.latitude = last->latitude,
                              .longitude = last->longitude,
                              .speed = static_cast<double>(last->speed),
                              .heading = static_cast<double>(last->course),
                              .valid = last->isvalid != 0}) +
                (IsOnTrack(world.track, *last) ? ": on the track" : ": not on the track");
    }
    world.module.journal.Note("The eCall service's last position before the crash: " + words);
}

// --- Scenes ---------------------------------------------------------------------------------------------------------

const Expected kTold{Who::Location, "<= position "};
const Expected kForwarded{Who::Rpc, "-> updateGnssLocation position "};

Scene SwitchOnWithPositionsScene() {
    Scene scene = SwitchOnScene();
    scene.tell = "The eCall service is idle. The unit, set to use the location service, is switched on.";
    scene.act = SwitchOnWithPositions;
    return scene;
}

Scene SubscriptionScene() {
    return {.tell = "The location service starts: the unit has waited for it, and subscribes to its positions.",
            .act = StartLocationService,
            .expected = {{Who::Location, "client connected"},
                         {Who::Location, "-> getLocationProviderVersion"},
                         {Who::Location, "-> subscribe messageid=3 clientName=\"LocationProviderClient\""},
                         {Who::Location, "<- subscribe responsecode=0"}},
            .never = {kNoCall, kForwarded}};
}

/// The report on the reception that the unit sends when the validity of positions has changed, or a self-test asks.
Expected ReceptionReport(const std::string& state) {
    return {Who::Rpc, "-> updateSelfTestAllDevicesState gnssParametersIntegrity=" + state +
                          " gnssAntennaConnection=" + state + " gnssReceiverOperability=Success(0)"};
}

// --- Tables ---------------------------------------------------------------------------------------------------------

Story Drive() {
    return {.name = "drive",
            .about = "positions of a drive are forwarded to the eCall service, up to a crash on the road",
            .scenes = {SwitchOnWithPositionsScene(),
                       SubscriptionScene(),
                       {.tell = "The vehicle drives off, two seconds of its track in one.",
                        .act = DriveOff,
                        .expected = {kTold, kForwarded},
                        .never = {kNoCall},
                        .lasts = 6s},
                       CrashScene(),
                       {.tell = "The vehicle comes to rest.", .act = ComeToRest, .expected = {}, .lasts = 1s},
                       {.tell = "What position has the eCall service told the answering point?",
                        .act = LookUpLastPosition,
                        .expected = {{Who::Story, ": on the track"}}},
                       HangUpScene()},
            .track = "drive.gpx"};
}

Story Tunnel() {
    return {.name = "tunnel",
            .about = "the fix is lost in a tunnel and found again: the unit reports the reception both times",
            .scenes =
                {SwitchOnWithPositionsScene(),
                 SubscriptionScene(),
                 {.tell = "The vehicle stands under the open sky, and the eCall service asks for a self-test.",
                  .act = TestBeforeTheDrive,
                  .expected = {kTold,
                               {Who::Rpc, "<= Available_Idle, call Inactive, audio Muted, self-test Requested"},
                               ReceptionReport("Success(0)"),
                               {Who::Trace, "request the self-test"},
                               {Who::Trace, "cellularAntennaConnection = TSelfTestDeviceState_Success"},
                               kRelayOn,
                               kRelayOff},
                  .never = {kNoCall}},
                 {.tell = "It drives into the tunnel, four seconds of its track in one.",
                  .act = DriveOn,
                  .expected = {{Who::Location, ", not valid"}, ReceptionReport("Failed(1)"), {Who::Rpc, ", not valid"}},
                  .never = {kNoCall, ReceptionReport("Success(0)")}},
                 {.tell = "It drives on, through the tunnel and out of it: a fix in two dimensions first.",
                  .act = nullptr,
                  .expected = {{Who::Location, ", 2D"}, ReceptionReport("Success(0)"), kForwarded},
                  .never = {kNoCall, ReceptionReport("Failed(1)")}}},
            .track = "tunnel.gpx"};
}

}  // namespace

std::vector<Story> PositionStories() {
    return {Drive(), Tunnel()};
}

GpxTrack StoryTrack(const Story& story) {
    return story.track.empty() ? GpxTrack{} : GpxLoad(ECALLUI_TRACKS "/" + story.track);
}
