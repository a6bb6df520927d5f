// Any bytes as what a peer sends: frame after frame is read until one is incomplete or broken. A frame must lie inside
// the bytes, be the same whatever follows it, and be incomplete when its last byte is missing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "lib_Ecall/src/ecallapp.pb-c.h"
#include "xir_common_rpc.h"
#include "xir_frame.h"

namespace {

struct Frame {
    int32_t result = XIR_COMMON_RPC_BROKEN;
    size_t size = 0;
    XirMessage message;
};

Frame Read(const uint8_t* bytes, size_t size) {
    Frame frame;
    xir_common_rpc_header header{};
    frame.result =
        xir_common_rpc_deserialize(&com__vantu__ecallapp__iecall_app__descriptor, bytes, size, &header, &frame.size);
    frame.message.reset(header.message);
    return frame;
}

bool IsWhole(const Frame& frame) {
    return frame.result != XIR_COMMON_RPC_NEED_MORE && frame.result != XIR_COMMON_RPC_BROKEN;
}

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    for (;;) {
        const Frame frame = Read(bytes, size);
        if (!IsWhole(frame)) {
            return 0;
        }
        Require(frame.size >= kXirFrameHeaderSize && frame.size <= size && frame.size <= kXirFrameSizeLimit);
        Require((frame.message != nullptr) <= (frame.result == XIR_COMMON_RPC_COMPLETE));
        const Frame alone = Read(bytes, frame.size);
        Require(alone.result == frame.result && alone.size == frame.size);
        Require(Read(bytes, frame.size - 1).result == XIR_COMMON_RPC_NEED_MORE);
        bytes += frame.size;
        size -= frame.size;
    }
}
