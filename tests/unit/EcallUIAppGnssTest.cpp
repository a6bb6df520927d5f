// What location forwarding decides and makes of a position; and its callback where no location service can put it.
#include "EcallUIAppGnss.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "EcallUIShared.h"
#include "Scarcity.h"
#include "ServiceTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kSuccess = 0;
constexpr uint32_t kFailed = 1;
constexpr uint32_t kNotHandled = 2;

struct Due {
    uint32_t lastIntegrity;
    uint8_t reportRequest;
    bool isValid;
    bool isDue;
};

constexpr Due kDue[] = {
    {kSuccess, 0, true, false},
    {kSuccess, 0, false, true},
    {kFailed, 0, true, true},
    {kFailed, 0, false, false},
    {kNotHandled, 0, true, false},
    {kNotHandled, 0, false, false},
    {kSuccess, 1, true, true},
    {kSuccess, 1, false, true},
    {kFailed, 1, true, true},
    {kFailed, 1, false, true},
    {kNotHandled, 1, true, true},
    {kNotHandled, 1, false, true},
    // What nobody stores makes nothing due.
    {3, 0, true, false},
    {3, 0, false, false},
    {kSuccess, 2, true, false},
    {kNotHandled, 255, false, false},
};

TEST(EcallUIAppGnss, ReportIsDueOnRequestAndWhenTheValidityHasChangedSinceTheLastOne) {
    for (const Due& row : kDue) {
        EXPECT_EQ(row.isDue, IsGnssReportDue(row.reportRequest, row.lastIntegrity, row.isValid))
            << "request " << int{row.reportRequest} << ", last integrity " << row.lastIntegrity << ", valid "
            << row.isValid;
    }
}

/// The fifteen results in their order.
std::array<uint32_t, 15> Results(const TSelfTestAllDevicesState& report) {
    return std::bit_cast<std::array<uint32_t, 15>>(report);
}

TEST(EcallUIAppGnss, ReportWithAValidPositionSaysSuccessOfTheGnssItemsAlone) {
    EXPECT_THAT(Results(GnssReport(true)), ElementsAre(2, 2, 2, 2, 0, 0, 0, 2, 2, 2, 2, 2, 2, 2, 2));
}

TEST(EcallUIAppGnss, ReportWithAnInvalidPositionSaysThatTheReceiverWorksAllTheSame) {
    EXPECT_THAT(Results(GnssReport(false)), ElementsAre(2, 2, 2, 2, 1, 1, 0, 2, 2, 2, 2, 2, 2, 2, 2));
}

TEST(EcallUIAppGnss, ReportWithoutPositionsSaysThatTheReceiverFailedAndTheFirmwareIsWhole) {
    EXPECT_THAT(Results(NoPositionReport()), ElementsAre(0, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 2, 2));
}

/// Each field has a value of its own.
TLocation Distinct() {
    return {.extra_info = "info",
            .heading = 1.5F,
            .heading_accuracy = 2.5F,
            .heading_mag = 3.5F,
            .heading_mag_accuracy = 4.5F,
            .altitude = 35.1,
            .longitude = 2.3522219,
            .latitude = 48.8566140,
            .altitude_msl = 5.5F,
            .ecefx = 6.5F,
            .ecefy = 7.5F,
            .ecefz = 8.5F,
            .axis_orientation = 9.5F,
            .semi_major_axis = 10.5F,
            .semi_minor_axis = 11.5F,
            .horizontal_accuracy = 12.5F,
            .latitude_accuracy = 13.5F,
            .longitude_accuracy = 14.5F,
            .vertical_accuracy = 15.5F,
            .valid_2d_fix = 0,
            .valid_3d_fix = 0,
            .speed = 16.5F,
            .speed_accuracy = 17.5F,
            .tow = 18.5,
            .utc_correction = 19.5,
            .week_number = 20,
            .local_timestamp = 1'111'111'111'111,
            .receive_timestamp = 1'699'999'999'999,
            .timestamp = 1'222'222'222'222,
            .valid_flag = 1};
}

