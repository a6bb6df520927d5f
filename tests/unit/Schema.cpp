#include "Schema.h"

namespace {

std::string Presence(const ProtobufCFieldDescriptor& field) {
    if ((field.flags & PROTOBUF_C_FIELD_FLAG_ONEOF) != 0) {
        return " in a oneof";
    }
    return field.label == PROTOBUF_C_LABEL_REQUIRED ? "" : " not required";
}

}  // namespace

Schema::Schema(const ProtobufCServiceDescriptor& service) : package(std::string(service.package) + ".") {
    for (unsigned index = 0; index < service.n_methods; ++index) {
        const ProtobufCMethodDescriptor& method = service.methods[index];
        Add(*method.input);
        Add(*method.output);
        methods.push_back({method.name, Short(method.input->name), Short(method.output->name)});
    }
}

void Schema::Add(const ProtobufCEnumDescriptor& type) {
    enums[Short(type.name)] = Describe(type);
}

void Schema::Add(const ProtobufCMessageDescriptor& type) {
    std::string text;
    for (unsigned index = 0; index < type.n_fields; ++index) {
        const ProtobufCFieldDescriptor& field = type.fields[index];
        text += (text.empty() ? "" : ", ") + std::to_string(field.id) + " " + field.name + " " + TypeOf(field);
        text += Presence(field);
    }
    messages[Short(type.name)] = text;
}

std::string Schema::Short(const std::string& name) const {
    return name.starts_with(package) ? name.substr(package.size()) : name;
}

std::string Schema::Describe(const ProtobufCEnumDescriptor& type) const {
    const std::string prefix = Short(type.name) + "_";
    std::string text;
    for (unsigned index = 0; index < type.n_values; ++index) {
        const std::string name = type.values[index].name;
        text += (text.empty() ? "" : ", ") + (name.starts_with(prefix) ? name.substr(prefix.size()) : "?" + name) +
                " " + std::to_string(type.values[index].value);
    }
    return text;
}

std::string Schema::TypeOf(const ProtobufCFieldDescriptor& field) {
    static const std::map<ProtobufCType, std::string> kPlain = {
        {PROTOBUF_C_TYPE_BOOL, "bool"},     {PROTOBUF_C_TYPE_INT32, "int32"},   {PROTOBUF_C_TYPE_UINT32, "uint32"},
        {PROTOBUF_C_TYPE_UINT64, "uint64"}, {PROTOBUF_C_TYPE_FLOAT, "float"},   {PROTOBUF_C_TYPE_DOUBLE, "double"},
        {PROTOBUF_C_TYPE_STRING, "string"}, {PROTOBUF_C_TYPE_SINT32, "sint32"}, {PROTOBUF_C_TYPE_BYTES, "bytes"}};
    if (field.type == PROTOBUF_C_TYPE_ENUM) {
        const auto& type = *static_cast<const ProtobufCEnumDescriptor*>(field.descriptor);
        Add(type);
        return Short(type.name);
    }
    if (field.type == PROTOBUF_C_TYPE_MESSAGE) {
        const auto& type = *static_cast<const ProtobufCMessageDescriptor*>(field.descriptor);
        Add(type);
        return Short(type.name);
    }
    const auto plain = kPlain.find(field.type);
    return plain == kPlain.end() ? "another type" : plain->second;
}

SchemaRows WithBaseMessages(SchemaRows messages) {
    messages.merge(SchemaRows{
        {"com.vantu.ms.protobuf.VoidResponse", "1 responsecode uint32"},
        {"com.vantu.ms.protobuf.SubscribeRequest", "1 messageid uint32, 2 clientName string"},
        {"com.vantu.ms.protobuf.GetRemoteVersionRequest", ""},
        {"com.vantu.ms.protobuf.GetRemoteVersionResponse",
         "1 responsecode uint32, 2 major uint32, 3 minor uint32, 4 name string"},
    });
    return messages;
}
