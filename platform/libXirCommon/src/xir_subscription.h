/// What the library understands of a service by itself: its methods "subscribe" and "unsubscribe", recognised by their
/// names, the field "messageid" of their request and "responsecode" of their reply.
#ifndef XIR_SUBSCRIPTION_H
#define XIR_SUBSCRIPTION_H

#include <protobuf-c/protobuf-c.h>

#include <cstdint>

enum class XirSubscriptionChange { None, Subscribe, Unsubscribe };

/// A request that changes a subscription.
struct XirSubscriptionRequest {
    XirSubscriptionChange change = XirSubscriptionChange::None;
    uint32_t messageId = 0;
};

/// Empty when the message is none, or lacks the field.
XirSubscriptionRequest XirSubscriptionRequestOf(const ProtobufCMethodDescriptor& method,
                                                const ProtobufCMessage* request);
/// Whether a reply to such a request carries responsecode 0.
bool XirIsAcknowledged(const ProtobufCMessage* reply);

#endif
