// Client ends. The thread's three steps come first, then what the transport calls, then what callers call.

#include "XirRpcClient.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "XirRpcExchange.h"
#include "XirRpcThread.h"
#include "XirRpcUrl.h"

namespace {

void PrintTransportError(int32_t code, const char* message, void* /*context*/) {
    std::fprintf(stderr, "*** error(proxyErrorHandler): %d: %s\n", code, message);
}

void OnConnection(xir_common_rpc_client* /*client*/, void* context, int32_t event) {
    auto& proxy = *static_cast<XirRpcProxy*>(context);
    if (event == XIR_COMMON_RPC_EVENT_OPENED) {
        std::printf("connectionStatusCbFn - OPENED");
        xir_common_osal_notify_flag(proxy.thread, &proxy.flags[kXirRpcFlagOpened]);
    } else if (event == XIR_COMMON_RPC_EVENT_CLOSED) {
        std::printf("connectionStatusCbFn - CLOSED");
    }
}

void RouteNotification(const XirRpcProxy& proxy, const xir_common_rpc_header& header) {
    const auto* end = proxy.notifications + proxy.header.notification_count;
    const auto* entry = std::find_if(proxy.notifications, end, [&header](const XirRpcNotification& candidate) {
        return candidate.methodIndex == header.method_index;
    });
    if (entry != end && header.message != nullptr) {
        const auto place = static_cast<std::size_t>(entry - proxy.notifications);
        entry->handler(*header.message, proxy.callbacks[place].load());
    }
}

void DispatchNonRpcMessage(xir_common_rpc_client* /*client*/, const xir_common_rpc_header* header, void* context) {
    if (header->kind != XIR_COMMON_RPC_KIND_NOTIFICATION) {
        std::printf("dispatchNonRpcMessage - unexpected msgType=%d received (method_index=%d)\n", header->kind,
                    header->method_index);
        return;
    }
    std::printf("dispatchNonRpcMessage - notification received (method_index=%d)\n", header->method_index);
    RouteNotification(*static_cast<const XirRpcProxy*>(context), *header);
}

xir_common_rpc_client* MakeClient(XirRpcProxy& proxy) {
    const auto address = XirRpcParseUrl(proxy.connection.srvcUrl);
    if (!address) {
        std::printf("thread_init_fn - ERROR invalid XIR srvcUrl (srvcUrl=%s)\n", proxy.connection.srvcUrl);
    }
    proxy.dispatch = XirRpcPrepareDispatch();
    if (!address || proxy.dispatch == nullptr) {
        return nullptr;
    }
    return xir_common_rpc_client_new(address->transport, address->text, proxy.service->descriptor, proxy.dispatch,
                                     &proxy);
}

int32_t ClientThreadInit(xir_common_osal_thread_handle handle, void* context) {
    auto& proxy = *static_cast<XirRpcProxy*>(context);
    xir_common_osal_init_flag(handle, &proxy.flags[kXirRpcFlagOpened]);
    proxy.client = MakeClient(proxy);
    if (proxy.client == nullptr) {
        return kXirRpcNoTransport;
    }
    xir_common_rpc_client_set_error_handler(proxy.client, PrintTransportError, &proxy);
    xir_common_rpc_client_set_rpc_protocol(proxy.client, xir_common_rpc_client_serialize, xir_common_rpc_deserialize);
    xir_common_rpc_client_configure_threading(proxy.client, XirRpcIsDispatchThread, handle);
    xir_common_rpc_client_register_nonrpcmsg_callback(proxy.client, DispatchNonRpcMessage);
    xir_common_rpc_client_register_connection_callback(proxy.client, OnConnection);
    return 0;
}

int32_t ClientThreadRun(xir_common_osal_thread_handle /*handle*/, void* context) {
    auto& proxy = *static_cast<XirRpcProxy*>(context);
    if (proxy.client == nullptr) {
        return kXirRpcNoTransport;
    }
    XirRpcDispatchSlice(proxy.dispatch, proxy.timer);
    return 0;
}

int32_t ClientThreadDestroy(xir_common_osal_thread_handle /*handle*/, void* context) {
    auto& proxy = *static_cast<XirRpcProxy*>(context);
    XirRpcDropTimer(proxy.timer);
    std::printf("%s_dispatchThread destroy client", proxy.service->threadName);
    if (proxy.client != nullptr) {
        protobuf_c_service_destroy(XirRpcService(proxy));
        proxy.client = nullptr;
    }
    protobuf_c_rpc_dispatch_free(proxy.dispatch);
    proxy.dispatch = nullptr;
    std::printf("%s_dispatchThread end", proxy.service->threadName);
    return 0;
}

/// Waits flag by flag: a connection may open and be lost again before this thread has looked.
void WaitForConnection(XirRpcProxy& proxy) {
    uint8_t& opened = proxy.flags[kXirRpcFlagOpened];
    std::printf("Connecting... (srvcUrl=%s)\n", proxy.connection.srvcUrl);
    while (!XirRpcIsConnected(&proxy)) {
        xir_common_osal_wait_flag(proxy.thread, &opened);
        if (!XirRpcIsConnected(&proxy)) {
            xir_common_osal_init_flag(proxy.thread, &opened);
        }
    }
    std::printf("Connected. (srvcUrl=%s)\n", proxy.connection.srvcUrl);
}

/// The name is compared last, so that a wrong name wins over a wrong version.
int32_t CheckVersion(XirRpcProxy& proxy) {
    const Com__Vantu__Ms__Protobuf__GetRemoteVersionRequest request =
        COM__VANTU__MS__PROTOBUF__GET_REMOTE_VERSION_REQUEST__INIT;
    const auto judge = [&proxy](const Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse& response) {
        int32_t status = XirRpcResponsecode(response);
        status = response.major == proxy.header.major ? status : kXirRpcWrongVersion;
        return std::strcmp(response.name, proxy.service->interfaceName) == 0 ? status : kXirRpcWrongName;
    };
    return XirRpcExchange(proxy, kXirRpcFlagVersion, proxy.service->getVersion, request, judge);
}

int32_t ExchangeSubscription(XirRpcProxy& proxy, XirRpcFlag flag, XirRpcSubscribeStub stub, uint16_t methodIndex) {
    Com__Vantu__Ms__Protobuf__SubscribeRequest request = COM__VANTU__MS__PROTOBUF__SUBSCRIBE_REQUEST__INIT;
    request.messageid = methodIndex;
    request.clientname = const_cast<char*>(proxy.connection.clientName);  // packing does not write to it
    return XirRpcExchange(proxy, flag, stub, request, XirRpcResponsecode<Com__Vantu__Ms__Protobuf__VoidResponse>);
}

int32_t SendSubscribeRequest(XirRpcProxy& proxy, uint16_t methodIndex) {
    std::printf("SendSubscribeRequest send subscription message to server side (msgId=%d)\n", methodIndex);
    const int32_t status = ExchangeSubscription(proxy, kXirRpcFlagSubscribe, proxy.service->subscribe, methodIndex);
    std::printf("SendSubscribeRequest- subscription response = %d\n", status);
    return status;
}

int32_t SendUnSubscribeRequest(XirRpcProxy& proxy, uint16_t methodIndex) {
    std::printf("SendUnSubscribeRequest send unsubscription message to server side (msgId=%d)\n", methodIndex);
    const int32_t status = ExchangeSubscription(proxy, kXirRpcFlagUnsubscribe, proxy.service->unsubscribe, methodIndex);
    std::printf("SendUnSubscribeRequest- subscription response = %d\n", status);
    return status;
}

}  // namespace

