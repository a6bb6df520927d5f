#include "TrackPosition.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace std::chrono;

constexpr sys_days kDay = year(2026) / May / 4;  ///< a Monday
constexpr double kDegree = 111195.08;            ///< of a great circle, in metres

TrackPoint At(seconds time, Place place, Fix fix = Fix::ThreeD) {
    TrackPoint point;
    point.place = place;
    point.time = kDay + time;
    point.fix = fix;
    return point;
}

/// East along the equator at a degree in 1000 s, waits there for 100 s, then north.
GpxTrack Bend() {
    return {.points = {At(0s, {0, 10}), At(1000s, {0, 11}), At(1100s, {0, 11}), At(2100s, {1, 11})}};
}

TEST(TrackPosition, HalfwayBetweenTwoPointsItIsHalfway) {
    const Position position = TrackPosition(Bend(), {.driven = 500s});

    EXPECT_NEAR(0, position.latitude, 1e-9);
    EXPECT_NEAR(10.5, position.longitude, 1e-9);
    EXPECT_NEAR(kDegree / 1000, position.speed, 1e-3);
    EXPECT_EQ(90, position.heading);
    EXPECT_EQ(86, position.headingMag);
}

TEST(TrackPosition, AtAPointTheNextLegHasBegun) {
    const Position position = TrackPosition(Bend(), {.driven = 1100s});

    EXPECT_EQ(0, position.latitude);
    EXPECT_EQ(11, position.longitude);
    EXPECT_EQ(0, position.heading);
    EXPECT_EQ(356, position.headingMag);
    EXPECT_NEAR(kDegree / 1000, position.speed, 1e-3);
}

TEST(TrackPosition, StandingStillKeepsTheLastHeading) {
    const Position position = TrackPosition(Bend(), {.driven = 1050s});

    EXPECT_EQ(11, position.longitude);
    EXPECT_EQ(90, position.heading);
    EXPECT_EQ(0, position.speed);
    EXPECT_EQ(180, position.headingAccuracy);
}

TEST(TrackPosition, AMoveOfAHandsBreadthIsNone) {
    const GpxTrack track{.points = {At(0s, {0, 0}), At(1s, {0, 0.001}), At(2s, {0.0000005, 0.001})}};

    EXPECT_EQ(90, TrackPosition(track, {.driven = 1s}).heading);
    EXPECT_EQ(0, TrackPosition(track, {.driven = 1s}).speed);
}

TEST(TrackPosition, BeforeTheFirstMoveItLooksNorth) {
    const GpxTrack track{.points = {At(0s, {0, 0}), At(1s, {0, 0}), At(2s, {0, 1})}};

    EXPECT_EQ(0, TrackPosition(track, {.driven = 0s}).heading);
    EXPECT_EQ(90, TrackPosition(track, {.driven = 1s}).heading);
}

TEST(TrackPosition, AtTheEndOfTheTrackItStandsAndTimeGoesOn) {
    const Position end = TrackPosition(Bend(), {.driven = 2100s});
    const Position later = TrackPosition(Bend(), {.driven = 9999s});

    EXPECT_EQ(1, end.latitude);
    EXPECT_EQ(0, end.speed);
    EXPECT_EQ(0, end.heading);
    EXPECT_EQ(1, later.latitude);
    EXPECT_EQ(end.timestamp + 7899000, later.timestamp);
    EXPECT_EQ(2100s, TrackDuration(Bend()));
}

TEST(TrackPosition, AVehicleThatStandsIsOvertakenByTimeOnly) {
    const Position stands = TrackPosition(Bend(), {.driven = 500s, .stood = 300s, .stands = true});
    const Position drivesOn = TrackPosition(Bend(), {.driven = 500s, .stood = 301s});

    EXPECT_NEAR(10.5, stands.longitude, 1e-9);
    EXPECT_EQ(90, stands.heading);
    EXPECT_EQ(0, stands.speed);
    EXPECT_EQ(TrackPosition(Bend(), {.driven = 800s}).timestamp, stands.timestamp);
    EXPECT_EQ(stands.longitude, drivesOn.longitude);
    EXPECT_GT(drivesOn.speed, 100);
    EXPECT_EQ(stands.timestamp + 1000, drivesOn.timestamp);
}

TEST(TrackPosition, ATrackOfOnePointIsAPlaceToStand) {
    const GpxTrack track{.points = {At(0s, {48, 11})}};

    for (const seconds at : {0s, 7s}) {
        const Position position = TrackPosition(track, {.driven = at});
        EXPECT_EQ(48, position.latitude);
        EXPECT_EQ(11, position.longitude);
        EXPECT_EQ(0, position.speed);
        EXPECT_EQ(0, position.heading);
        EXPECT_TRUE(position.valid);
    }
    EXPECT_EQ(0s, TrackDuration(track));
}

TEST(TrackPosition, OfTwoPointsWithOneTimeTheSecondCounts) {
    const GpxTrack track{.points = {At(0s, {0, 0}), At(5s, {0, 1}), At(5s, {0, 2}), At(6s, {0, 3})}};

    EXPECT_EQ(2, TrackPosition(track, {.driven = 5s}).longitude);
    EXPECT_NEAR(kDegree, TrackPosition(track, {.driven = 5s}).speed, 1);
}

TEST(TrackPosition, TheAntimeridianIsCrossedTheShortWay) {
    const GpxTrack track{.points = {At(0s, {0, 179.5}), At(100s, {0, -179.5})}};

    EXPECT_NEAR(-179.9, TrackPosition(track, {.driven = 60s}).longitude, 1e-9);
    EXPECT_NEAR(kDegree / 100, TrackPosition(track, {.driven = 60s}).speed, 0.01);
    EXPECT_EQ(90, TrackPosition(track, {.driven = 60s}).heading);
}

