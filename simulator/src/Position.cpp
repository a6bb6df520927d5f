#include "Position.h"

namespace {

void FillCoordinates(const Position& position, Com__Vantu__Ms__Location__QualifiedCoordinateStruct& record) {
    record.altitude = position.altitude;
    record.longitude = position.longitude;
    record.latitude = position.latitude;
    record.altitude_msl = position.altitudeMsl;
    record.ecefx = position.ecefX;
    record.ecefy = position.ecefY;
    record.ecefz = position.ecefZ;
    record.error_ellipse->axis_orientation = position.ellipseOrientation;
    record.error_ellipse->semi_major_axis = position.ellipseSemiMajor;
    record.error_ellipse->semi_minor_axis = position.ellipseSemiMinor;
    record.horizontal_accuracy = position.horizontalAccuracy;
    record.latitude_accuracy = position.latitudeAccuracy;
    record.longitude_accuracy = position.longitudeAccuracy;
    record.vertical_accuracy = position.verticalAccuracy;
    record.valid_2d_fix = position.valid2dFix ? 1 : 0;
    record.valid_3d_fix = position.valid3dFix ? 1 : 0;
}

void FillTime(const Position& position, Com__Vantu__Ms__Location__TimeInfoStruct& record) {
    record.gps_date->tow = position.timeOfWeek;
    record.gps_date->utc_correction = position.utcCorrection;
    record.gps_date->week_number = position.weekNumber;
    record.local_timestamp = position.localTimestamp;
    record.receive_timestamp = position.receiveTimestamp;
    record.timestamp = position.timestamp;
}

}  // namespace

void PositionFill(const Position& position, Com__Vantu__Ms__Location__LocationStruct& record) {
    record.extra_info = const_cast<char*>(position.extraInfo.c_str());  // nobody writes through it
    record.heading = position.heading;
    record.heading_accuracy = position.headingAccuracy;
    record.heading_mag = position.headingMag;
    record.heading_mag_accuracy = position.headingMagAccuracy;
    FillCoordinates(position, *record.qualified_coordinates);
    record.speed = position.speed;
    record.speed_accuracy = position.speedAccuracy;
    FillTime(position, *record.time_info);
    record.valid_flag = position.valid ? 1 : 0;
}
