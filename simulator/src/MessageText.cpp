#include "MessageText.h"

#include <array>
#include <cstdio>
#include <span>
#include <string_view>

namespace {

/// The shortest decimal form that a reader needs of a position, a speed or a course.
std::string Decimal(double value) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.7g", value);
    return text.data();
}

template <typename T>
const T& Member(const ProtobufCMessage& message, const ProtobufCFieldDescriptor& field) {
    return *reinterpret_cast<const T*>(reinterpret_cast<const char*>(&message) + field.offset);
}

std::string EnumText(const ProtobufCEnumDescriptor& descriptor, int value) {
    return EnumValueName(descriptor, value) + "(" + std::to_string(value) + ")";
}

std::string QuotedText(const char* text) {
    return text == nullptr ? "null" : "\"" + std::string(text) + "\"";
}

std::string ValueText(const ProtobufCMessage& message, const ProtobufCFieldDescriptor& field) {
    switch (field.type) {
        case PROTOBUF_C_TYPE_BOOL:
            return Member<protobuf_c_boolean>(message, field) != 0 ? "1" : "0";
        case PROTOBUF_C_TYPE_ENUM:
            return EnumText(*static_cast<const ProtobufCEnumDescriptor*>(field.descriptor),
                            Member<int32_t>(message, field));
        case PROTOBUF_C_TYPE_INT32:
        case PROTOBUF_C_TYPE_SINT32:
        case PROTOBUF_C_TYPE_SFIXED32:
            return std::to_string(Member<int32_t>(message, field));
        case PROTOBUF_C_TYPE_UINT32:
        case PROTOBUF_C_TYPE_FIXED32:
            return std::to_string(Member<uint32_t>(message, field));
        case PROTOBUF_C_TYPE_INT64:
        case PROTOBUF_C_TYPE_SINT64:
        case PROTOBUF_C_TYPE_SFIXED64:
            return std::to_string(Member<int64_t>(message, field));
        case PROTOBUF_C_TYPE_UINT64:
        case PROTOBUF_C_TYPE_FIXED64:
            return std::to_string(Member<uint64_t>(message, field));
        case PROTOBUF_C_TYPE_FLOAT:
            return Decimal(static_cast<double>(Member<float>(message, field)));
        case PROTOBUF_C_TYPE_DOUBLE:
            return Decimal(Member<double>(message, field));
        case PROTOBUF_C_TYPE_STRING:
            return QuotedText(Member<const char*>(message, field));
        case PROTOBUF_C_TYPE_BYTES:
            return std::to_string(Member<ProtobufCBinaryData>(message, field).len) + " bytes";
        case PROTOBUF_C_TYPE_MESSAGE:
            return MessageText(Member<const ProtobufCMessage*>(message, field));
    }
    return "?";
}

/// Of the fields that share one place only the one that was chosen is there.
bool IsChosen(const ProtobufCMessage& message, const ProtobufCFieldDescriptor& field) {
    if ((field.flags & PROTOBUF_C_FIELD_FLAG_ONEOF) == 0) {
        return true;
    }
    const auto* chosen =
        reinterpret_cast<const uint32_t*>(reinterpret_cast<const char*>(&message) + field.quantifier_offset);
    return *chosen == field.id;
}

}  // namespace

std::string MessageText(const ProtobufCMessage* message) {
    if (message == nullptr) {
        return "";
    }
    std::string text;
    for (const ProtobufCFieldDescriptor& field :
         std::span(message->descriptor->fields, message->descriptor->n_fields)) {
        if (!IsChosen(*message, field)) {
            continue;
        }
        text += text.empty() ? "" : " ";
        text += field.type == PROTOBUF_C_TYPE_MESSAGE ? "" : std::string(field.name) + "=";
        text += ValueText(*message, field);
    }
    return text;
}

std::string EnumValueName(const ProtobufCEnumDescriptor& descriptor, int value) {
    const ProtobufCEnumValue* known = protobuf_c_enum_descriptor_get_value(&descriptor, value);
    if (known == nullptr) {
        return "?";
    }
    const std::string_view name(known->name);
    const std::string prefix = std::string(descriptor.short_name) + "_";
    return std::string(name.starts_with(prefix) ? name.substr(prefix.size()) : name);
}
