// A track file holds any bytes. What is taken for a track can be driven: each position is one that a receiver could
// tell.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "TrackPosition.h"

namespace {

bool IsWithin(double value, double least, double most) {
    return value >= least && value <= most;  // false for what is no number
}

bool CanBeTold(const Position& position) {
    return IsWithin(position.latitude, -90, 90) && IsWithin(position.longitude, -180, 180) &&
           IsWithin(position.heading, 0, 359.9999) && IsWithin(position.headingMag, 0, 359.9999) &&
           IsWithin(position.headingAccuracy, 0, 180) && IsWithin(position.speed, 0, 3e10) &&
           IsWithin(position.altitude, -1200, 100200) && IsWithin(position.ecefX, -7e6, 7e6) &&
           IsWithin(position.horizontalAccuracy, 0, 400) && IsWithin(position.timeOfWeek, 0, 604800) &&
           (position.valid2dFix || !position.valid3dFix) && position.valid == position.valid2dFix;
}

void Drive(const GpxTrack& track) {
    const std::chrono::milliseconds end = TrackDuration(track);
    for (int tenth = 0; tenth <= 11; ++tenth) {
        const Progress progress{.driven = end / 10 * tenth, .stood = end / 10, .stands = tenth % 2 == 0};
        if (!CanBeTold(TrackPosition(track, progress))) {
            abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
    try {
        const GpxTrack track = GpxParse(std::string(reinterpret_cast<const char*>(bytes), length), "fuzz");
        if (track.points.empty()) {
            abort();
        }
        Drive(track);
    } catch (const GpxError&) {
        return 0;
    }
    return 0;
}
