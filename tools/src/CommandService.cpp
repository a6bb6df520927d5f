// The service itself: its version, and the test of its analog microphone.
#include <unistd.h>

#include <array>
#include <charconv>

#include "Commands.h"

namespace {

/// In decimals, as few as tell the value from every other one of its precision.
std::string DecimalText(float value) {
    std::array<char, 64> text{};  // the longest has 47
    const auto [end, error] = std::to_chars(text.begin(), text.end(), value, std::chars_format::fixed);
    return {text.begin(), end};
}

}  // namespace

ExitStatus CommandVersion(const Options& options, Output& output) {
    UiClient client(options.url, LimitsOf(options));
    client.Connect();
    const std::string version = client.Version();
    const UiInterfaceVersion interface = client.InterfaceVersion();
    const std::string number = std::to_string(interface.major) + "." + std::to_string(interface.minor);
    if (options.json) {
        output.Document({{"service", version}, {"interface", {{"name", interface.name}, {"version", number}}}});
    } else {
        output.Line("service    " + Quoted(version));
        output.Line("interface  " + interface.name + " " + number);
    }
    return kDone;
}

ExitStatus CommandMicTest(const Options& options, Output& output) {
    const UiLimits limits = LimitsOf(options);
    if (limits.micTest > kLongestReply) {
        throw Failure(
            kMisused,
            "mic-test can wait for 30 s at most, because its reply is given up then: give a shorter --timeout");
    }
    UiClient client(options.url, limits);
    client.Connect();
    if (isatty(STDERR_FILENO) == 1) {
        Complain("the service runs its script, for up to 30 s; it answers nobody else meanwhile");
    }
    const std::string value = DecimalText(client.MicTest());
    if (options.json) {
        output.Document({{"value", std::stod(value)}});  // a double of the same decimals
    } else {
        output.Line(value);
    }
    return kDone;
}
