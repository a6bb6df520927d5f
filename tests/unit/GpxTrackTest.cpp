#include "GpxTrack.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace {

using namespace std::chrono;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<gpx version=\"1.1\" creator=\"test\" xmlns=\"http://www.topografix.com/GPX/1/1\">\n";

/// A track of one segment; its first point begins on line 4.
std::string Track(const std::string& points) {
    return std::string(kHead) + "<trk><trkseg>\n" + points + "</trkseg></trk>\n</gpx>\n";
}

/// A line with a point; more: elements behind its time.
std::string Point(const std::string& latitude, const std::string& longitude, const std::string& time,
                  const std::string& more = "") {
    return "<trkpt lat=\"" + latitude + "\" lon=\"" + longitude + "\"><time>" + time + "</time>" + more + "</trkpt>\n";
}

constexpr const char* kNoon = "2026-05-04T12:00:00Z";
constexpr sys_days kDay = year(2026) / May / 4;

GpxTrack Parse(const std::string& text) {
    return GpxParse(text, "t.gpx");
}

std::string ErrorOf(const std::string& text) {
    try {
        Parse(text);
    } catch (const GpxError& error) {
        return error.what();
    }
    return "no error";
}

TrackPoint PointWith(const std::string& more) {
    return Parse(Track(Point("1", "2", kNoon, more))).points.at(0);
}

Fix FixOf(const std::string& more) {
    return PointWith(more).fix;
}

auto TimeOf(const std::string& time) {
    return Parse(Track(Point("1", "2", time))).points.at(0).time;
}

TEST(GpxTrack, APointIsTakenFieldByField) {
    const TrackPoint point = PointWith(
        "<ele>519.5</ele><geoidheight>46.8</geoidheight><fix>2d</fix><sat>7</sat><hdop>1.5</hdop><vdop>2.5</vdop>");

    EXPECT_EQ((Place{1, 2}), point.place);
    EXPECT_EQ(kDay + 12h, point.time);
    EXPECT_EQ(519.5, point.elevation);
    EXPECT_EQ(46.8, point.geoidHeight);
    EXPECT_EQ(Fix::TwoD, point.fix);
    EXPECT_EQ(7U, point.satellites);
    EXPECT_EQ(1.5, point.hdop);
    EXPECT_EQ(2.5, point.vdop);
}

TEST(GpxTrack, WhatAPointDoesNotSayStaysOpen) {
    const TrackPoint point = PointWith("");

    EXPECT_EQ(0, point.elevation);
    EXPECT_EQ(std::nullopt, point.geoidHeight);
    EXPECT_EQ(std::nullopt, point.satellites);
    EXPECT_EQ(std::nullopt, point.hdop);
    EXPECT_EQ(std::nullopt, point.vdop);
}

TEST(GpxTrack, APointWithoutElevationIsAsHighAsTheOneBefore) {
    const GpxTrack track =
        Parse(Track(Point("1", "2", kNoon, "<ele>519.5</ele>") + Point("1", "3", "2026-05-04T12:00:01Z") +
                    Point("1", "4", "2026-05-04T12:00:02Z", "<ele>520</ele>")));

    EXPECT_EQ(519.5, track.points.at(1).elevation);
    EXPECT_EQ(Fix::TwoD, track.points.at(1).fix);
    EXPECT_EQ(520, track.points.at(2).elevation);
}

TEST(GpxTrack, EachKindOfFixIsKnown) {
    EXPECT_EQ(Fix::None, FixOf("<fix>none</fix>"));
    EXPECT_EQ(Fix::TwoD, FixOf("<fix>2d</fix>"));
    EXPECT_EQ(Fix::ThreeD, FixOf("<fix> 3d\n</fix>"));
    EXPECT_EQ(Fix::ThreeD, FixOf("<fix>dgps</fix>"));
    EXPECT_EQ(Fix::ThreeD, FixOf("<fix>pps</fix>"));
}

