// The service itself: its version, and the test of its analog microphone.
#include <unistd.h>

#include <cmath>

#include "Commands.h"

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
    const float value = client.MicTest();
    if (options.json) {
        output.Document({{"value", value}});
    } else {
        std::string text(32, '\0');
        text.resize(static_cast<size_t>(std::snprintf(text.data(), text.size(), "%g", static_cast<double>(value))));
        output.Line(text);
    }
    return kDone;
}
