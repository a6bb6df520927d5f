/// The frame of the wire: a header of 12 bytes, little-endian, then the packed message.
///
/// | offset | size | field                                                        |
/// |      0 |    4 | payload length in bytes, at most kXirFramePayloadLimit       |
/// |      4 |    2 | method index                                                 |
/// |      6 |    1 | kind: 0 reply, 1 request, 2 notification                     |
/// |      7 |    1 | status of a reply, 0 in other kinds; not 0: no payload       |
/// |      8 |    4 | request id, 0 in a notification                              |
#ifndef XIR_FRAME_H
#define XIR_FRAME_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "xir_common_rpc.h"

constexpr size_t kXirFrameHeaderSize = 12;
constexpr size_t kXirFramePayloadLimit = size_t{1} << 20;
constexpr size_t kXirFrameSizeLimit = kXirFrameHeaderSize + kXirFramePayloadLimit;

/// The framing of a client or server: the hooks installed on it, and the service they speak of.
struct XirProtocol {
    const ProtobufCServiceDescriptor* service = nullptr;
    xir_common_rpc_serialize_fn serialize = nullptr;
    xir_common_rpc_deserialize_fn deserialize = nullptr;
};

struct XirFreeMessage {
    void operator()(ProtobufCMessage* message) const { protobuf_c_message_free_unpacked(message, nullptr); }
};
/// An unpacked message.
using XirMessage = std::unique_ptr<ProtobufCMessage, XirFreeMessage>;

/// The first frame of some received bytes.
struct XirFrame {
    /// Of the deserialiser: NEED_MORE while the frame is not whole; BROKEN also for an answer that cannot be, as a
    /// deserialiser that was replaced might give it.
    int32_t result = XIR_COMMON_RPC_NEED_MORE;
    size_t size = 0;  ///< in bytes, of a whole frame
    xir_common_rpc_header header = {};
    XirMessage message;  ///< header.message
};
XirFrame XirFirstFrame(const XirProtocol& protocol, std::span<const uint8_t> bytes);

/// Collects what a serialiser appends.
class XirFrameBuffer {
  public:
    XirFrameBuffer();
    XirFrameBuffer(const XirFrameBuffer&) = delete;
    XirFrameBuffer& operator=(const XirFrameBuffer&) = delete;

    ProtobufCBuffer* Sink() { return &sink.base; }
    std::span<const uint8_t> Bytes() const { return bytes; }

  private:
    struct Sink_ {
        ProtobufCBuffer base;
        std::vector<uint8_t>* bytes;
    };
    static void Append(ProtobufCBuffer* buffer, size_t length, const uint8_t* data);

    std::vector<uint8_t> bytes;
    Sink_ sink;
};

#endif
