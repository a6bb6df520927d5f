// A leg leads from a point to the next; what its first point says of the reception holds along it.
#include "TrackPosition.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using namespace std::chrono;

/// GPS time is ahead of UTC by this: no leap second since 2017-01-01 (IERS Bulletin C). Older tracks get times that are
/// wrong by the leap seconds since.
constexpr seconds kLeapSeconds{18};

/// One standard deviation of a range to a satellite: 7.8 m at 95 %, which is 1.96 of them (GPS Standard Positioning
/// Service Performance Standard, 4th edition 2008, 3.4). The receiver's own part is left out.
constexpr double kRangeError = 7.8 / 1.96;
/// The same document promises 15 m vertically where it promises 9 m horizontally (3.8).
constexpr double kVerticalToHorizontal = 15.0 / 9.0;
/// For a point that does not tell its dilution: an open sky; and what receivers say when they have no fix.
constexpr double kUsualHdop = 1.0;
constexpr double kNoFixDop = 99.9;
/// At a dilution of 1: our choice, the promise of common automotive receivers, which measure it by Doppler shift.
constexpr double kSpeedError = 0.1;

/// Mean sea level above the ellipsoid, and magnetic north east of true north, where a track does not say: the values of
/// southern Germany, rounded (EGM96; World Magnetic Model 2025). Tracks from elsewhere get altitudes that are wrong by
/// up to 130 m, and magnetic headings that are as wrong as the declination there is another.
constexpr double kGeoidHeight = 47.0;
constexpr double kDeclination = 4.0;

/// What moves less between two points stands: a receiver does not see more.
constexpr double kStill = 0.1;

/// Where on the track: between points first and first + 1, or at the last point.
struct Spot {
    size_t first = 0;
    double part = 0;  ///< of the leg, 0 to 1; 0 at the last point
    bool moving = false;
};

milliseconds Since(const GpxTrack& track, const TrackPoint& point) {
    return point.time - track.points.front().time;
}

Spot FindSpot(const GpxTrack& track, milliseconds at) {
    const auto later = std::ranges::upper_bound(track.points, track.points.front().time + at, {}, &TrackPoint::time);
    const auto first = static_cast<size_t>(later - track.points.begin()) - 1;
    if (later == track.points.end()) {
        return {.first = first};
    }
    const TrackPoint& from = track.points[first];
    const auto part =
        static_cast<double>((at - Since(track, from)).count()) / static_cast<double>((later->time - from.time).count());
    return {.first = first, .part = part, .moving = Distance(from.place, later->place) >= kStill};
}

/// Of the leg from that point, or of the last one before it that moved; north before the first move.
double Heading(const GpxTrack& track, size_t first) {
    for (size_t point = std::min(first + 1, track.points.size() - 1); point > 0; --point) {
        const Place& from = track.points[point - 1].place;
        const Place& to = track.points[point].place;
        if (Distance(from, to) >= kStill) {
            return Bearing(from, to);
        }
    }
    return 0.0;
}

double Speed(const GpxTrack& track, const Spot& spot) {
    if (!spot.moving) {
        return 0.0;
    }
    const TrackPoint& from = track.points[spot.first];
    const TrackPoint& to = track.points[spot.first + 1];
    return Distance(from.place, to.place) / duration<double>(to.time - from.time).count();
}

void SetPlace(Position& position, const GpxTrack& track, const Spot& spot) {
    const TrackPoint& from = track.points[spot.first];
    const TrackPoint& to = track.points[std::min(spot.first + 1, track.points.size() - 1)];
    const Place place = Between(from.place, to.place, spot.part);
    const double elevation = from.elevation + (to.elevation - from.elevation) * spot.part;
    position.latitude = place.latitude;
    position.longitude = place.longitude;
    position.altitudeMsl = static_cast<float>(elevation);
    position.altitude = elevation + from.geoidHeight.value_or(kGeoidHeight);
    const Ecef ecef = ToEcef(place, position.altitude);
    position.ecefX = static_cast<float>(ecef.x);
    position.ecefY = static_cast<float>(ecef.y);
    position.ecefZ = static_cast<float>(ecef.z);
}

/// A dilution of precision is the factor from the error of a range to that of the place. Error ellipses of points with
/// one dilution are circles: an axis has the square root of one half of the radius' variance.
void SetAccuracy(Position& position, const TrackPoint& point) {
    const bool fixed = point.fix != Fix::None;
    const double hdop = point.hdop.value_or(fixed ? kUsualHdop : kNoFixDop);
    const double vdop = point.vdop.value_or(point.fix == Fix::ThreeD ? hdop * kVerticalToHorizontal : kNoFixDop);
    position.horizontalAccuracy = static_cast<float>(hdop * kRangeError);
    position.verticalAccuracy = static_cast<float>(vdop * kRangeError);
    const auto axis = static_cast<float>(hdop * kRangeError / std::numbers::sqrt2);
    position.latitudeAccuracy = axis;
    position.longitudeAccuracy = axis;
    position.ellipseSemiMajor = axis;
    position.ellipseSemiMinor = axis;
    position.speedAccuracy = static_cast<float>(hdop * kSpeedError);
    position.valid = fixed;
    position.valid2dFix = fixed;
    position.valid3dFix = point.fix == Fix::ThreeD;
}

/// Below 360 also when the next float is 360.
float Direction(double degrees) {
    const auto direction = static_cast<float>(FullCircle(degrees));
    return direction < 360.0F ? direction : 0.0F;
}

/// A heading is as sure as the speed that it is measured from: at the speed's own error, 45 degrees; standing,
/// anything.
void SetCourse(Position& position, double heading, double speed) {
    position.heading = Direction(heading);
    position.headingMag = Direction(heading - kDeclination);
    position.speed = static_cast<float>(speed);
    const double error =
        speed > 0 ? std::atan2(static_cast<double>(position.speedAccuracy), speed) * 180.0 / std::numbers::pi : 180.0;
    position.headingAccuracy = static_cast<float>(error);
    position.headingMagAccuracy = static_cast<float>(error);
}

void SetTime(Position& position, sys_time<milliseconds> utc) {
    const milliseconds gps = utc - kGpsBegin + kLeapSeconds;
    position.weekNumber = static_cast<uint32_t>(gps / weeks(1));
    position.timeOfWeek = duration<double>(gps % weeks(1)).count();
    position.utcCorrection = static_cast<double>(kLeapSeconds.count());
    const auto unixTime = static_cast<uint64_t>(utc.time_since_epoch().count());
    position.timestamp = unixTime;
    position.receiveTimestamp = unixTime;
    position.localTimestamp = unixTime;
}

}  // namespace

milliseconds TrackDuration(const GpxTrack& track) {
    return Since(track, track.points.back());
}

Position TrackPosition(const GpxTrack& track, const Progress& progress) {
    Spot spot = FindSpot(track, std::clamp(progress.driven, 0ms, TrackDuration(track)));
    spot.moving = spot.moving && !progress.stands;
    const TrackPoint& point = track.points[spot.first];
    Position position;
    if (point.satellites) {
        position.extraInfo = "sat=" + std::to_string(*point.satellites);
    }
    SetPlace(position, track, spot);
    SetAccuracy(position, point);
    SetCourse(position, Heading(track, spot.first), Speed(track, spot));
    SetTime(position, track.points.front().time + progress.driven + progress.stood);
    return position;
}