TEST(EcallUIAppGnss, PositionHasItsTwelveFieldsFromTheseOfTheLocation) {
    const TGnssLocation position = MakeGnssLocation(Distinct());

    EXPECT_EQ(1, position.isValid);
    EXPECT_EQ(1'699'999'999U, position.utcTime);
    EXPECT_EQ(48.8566140, position.latitude);
    EXPECT_EQ(2.3522219, position.longitude);
    EXPECT_EQ(35.1F, position.altitude);
    EXPECT_EQ(12.5F, position.horizontalAccuracy);
    EXPECT_EQ(1.5F, position.course);
    EXPECT_EQ(2.5F, position.courseAccuracy);
    EXPECT_EQ(16.5F, position.speed);
    EXPECT_EQ(17.5F, position.speedAccuracy);
    EXPECT_EQ(3.5F, position.courseMagnetic);
    EXPECT_EQ(4.5F, position.courseMagneticAccuracy);
}

TEST(EcallUIAppGnss, FixesOfTwoOrThreeDimensionsDoNotMakeAPositionValid) {
    TLocation location = Distinct();
    location.valid_2d_fix = 1;
    location.valid_3d_fix = 1;
    location.valid_flag = 0;

    EXPECT_EQ(0, MakeGnssLocation(location).isValid);
}

TEST(EcallUIAppGnss, UtcTimeIsInWholeSecondsOverTheWholeRange) {
    const auto utcTime = [](uint64_t receiveTimestamp) {
        TLocation location = Distinct();
        location.receive_timestamp = receiveTimestamp;
        return MakeGnssLocation(location).utcTime;
    };

    EXPECT_EQ(0U, utcTime(0));
    EXPECT_EQ(0U, utcTime(999));
    EXPECT_EQ(1U, utcTime(1000));
    EXPECT_EQ(1'699'999'999U, utcTime(1'699'999'999'999));
    EXPECT_EQ(1'700'000'000U, utcTime(1'700'000'000'000));
    EXPECT_EQ(18'446'744'073'709'551U, utcTime(UINT64_MAX));
}

TEST(EcallUIAppGnss, AltitudeIsNarrowedToTheNearestFloat) {
    const auto altitude = [](double wide) {
        TLocation location = Distinct();
        location.altitude = wide;
        return MakeGnssLocation(location).altitude;
    };

    EXPECT_EQ(16777216.0F, altitude(16777217.0));  // the first whole number that a float cannot hold
    EXPECT_EQ(-430.5F, altitude(-430.5));
    EXPECT_EQ(-std::numeric_limits<float>::infinity(), altitude(-1e300));
    EXPECT_EQ(std::numeric_limits<float>::infinity(), altitude(std::numeric_limits<double>::infinity()));
    EXPECT_TRUE(std::isnan(altitude(std::numeric_limits<double>::quiet_NaN())));
}

TEST(EcallUIAppGnss, NoLocationIsIgnored) {
    const Logged logged = LogOf([] { EXPECT_EQ(0, ForwardLocation(nullptr)); });

    EXPECT_THAT(logged.Messages(), IsEmpty());
    EXPECT_EQ("", logged.console);
}

TEST(EcallUIAppGnss, WithoutEcallServiceALocationIsIgnoredAndTheRequestedReportStaysRequested) {
    GnssReportRequest = 1;
    const TLocation location = Distinct();

    const Logged logged = LogOf([&location] { EXPECT_EQ(0, ForwardLocation(&location)); });

    EXPECT_THAT(logged.Messages(), IsEmpty());
    EXPECT_EQ("", logged.console);
    EXPECT_EQ(1, GnssReportRequest);
}

TEST(EcallUIAppGnss, WithoutADispatchThreadTheGnssThreadEnds) {
    const std::string error = "loc_createProxy error, srvcResult = 0 ";

    const Ended ended = EndOf([] {
        ForbidNewThreads();
        RunGnss();
    });

    EXPECT_EQ(0, ended.signal);
    EXPECT_EQ("Thread_GNSS, enter", ended.logged.Messages().at(0));
    EXPECT_THAT(ended.logged.system, ElementsAre("5 Unable to open 10 pin value file\n", "5 " + error));
    const std::vector<std::string> messages = ended.logged.Messages();
    ASSERT_LE(2U, messages.size());
    EXPECT_THAT(std::vector(messages.end() - 2, messages.end()), ElementsAre(error, "Thread_GNSS, exit"));
}

}  // namespace
