/// Places on the earth: distances, directions and coordinates. Angles in degrees, lengths in metres; pure functions.
///
/// Distances and directions are those of a sphere, which differs from the ellipsoid by half a percent at most: less
/// than the speed of a simulated vehicle needs. Earth-centred coordinates are those of the ellipsoid.
#ifndef GEODESY_H
#define GEODESY_H

struct Place {
    double latitude = 0;   ///< -90 to 90, positive in the north
    double longitude = 0;  ///< -180 to 180, positive in the east

    bool operator==(const Place&) const = default;
};

/// Earth-centred, earth-fixed: x through latitude 0 longitude 0, z through the north pole.
struct Ecef {
    double x = 0;
    double y = 0;
    double z = 0;
};

/// Along the great circle.
double Distance(const Place& from, const Place& to);
/// Direction in which the great circle leaves from: clockwise from north, 0 or more and below 360. 0 where there is
/// none: between equal places.
double Bearing(const Place& from, const Place& to);
/// The place that part of the way along the great circle; part: 0 to 1. Opposite places have no one great circle
/// between them; then it goes along latitude and longitude.
Place Between(const Place& from, const Place& to, double part);
/// altitude: above the ellipsoid.
Ecef ToEcef(const Place& place, double altitude);

/// The same direction, 0 or more and below 360.
double FullCircle(double degrees);

#endif
