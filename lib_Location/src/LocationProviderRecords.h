/// How the flat record and the nested messages on the wire correspond: one list of field pairs for each message.
#ifndef LOCATION_PROVIDER_RECORDS_H
#define LOCATION_PROVIDER_RECORDS_H

#include "LocationProvider.h"
#include "XirRpcRecords.h"
#include "lib_Location/src/location.pb-c.h"

/// The generated messages under readable names.
namespace wire {
using Coordinates = Com__Vantu__Ms__Location__QualifiedCoordinateStruct;
using Location = Com__Vantu__Ms__Location__LocationStruct;
using TimeInfo = Com__Vantu__Ms__Location__TimeInfoStruct;
}  // namespace wire

void EachField(const wire::Coordinates& w, TLocation& r, auto& copy) {
    copy(w.altitude, r.altitude);
    copy(w.longitude, r.longitude);
    copy(w.latitude, r.latitude);
    copy(w.altitude_msl, r.altitude_msl);
    copy(w.ecefx, r.ecefx);
    copy(w.ecefy, r.ecefy);
    copy(w.ecefz, r.ecefz);
    copy(w.error_ellipse->axis_orientation, r.axis_orientation);
    copy(w.error_ellipse->semi_major_axis, r.semi_major_axis);
    copy(w.error_ellipse->semi_minor_axis, r.semi_minor_axis);
    copy(w.horizontal_accuracy, r.horizontal_accuracy);
    copy(w.latitude_accuracy, r.latitude_accuracy);
    copy(w.longitude_accuracy, r.longitude_accuracy);
    copy(w.vertical_accuracy, r.vertical_accuracy);
    copy(w.valid_2d_fix, r.valid_2d_fix);
    copy(w.valid_3d_fix, r.valid_3d_fix);
}

void EachField(const wire::TimeInfo& w, TLocation& r, auto& copy) {
    copy(w.gps_date->tow, r.tow);
    copy(w.gps_date->utc_correction, r.utc_correction);
    copy(w.gps_date->week_number, r.week_number);
    copy(w.local_timestamp, r.local_timestamp);
    copy(w.receive_timestamp, r.receive_timestamp);
    copy(w.timestamp, r.timestamp);
}

void EachField(const wire::Location& w, TLocation& r, auto& copy) {
    copy(w.extra_info, r.extra_info);
    copy(w.heading, r.heading);
    copy(w.heading_accuracy, r.heading_accuracy);
    copy(w.heading_mag, r.heading_mag);
    copy(w.heading_mag_accuracy, r.heading_mag_accuracy);
    EachField(static_cast<const wire::Coordinates&>(*w.qualified_coordinates), r, copy);
    copy(w.speed, r.speed);
    copy(w.speed_accuracy, r.speed_accuracy);
    EachField(static_cast<const wire::TimeInfo&>(*w.time_info), r, copy);
    copy(w.valid_flag, r.valid_flag);
}

#endif
