/// The table of the configuration's fields, and the configuration as JSON text. InitConfiguration and SaveConfiguration
/// are declared in EcallUIData.h.
#ifndef ECALL_UI_DATA_CONFIG_H
#define ECALL_UI_DATA_CONFIG_H

#include <span>
#include <string_view>
#include <variant>

#include "EcallUIData.h"

/// Where a field lies, which also says what it is: a boolean, a number of 16 or 32 bits, or a text.
using ConfigurationMember =
    std::variant<Relaxed<uint8_t> EcallUIConfiguration::*, Relaxed<uint16_t> EcallUIConfiguration::*,
                 Relaxed<int32_t> EcallUIConfiguration::*, RelaxedText<32> EcallUIConfiguration::*,
                 RelaxedText<64> EcallUIConfiguration::*>;

struct ConfigurationField {
    const char* key;  ///< in the file, and in the print-out
    ConfigurationMember member;
    const char* loadLabel;  ///< in the log of a load; not always the key
};

/// Every field of the file, in the file's order.
std::span<const ConfigurationField> ConfigurationFields();

/// Takes over each field that the JSON object in text names, and logs it. Names match without regard to case, the first
/// one wins; what is no field is passed over. Answers false, and leaves the configuration alone, when text is not JSON
/// from its first byte to its last.
bool ReadConfigurationText(std::string_view text, EcallUIConfiguration& configuration);

#endif
