/// Values of fields: as people write them, as the interface carries them, and whether they make sense.
#ifndef UI_VALUES_H
#define UI_VALUES_H

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "EcallUIDataFields.h"

/// The alternative is that of the field's type.
using UiValue = std::variant<bool, int32_t, std::string>;
using OrderedJson = nlohmann::ordered_json;

/// The value that the field has in a configuration; a boolean is true for any byte but 0.
UiValue ValueIn(const EcallUIConfiguration& configuration, const ConfigurationField& field);
UiValue DefaultOf(const ConfigurationField& field);
/// The longest text that the field holds, in bytes; 0 for a field that is no text.
size_t LongestText(const ConfigurationField& field);

/// Reads a value for the field: true, on, yes, 1 and their opposites in any case; a whole number; any text.
/// Throws Failure (kMisused) when it is none, out of range or too long.
UiValue ReadValue(const ConfigurationField& field, std::string_view text);
/// "0 to 100 %"; empty for a field without a range.
std::string RangeText(const ConfigurationField& field);
bool IsInRange(const ConfigurationField& field, int32_t number);

/// As people read it: "on" is "true", a text stands in quotes.
std::string ValueText(const UiValue& value);
/// The same with the field's unit.
std::string ValueText(const ConfigurationField& field, const UiValue& value);
OrderedJson ValueJson(const UiValue& value);
/// Whether the value is a text that is no UTF-8, which JSON cannot carry: the service cuts texts within a character.
bool IsBroken(const UiValue& value);
/// Says in the object that what it shows of one of the values is not what the service holds: "notUtf8": true.
void MarkBroken(OrderedJson& json, std::initializer_list<UiValue> values);
/// One line, whatever bytes the texts in it have.
std::string JsonLine(const OrderedJson& json);

/// What to know of a change of the field to this value; empty when it is felt at once.
std::string ChangeWarning(const ConfigurationField& field, const UiValue& value);

/// The text with nothing in it that a terminal would obey.
std::string WithoutControls(std::string_view text);
/// The same, shortened; and that in quotes.
std::string Harmless(std::string_view text);
std::string Quoted(std::string_view text);

#endif
