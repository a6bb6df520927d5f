/// What a receiver tells while its vehicle drives along a track. Pure functions.
#ifndef TRACK_POSITION_H
#define TRACK_POSITION_H

#include <chrono>

#include "GpxTrack.h"
#include "Position.h"

/// From the first point to the last.
std::chrono::milliseconds TrackDuration(const GpxTrack& track);

/// How far a vehicle has come.
struct Progress {
    /// Along the track, from its first point; beyond its last one it stands there.
    std::chrono::milliseconds driven{0};
    std::chrono::milliseconds stood{0};  ///< time that it stood on the way, beside what the track itself stands
    bool stands = false;                 ///< now
};

/// The position there: between the track's points along the great circle, at the time of the first one plus what was
/// driven and stood. A vehicle that stands keeps the heading of its last move. Without a fix the values are those of
/// the track all the same, as of a receiver that goes on by dead reckoning; only valid, valid2dFix, valid3dFix and the
/// accuracies tell.
Position TrackPosition(const GpxTrack& track, const Progress& progress);

#endif
