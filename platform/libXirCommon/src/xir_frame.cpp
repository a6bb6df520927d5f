// Bytes from outside climb the ladder of xir_common_rpc_deserialize: one step, one condition, one answer. What breaks
// the framing is told from what is merely not understood: after the first nothing that follows can be trusted.
#include "xir_frame.h"

#include <cstdlib>

namespace {

/// What unpacking one message may take. A payload of unknown two-byte fields would otherwise cost fifty times its size.
constexpr size_t kUnpackBudget = size_t{8} << 20;

constexpr size_t kUsualFrame = 256;

struct WireHeader {
    uint32_t payloadLength;
    uint16_t methodIndex;
    uint8_t kind;
    uint8_t status;
    uint32_t requestId;
};

uint32_t ReadLittleEndian(const uint8_t* bytes, size_t size) {
    uint32_t value = 0;
    for (size_t index = size; index > 0; --index) {
        value = value << 8 | bytes[index - 1];
    }
    return value;
}

void WriteLittleEndian(uint8_t* bytes, size_t size, uint32_t value) {
    for (size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<uint8_t>(value >> (8 * index));
    }
}

WireHeader ReadWireHeader(const uint8_t* bytes) {
    return {.payloadLength = ReadLittleEndian(bytes, 4),
            .methodIndex = static_cast<uint16_t>(ReadLittleEndian(bytes + 4, 2)),
            .kind = bytes[6],
            .status = bytes[7],
            .requestId = ReadLittleEndian(bytes + 8, 4)};
}

bool IsFrameOfThisWire(const WireHeader& wire) {
    if (wire.payloadLength > kXirFramePayloadLimit) {
        return false;
    }
    switch (wire.kind) {
        case XIR_COMMON_RPC_KIND_REPLY:
            return wire.status == 0 || (wire.status <= XIR_COMMON_RPC_STATUS_REFUSED && wire.payloadLength == 0);
        case XIR_COMMON_RPC_KIND_REQUEST:
            return wire.status == 0;
        case XIR_COMMON_RPC_KIND_NOTIFICATION:
            return wire.status == 0 && wire.requestId == 0;
        default:
            return false;
    }
}

void* BudgetAlloc(void* budget, size_t size) {
    auto* left = static_cast<size_t*>(budget);
    if (size > *left) {
        return nullptr;
    }
    *left -= size;
    return std::malloc(size);
}

void BudgetFree(void*, void* pointer) {
    std::free(pointer);
}

/// The message may be freed without an allocator: protobuf-c's own is malloc and free, too.
ProtobufCMessage* Unpack(const ProtobufCMessageDescriptor* descriptor, const uint8_t* bytes, size_t length) {
    size_t budget = kUnpackBudget;
    ProtobufCAllocator allocator = {BudgetAlloc, BudgetFree, &budget};
    return protobuf_c_message_unpack(descriptor, &allocator, length, bytes);
}

int32_t Serialize(const xir_common_rpc_header* header, ProtobufCBuffer* out) {
    const size_t length = header->message == nullptr ? 0 : protobuf_c_message_get_packed_size(header->message);
    if (length > kXirFramePayloadLimit) {
        return -1;
    }
    uint8_t head[kXirFrameHeaderSize];
    WriteLittleEndian(head, 4, static_cast<uint32_t>(length));
    WriteLittleEndian(head + 4, 2, header->method_index);
    head[6] = header->kind;
    head[7] = header->status;
    WriteLittleEndian(head + 8, 4, header->request_id);
    out->append(out, sizeof head, head);
    if (header->message != nullptr) {
        protobuf_c_message_pack_to_buffer(header->message, out);
    }
    return 0;
}

}  // namespace

XirFrame XirFirstFrame(const XirProtocol& protocol, std::span<const uint8_t> bytes) {
    XirFrame frame;
    if (bytes.empty()) {
        return frame;
    }
    frame.result = protocol.deserialize(protocol.service, bytes.data(), bytes.size(), &frame.header, &frame.size);
    if (frame.result == XIR_COMMON_RPC_NEED_MORE && bytes.size() < kXirFrameSizeLimit) {
        return {};
    }
    frame.message.reset(frame.header.message);
    if (frame.result == XIR_COMMON_RPC_NEED_MORE || frame.size == 0 || frame.size > bytes.size()) {
        frame.result = XIR_COMMON_RPC_BROKEN;
    }
    return frame;
}

XirFrameBuffer::XirFrameBuffer() : sink{{Append}, &bytes} {
    bytes.reserve(kUsualFrame);
}

void XirFrameBuffer::Append(ProtobufCBuffer* buffer, size_t length, const uint8_t* data) {
    std::vector<uint8_t>& bytes = *reinterpret_cast<Sink_*>(buffer)->bytes;
    bytes.insert(bytes.end(), data, data + length);
}

int32_t xir_common_rpc_client_serialize(const xir_common_rpc_header* header, ProtobufCBuffer* out) {
    return Serialize(header, out);
}

int32_t xir_common_rpc_server_serialize(const xir_common_rpc_header* header, ProtobufCBuffer* out) {
    return Serialize(header, out);
}

int32_t xir_common_rpc_deserialize(const ProtobufCServiceDescriptor* service, const uint8_t* bytes, size_t length,
                                   xir_common_rpc_header* header, size_t* consumed) {
    if (length < kXirFrameHeaderSize) {
        return XIR_COMMON_RPC_NEED_MORE;
    }
    const WireHeader wire = ReadWireHeader(bytes);
    if (!IsFrameOfThisWire(wire)) {
        return XIR_COMMON_RPC_BROKEN;
    }
    if (length - kXirFrameHeaderSize < wire.payloadLength) {
        return XIR_COMMON_RPC_NEED_MORE;
    }
    *consumed = kXirFrameHeaderSize + wire.payloadLength;
    *header = {.method_index = wire.methodIndex,
               .kind = wire.kind,
               .status = wire.status,
               .request_id = wire.requestId,
               .message = nullptr};
    if (wire.methodIndex >= service->n_methods) {
        return XIR_COMMON_RPC_UNKNOWN_METHOD;
    }
    if (wire.status != XIR_COMMON_RPC_STATUS_DELIVERED) {
        return XIR_COMMON_RPC_COMPLETE;
    }
    const ProtobufCMethodDescriptor& method = service->methods[wire.methodIndex];
    const bool isRequest = wire.kind == XIR_COMMON_RPC_KIND_REQUEST;
    header->message = Unpack(isRequest ? method.input : method.output, bytes + kXirFrameHeaderSize, wire.payloadLength);
    return header->message == nullptr ? XIR_COMMON_RPC_BAD_PAYLOAD : XIR_COMMON_RPC_COMPLETE;
}
