// There is no list of names here: keys come from the service's table, interface names from the schema.
#include "UiFields.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <utility>

#include "EcallUIDataJson.h"
#include "Failure.h"
#include "UiValues.h"
#include "lib_c/src-gen/CommonTypes.pb-c.h"

namespace {

constexpr std::string_view kPrefix = "tecalluicfgparamname_";
constexpr size_t kMostSuggestions = 3;
constexpr size_t kLongestName = 100;  // of a name that may be a slip of the pen

const ProtobufCEnumDescriptor& kNames = com__vantu__ecalluiapp__tecall_uicfg_param_name__descriptor;

struct TypeOfMember {
    FieldType operator()(Relaxed<uint8_t> EcallUIConfiguration::*) const { return FieldType::Boolean; }
    FieldType operator()(Relaxed<uint16_t> EcallUIConfiguration::*) const { return FieldType::Number; }
    FieldType operator()(Relaxed<int32_t> EcallUIConfiguration::*) const { return FieldType::Number; }
    FieldType operator()(RelaxedText<32> EcallUIConfiguration::*) const { return FieldType::Text; }
    FieldType operator()(RelaxedText<64> EcallUIConfiguration::*) const { return FieldType::Text; }
};

std::string LowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return lower;
}

std::string WithoutPrefix(const std::string& lower) {
    return lower.starts_with(kPrefix) ? lower.substr(kPrefix.size()) : lower;
}

std::optional<int32_t> WholeNumber(std::string_view text) {
    int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// How far the name is from the field, by whichever of its names is nearer.
size_t DistanceTo(const ConfigurationField& field, const std::string& lower) {
    const std::string interfaceName = WithoutPrefix(LowerCase(InterfaceName(field)));
    return std::min(EditDistance(lower, LowerCase(field.key)), EditDistance(WithoutPrefix(lower), interfaceName));
}

bool IsPartOf(const ConfigurationField& field, const std::string& lower) {
    return lower.size() > 2 && (LowerCase(field.key).find(lower) != std::string::npos ||
                                LowerCase(InterfaceName(field)).find(lower) != std::string::npos);
}

/// Those nearest to the name, as long as no more than a third of it is wrong; otherwise those that it is a part of.
std::vector<const ConfigurationField*> Nearest(const std::string& lower) {
    std::vector<const ConfigurationField*> nearest;
    std::vector<const ConfigurationField*> containing;
    size_t best = std::max<size_t>(2, lower.size() / 3);
    for (const ConfigurationField& field : ConfigurationFields()) {
        const size_t distance = DistanceTo(field, lower);
        if (distance < best) {
            nearest.clear();
            best = distance;
        }
        if (distance == best) {
            nearest.push_back(&field);
        }
        if (IsPartOf(field, lower)) {
            containing.push_back(&field);
        }
    }
    return nearest.empty() ? containing : nearest;
}

}  // namespace

FieldType TypeOf(const ConfigurationField& field) {
    return std::visit(TypeOfMember{}, field.member);
}

const char* TypeName(FieldType type) {
    switch (type) {
        case FieldType::Boolean:
            return "boolean";
        case FieldType::Number:
            return "number";
        case FieldType::Text:
            return "text";
    }
    return "";
}

std::string InterfaceName(const ConfigurationField& field) {
    const ProtobufCEnumValue* value = protobuf_c_enum_descriptor_get_value(&kNames, field.number);
    return field.number == kNoFieldNumber || value == nullptr ? "" : value->name;
}

const char* RestartText(const ConfigurationField& field) {
    switch (field.effect) {
        case FieldEffect::Never:
            return "never";
        case FieldEffect::AtOnce:
            return field.number == kNoFieldNumber ? "yes" : "no";
        case FieldEffect::AtNextStart:
            return "yes";
        case FieldEffect::PartlyAtOnce:
            return "partly";
    }
    return "";
}

const ConfigurationField* FindField(std::string_view name) {
    if (const auto number = WholeNumber(name)) {
        return FindConfigurationField(*number);
    }
    const std::string lower = LowerCase(name);
    const auto fields = ConfigurationFields();
    const auto found = std::ranges::find_if(fields, [&](const ConfigurationField& field) {
        const std::string interfaceName = WithoutPrefix(LowerCase(InterfaceName(field)));
        return lower == LowerCase(field.key) || (!interfaceName.empty() && WithoutPrefix(lower) == interfaceName);
    });
    return found == fields.end() ? nullptr : &*found;
}

const ConfigurationField& FieldNamed(std::string_view name) {
    const ConfigurationField* const field = FindField(name);
    if (field == nullptr && WholeNumber(name)) {
        throw Failure(kMisused, "no parameter has the number " + Harmless(name) + "; \"list\" shows them");
    }
    if (field == nullptr) {
        throw Failure(kMisused,
                      "no parameter is called " + Quoted(name) + DidYouMean(name) + "; \"list\" shows them all");
    }
    return *field;
}

const ConfigurationField& ParameterNamed(std::string_view name) {
    const ConfigurationField& field = FieldNamed(name);
    if (field.number == kNoFieldNumber) {
        throw Failure(kMisused, std::string(field.key) + " cannot be reached over the interface: it is in the file " +
                                    kConfigurationPath + " only; stop the service, edit it there, and start it again");
    }
    return field;
}

std::string DidYouMean(std::string_view name) {
    if (name.size() > kLongestName) {
        return "";
    }
    const auto nearest = Nearest(LowerCase(name));
    if (nearest.empty() || nearest.size() > kMostSuggestions) {
        return "";
    }
    std::string text = ", did you mean ";
    for (const ConfigurationField* field : nearest) {
        text += std::string(field == nearest.front() ? "" : " or ") + field->key;
    }
    return text;
}

std::vector<const ConfigurationField*> Parameters() {
    std::vector<const ConfigurationField*> parameters;
    for (const ConfigurationField& field : ConfigurationFields()) {
        if (field.number != kNoFieldNumber) {
            parameters.push_back(&field);
        }
    }
    std::ranges::sort(parameters, {}, &ConfigurationField::number);
    return parameters;
}

size_t EditDistance(std::string_view one, std::string_view other) {
    std::vector<size_t> before;
    std::vector<size_t> last(other.size() + 1);
    for (size_t j = 0; j <= other.size(); ++j) {
        last[j] = j;
    }
    for (size_t i = 1; i <= one.size(); ++i) {
        std::vector<size_t> row(other.size() + 1, i);
        for (size_t j = 1; j <= other.size(); ++j) {
            const size_t replaced = last[j - 1] + (one[i - 1] == other[j - 1] ? 0 : 1);
            row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
            const bool isSwap = i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1];
            row[j] = isSwap ? std::min(row[j], before[j - 2] + 1) : row[j];
        }
        before = std::exchange(last, std::move(row));
    }
    return last.back();
}
