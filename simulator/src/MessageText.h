/// What a protobuf message says, as one line of text for journals.
#ifndef MESSAGE_TEXT_H
#define MESSAGE_TEXT_H

#include <protobuf-c/protobuf-c.h>

#include <string>

/// "name=value name=value" in field order, nested messages without their own name, texts in quotes. An enumeration
/// shows as "serviceState=Available_Idle(3)", or "serviceState=?(50)" for a value that it does not have. Null: empty.
/// Of alternatives, the one that was chosen. Knows singular fields only, which is all that the services' messages have.
std::string MessageText(const ProtobufCMessage* message);

/// The name of an enumeration's value without the enumeration's own name: "Available_Idle"; "?" when it has none.
std::string EnumValueName(const ProtobufCEnumDescriptor& descriptor, int value);

#endif