TEST(GpxTrack, WithoutAWordOnTheFixTheElevationTells) {
    EXPECT_EQ(Fix::ThreeD, FixOf("<ele>1</ele>"));
    EXPECT_EQ(Fix::TwoD, FixOf(""));
}

TEST(GpxTrack, TimesAreReadWithFractionAndZone) {
    EXPECT_EQ(kDay + 12h, TimeOf(" 2026-05-04T12:00:00Z\n"));
    EXPECT_EQ(kDay + 12h, TimeOf("2026-05-04T12:00:00"));
    EXPECT_EQ(kDay + 12h + 250ms, TimeOf("2026-05-04T12:00:00.25Z"));
    EXPECT_EQ(kDay + 12h + 123ms, TimeOf("2026-05-04T12:00:00.123999999Z"));
    EXPECT_EQ(kDay + 10h, TimeOf("2026-05-04T12:00:00+02:00"));
    EXPECT_EQ(kDay + 17h + 30min, TimeOf("2026-05-04T12:00:00-05:30"));
    EXPECT_EQ(kDay - 1ms, TimeOf("2026-05-03T23:59:59.999Z"));
}

TEST(GpxTrack, SegmentsAndTracksFollowEachOtherAndReceptionIsLostBetween) {
    const GpxTrack track =
        Parse(std::string(kHead) + "<trk><trkseg>" + Point("1", "0", "2026-05-04T12:00:00Z", "<ele>1</ele>") +
              Point("2", "0", "2026-05-04T12:00:01Z", "<ele>1</ele>") + "</trkseg><trkseg>" +
              Point("3", "0", "2026-05-04T12:00:09Z", "<ele>1</ele>") + "</trkseg></trk><trk><trkseg/><trkseg>" +
              Point("4", "0", "2026-05-04T12:01:00Z", "<ele>1</ele>") + "</trkseg></trk></gpx>");

    ASSERT_EQ(4U, track.points.size());
    EXPECT_EQ(Fix::ThreeD, track.points[0].fix);
    EXPECT_EQ(Fix::None, track.points[1].fix);
    EXPECT_EQ(Fix::None, track.points[2].fix);
    EXPECT_EQ(Fix::ThreeD, track.points[3].fix);
    EXPECT_EQ(4, track.points[3].place.latitude);
}

TEST(GpxTrack, PrefixesOfNamespacesAndForeignElementsAreNoObstacle) {
    const GpxTrack track = Parse(
        "<g:gpx xmlns:g=\"http://www.topografix.com/GPX/1/1\"><g:metadata><time>x</time></g:metadata>"
        "<g:wpt lat=\"a\" lon=\"b\"/><g:trk><g:name>n</g:name><g:trkseg><g:trkpt lat=\"1\" lon=\"2\">"
        "<g:extensions><speed>fast</speed></g:extensions><g:time>2026-05-04T12:00:00Z</g:time></g:trkpt>"
        "</g:trkseg></g:trk></g:gpx>");

    ASSERT_EQ(1U, track.points.size());
    EXPECT_EQ((Place{1, 2}), track.points[0].place);
}

TEST(GpxTrack, TwoPointsMayHaveOneTime) {
    EXPECT_EQ(2U, Parse(Track(Point("1", "2", kNoon) + Point("3", "4", kNoon))).points.size());
}

TEST(GpxTrack, AByteOrderMarkIsSkipped) {
    EXPECT_EQ(1U, Parse("\xEF\xBB\xBF" + Track(Point("1", "2", kNoon))).points.size());
}

