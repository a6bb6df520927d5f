/// The fields of the service's table as people name them: by key, by number, or by the interface's own name.
#ifndef UI_FIELDS_H
#define UI_FIELDS_H

#include <string>
#include <string_view>
#include <vector>

#include "EcallUIDataFields.h"

enum class FieldType { Boolean, Number, Text };

FieldType TypeOf(const ConfigurationField& field);
/// "boolean", "number" or "text".
const char* TypeName(FieldType type);
/// What the interface calls the field ("TEcallUICfgParamName_LED_PWM_PERIOD_MS"); empty for one in the file only.
std::string InterfaceName(const ConfigurationField& field);
/// Whether a change takes a restart of the service to be felt: "no", "yes", "partly", or "never" for what is
/// information only. What is in the file only is read at start-up.
const char* RestartText(const ConfigurationField& field);

/// By key, interface name (its prefix may be left out), in any case, or by number. Null for what is none of them.
const ConfigurationField* FindField(std::string_view name);
/// Throws Failure (kMisused) with what may have been meant.
const ConfigurationField& FieldNamed(std::string_view name);
/// The same, and refuses the fields that are in the file only.
const ConfigurationField& ParameterNamed(std::string_view name);
/// ", did you mean NAME or NAME", or empty when nothing is near.
std::string DidYouMean(std::string_view name);

/// The fields that remote clients can read and change, in the order of their numbers.
std::vector<const ConfigurationField*> Parameters();

/// How many characters to insert, delete, replace or swap with their neighbour make one text of the other.
size_t EditDistance(std::string_view one, std::string_view other);

#endif