int32_t XirRpcStart(XirRpcProxy& proxy, const XirRpcClientService& service, const XirConnection& connection,
                    bool& threadRuns) {
    proxy.service = &service;
    proxy.header = service.interface;
    proxy.notifications = service.notifications.data();
    proxy.connection = connection;
    threadRuns = xir_common_osal_createThread(service.threadName, &proxy, ClientThreadInit, ClientThreadRun,
                                              ClientThreadDestroy, &proxy.thread) >= 0;
    if (!threadRuns) {
        return 0;
    }
    if (proxy.client == nullptr) {
        std::printf("%s-ERROR: failed to create service", service.createName);
        return kXirRpcNotBound;
    }
    std::printf("%s - dispatchThread started ", service.createName);
    WaitForConnection(proxy);
    return CheckVersion(proxy);
}

void XirRpcStop(XirRpcProxy& proxy) {
    std::printf("%s (%p).\n", proxy.service->releaseName, static_cast<void*>(&proxy));
    xir_common_osal_releaseThread(proxy.thread);
}

bool XirRpcIsConnected(const XirRpcProxy* proxy) {
    return proxy != nullptr && xir_common_rpc_client_is_connected(proxy->client) != 0;
}

ProtobufCService* XirRpcService(const XirRpcProxy& proxy) {
    return reinterpret_cast<ProtobufCService*>(proxy.client);
}

int32_t XirRpcRegister(XirRpcProxy* proxy, std::size_t place, XirRpcCallback callback) {
    if (!XirRpcIsConnected(proxy)) {
        return kXirRpcNotConnected;
    }
    XirRpcCallback none = nullptr;
    if (!proxy->callbacks[place].compare_exchange_strong(none, callback)) {
        return kXirRpcAlreadyRegistered;
    }
    return SendSubscribeRequest(*proxy, proxy->notifications[place].methodIndex);
}

int32_t XirRpcDeregister(XirRpcProxy* proxy, std::size_t place, XirRpcCallback callback) {
    if (proxy == nullptr) {
        return kXirRpcNotConnected;
    }
    if (callback == nullptr) {
        return kXirRpcNoCallback;
    }
    if (!proxy->callbacks[place].compare_exchange_strong(callback, nullptr)) {
        return kXirRpcOtherCallback;
    }
    return SendUnSubscribeRequest(*proxy, proxy->notifications[place].methodIndex);
}
