/// What a receiver tells while its vehicle drives along a track. Pure functions.
#ifndef TRACK_POSITION_H
#define TRACK_POSITION_H

#include <chrono>

#include "GpxTrack.h"
#include "Position.h"

/// From the first point to the last.
std::chrono::milliseconds TrackDuration(const GpxTrack& track);

/// The position at that time after the track's first point, between its points along the great circle.
///
/// stopped: from then on the vehicle stands where it was, and time goes on; so it does at the track's last point. One
/// that stands keeps the heading of its last move. Without a fix the values are those of the track all the same, as of
/// a receiver that goes on by dead reckoning; only valid, valid2dFix, valid3dFix and the accuracies tell.
Position TrackPosition(const GpxTrack& track, std::chrono::milliseconds at,
                       std::chrono::milliseconds stopped = std::chrono::milliseconds::max());

#endif
