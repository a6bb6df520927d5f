// Great circles are handled as unit vectors: so neither the antimeridian nor a pole is a special case.
#include "Geodesy.h"

#include <cmath>
#include <numbers>

namespace {

constexpr double kRadius = 6371008.8;  ///< mean radius of the earth: IUGG, R1

// The ellipsoid of WGS-84: NGA.STND.0036.
constexpr double kSemiMajor = 6378137.0;
constexpr double kFlattening = 1.0 / 298.257223563;
constexpr double kEccentricity2 = kFlattening * (2.0 - kFlattening);

/// Nearer to nothing, or to the opposite side, than this (in radians; 6 mm on the ground) there is no direction.
constexpr double kNoAngle = 1e-9;

double Radians(double degrees) {
    return degrees * std::numbers::pi / 180.0;
}

double Degrees(double radians) {
    return radians * 180.0 / std::numbers::pi;
}

Ecef UnitVector(const Place& place) {
    const double latitude = Radians(place.latitude);
    const double longitude = Radians(place.longitude);
    return {std::cos(latitude) * std::cos(longitude), std::cos(latitude) * std::sin(longitude), std::sin(latitude)};
}

Place FromVector(const Ecef& v) {
    return {Degrees(std::atan2(v.z, std::hypot(v.x, v.y))), Degrees(std::atan2(v.y, v.x))};
}

/// Exact for small and for nearly straight angles too, where the arc cosine of the product alone is not.
double Angle(const Ecef& a, const Ecef& b) {
    const double sine = std::hypot(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
    return std::atan2(sine, a.x * b.x + a.y * b.y + a.z * b.z);
}

double Mix(double from, double to, double part) {
    return from + (to - from) * part;
}

}  // namespace

double FullCircle(double degrees) {
    const double rest = std::fmod(degrees, 360.0);
    const double turned = rest < 0 ? rest + 360.0 : rest;
    return turned < 360.0 ? turned : 0.0;  // a rest that is nearly nothing is lost in the sum
}

double Distance(const Place& from, const Place& to) {
    return kRadius * Angle(UnitVector(from), UnitVector(to));
}

double Bearing(const Place& from, const Place& to) {
    if (Angle(UnitVector(from), UnitVector(to)) < kNoAngle) {
        return 0.0;
    }
    const double latitude1 = Radians(from.latitude);
    const double latitude2 = Radians(to.latitude);
    const double turn = Radians(to.longitude - from.longitude);
    const double east = std::sin(turn) * std::cos(latitude2);
    const double north = std::cos(latitude1) * std::sin(latitude2) -  //
                         std::sin(latitude1) * std::cos(latitude2) * std::cos(turn);
    return FullCircle(Degrees(std::atan2(east, north)));
}

Place Between(const Place& from, const Place& to, double part) {
    const Ecef a = UnitVector(from);
    const Ecef b = UnitVector(to);
    const double angle = Angle(a, b);
    if (part <= 0.0 || angle < kNoAngle) {
        return from;
    }
    if (part >= 1.0) {
        return to;
    }
    if (angle > std::numbers::pi - kNoAngle) {
        return {Mix(from.latitude, to.latitude, part), Mix(from.longitude, to.longitude, part)};
    }
    const double ofA = std::sin((1.0 - part) * angle) / std::sin(angle);
    const double ofB = std::sin(part * angle) / std::sin(angle);
    return FromVector({ofA * a.x + ofB * b.x, ofA * a.y + ofB * b.y, ofA * a.z + ofB * b.z});
}

Ecef ToEcef(const Place& place, double altitude) {
    const Ecef up = UnitVector(place);
    const double normal = kSemiMajor / std::sqrt(1.0 - kEccentricity2 * up.z * up.z);
    return {(normal + altitude) * up.x, (normal + altitude) * up.y,
            (normal * (1.0 - kEccentricity2) + altitude) * up.z};
}
