/// The configuration file as bytes: where it lies, which bytes are one, and what a member of it means for a field.
/// The service loads by this, and the tools judge a file by the very same.
#ifndef ECALL_UI_DATA_JSON_H
#define ECALL_UI_DATA_JSON_H

#include <cjson/cJSON.h>

#include <cstddef>
#include <memory>
#include <string_view>

#include "EcallUIDataFields.h"

constexpr char kConfigurationPath[] = "/data/etc/ecall/XirEcallUIappSrvc_Cfg.json";
constexpr std::size_t kLongestConfiguration = std::size_t{1} << 20;  // bytes; ours has some 1,300

struct CjsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
    void operator()(char* text) const { cJSON_free(text); }
};
using Json = std::unique_ptr<cJSON, CjsonDeleter>;
using JsonText = std::unique_ptr<char, CjsonDeleter>;

/// Null when text is not JSON from its first byte to its last, or memory is short. end: where the parser stopped, an
/// offset in text; about the first byte that it could not take, when there is one.
Json ParseConfiguration(std::string_view text, std::size_t& end);

/// Takes the member's value over into the field; false, and the field stays, when the member cannot stand for it.
/// Where the types differ, the member's integer value counts, which is 0 for a text, null, an array or an object.
bool ReadConfigurationMember(const cJSON& member, const ConfigurationMember& field,
                             EcallUIConfiguration& configuration);

#endif