TEST(GpxTrack, EveryErrorNamesFileLineValueAndRemedy) {
    struct Row {
        std::string text;
        const char* error;
    };
    const Row rows[] = {
        {"", "t.gpx, line 1: no XML: No document element found; a GPX file is XML in UTF-8"},
        {"lat,lon\n1,2\n", "t.gpx, line 3: no XML: No document element found; a GPX file is XML in UTF-8"},
        {"<gpx>\n<trk>\n</gpx>", "t.gpx, line 3: no XML: Start-end tags mismatch; a GPX file is XML in UTF-8"},
        {"<kml>\n</kml>", "t.gpx, line 1: the file begins with <kml>, not with <gpx>; it is no GPX file"},
        {std::string(kHead) + "<rte><rtept lat=\"1\" lon=\"2\"/></rte></gpx>",
         "t.gpx, line 2: there is no trkpt in a trkseg of a trk; routes and waypoints alone are no track"},
        {Track(""), "t.gpx, line 2: there is no trkpt in a trkseg of a trk; routes and waypoints alone are no track"},
        {Track("<trkpt lon=\"1\"/>"), "t.gpx, line 4: the trkpt has no lat; each needs lat and lon in degrees"},
        {Track("<trkpt lat=\"1\"/>"), "t.gpx, line 4: the trkpt has no lon; each needs lat and lon in degrees"},
        {Track(Point("1", "2", kNoon) + Point("48,1", "2", kNoon)),
         "t.gpx, line 5: lat is \"48,1\", which is no number; write one like 48.137"},
        {Track(Point("", "2", kNoon)), "t.gpx, line 4: lat is \"\", which is no number; write one like 48.137"},
        {Track(Point("nan", "2", kNoon)), "t.gpx, line 4: lat is \"nan\", which is no number; write one like 48.137"},
        {Track(Point("1", "1e999", kNoon)),
         "t.gpx, line 4: lon is \"1e999\", which is no number; write one like 48.137"},
        {Track(Point("90.001", "2", kNoon)), "t.gpx, line 4: lat is \"90.001\"; it must lie from -90 to 90 degrees"},
        {Track(Point("-91", "2", kNoon)), "t.gpx, line 4: lat is \"-91\"; it must lie from -90 to 90 degrees"},
        {Track(Point("1", "180.5", kNoon)), "t.gpx, line 4: lon is \"180.5\"; it must lie from -180 to 180 degrees"},
        {Track(Point("1", "2", kNoon, "\n<ele>high</ele>")),
         "t.gpx, line 5: ele is \"high\", which is no number; write one like 48.137"},
        {Track(Point("1", "2", kNoon, "<ele>1e9</ele>")),
         "t.gpx, line 4: ele is \"1e9\"; it must lie from -1000 to 100000 metres"},
        {Track(Point("1", "2", kNoon, "<geoidheight>300</geoidheight>")),
         "t.gpx, line 4: geoidheight is \"300\"; it must lie from -200 to 200 metres"},
        {Track(Point("1", "2", kNoon, "<hdop>-1</hdop>")),
         "t.gpx, line 4: hdop is \"-1\"; it must lie from 0 to 100 (a dilution of precision)"},
        {Track(Point("1", "2", kNoon, "<vdop>101</vdop>")),
         "t.gpx, line 4: vdop is \"101\"; it must lie from 0 to 100 (a dilution of precision)"},
        {Track(Point("1", "2", kNoon, "<sat>-3</sat>")),
         "t.gpx, line 4: sat is \"-3\"; it must lie from 0 to 1000 satellites"},
        {Track(Point("1", "2", kNoon, "<sat>7.5</sat>")),
         "t.gpx, line 4: sat is \"7.5\"; write a whole number of satellites"},
        {Track(Point("1", "2", kNoon, "<fix>good</fix>")),
         "t.gpx, line 4: fix is \"good\"; it must be none, 2d, 3d, dgps or pps"},
        {Track("<trkpt lat=\"1\" lon=\"2\"/>"),
         "t.gpx, line 4: the trkpt has no time, so there is no speed; take the track from a recorder that writes time, "
         "not from a route planner"},
        {Track(Point("1", "2", "noon")), "t.gpx, line 4: time is \"noon\"; write it like 2026-05-04T08:15:00Z"},
        {Track(Point("1", "2", "\nno\033[2Jon")),
         "t.gpx, line 4: time is \"?no?[2Jon\"; write it like 2026-05-04T08:15:00Z"},
        {Track(Point("1", "2", std::string(1000, '9'))),
         "t.gpx, line 4: time is \"9999999999999999999999999999999999999999...\"; write it like 2026-05-04T08:15:00Z"},
        {Track(Point("1", "2", "1980-01-05T23:59:59Z")),
         "t.gpx, line 4: time is \"1980-01-05T23:59:59Z\", but GPS time begins at 1980-01-06T00:00:00Z"},
        {Track(Point("1", "2", kNoon) + Point("1", "2", "2026-05-04T11:59:59Z")),
         "t.gpx, line 5: time runs backwards: \"2026-05-04T11:59:59Z\" is before the point above it; bring the points "
         "into the order in which they were driven"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.error, ErrorOf(row.text)) << row.text;
    }
}

