// The trap is the bytes: they come from outside and may be anything, so the parser gets a length and no terminator to
// rely on.
#include "EcallUIDataJson.h"

#include <algorithm>

namespace {

template <typename Number>
bool ReadMember(const cJSON& member, Relaxed<Number>& field) {
    field = static_cast<Number>(member.valueint);
    return true;
}

template <std::size_t Capacity>
bool ReadMember(const cJSON& member, RelaxedText<Capacity>& field) {
    if (!cJSON_IsString(&member)) {
        return false;
    }
    field.set(member.valuestring);
    return true;
}

}  // namespace

/// The parser alone would take a NUL for white space.
Json ParseConfiguration(std::string_view text, std::size_t& end) {
    end = text.find('\0');
    if (end != std::string_view::npos) {
        return nullptr;
    }
    const char* stop = text.data();
    Json json(cJSON_ParseWithLengthOpts(text.data(), text.size(), &stop, false));
    end = stop == nullptr ? 0 : static_cast<std::size_t>(stop - text.data());
    if (!json) {
        return nullptr;
    }
    end = std::min(text.find_first_not_of(" \t\r\n", end), text.size());
    return end == text.size() ? std::move(json) : nullptr;
}

bool ReadConfigurationMember(const cJSON& member, const ConfigurationMember& field,
                             EcallUIConfiguration& configuration) {
    return std::visit([&](auto place) { return ReadMember(member, configuration.*place); }, field);
}
