/// A recorded track: what a GPX 1.1 file says of it.
///
/// Taken from the file: every trkpt of every trkseg of every trk, in their order; of each its lat, lon, ele, time, fix,
/// hdop, vdop, sat and geoidheight. Where a trkseg ends, reception was lost until the next begins (so GPX has it).
/// A point needs lat, lon and time. Without a word on its fix it had one of three dimensions if it has an ele,
/// otherwise of two. Whatever else is in the file is skipped.
#ifndef GPX_TRACK_H
#define GPX_TRACK_H

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Geodesy.h"

enum class Fix { None, TwoD, ThreeD };

/// GPS time begins here: a receiver knows no time before.
constexpr std::chrono::sys_days kGpsBegin = std::chrono::year(1980) / std::chrono::January / 6;

struct TrackPoint {
    Place place;
    std::chrono::sys_time<std::chrono::milliseconds> time{};  ///< UTC
    Fix fix = Fix::ThreeD;                                    ///< from here to the next point
    double elevation = 0;                 ///< metres above mean sea level; where not told, as before
    std::optional<double> geoidHeight{};  ///< metres of the mean sea level above the ellipsoid of WGS-84
    std::optional<double> hdop{};         ///< horizontal dilution of precision
    std::optional<double> vdop{};         ///< vertical dilution of precision
    std::optional<unsigned> satellites{};
};

/// At least one point; no point earlier than the one before it.
struct GpxTrack {
    std::vector<TrackPoint> points;
};

/// The file is no track. what() names the file, the line, the value and what to do.
struct GpxError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// path: of a file of 64 MiB at most. Throws GpxError, also when it cannot be read.
GpxTrack GpxLoad(const std::string& path);
/// text: a whole file, UTF-8; name: what errors call it. Throws GpxError.
GpxTrack GpxParse(const std::string& text, const std::string& name);

#endif
