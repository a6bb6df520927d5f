// A file climbs a ladder of refusals: readable, XML, with a track, and point by point. Each refusal is thrown where it
// is found, with the line at which its element stands.
#include "GpxTrack.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <pugixml.hpp>
#include <string_view>

namespace {

using namespace std::chrono;

constexpr size_t kMostBytes = 64U << 20;  ///< some days at 1 Hz, with all that recorders add

/// What is read, for the errors.
struct Source {
    const std::string& text;
    const std::string& name;
};

[[noreturn]] void Refuse(const Source& source, ptrdiff_t offset, const std::string& complaint) {
    const auto end = source.text.begin() + std::clamp<ptrdiff_t>(offset, 0, std::ssize(source.text));
    const auto line = 1 + std::count(source.text.begin(), end, '\n');
    throw GpxError(source.name + ", line " + std::to_string(line) + ": " + complaint);
}

[[noreturn]] void Refuse(const Source& source, const pugi::xml_node& node, const std::string& complaint) {
    Refuse(source, node.offset_debug(), complaint);
}

/// As the file has it, but on one line, and without what a terminal would obey.
std::string Quote(std::string_view value) {
    constexpr size_t kMost = 40;
    std::string shown(value.substr(0, kMost));
    std::ranges::replace_if(
        shown, [](unsigned char byte) { return std::iscntrl(byte) != 0; }, '?');
    return "\"" + shown + (value.size() > kMost ? "..." : "") + "\"";
}

std::string_view Trimmed(std::string_view text) {
    constexpr const char* kBlanks = " \t\r\n";
    const size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::string_view::npos ? "" : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

/// Names may carry the prefix of a namespace.
bool IsNamed(const pugi::xml_node& node, std::string_view name) {
    const std::string_view full(node.name());
    return full.substr(full.find(':') + 1) == name;
}

pugi::xml_node Child(const pugi::xml_node& parent, std::string_view name) {
    return parent.find_child([&](const pugi::xml_node& child) { return IsNamed(child, name); });
}

// --- Values ---------------------------------------------------------------------------------------------------------

/// A number of the file and what it may be.
struct NumberRow {
    const char* name;
    double least;
    double most;
    const char* unit;
    bool isWhole = false;
};
constexpr NumberRow kLatitude{"lat", -90, 90, "degrees"};
constexpr NumberRow kLongitude{"lon", -180, 180, "degrees"};
constexpr NumberRow kElevation{"ele", -1000, 100'000, "metres"};
constexpr NumberRow kGeoidHeight{"geoidheight", -200, 200, "metres"};
constexpr NumberRow kHdop{"hdop", 0, 100, "(a dilution of precision)"};
constexpr NumberRow kVdop{"vdop", 0, 100, "(a dilution of precision)"};
constexpr NumberRow kSatellites{"sat", 0, 1000, "satellites", true};

std::string Short(double number) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed).ptr;
    return {text.data(), end};
}

double ReadNumber(const Source& source, const pugi::xml_node& node, const NumberRow& row, std::string_view text) {
    const std::string_view digits = Trimmed(text);
    const char* const end = digits.data() + digits.size();
    double number = 0;
    const auto result = std::from_chars(digits.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || !std::isfinite(number)) {
        Refuse(source, node,
               std::string(row.name) + " is " + Quote(text) + ", which is no number; write one like 48.137");
    }
    if (number < row.least || number > row.most) {
        Refuse(source, node,
               std::string(row.name) + " is " + Quote(text) + "; it must lie from " + Short(row.least) + " to " +
                   Short(row.most) + " " + row.unit);
    }
    if (row.isWhole && std::floor(number) < number) {
        Refuse(source, node, std::string(row.name) + " is " + Quote(text) + "; write a whole number of " + row.unit);
    }
    return number;
}

double ReadAttribute(const Source& source, const pugi::xml_node& point, const NumberRow& row) {
    const pugi::xml_attribute attribute = point.attribute(row.name);
    if (!attribute) {
        Refuse(source, point, std::string("the trkpt has no ") + row.name + "; each needs lat and lon in degrees");
    }
    return ReadNumber(source, point, row, attribute.value());
}

/// Nothing when the point does not have the element.
std::optional<double> ReadElement(const Source& source, const pugi::xml_node& point, const NumberRow& row) {
    const pugi::xml_node node = Child(point, row.name);
    return node ? std::optional(ReadNumber(source, node, row, node.text().get())) : std::nullopt;
}

struct FixRow {
    std::string_view text;
    Fix fix;
};
/// As GPX 1.1 enumerates them; the last two are better ways to a fix in three dimensions.
constexpr FixRow kFixes[] = {
    {"none", Fix::None}, {"2d", Fix::TwoD}, {"3d", Fix::ThreeD}, {"dgps", Fix::ThreeD}, {"pps", Fix::ThreeD}};

Fix ReadFix(const Source& source, const pugi::xml_node& point) {
    const pugi::xml_node node = Child(point, "fix");
    if (!node) {
        return Child(point, "ele") ? Fix::ThreeD : Fix::TwoD;
    }
    const auto* row = std::ranges::find(kFixes, Trimmed(node.text().get()), &FixRow::text);
    if (row == std::end(kFixes)) {
        Refuse(source, node, "fix is " + Quote(node.text().get()) + "; it must be none, 2d, 3d, dgps or pps");
    }
    return row->fix;
}

// --- Time -----------------------------------------------------------------------------------------------------------

/// Takes count digits from the front of the text; false when they are not there.
bool TakeDigits(std::string_view& text, size_t count, int& number) {
    number = 0;
    for (size_t digit = 0; digit < count; ++digit) {
        if (text.empty() || text.front() < '0' || text.front() > '9') {
            return false;
        }
        number = number * 10 + (text.front() - '0');
        text.remove_prefix(1);
    }
    return true;
}

bool Take(std::string_view& text, char wanted) {
    if (!text.starts_with(wanted)) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

/// ".25" and the like, to the millisecond; nothing is a fraction too.
bool TakeFraction(std::string_view& text, milliseconds& fraction) {
    if (!Take(text, '.')) {
        return true;
    }
    int digit = 0;
    bool any = false;
    for (milliseconds place{100}; TakeDigits(text, 1, digit); place /= 10) {
        fraction += digit * place;
        any = true;
    }
    return any;
}

/// "Z", "+02:00", or nothing: then it is UTC all the same, as GPX wants it.
bool TakeZone(std::string_view& text, minutes& ahead) {
    if (text.empty() || Take(text, 'Z')) {
        return true;
    }
    const int sign = Take(text, '-') ? -1 : 1;
    int hour = 0;
    int minute = 0;
    if ((sign == 1 && !Take(text, '+')) || !TakeDigits(text, 2, hour) || !Take(text, ':') ||
        !TakeDigits(text, 2, minute) || hour > 14 || minute > 59) {
        return false;
    }
    ahead = sign * (hours(hour) + minutes(minute));
    return true;
}

std::optional<sys_time<milliseconds>> ParseTime(std::string_view text) {
    int y = 0, m = 0, d = 0, hour = 0, minute = 0, second = 0;
    milliseconds fraction{0};
    minutes ahead{0};
    const bool isRead = TakeDigits(text, 4, y) && Take(text, '-') && TakeDigits(text, 2, m) && Take(text, '-') &&
                        TakeDigits(text, 2, d) && Take(text, 'T') && TakeDigits(text, 2, hour) && Take(text, ':') &&
                        TakeDigits(text, 2, minute) && Take(text, ':') && TakeDigits(text, 2, second) &&
                        TakeFraction(text, fraction) && TakeZone(text, ahead) && text.empty();
    const year_month_day date{year(y), month(static_cast<unsigned>(m)), day(static_cast<unsigned>(d))};
    if (!isRead || !date.ok() || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    return sys_days(date) + hours(hour) + minutes(minute) + seconds(second) + fraction - ahead;
}

sys_time<milliseconds> ReadTime(const Source& source, const pugi::xml_node& point) {
    const pugi::xml_node node = Child(point, "time");
    if (!node) {
        Refuse(source, point,
               "the trkpt has no time, so there is no speed; take the track from a recorder that writes time, not from "
               "a route planner");
    }
    const auto time = ParseTime(Trimmed(node.text().get()));
    if (!time) {
        Refuse(source, node, "time is " + Quote(node.text().get()) + "; write it like 2026-05-04T08:15:00Z");
    }
    if (*time < kGpsBegin) {
        Refuse(source, node, "time is " + Quote(node.text().get()) + ", but GPS time begins at 1980-01-06T00:00:00Z");
    }
    return *time;
}

// --- Structure ------------------------------------------------------------------------------------------------------

TrackPoint ReadPoint(const Source& source, const pugi::xml_node& node, double elevationBefore) {
    TrackPoint point;
    point.place = {ReadAttribute(source, node, kLatitude), ReadAttribute(source, node, kLongitude)};
    point.time = ReadTime(source, node);
    point.fix = ReadFix(source, node);
    point.elevation = ReadElement(source, node, kElevation).value_or(elevationBefore);
    point.geoidHeight = ReadElement(source, node, kGeoidHeight);
    point.hdop = ReadElement(source, node, kHdop);
    point.vdop = ReadElement(source, node, kVdop);
    if (const auto satellites = ReadElement(source, node, kSatellites)) {
        point.satellites = static_cast<unsigned>(*satellites);
    }
    return point;
}

void AddPoint(const Source& source, const pugi::xml_node& node, GpxTrack& track) {
    const TrackPoint point = ReadPoint(source, node, track.points.empty() ? 0 : track.points.back().elevation);
    if (!track.points.empty() && point.time < track.points.back().time) {
        Refuse(source, node,
               "time runs backwards: " + Quote(Trimmed(Child(node, "time").text().get())) +
                   " is before the point above it; bring the points into the order in which they were "
                   "driven");
    }
    track.points.push_back(point);
}

void AddSegment(const Source& source, const pugi::xml_node& segment, GpxTrack& track) {
    bool isFirst = true;
    for (const pugi::xml_node& node : segment.children()) {
        if (!IsNamed(node, "trkpt")) {
            continue;
        }
        if (isFirst && !track.points.empty()) {
            track.points.back().fix = Fix::None;
        }
        isFirst = false;
        AddPoint(source, node, track);
    }
}

GpxTrack ReadDocument(const Source& source, const pugi::xml_document& document) {
    const pugi::xml_node root = document.document_element();
    if (!IsNamed(root, "gpx")) {
        Refuse(source, root,
               "the file begins with <" + std::string(root.name()) + ">, not with <gpx>; it is no GPX file");
    }
    GpxTrack track;
    for (const pugi::xml_node& recorded : root.children()) {
        for (const pugi::xml_node& segment : recorded.children()) {
            if (IsNamed(recorded, "trk") && IsNamed(segment, "trkseg")) {
                AddSegment(source, segment, track);
            }
        }
    }
    if (track.points.empty()) {
        Refuse(source, root, "there is no trkpt in a trkseg of a trk; routes and waypoints alone are no track");
    }
    return track;
}

}  // namespace

GpxTrack GpxParse(const std::string& text, const std::string& name) {
    const Source source{text, name};
    pugi::xml_document document;
    const pugi::xml_parse_result result =
        document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) {
        Refuse(source, result.offset, std::string("no XML: ") + result.description() + "; a GPX file is XML in UTF-8");
    }
    return ReadDocument(source, document);
}

GpxTrack GpxLoad(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    std::array<char, 65536> piece{};
    while (file.read(piece.data(), piece.size()) || file.gcount() > 0) {
        text.append(piece.data(), static_cast<size_t>(file.gcount()));
        if (text.size() > kMostBytes) {
            throw GpxError(path + ": more than 64 MiB; cut the track into smaller files");
        }
    }
    if (!file.eof()) {
        throw GpxError(path + ": cannot be read: " + std::strerror(errno) + "; give the path of a GPX file");
    }
    return GpxParse(text, path);
}
