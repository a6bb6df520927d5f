/// A service's interface as its descriptors have it, in texts that a test can compare with tables written by hand.
/// Names of the service's own package are shown without it.
#ifndef SCHEMA_H
#define SCHEMA_H

#include <protobuf-c/protobuf-c.h>

#include <array>
#include <map>
#include <string>
#include <vector>

/// What is called so: "A 0, B 1" for an enumeration, without the prefix that each name has to have; "1 field type, ..."
/// for a message.
using SchemaRows = std::map<std::string, std::string>;
/// Name, input and output.
using SchemaMethod = std::array<std::string, 3>;

/// What can be reached from a service's methods.
class Schema {
  public:
    explicit Schema(const ProtobufCServiceDescriptor& service);
    /// Also what can be reached from no method.
    void Add(const ProtobufCEnumDescriptor& type);
    void Add(const ProtobufCMessageDescriptor& type);

    SchemaRows enums;
    SchemaRows messages;
    std::vector<SchemaMethod> methods;  ///< in the order of their indices

  private:
    std::string Short(const std::string& name) const;
    std::string Describe(const ProtobufCEnumDescriptor& type) const;
    std::string TypeOf(const ProtobufCFieldDescriptor& field);

    std::string package;
};

/// The rows of a service's own messages with those of the messages that all services share.
SchemaRows WithBaseMessages(SchemaRows messages);

#endif
