#include "XirRpcServer.h"

#include <cstdio>
#include <cstring>

#include "XirRpcThread.h"
#include "XirRpcUrl.h"

namespace {

constexpr xir_common_rpc_interface kServerInterface{112, 1, 0};

void PrintTransportError(int32_t code, const char* message, void* /*context*/) {
    std::fprintf(stderr, "*** error(srvcErrorHandler): %d: %s\n", code, message);
}

void OnConnection(xir_common_rpc_server* /*server*/, void* /*context*/, const char* id, int32_t event) {
    if (event == XIR_COMMON_RPC_EVENT_OPENED) {
        std::printf("connectionStatusCbFn - new client (idStr=%s)\n", id);
    } else if (event == XIR_COMMON_RPC_EVENT_CLOSED) {
        std::printf("connectionStatusCbFn - client disconnected (idStr=%s)\n", id);
    }
}

/// A port of a single character is taken for none.
bool HasPort(const XirRpcAddress& address) {
    return address.transport != XIR_COMMON_RPC_TRANSPORT_TCP || std::strlen(address.text) > 1;
}

xir_common_rpc_server* MakeServer(const XirRpcServerEnd& end, const char* url) {
    std::printf("%s binding url=%s\n", end.texts->threadLabel, url);
    const auto address = XirRpcParseUrl(url);
    if (!address) {
        return nullptr;
    }
    if (!HasPort(*address)) {
        std::printf("%s - ERROR no port in srvcUrl(srvcUrl=%s))\n", end.texts->threadLabel, url);
        return nullptr;
    }
    return xir_common_rpc_server_new(address->transport, address->text, end.service, end.dispatch, &kServerInterface);
}

void Equip(xir_common_rpc_server* server, xir_common_osal_thread_handle handle, XirRpcServerEnd& end) {
    xir_common_rpc_server_set_error_handler(server, PrintTransportError, &end);
    xir_common_rpc_server_set_rpc_protocol(server, xir_common_rpc_server_serialize, xir_common_rpc_deserialize);
    xir_common_rpc_server_configure_threading(server, XirRpcIsDispatchThread, handle);
    xir_common_rpc_server_register_connection_callback(server, OnConnection, &end);
}

int32_t ServerThreadRun(xir_common_osal_thread_handle /*handle*/, void* context) {
    auto& end = *static_cast<XirRpcServerEnd*>(context);
    if (end.boundCount < end.urls.count) {
        return kXirRpcNoTransport;
    }
    XirRpcDispatchSlice(end.dispatch, end.timer);
    return 0;
}

int32_t ServerThreadDestroy(xir_common_osal_thread_handle /*handle*/, void* context) {
    auto& end = *static_cast<XirRpcServerEnd*>(context);
    XirRpcDropTimer(end.timer);
    std::printf("%s destroy server", end.texts->threadLabel);
    for (std::size_t i = 0; i < end.boundCount; ++i) {
        xir_common_rpc_server_destroy(end.servers[i], 0);
    }
    end.boundCount = 0;
    protobuf_c_rpc_dispatch_free(end.dispatch);
    end.dispatch = nullptr;
    std::printf("%s end", end.texts->threadLabel);
    return 0;
}

}  // namespace

int32_t XirRpcServerThreadInit(xir_common_osal_thread_handle handle, void* context) {
    auto& end = *static_cast<XirRpcServerEnd*>(context);
    end.dispatch = XirRpcPrepareDispatch();
    if (end.dispatch == nullptr) {
        return kXirRpcNoTransport;
    }
    if (end.urls.count > kXirRpcMaxUrls) {
        return kXirRpcTooManyUrls;
    }
    for (std::size_t i = 0; i < end.urls.count; ++i) {
        xir_common_rpc_server* server = MakeServer(end, end.urls.urls[i]);
        std::printf("starting %s(service=%p, dispatch=%p, server=%p)\n", end.texts->threadLabel,
                    static_cast<void*>(end.service), static_cast<void*>(end.dispatch), static_cast<void*>(server));
        if (server == nullptr) {
            return kXirRpcNoTransport;
        }
        end.servers[end.boundCount++] = server;
        Equip(server, handle, end);
    }
    return 0;
}

int32_t XirRpcServerStart(XirRpcServerEnd& end, bool& threadRuns) {
    threadRuns = xir_common_osal_createThread(end.texts->threadName, &end, XirRpcServerThreadInit, ServerThreadRun,
                                              ServerThreadDestroy, &end.thread) >= 0;
    if (!threadRuns) {
        return 0;
    }
    if (end.boundCount < end.urls.count) {
        return kXirRpcNotBound;
    }
    std::printf("%s - thread started ", end.texts->createName);
    return 0;
}

void XirRpcServerStop(XirRpcServerEnd& end) {
    xir_common_osal_releaseThread(end.thread);
}
