/// The table of the configuration's fields: what the file calls them, what remote clients call them, what they mean.
/// Loading, saving, printing, access by number, the tools and the documentation all walk it.
#ifndef ECALL_UI_DATA_FIELDS_H
#define ECALL_UI_DATA_FIELDS_H

#include <cstdint>
#include <span>
#include <variant>

#include "EcallUIData.h"

/// Where a field lies, which also says what it is: a boolean, a number of 16 or 32 bits, or a text.
using ConfigurationMember =
    std::variant<Relaxed<uint8_t> EcallUIConfiguration::*, Relaxed<uint16_t> EcallUIConfiguration::*,
                 Relaxed<int32_t> EcallUIConfiguration::*, RelaxedText<32> EcallUIConfiguration::*,
                 RelaxedText<64> EcallUIConfiguration::*>;

/// When a change of a field is felt.
enum class FieldEffect {
    Never,         ///< information only
    AtOnce,        ///< when its user reads it next
    AtNextStart,   ///< read at start-up only
    PartlyAtOnce,  ///< by some of its users at once, by the others at the next start
};

/// What a set by number stores. A load stores what the file says.
enum class FieldStore {
    AsGiven,
    Low16Bits,  ///< of the number, as an unsigned one: 70000 gives 4464
};

/// What a number counts, and its sensible values. The service itself takes any.
struct FieldRange {
    const char* unit;  ///< empty: none
    int32_t minimum;
    int32_t maximum;
};

constexpr int32_t kNoFieldNumber = -1;

struct ConfigurationField {
    const char* key;  ///< in the file, and in the print-out
    ConfigurationMember member;
    const char* loadLabel;  ///< in the log of a load; not always the key
    int32_t number;         ///< of the parameter for remote clients; kNoFieldNumber: in the file only
    FieldEffect effect;
    FieldRange range;     ///< of a number; otherwise empty
    const char* meaning;  ///< one sentence without its full stop
    FieldStore store = FieldStore::AsGiven;
};

/// Every field of the file, in the file's order.
std::span<const ConfigurationField> ConfigurationFields();
/// Null for a number that no field has.
const ConfigurationField* FindConfigurationField(int32_t number);

#endif
