#include "MessageBlank.h"

#include <cstring>

namespace {

/// Offsets of the enumeration fields, at most count of them.
std::vector<size_t> EnumOffsets(const ProtobufCMessage& message, size_t count) {
    std::vector<size_t> offsets;
    for (const ProtobufCFieldDescriptor& field : std::span(message.descriptor->fields, message.descriptor->n_fields)) {
        if (field.type == PROTOBUF_C_TYPE_ENUM && offsets.size() < count) {
            offsets.push_back(field.offset);
        }
    }
    return offsets;
}

}  // namespace

ProtobufCMessage* MessageBlank::Make(const ProtobufCMessageDescriptor& descriptor) {
    std::byte* block = blocks.emplace_back(std::make_unique<std::byte[]>(descriptor.sizeof_message)).get();
    auto* made = reinterpret_cast<ProtobufCMessage*>(block);
    protobuf_c_message_init(&descriptor, made);
    for (const ProtobufCFieldDescriptor& field : std::span(descriptor.fields, descriptor.n_fields)) {
        if (field.type == PROTOBUF_C_TYPE_MESSAGE) {
            auto** nested = reinterpret_cast<ProtobufCMessage**>(block + field.offset);
            *nested = Make(*static_cast<const ProtobufCMessageDescriptor*>(field.descriptor));
        }
    }
    return made;
}

void MessageSetUnsigned(ProtobufCMessage& message, unsigned fieldNumber, uint32_t value) {
    const ProtobufCFieldDescriptor* field = protobuf_c_message_descriptor_get_field(message.descriptor, fieldNumber);
    if (field != nullptr && field->type == PROTOBUF_C_TYPE_UINT32) {
        std::memcpy(reinterpret_cast<std::byte*>(&message) + field->offset, &value, sizeof value);
    }
}

void MessageSetEnums(ProtobufCMessage& message, std::span<const uint32_t> values) {
    size_t next = 0;
    for (const size_t offset : EnumOffsets(message, values.size())) {
        std::memcpy(reinterpret_cast<std::byte*>(&message) + offset, &values[next++], sizeof(uint32_t));
    }
}

void MessageGetEnums(const ProtobufCMessage& message, std::span<uint32_t> values) {
    size_t next = 0;
    for (const size_t offset : EnumOffsets(message, values.size())) {
        std::memcpy(&values[next++], reinterpret_cast<const std::byte*>(&message) + offset, sizeof(uint32_t));
    }
}
