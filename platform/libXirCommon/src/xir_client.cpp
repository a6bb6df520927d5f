// Making, configuring and ending a client, and the C face of it.
#include "xir_client.h"

#include <new>

namespace {

void InvokeFacade(ProtobufCService* service, unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure,
                  void* closureData) {
    reinterpret_cast<xir_common_rpc_client*>(service)->client->Invoke(method, request, closure, closureData);
}

void DestroyFacade(ProtobufCService* service) {
    reinterpret_cast<xir_common_rpc_client*>(service)->client->End();
}

}  // namespace

xir_common_rpc_client* XirClient::Make(const XirAddress& address, const ProtobufCServiceDescriptor* descriptor,
                                       ProtobufCRPCDispatch* dispatch, void* context) try {
    auto client = std::make_shared<XirClient>(address, descriptor, dispatch, context);
    if (!client->wake) {
        return nullptr;
    }
    client->keepAlive = client;
    protobuf_c_rpc_dispatch_watch_fd(
        dispatch, client->wake.Fd(), PROTOBUF_C_RPC_EVENT_READABLE,
        [](ProtobufC_RPC_FD, unsigned, void* self) { static_cast<XirClient*>(self)->OnWake(); }, client.get());
    client->ConnectIn(std::chrono::milliseconds{0});
    return &client->facade;
} catch (const std::bad_alloc&) {
    return nullptr;
}

XirClient::XirClient(const XirAddress& itsAddress, const ProtobufCServiceDescriptor* descriptor,
                     ProtobufCRPCDispatch* itsDispatch, void* context)
    : protocol{descriptor, xir_common_rpc_client_serialize, xir_common_rpc_deserialize},
      address(itsAddress),
      dispatch(itsDispatch) {
    hooks.context = context;
    facade = {.service = {descriptor, InvokeFacade, DestroyFacade}, .client = this};
}

void XirClient::ConfigureThreading(xir_common_rpc_is_dispatch_thread_fn test, xir_common_osal_thread_handle thread) {
    hooks.isDispatchThread = test;
    hooks.thread = thread;
    if (seat != nullptr) {
        seat->Detach(this);
    }
    seat = XirSeatOf(thread);
    if (seat != nullptr) {
        seat->Attach(shared_from_this());
    }
}

void XirClient::End() {
    const auto self = shared_from_this();
    if (seat != nullptr) {
        seat->Detach(this);
    }
    UnwatchStream();
    if (connecting) {
        protobuf_c_rpc_dispatch_watch_fd(dispatch, connecting.Get(), 0, nullptr, nullptr);
    }
    protobuf_c_rpc_dispatch_watch_fd(dispatch, wake.Fd(), 0, nullptr, nullptr);
    protobuf_c_rpc_dispatch_remove_timer(std::exchange(retryTimer, nullptr));
    protobuf_c_rpc_dispatch_remove_timer(std::exchange(limitTimer, nullptr));
    phase = Phase::Ended;
    std::unique_lock lock(mutex);
    const auto stream = current;
    lock.unlock();
    if (stream != nullptr) {
        Lose(*stream, 0, "");
    }
    keepAlive.reset();
}

bool XirClient::OnDispatchThread() const {
    return hooks.isDispatchThread != nullptr && hooks.isDispatchThread(hooks.thread) != 0;
}

void XirClient::Report(int32_t code, const std::string& text) const {
    if (hooks.error != nullptr) {
        const auto scope = UserScope();
        hooks.error(code, text.c_str(), hooks.errorContext);
    }
}

void XirClient::TellConnection(int32_t event) {
    if (hooks.connection != nullptr) {
        const auto scope = UserScope();
        hooks.connection(&facade, hooks.context, event);
    }
}

xir_common_rpc_client* xir_common_rpc_client_new(int32_t transport, const char* address,
                                                 const ProtobufCServiceDescriptor* descriptor,
                                                 ProtobufCRPCDispatch* dispatch, void* context) {
    if (address == nullptr || descriptor == nullptr || dispatch == nullptr) {
        return nullptr;
    }
    const auto parsed = XirClientAddress(transport, address);
    return parsed ? XirClient::Make(*parsed, descriptor, dispatch, context) : nullptr;
}

int32_t xir_common_rpc_client_is_connected(xir_common_rpc_client* client) {
    return client != nullptr && client->client->IsConnected() ? 1 : 0;
}

int32_t xir_common_rpc_client_set_error_handler(xir_common_rpc_client* client, xir_common_rpc_error_fn handler,
                                                void* context) {
    if (client == nullptr) {
        return -1;
    }
    client->client->hooks.error = handler;
    client->client->hooks.errorContext = context;
    return 0;
}

int32_t xir_common_rpc_client_set_rpc_protocol(xir_common_rpc_client* client, xir_common_rpc_serialize_fn serialize,
                                               xir_common_rpc_deserialize_fn deserialize) {
    if (client == nullptr || serialize == nullptr || deserialize == nullptr) {
        return -1;
    }
    client->client->protocol.serialize = serialize;
    client->client->protocol.deserialize = deserialize;
    return 0;
}

int32_t xir_common_rpc_client_configure_threading(xir_common_rpc_client* client,
                                                  xir_common_rpc_is_dispatch_thread_fn is_dispatch_thread,
                                                  xir_common_osal_thread_handle handle) {
    if (client == nullptr) {
        return -1;
    }
    client->client->ConfigureThreading(is_dispatch_thread, handle);
    return 0;
}

int32_t xir_common_rpc_client_register_nonrpcmsg_callback(xir_common_rpc_client* client,
                                                          xir_common_rpc_nonrpcmsg_fn callback) {
    if (client == nullptr) {
        return -1;
    }
    client->client->hooks.message = callback;
    return 0;
}

int32_t xir_common_rpc_client_register_connection_callback(xir_common_rpc_client* client,
                                                           xir_common_rpc_client_connection_fn callback) {
    if (client == nullptr) {
        return -1;
    }
    client->client->hooks.connection = callback;
    return 0;
}
