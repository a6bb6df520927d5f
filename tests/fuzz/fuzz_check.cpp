// A configuration file that is judged holds any bytes. Whatever they are, the verdict says what the service really
// loads, and points into the file.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "ConfigFile.h"
#include "EcallUIDataConfig.h"
#include "UiValues.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return freopen("/dev/null", "w", stdout) != nullptr ? 0 : -1;  // the units log each key
}

namespace {

void Require(bool claim) {
    if (!claim) {
        abort();
    }
}

/// No line of the file is longer than the file.
void RequirePlace(std::string_view text, const LineColumn& place) {
    const auto lines = static_cast<size_t>(std::ranges::count(text, '\n')) + 1;
    Require(place.line <= lines && place.column <= text.size() + 1);
    Require((place.line == 0) == (place.column == 0));
}

/// As the service's log would show it, and as it is kept.
void RequireSame(const EcallUIConfiguration& service, const EcallUIConfiguration& judged) {
    for (const ConfigurationField& field : ConfigurationFields()) {
        Require(ValueIn(service, field) == ValueIn(judged, field));
    }
}

/// What is sensible in every field comes from a file without errors, and nothing else does.
void RequireSensible(const ConfigFileVerdict& verdict) {
    for (const ConfigurationField* field : verdict.given) {
        const UiValue value = ValueIn(verdict.loaded, *field);
        const auto* const number = std::get_if<int32_t>(&value);
        Require(verdict.HasErrors() || number == nullptr || IsInRange(*field, *number));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    const ConfigFileVerdict verdict = JudgeConfigFile(text);
    EcallUIConfiguration service;
    const bool isTaken = ReadConfigurationText(text, service);

    Require(isTaken || verdict.HasErrors());
    Require(verdict.findings.size() <= kMostFindings + 1);
    for (const Finding& finding : verdict.findings) {
        RequirePlace(text, finding.place);
    }
    RequireSame(service, verdict.loaded);
    RequireSensible(verdict);
    return 0;
}
