/// One position as the location service tells it: plain values, so a record can also hold what no receiver would say.
#ifndef POSITION_H
#define POSITION_H

#include <cstdint>
#include <string>

#include "lib_Location/src/location.pb-c.h"

/// In the order of the wire. Angles in degrees, directions clockwise from north; lengths in metres, speeds in metres
/// per second, accuracies one standard deviation in the unit of their value. The empty value: no fix.
struct Position {
    std::string extraInfo{};
    float heading = 0;  ///< over ground, from true north
    float headingAccuracy = 0;
    float headingMag = 0;  ///< the same, from magnetic north
    float headingMagAccuracy = 0;
    double altitude = 0;  ///< above the WGS-84 ellipsoid
    double longitude = 0;
    double latitude = 0;
    float altitudeMsl = 0;  ///< above mean sea level
    float ecefX = 0;
    float ecefY = 0;
    float ecefZ = 0;
    float ellipseOrientation = 0;  ///< of the major axis
    float ellipseSemiMajor = 0;
    float ellipseSemiMinor = 0;
    float horizontalAccuracy = 0;
    float latitudeAccuracy = 0;
    float longitudeAccuracy = 0;
    float verticalAccuracy = 0;
    bool valid2dFix = false;
    bool valid3dFix = false;
    float speed = 0;
    float speedAccuracy = 0;
    double timeOfWeek = 0;        ///< GPS time: seconds since the week's start
    double utcCorrection = 0;     ///< seconds that GPS time is ahead of UTC
    uint32_t weekNumber = 0;      ///< since 1980-01-06; the unit keeps its low 16 bits
    uint64_t localTimestamp = 0;  ///< these three in milliseconds since 1970
    uint64_t receiveTimestamp = 0;
    uint64_t timestamp = 0;
    bool valid = false;
};

/// Fills a blank of the wire's record. It borrows extraInfo.
void PositionFill(const Position& position, Com__Vantu__Ms__Location__LocationStruct& record);

#endif
