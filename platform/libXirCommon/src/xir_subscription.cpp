#include "xir_subscription.h"

#include <cstring>
#include <optional>
#include <string_view>

namespace {

std::optional<uint32_t> NumberField(const ProtobufCMessage* message, const char* name) {
    const ProtobufCFieldDescriptor* field = protobuf_c_message_descriptor_get_field_by_name(message->descriptor, name);
    if (field == nullptr || field->label != PROTOBUF_C_LABEL_REQUIRED || field->type != PROTOBUF_C_TYPE_UINT32) {
        return std::nullopt;
    }
    uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const char*>(message) + field->offset, sizeof value);
    return value;
}

XirSubscriptionChange ChangeOf(std::string_view methodName) {
    if (methodName == "subscribe") {
        return XirSubscriptionChange::Subscribe;
    }
    return methodName == "unsubscribe" ? XirSubscriptionChange::Unsubscribe : XirSubscriptionChange::None;
}

}  // namespace

XirSubscriptionRequest XirSubscriptionRequestOf(const ProtobufCMethodDescriptor& method,
                                                const ProtobufCMessage* request) {
    const XirSubscriptionChange change = ChangeOf(method.name);
    if (change == XirSubscriptionChange::None || request == nullptr) {
        return {};
    }
    const auto messageId = NumberField(request, "messageid");
    return messageId ? XirSubscriptionRequest{change, *messageId} : XirSubscriptionRequest{};
}

bool XirIsAcknowledged(const ProtobufCMessage* reply) {
    return reply != nullptr && NumberField(reply, "responsecode") == 0U;
}
