/// A protobuf message with every nested message in place, to be filled in.
#ifndef MESSAGE_BLANK_H
#define MESSAGE_BLANK_H

#include <protobuf-c/protobuf-c.h>

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

/// Owns the message and its nested messages, not the texts: those are borrowed until the message is packed.
class MessageBlank {
  public:
    explicit MessageBlank(const ProtobufCMessageDescriptor& descriptor) : message(Make(descriptor)) {}

    ProtobufCMessage& Get() { return *message; }
    const ProtobufCMessage& Get() const { return *message; }

    /// T: the generated record of the descriptor that the blank was made from.
    template <typename T>
    T& As() {
        return *reinterpret_cast<T*>(message);
    }

  private:
    ProtobufCMessage* Make(const ProtobufCMessageDescriptor& descriptor);

    std::vector<std::unique_ptr<std::byte[]>> blocks;
    ProtobufCMessage* message;
};

/// Writes the field of that number, an unsigned integer, if the message has it.
void MessageSetUnsigned(ProtobufCMessage& message, unsigned fieldNumber, uint32_t value);

/// The message's enumeration fields in field order, as unsigned numbers. Values outside the enumeration pass unchanged,
/// which a C++ enumeration variable would not promise. As many as both the message and the span have.
void MessageSetEnums(ProtobufCMessage& message, std::span<const uint32_t> values);
void MessageGetEnums(const ProtobufCMessage& message, std::span<uint32_t> values);

#endif