TEST(GpxTrack, ATimeThatTheCalendarDoesNotHaveIsRefused) {
    for (const char* time :
         {"2026-02-29T12:00:00Z", "2026-13-01T12:00:00Z", "2026-00-01T12:00:00Z", "2026-05-00T12:00:00Z",
          "2026-05-04T24:00:00Z", "2026-05-04T12:60:00Z", "2026-05-04T12:00:60Z", "2026-05-04 12:00:00Z",
          "2026-05-04T12:00Z", "2026-05-04T12:00:00.Z", "2026-05-04T12:00:00+2:00", "2026-05-04T12:00:00+15:00",
          "2026-05-04T12:00:00Zulu", "20260504T120000Z", "-026-05-04T12:00:00Z", ""}) {
        EXPECT_THAT(ErrorOf(Track(Point("1", "2", time))), EndsWith("; write it like 2026-05-04T08:15:00Z")) << time;
    }
}

TEST(GpxTrack, AFileThatIsCutOffAnywhereIsRefused) {
    const std::string whole = Track(Point("1", "2", kNoon, "<ele>5</ele>") + Point("3", "4", kNoon));
    const size_t end = whole.rfind("</gpx>") + 6;
    for (size_t length = 0; length < end; ++length) {
        EXPECT_THAT(ErrorOf(whole.substr(0, length)), HasSubstr(": no XML: ")) << length;
    }
}

class GpxFileTest : public testing::Test {
  protected:
    const std::string path = testing::TempDir() + "GpxFileTest." + std::to_string(getpid()) + ".gpx";

    void TearDown() override { std::filesystem::remove_all(path); }

    std::string Error() const {
        try {
            GpxLoad(path);
        } catch (const GpxError& error) {
            return error.what();
        }
        return "no error";
    }
};

TEST_F(GpxFileTest, AFileIsLoaded) {
    std::ofstream(path) << Track(Point("1", "2", kNoon));

    EXPECT_EQ((Place{1, 2}), GpxLoad(path).points.at(0).place);
}

TEST_F(GpxFileTest, AFileThatIsNotThereIsNamed) {
    EXPECT_EQ(path + ": cannot be read: No such file or directory; give the path of a GPX file", Error());
}

TEST_F(GpxFileTest, ADirectoryIsNamed) {
    mkdir(path.c_str(), 0700);

    EXPECT_EQ(path + ": cannot be read: Is a directory; give the path of a GPX file", Error());
}

TEST_F(GpxFileTest, AFileWithoutEndIsNotReadToItsEnd) {
    std::filesystem::create_symlink("/dev/zero", path);

    EXPECT_EQ(path + ": more than 64 MiB; cut the track into smaller files", Error());
}

TEST_F(GpxFileTest, AnErrorInTheFileNamesIt) {
    std::ofstream(path) << Track(Point("95", "2", kNoon));

    EXPECT_THAT(Error(), AllOf(StartsWith(path + ", line 4: lat is \"95\"")));
}

}  // namespace