TEST(TrackPosition, WhatTheFirstPointOfALegSaysOfTheReceptionHoldsAlongIt) {
    const GpxTrack track{
        .points = {At(0s, {0, 0}, Fix::ThreeD), At(2s, {0, 2}, Fix::None), At(4s, {0, 4}, Fix::TwoD), At(6s, {0, 6})}};
    struct Row {
        seconds at;
        bool valid, valid2d, valid3d;
    };
    for (const Row& row : {Row{1s, true, true, true}, Row{2s, false, false, false}, Row{3s, false, false, false},
                           Row{5s, true, true, false}, Row{6s, true, true, true}}) {
        const Position position = TrackPosition(track, {.driven = row.at});
        EXPECT_EQ(row.valid, position.valid) << row.at.count();
        EXPECT_EQ(row.valid2d, position.valid2dFix) << row.at.count();
        EXPECT_EQ(row.valid3d, position.valid3dFix) << row.at.count();
    }
    EXPECT_NEAR(3, TrackPosition(track, {.driven = 3s}).longitude, 1e-9);
}

TEST(TrackPosition, AccuraciesFollowFromTheDilution) {
    TrackPoint point = At(0s, {0, 0});
    point.hdop = 2.0;
    point.vdop = 3.0;
    const GpxTrack track{.points = {point, At(1000s, {0, 1})}};

    const Position position = TrackPosition(track, {.driven = 0s});

    EXPECT_NEAR(7.959, position.horizontalAccuracy, 1e-3);
    EXPECT_NEAR(11.939, position.verticalAccuracy, 1e-3);
    EXPECT_NEAR(5.628, position.latitudeAccuracy, 1e-3);
    EXPECT_EQ(position.latitudeAccuracy, position.longitudeAccuracy);
    EXPECT_EQ(position.latitudeAccuracy, position.ellipseSemiMajor);
    EXPECT_EQ(position.latitudeAccuracy, position.ellipseSemiMinor);
    EXPECT_EQ(0, position.ellipseOrientation);
    EXPECT_FLOAT_EQ(0.2F, position.speedAccuracy);
    EXPECT_NEAR(0.1031, position.headingAccuracy, 1e-4);
    EXPECT_EQ(position.headingAccuracy, position.headingMagAccuracy);
}

TEST(TrackPosition, WithoutADilutionTheFixTells) {
    const auto accuracy = [](Fix fix) {
        const Position position = TrackPosition({.points = {At(0s, {0, 0}, fix)}}, {.driven = 0s});
        return std::pair(std::lround(position.horizontalAccuracy), std::lround(position.verticalAccuracy));
    };

    EXPECT_EQ(std::pair(4L, 7L), accuracy(Fix::ThreeD));
    EXPECT_EQ(std::pair(4L, 398L), accuracy(Fix::TwoD));
    EXPECT_EQ(std::pair(398L, 398L), accuracy(Fix::None));
}

TEST(TrackPosition, AltitudesDifferByTheHeightOfTheGeoid) {
    TrackPoint low = At(0s, {0, 0});
    TrackPoint high = At(10s, {0, 1});
    low.elevation = 500;
    high.elevation = 600;
    EXPECT_FLOAT_EQ(550, TrackPosition({.points = {low, high}}, {.driven = 5s}).altitudeMsl);
    EXPECT_DOUBLE_EQ(597, TrackPosition({.points = {low, high}}, {.driven = 5s}).altitude);

    low.geoidHeight = -20;

    EXPECT_DOUBLE_EQ(530, TrackPosition({.points = {low, high}}, {.driven = 5s}).altitude);
}

TEST(TrackPosition, EarthCentredCoordinatesAreThoseOfThePlaceAndItsAltitude) {
    const Position position = TrackPosition({.points = {At(0s, {0, 0})}}, {.driven = 0s});

    EXPECT_FLOAT_EQ(6378184.0F, position.ecefX);
    EXPECT_FLOAT_EQ(0, position.ecefY);
    EXPECT_FLOAT_EQ(0, position.ecefZ);
}

TEST(TrackPosition, GpsTimeIsAheadOfUtc) {
    TrackPoint rollover = At(0s, {0, 0});
    rollover.time = sys_days(year(2019) / April / 6) + 23h + 59min + 42s;
    const GpxTrack track{.points = {rollover}};

    const Position position = TrackPosition(track, {.driven = 1500ms});

    EXPECT_EQ(2048U, position.weekNumber);
    EXPECT_DOUBLE_EQ(1.5, position.timeOfWeek);
    EXPECT_DOUBLE_EQ(18, position.utcCorrection);
    EXPECT_EQ(1554595183500U, position.timestamp);
    EXPECT_EQ(position.timestamp, position.receiveTimestamp);
    EXPECT_EQ(position.timestamp, position.localTimestamp);
    EXPECT_EQ(2047U, TrackPosition(track, {.driven = -1ms}).weekNumber);
    EXPECT_DOUBLE_EQ(604799.999, TrackPosition(track, {.driven = -1ms}).timeOfWeek);
}

TEST(TrackPosition, SatellitesAreTheExtraInformation) {
    TrackPoint point = At(0s, {0, 0});
    EXPECT_EQ("", TrackPosition({.points = {point}}, {.driven = 0s}).extraInfo);

    point.satellites = 9;

    EXPECT_EQ("sat=9", TrackPosition({.points = {point}}, {.driven = 0s}).extraInfo);
}

TEST(TrackPosition, AHeadingThatRoundsUpToTheFullCircleIsNorth) {
    const GpxTrack track{.points = {At(0s, {0, 0}), At(1s, {1, -1e-9})}};

    EXPECT_EQ(0, TrackPosition(track, {.driven = 0s}).heading);
}

}  // namespace
