#include "XirRpcThread.h"

#include <csignal>
#include <cstdlib>

namespace {

constexpr unsigned kSliceMs = 200;

void* Allocate(void* /*data*/, size_t size) {
    return std::malloc(size);
}

void Free(void* /*data*/, void* block) {
    std::free(block);
}

void EndSlice(ProtobufCRPCDispatch* /*dispatch*/, void* data) {
    *static_cast<ProtobufCRPCDispatchTimer**>(data) = nullptr;
}

}  // namespace

ProtobufCRPCDispatch* XirRpcPrepareDispatch() {
    static ProtobufCAllocator allocator{Allocate, Free, nullptr};
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    return protobuf_c_rpc_dispatch_new(&allocator);
}

void XirRpcDispatchSlice(ProtobufCRPCDispatch* dispatch, ProtobufCRPCDispatchTimer*& timer) {
    timer = protobuf_c_rpc_dispatch_add_timer_millis(dispatch, kSliceMs, EndSlice, &timer);
    do {
        protobuf_c_rpc_dispatch_run(dispatch);
    } while (timer != nullptr);
}

void XirRpcDropTimer(ProtobufCRPCDispatchTimer*& timer) {
    if (timer != nullptr) {
        protobuf_c_rpc_dispatch_remove_timer(timer);
        timer = nullptr;
    }
}

uint8_t XirRpcIsDispatchThread(xir_common_osal_thread_handle handle) {
    return static_cast<uint8_t>(xir_common_osal_is_same_thread(handle));
}
