/// The configuration as JSON text. InitConfiguration and SaveConfiguration are declared in EcallUIData.h.
#ifndef ECALL_UI_DATA_CONFIG_H
#define ECALL_UI_DATA_CONFIG_H

#include <string_view>

#include "EcallUIData.h"

/// Takes over each field that the JSON object in text names, and logs it. Names match without regard to case, the first
/// one wins; what is no field is passed over. Answers false, and leaves the configuration alone, when text is not JSON
/// from its first byte to its last.
bool ReadConfigurationText(std::string_view text, EcallUIConfiguration& configuration);

#endif
