#include "Account.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <utility>

namespace {

/// The service switches the output off while it programs a pattern; what lasts longer than this is meant.
constexpr std::chrono::milliseconds kReprogramming{100};

constexpr double kKilometresPerHour = 3.6;  ///< of a metre per second

constexpr std::string_view kLedDevice = "/sys/devices/vantu_pwm_led.";
constexpr std::string_view kLineClass = "/sys/class/ecall_gpio/";

/// The value of "name=" in a text of fields; the part before a bracket only, so an enumeration gives its name.
std::string Field(std::string_view fields, std::string_view name) {
    const std::string key = std::string(name) + "=";
    size_t at = fields.starts_with(key) ? 0 : fields.find(" " + key);
    if (at == std::string_view::npos) {
        return "";
    }
    at = fields.find('=', at) + 1;
    const size_t end = fields.find_first_of(" (", at);
    const std::string_view value = fields.substr(at, end == std::string_view::npos ? end : end - at);
    return std::string(value == "?" ? fields.substr(at, fields.find(')', at) + 1 - at) : value);
}

std::string OnOff(const std::string& value, const char* on, const char* off) {
    return value.starts_with("1") ? on : off;
}

struct WhoRow {
    Who who;
    const char* name;
};
constexpr WhoRow kWhos[] = {
    {Who::Story, "story"},       {Who::Unit, "unit"},     {Who::Kernel, "kernel"},   {Who::Led, "led"},
    {Who::Line, "line"},         {Who::Relay, "relay"},   {Who::Antenna, "antenna"}, {Who::Rpc, "rpc"},
    {Who::Location, "location"}, {Who::Script, "script"}, {Who::Tool, "tool"},       {Who::Trace, "trace"},
};

/// Lines that say more than their level.
struct LineRow {
    std::string_view name;
    Who who;
    const char* high;
    const char* low;
};
constexpr LineRow kLines[] = {
    {"lte-ecall-relay", Who::Relay, "audio relay on", "audio relay off"},
    {"ecall-nlock", Who::Line, "ECALL_nLOCK 1", "ECALL_nLOCK 0"},
    {"amp-nstby", Who::Line, "amp-nstby 1", "amp-nstby 0"},
    {"amp-hwmute", Who::Line, "amp-hwmute 1", "amp-hwmute 0"},
};

struct AntennaRow {
    std::string_view name;
    const char* high;
    const char* low;
};
constexpr AntennaRow kAntennas[] = {
    {"gpio_07", "eCall antenna selected", "eCall antenna deselected"},
    {"gpio_05", "antenna detection on", "antenna detection off"},
};

/// Of the many lines of the trace, those that say what the unit makes of the world.
constexpr std::array kTold = {
    std::string_view("Wait for an event"),
    std::string_view("NEW UI STATE"),
    std::string_view("AIRBAG_SENSOR_"),
    std::string_view("ecall-nrqst, "),
    std::string_view("button detection thread"),
    std::string_view("spurious signal"),
    std::string_view("Auto Ecall triggered"),
    std::string_view("request the self-test"),
    std::string_view("TSelfTestDeviceState_"),
    std::string_view("Speaker"),
    std::string_view("GpioRecoveryThread"),
    std::string_view("IOCTL ERROR"),
    std::string_view("usif2 DTR"),
    std::string_view("srvcResult"),
    std::string_view("Unable to"),
};

bool IsTold(std::string_view message) {
    return std::ranges::any_of(kTold, [&](std::string_view part) { return message.find(part) != message.npos; });
}

std::string WithoutEnds(std::string text) {
    text.erase(std::find_if(text.rbegin(), text.rend(), [](unsigned char c) { return std::isspace(c) == 0; }).base(),
               text.end());
    return text;
}

/// A state in short; the self-test only when there is something to say of it.
std::string ShortState(const std::string& fields) {
    std::string text = Field(fields, "serviceState") + ", call " + Field(fields, "callState") + ", audio " +
                       Field(fields, "audioOutState");
    const std::string selfTest = Field(fields, "selfTestState");
    return selfTest == "Unknown" ? text : text + ", self-test " + selfTest;
}

/// A self-test report has 15 fields; most devices are not the reporter's.
std::string WithoutUnhandled(const std::string& fields) {
    std::istringstream words(fields);
    std::string kept;
    for (std::string word; words >> word;) {
        kept += word.ends_with("=NotHandled(2)") ? "" : " " + word;
    }
    return kept;
}

std::string Decimals(const char* format, double value) {
    std::array<char, 400> text{};  // the longest number of a wire without an exponent has some 310 digits
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

double Number(const std::string& fields, std::string_view name) {
    return std::strtod(Field(fields, name).c_str(), nullptr);
}

/// Of the location service's record, or of that which the eCall service gets.
std::string PositionOf(const std::string& fields) {
    const bool isForwarded = !Field(fields, "isValid").empty();
    return PositionText({.latitude = Number(fields, "latitude"),
                         .longitude = Number(fields, "longitude"),
                         .speed = Number(fields, "speed"),
                         .heading = Number(fields, isForwarded ? "course" : "heading"),
                         .valid = Field(fields, isForwarded ? "isValid" : "valid_flag") == "1",
                         .valid3dFix = isForwarded || Field(fields, "valid_3d_fix") == "1"});
}

bool HoldsPosition(const std::string& fields) {
    return fields.find("latitude=") != std::string::npos;
}

std::string Message(const char* arrow, const Entry& entry) {
    const std::string head = std::string(arrow) + " " + entry.subject;
    if (HoldsPosition(entry.text)) {
        return head + " " + PositionOf(entry.text);
    }
    if (entry.text.find("serviceState=") != std::string::npos) {
        return head + " " + ShortState(entry.text);
    }
    return head + WithoutUnhandled(entry.text);
}

/// What a notification says goes without its name, where it shows what it is.
std::string Notification(const Entry& entry) {
    if (HoldsPosition(entry.text)) {
        return "<= " + PositionOf(entry.text);
    }
    return entry.text.find("serviceState=") == std::string::npos ? Message("<=", entry)
                                                                 : "<= " + ShortState(entry.text);
}

/// "change@/devices/vantu_pwm.0 EVENT=NORMAL": the strings between are the same in every event.
std::string ShortEvent(const Entry& entry) {
    const size_t event = entry.text.find("EVENT=");
    return "uevent " + entry.subject + " " + (event == std::string::npos ? entry.text : entry.text.substr(event));
}

/// Scripts say "begin ARGUMENTS" and "end STATUS"; a good end goes without saying.
std::optional<AccountLine> TellScript(const Entry& entry) {
    constexpr std::string_view kBegin = "begin ";
    if (entry.text == "end 0") {
        return std::nullopt;
    }
    const size_t skipped = entry.text.starts_with(kBegin) ? kBegin.size() : 0;
    return AccountLine{
        .time = entry.time, .who = Who::Script, .text = entry.subject + " " + entry.text.substr(skipped)};
}

int64_t Percent(uint64_t duty, uint64_t period) {
    return period == 0 ? 0 : std::llround(100.0 * static_cast<double>(duty) / static_cast<double>(period));
}

/// Of a program that people use beside the service.
bool IsOfTool(const Entry& entry) {
    return entry.subject == "ecalluictl";
}

AccountLine Line(const Entry& entry, Who who, std::string text) {
    return {.time = entry.time, .who = who, .text = std::move(text)};
}

bool IsRpc(Who who) {
    return who == Who::Rpc || who == Who::Location;
}

AccountLine RpcLine(const Entry& entry, std::string text) {
    return Line(entry, entry.peer == "LocationProvider" ? Who::Location : Who::Rpc, std::move(text));
}

/// Positions come every second; that one was taken goes without saying.
std::optional<AccountLine> TellReply(const Entry& entry) {
    if (entry.subject == "updateGnssLocation" && entry.text == "responsecode=0") {
        return std::nullopt;
    }
    return RpcLine(entry, Message("<-", entry));
}

}  // namespace

const char* WhoName(Who who) {
    const auto* row = std::ranges::find(kWhos, who, &WhoRow::who);
    return row == std::end(kWhos) ? "?" : row->name;
}

std::string LedText(const LedDevice& led) {
    if (!led.lit) {
        return "dark";
    }
    const std::string first = std::to_string(Percent(led.duty1, led.period1)) + " %";
    if (!led.toggling) {
        return first + ", steady";
    }
    return first + " / " + std::to_string(Percent(led.duty2, led.period2)) + " %, every " +
           std::to_string(led.toggleMs) + " ms";
}

std::string PositionText(const PositionWords& position) {
    const std::string text =
        Decimals("position %.4f", std::abs(position.latitude)) + (std::signbit(position.latitude) ? " S" : " N") +
        Decimals(" %.4f", std::abs(position.longitude)) + (std::signbit(position.longitude) ? " W" : " E") +
        Decimals(", %.0f km/h", position.speed * kKilometresPerHour) + Decimals(", heading %.0f°", position.heading);
    if (!position.valid) {
        return text + ", not valid";
    }
    return position.valid3dFix ? text : text + ", 2D";
}

std::optional<AccountLine> Account::TellLed(const Entry& entry, const std::string& attribute) {
    const uint64_t number = std::strtoull(entry.text.c_str(), nullptr, 10);
    const std::array<std::pair<std::string_view, uint64_t*>, 5> numbers{{{"cfg1_period", &led.period1},
                                                                         {"cfg1_duty", &led.duty1},
                                                                         {"cfg2_period", &led.period2},
                                                                         {"cfg2_duty", &led.duty2},
                                                                         {"toggle_time", &led.toggleMs}}};
    for (const auto& [name, place] : numbers) {
        if (attribute == name) {
            *place = number;
        }
    }
    if (attribute == "toggle") {
        led.toggling = number != 0;
    }
    if (attribute != "enable") {
        return std::nullopt;
    }
    led.lit = number != 0;
    darkSince = led.lit ? std::nullopt : std::optional(entry.time);
    return led.lit ? std::optional(Line(entry, Who::Led, LedText(led))) : std::nullopt;
}

std::optional<AccountLine> Account::TellAntenna(const Entry& entry) {
    if (entry.subject == "/dev/vantu_gpio_num") {
        antennaLine = WithoutEnds(entry.text);
        return std::nullopt;
    }
    const auto* row = std::ranges::find_if(kAntennas, [&](const AntennaRow& a) { return a.name == antennaLine; });
    if (entry.subject != "/dev/vantu_gpio_value" || row == std::end(kAntennas)) {
        return std::nullopt;
    }
    return Line(entry, Who::Antenna, entry.text.starts_with("hi") ? row->high : row->low);
}

std::optional<AccountLine> Account::TellWrite(const Entry& entry) {
    const std::string_view path(entry.subject);
    if (entry.result < 0) {
        return Line(entry, Who::Line, "writing " + entry.subject + " failed");
    }
    if (path.starts_with(kLedDevice)) {
        return TellLed(entry, entry.subject.substr(entry.subject.rfind('/') + 1));
    }
    if (path.starts_with("/dev/vantu_gpio_")) {
        return TellAntenna(entry);
    }
    for (const LineRow& row : kLines) {
        if (path == std::string(kLineClass) + std::string(row.name) + "/value") {
            return Line(entry, row.who, OnOff(entry.text, row.high, row.low));
        }
    }
    return std::nullopt;
}

std::optional<AccountLine> Account::TellAny(const Entry& entry) {
    switch (entry.kind) {
        case Kind::Write:
            return TellWrite(entry);
        case Kind::NetIoctl:
            return Line(entry, Who::Kernel, "recovery request on " + entry.subject + ": " + entry.text);
        case Kind::Uevent:
            return Line(entry, Who::Kernel, ShortEvent(entry));
        case Kind::Trace:
            return IsTold(entry.text) ? std::optional(Line(entry, Who::Trace, WithoutEnds(entry.text))) : std::nullopt;
        case Kind::Script:
            return TellScript(entry);
        case Kind::Process:
            return Line(entry, IsOfTool(entry) ? Who::Tool : Who::Unit, entry.subject + " " + entry.text);
        case Kind::Console:  // the service's are in the trace too
        case Kind::Stderr:
            return IsOfTool(entry) && !entry.text.empty() ? std::optional(Line(entry, Who::Tool, entry.text))
                                                          : std::nullopt;
        case Kind::RpcConnect:
            return RpcLine(entry, "client " + entry.text);
        case Kind::RpcRequest:
            return RpcLine(entry, Message("->", entry));
        case Kind::RpcReply:
            return TellReply(entry);
        case Kind::RpcNotify:
            return RpcLine(entry, Notification(entry));
        case Kind::Note:
            return Line(entry, Who::Story, entry.text);
        case Kind::Open:  // each line is opened anew for each use; the use itself is what counts
        case Kind::Read:
        case Kind::I2c:
        case Kind::Syslog:
            return std::nullopt;
    }
    return std::nullopt;
}

std::vector<AccountLine> Account::Tell(const Entry& entry) {
    std::vector<AccountLine> lines = Settle(entry.time);
    std::optional<AccountLine> line = TellAny(entry);
    if (line && IsNews(*line)) {
        lines.push_back(*std::move(line));
    }
    return lines;
}

/// Lines of hardware are set again and again to what they are, and positions of a vehicle that stands are all the same;
/// only changes are told.
bool Account::IsNews(const AccountLine& line) {
    if (const size_t at = line.text.find("position "); at != std::string::npos && IsRpc(line.who)) {
        std::string& last = shown[line.text.substr(0, at)];
        return std::exchange(last, line.text) != line.text;
    }
    if (line.who != Who::Led && line.who != Who::Line && line.who != Who::Relay) {
        return true;
    }
    const std::string name = line.text.substr(0, line.text.find(' '));
    std::string& last = line.who == Who::Led ? shown["led"] : shown[name];
    return std::exchange(last, line.text) != line.text;
}

std::vector<AccountLine> Account::Settle(std::chrono::nanoseconds now) {
    if (!darkSince || now < *darkSince + kReprogramming) {
        return {};
    }
    const AccountLine line{.time = *darkSince, .who = Who::Led, .text = LedText(led)};
    darkSince.reset();
    return IsNews(line) ? std::vector{line} : std::vector<AccountLine>{};
}
