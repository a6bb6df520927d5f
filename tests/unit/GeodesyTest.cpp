#include "Geodesy.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace {

constexpr double kDegree = 6371008.8 * std::numbers::pi / 180.0;  ///< of a great circle, in metres

constexpr Place kBaghdad{35, 45};
constexpr Place kOsaka{35, 135};
constexpr Place kNorthPole{90, 0};

TEST(Distance, ADegreeOfLatitudeIsTheSameEverywhere) {
    EXPECT_NEAR(kDegree, Distance({0, 0}, {1, 0}), 1e-3);
    EXPECT_NEAR(kDegree, Distance({60, 11}, {61, 11}), 1e-3);
    EXPECT_NEAR(kDegree, Distance({-61, -170}, {-60, -170}), 1e-3);
}

TEST(Distance, ADegreeOfLongitudeShrinksWithTheLatitude) {
    EXPECT_NEAR(kDegree, Distance({0, 10}, {0, 11}), 1e-3);
    EXPECT_NEAR(kDegree / 2, Distance({60, 10}, {60, 11}), 10);
}

TEST(Distance, ACrossingOfTheAntimeridianIsShort) {
    EXPECT_NEAR(2 * kDegree, Distance({0, 179}, {0, -179}), 1e-3);
}

TEST(Distance, ACrossingOfAPoleIsShort) {
    EXPECT_NEAR(2 * kDegree, Distance({89, 20}, {89, -160}), 1e-3);
    EXPECT_NEAR(0, Distance(kNorthPole, {90, 135}), 1e-6);
}

TEST(Distance, HalfAroundTheEarthIsTheMost) {
    EXPECT_NEAR(180 * kDegree, Distance({0, 0}, {0, 180}), 1e-3);
    EXPECT_NEAR(180 * kDegree, Distance({90, 0}, {-90, 50}), 1e-3);
}

TEST(Distance, AMillimetreIsTold) {
    EXPECT_NEAR(0.001, Distance({48, 11}, {48 + 0.001 / kDegree, 11}), 1e-7);
    EXPECT_EQ(0, Distance(kOsaka, kOsaka));
}

TEST(Bearing, TheFourQuartersOfTheCompass) {
    EXPECT_DOUBLE_EQ(0, Bearing({0, 0}, {1, 0}));
    EXPECT_DOUBLE_EQ(90, Bearing({0, 0}, {0, 1}));
    EXPECT_DOUBLE_EQ(180, Bearing({1, 0}, {0, 0}));
    EXPECT_DOUBLE_EQ(270, Bearing({0, 1}, {0, 0}));
}

TEST(Bearing, AGreatCircleLeavesNorthOfEastToAPlaceOfTheSameLatitude) {
    EXPECT_NEAR(60.16, Bearing(kBaghdad, kOsaka), 0.005);
    EXPECT_NEAR(299.84, Bearing(kOsaka, kBaghdad), 0.005);
}

TEST(Bearing, TheAntimeridianIsNoObstacle) {
    EXPECT_DOUBLE_EQ(90, Bearing({0, 179.5}, {0, -179.5}));
    EXPECT_DOUBLE_EQ(270, Bearing({0, -179.5}, {0, 179.5}));
}

TEST(Bearing, OverThePoleItIsNorthAndFromThePoleEverythingIsSouth) {
    EXPECT_NEAR(0, Bearing({89, 20}, {89, -160}), 1e-9);
    EXPECT_NEAR(180, Bearing(kNorthPole, {50, 0}), 1e-9);
}

TEST(Bearing, BetweenEqualPlacesThereIsNone) {
    EXPECT_EQ(0, Bearing(kOsaka, kOsaka));
    EXPECT_EQ(0, Bearing(kNorthPole, {90, 77}));
}

TEST(Between, TheEndsAreThePlacesThemselves) {
    EXPECT_EQ(kBaghdad, Between(kBaghdad, kOsaka, 0));
    EXPECT_EQ(kOsaka, Between(kBaghdad, kOsaka, 1));
    EXPECT_EQ(kOsaka, Between(kOsaka, kOsaka, 0.5));
}

TEST(Between, AQuarterOfTheWayIsAQuarterOfTheDistance) {
    const Place quarter = Between(kBaghdad, kOsaka, 0.25);

    EXPECT_NEAR(Distance(kBaghdad, kOsaka) / 4, Distance(kBaghdad, quarter), 1e-3);
    EXPECT_NEAR(Distance(kBaghdad, kOsaka) * 3 / 4, Distance(quarter, kOsaka), 1e-3);
}

TEST(Between, TheWayOverTheAntimeridianStaysInRange) {
    const Place middle = Between({10, 179}, {10, -177}, 0.5);

    EXPECT_NEAR(-179, middle.longitude, 1e-9);
    EXPECT_NEAR(10.006, middle.latitude, 1e-3);
}

TEST(Between, TheWayOverThePoleGoesOverThePole) {
    EXPECT_NEAR(90, Between({89, 20}, {89, -160}, 0.5).latitude, 1e-6);
}

TEST(Between, OppositePlacesGoAlongLatitudeAndLongitude) {
    const Place middle = Between({-90, 0}, {90, 50}, 0.5);

    EXPECT_EQ((Place{0, 25}), middle);
}

TEST(ToEcef, TheAxesOfTheEllipsoid) {
    EXPECT_DOUBLE_EQ(6378137.0, ToEcef({0, 0}, 0).x);
    EXPECT_DOUBLE_EQ(6378237.0, ToEcef({0, 90}, 100).y);
    EXPECT_NEAR(6356752.3142, ToEcef(kNorthPole, 0).z, 1e-4);
    EXPECT_NEAR(-6356752.3142, ToEcef({-90, 0}, 0).z, 1e-4);
}

TEST(ToEcef, AtHalfLatitudeTheFlatteningShows) {
    const Ecef point = ToEcef({45, 0}, 0);

    EXPECT_NEAR(4517590.879, point.x, 1e-3);
    EXPECT_NEAR(0, point.y, 1e-9);
    EXPECT_NEAR(4487348.409, point.z, 1e-3);
}

TEST(FullCircle, EveryDirectionLiesBelow360) {
    EXPECT_EQ(0, FullCircle(360));
    EXPECT_EQ(350, FullCircle(-10));
    EXPECT_EQ(10, FullCircle(730));
    EXPECT_EQ(0, FullCircle(-1e-20));
}

}  // namespace
