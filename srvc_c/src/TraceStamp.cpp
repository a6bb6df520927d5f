// The time stamps of the log. Each thread has its own texts, so that none needs a lock.
#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "Trace.h"

namespace {

using StampText = std::array<char, 32>;

struct Clock {
    time_t seconds = 0;
    long nanoseconds = 0;
};

/// The time of day now; zero when the clock cannot be read.
Clock ReadClock() {
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) == 0) {
        return {now.tv_sec, now.tv_nsec};
    }
    static thread_local bool isReporting = false;  // the report is stamped too
    if (!isReporting) {
        isReporting = true;
        EcallUITraceError("clock_gettime Error !!!");
        isReporting = false;
    }
    return {};
}

const char* Show(StampText& text, std::string_view content) {
    text[content.copy(text.data(), text.size() - 1)] = '\0';
    return text.data();
}

bool FormatLocalTime(StampText& text, time_t seconds, const char* format) {
    std::tm local{};
    return localtime_r(&seconds, &local) != nullptr && strftime(text.data(), text.size(), format, &local) != 0;
}

constexpr char kDateTimeFormat[] = "%Y:%m:%d %H:%M:%S";
constexpr char kFileNameFormat[] = "%Y%m%d_%H%M%S";

/// Month, day and time of day as ctime writes them; empty when the time has no local date.
/// Lines come in bursts, and a local time costs more than the rest of the stamp: the text of the last second is kept.
std::string_view LineSecond(time_t seconds) {
    constexpr std::size_t kStart = 4;
    constexpr std::size_t kLength = 15;
    static thread_local std::optional<time_t> shown;
    static thread_local StampText text;
    if (shown != seconds) {
        shown.reset();
        if (ctime_r(&seconds, text.data()) == nullptr) {
            return {};
        }
        shown = seconds;
    }
    return {text.data() + kStart, kLength};
}

/// The first digits of the count, without leading zeros: 5,000,000 ns read .500 and 42 ns read .42.
std::string_view Fraction(long nanoseconds, StampText& text) {
    constexpr std::size_t kLength = 4;
    text[0] = '.';
    const char* const end = std::to_chars(text.data() + 1, text.data() + text.size(), nanoseconds).ptr;
    return {text.data(), std::min(kLength, static_cast<std::size_t>(end - text.data()))};
}

}  // namespace

const char* TraceLineStamp() {
    static thread_local StampText text;
    const Clock now = ReadClock();
    const std::string_view second = LineSecond(now.seconds);
    if (second.empty()) {
        return Show(text, "--- -- --:--:--:---");
    }
    StampText digits;
    const std::string_view fraction = Fraction(now.nanoseconds, digits);
    char* const end = text.data() + second.copy(text.data(), second.size());
    end[fraction.copy(end, fraction.size())] = '\0';
    return text.data();
}

const char* CurrentDateTime() {
    static thread_local StampText text;
    return FormatLocalTime(text, ReadClock().seconds, kDateTimeFormat) ? text.data()
                                                                       : Show(text, "----:--:-- --:--:--");
}

const char* CurrentDateTimeForFileName() {
    static thread_local StampText text;
    return FormatLocalTime(text, ReadClock().seconds, kFileNameFormat) ? text.data()
                                                                       : Show(text, "----:--:--_--:--:--");
}

const char* TimeOfDay(time_t seconds) {
    constexpr std::size_t kStart = 11;
    constexpr std::size_t kLength = 8;
    static thread_local StampText text;
    StampText dateTime;
    if (seconds == 0) {
        return Show(text, "__:__:__");
    }
    if (!FormatLocalTime(dateTime, seconds, kDateTimeFormat)) {
        return Show(text, "xx:xx:xx");
    }
    return Show(text, std::string_view(dateTime.data()).substr(kStart, kLength));
}

const char* DateTime(time_t seconds) {
    static thread_local StampText text;
    if (seconds == 0) {
        return Show(text, "____:__:__ __:__:__");
    }
    return FormatLocalTime(text, seconds, kDateTimeFormat) ? text.data() : Show(text, "xxxx:xx:xx xx:xx:xx");
}

int32_t CurrentSeconds() {
    return static_cast<int32_t>(ReadClock().seconds);
}
