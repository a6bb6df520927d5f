#include "UiValues.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "Failure.h"
#include "UiFields.h"

namespace {

constexpr size_t kLongestQuote = 80;  // bytes

struct Word {
    std::string_view text;
    bool value;
};
constexpr std::array kWords{Word{"true", true},   Word{"on", true},   Word{"yes", true}, Word{"1", true},
                            Word{"false", false}, Word{"off", false}, Word{"no", false}, Word{"0", false}};

UiValue Unpack(const Relaxed<uint8_t>& field) {
    return field.get() != 0;
}

template <typename Number>
UiValue Unpack(const Relaxed<Number>& field) {
    return static_cast<int32_t>(field.get());
}

template <size_t Capacity>
UiValue Unpack(const RelaxedText<Capacity>& field) {
    return std::string(field.get().c_str());
}

template <typename T>
constexpr size_t CapacityOf(T EcallUIConfiguration::*) {
    return 0;
}

template <size_t Capacity>
constexpr size_t CapacityOf(RelaxedText<Capacity> EcallUIConfiguration::*) {
    return Capacity - 1;
}

bool IsSameWord(std::string_view one, std::string_view other) {
    return std::ranges::equal(
        one, other, [](unsigned char left, unsigned char right) { return std::tolower(left) == std::tolower(right); });
}

[[noreturn]] void Refuse(const ConfigurationField& field, const std::string& why) {
    throw Failure(kMisused, std::string(field.key) + " " + why);
}

UiValue ReadBoolean(const ConfigurationField& field, std::string_view text) {
    const auto* const word =
        std::ranges::find_if(kWords, [&](const Word& candidate) { return IsSameWord(candidate.text, text); });
    if (word == kWords.end()) {
        Refuse(field, "is a boolean: true, on, yes, 1, false, off, no or 0, not " + Quoted(text));
    }
    return word->value;
}

UiValue ReadNumber(const ConfigurationField& field, std::string_view text) {
    int32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isWhole = end == text.data() + text.size();
    if (error == std::errc::invalid_argument || !isWhole) {
        Refuse(field, "is a whole number, " + RangeText(field) + ", not " + Quoted(text));
    }
    if (error != std::errc{} || !IsInRange(field, number)) {
        Refuse(field, "may be " + RangeText(field) + ", not " + std::string(text.substr(0, kLongestQuote)));
    }
    return number;
}

/// The interface carries no other texts, and no JSON file either.
bool IsUtf8(std::string_view text) try {
    return !OrderedJson(std::string(text)).dump().empty();
} catch (const OrderedJson::type_error&) {
    return false;
}

UiValue ReadText(const ConfigurationField& field, std::string_view text) {
    if (text.size() > LongestText(field)) {
        Refuse(field, "holds at most " + std::to_string(LongestText(field)) + " bytes, not the " +
                          std::to_string(text.size()) + " of " + Quoted(text));
    }
    if (!IsUtf8(text)) {
        Refuse(field, "is a text in UTF-8, which " + Quoted(text) + " is not");
    }
    return std::string(text);
}

}  // namespace

UiValue ValueIn(const EcallUIConfiguration& configuration, const ConfigurationField& field) {
    return std::visit([&](auto member) { return Unpack(configuration.*member); }, field.member);
}

UiValue DefaultOf(const ConfigurationField& field) {
    return ValueIn(EcallUIConfiguration(), field);
}

size_t LongestText(const ConfigurationField& field) {
    return std::visit([](auto member) { return CapacityOf(member); }, field.member);
}

UiValue ReadValue(const ConfigurationField& field, std::string_view text) {
    switch (TypeOf(field)) {
        case FieldType::Boolean:
            return ReadBoolean(field, text);
        case FieldType::Number:
            return ReadNumber(field, text);
        case FieldType::Text:
            return ReadText(field, text);
    }
    return {};
}

std::string RangeText(const ConfigurationField& field) {
    if (TypeOf(field) != FieldType::Number) {
        return "";
    }
    const std::string unit = *field.range.unit == '\0' ? "" : std::string(" ") + field.range.unit;
    return std::to_string(field.range.minimum) + " to " + std::to_string(field.range.maximum) + unit;
}

bool IsInRange(const ConfigurationField& field, int32_t number) {
    return number >= field.range.minimum && number <= field.range.maximum;
}

std::string ValueText(const UiValue& value) {
    if (const auto* const boolean = std::get_if<bool>(&value)) {
        return *boolean ? "true" : "false";
    }
    if (const auto* const number = std::get_if<int32_t>(&value)) {
        return std::to_string(*number);
    }
    return Quoted(std::get<std::string>(value));
}

std::string ValueText(const ConfigurationField& field, const UiValue& value) {
    return ValueText(value) + (*field.range.unit == '\0' ? "" : std::string(" ") + field.range.unit);
}

OrderedJson ValueJson(const UiValue& value) {
    return std::visit([](const auto& one) { return OrderedJson(one); }, value);
}

bool IsBroken(const UiValue& value) {
    const auto* const text = std::get_if<std::string>(&value);
    return text != nullptr && !IsUtf8(*text);
}

void MarkBroken(OrderedJson& json, std::initializer_list<UiValue> values) {
    if (std::ranges::any_of(values, IsBroken)) {
        json["notUtf8"] = true;
    }
}

std::string JsonLine(const OrderedJson& json) {
    return json.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

std::string ChangeWarning(const ConfigurationField& field, const UiValue& value) {
    const std::string key = field.key;
    const bool isPolling = field.member == ConfigurationMember(&EcallUIConfiguration::EcallButtonPullingDetectionMode);
    if (isPolling && value == UiValue(true)) {
        return key +
               ": restart the service now. It ignores the interrupts of the eCall button from this moment on, but "
               "only a restarted service reads the button's line: until then the button is dead";
    }
    switch (field.effect) {
        case FieldEffect::Never:
        case FieldEffect::AtOnce:
            return "";
        case FieldEffect::AtNextStart:
            return key + " takes effect when the service is restarted";
        case FieldEffect::PartlyAtOnce:
            return key + " takes effect in part at once, and wholly when the service is restarted";
    }
    return "";
}

std::string WithoutControls(std::string_view text) {
    constexpr auto kFirstOfTwo = '\xc2';  // of a control character in UTF-8 when the second byte is below 0xa0
    std::string harmless;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool isPair = text[at] == kFirstOfTwo && at + 1 < text.size() &&
                            static_cast<unsigned char>(text[at + 1]) >= 0x80 &&
                            static_cast<unsigned char>(text[at + 1]) < 0xa0;
        const bool isControl = isPair || std::iscntrl(static_cast<unsigned char>(text[at])) != 0;
        harmless += isControl ? '?' : text[at];
        at += isPair ? 1 : 0;
    }
    return harmless;
}

std::string Harmless(std::string_view text) {
    size_t length = std::min(text.size(), kLongestQuote);
    while (length > 0 && length < text.size() && (static_cast<unsigned char>(text[length]) & 0xc0U) == 0x80U) {
        --length;  // not within a character
    }
    return WithoutControls(text.substr(0, length)) + (length < text.size() ? "..." : "");
}

std::string Quoted(std::string_view text) {
    return "\"" + Harmless(text) + "\"";
}
