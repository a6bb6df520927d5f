/// The client end of a connection: its proxy record, life, subscriptions and notification routing.
///
/// A service adds a row (XirRpcClientService) with its names, stubs and notifications; the rest is here. Operations of
/// a proxy block until the peer answers, and must not be called on its dispatch thread.
#ifndef XIR_RPC_CLIENT_H
#define XIR_RPC_CLIENT_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>

#include "XirRpcTypes.h"
#include "lib_c/src-gen/Basetypes.pb-c.h"
#include "xir_common_rpc.h"

struct XirRpcProxy;

constexpr std::size_t kXirRpcMaxNotifications = 2;  ///< the most that a service of the module has
constexpr std::size_t kXirRpcMaxMethods = 18;       ///< likewise, without version, subscriptions and notifications
constexpr int32_t kXirRpcPending = 0x7fffffff;      ///< status of a call that is not completed

/// Completion flags in the proxy's record: these, then one for each method in method order.
enum XirRpcFlag : std::size_t {
    kXirRpcFlagOpened,
    kXirRpcFlagVersion,
    kXirRpcFlagSubscribe,
    kXirRpcFlagUnsubscribe,
    kXirRpcFlagFirstMethod
};
constexpr std::size_t kXirRpcFlagCount = kXirRpcFlagFirstMethod + kXirRpcMaxMethods;

/// A registered callback of any signature; the service's notification handler knows the real one.
using XirRpcCallback = void (*)();

struct XirRpcNotification {
    uint16_t methodIndex;
    /// Gets the unpacked message on the dispatch thread, and the callback registered for it, if any.
    void (*handler)(const ProtobufCMessage& message, XirRpcCallback callback);
};

using XirRpcVoidClosure = Com__Vantu__Ms__Protobuf__VoidResponse_Closure;
using XirRpcSubscribeStub = void (*)(ProtobufCService*, const Com__Vantu__Ms__Protobuf__SubscribeRequest*,
                                     XirRpcVoidClosure, void*);
using XirRpcVersionStub = void (*)(ProtobufCService*, const Com__Vantu__Ms__Protobuf__GetRemoteVersionRequest*,
                                   Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse_Closure, void*);

/// A service as its clients know it: one constant row for each.
struct XirRpcClientService {
    const char* threadName;     ///< also opens the dispatch thread's messages
    const char* createName;     ///< of the operation that makes the proxy, for its messages
    const char* releaseName;    ///< of the one that ends it
    const char* interfaceName;  ///< what the peer must answer to the version question
    xir_common_rpc_interface interface;
    const ProtobufCServiceDescriptor* descriptor;
    XirRpcVersionStub getVersion;
    XirRpcSubscribeStub subscribe;
    XirRpcSubscribeStub unsubscribe;
    std::array<XirRpcNotification, kXirRpcMaxNotifications> notifications;  ///< interface.notification_count of them
};

/// The proxy record of every service. Reached by many threads: what is not atomic and not behind oneAtATime is written
/// by the creator or by the start of the dispatch thread, before anyone else can see it.
struct XirRpcProxy {
    xir_common_rpc_interface header;
    const XirRpcNotification* notifications;
    xir_common_rpc_client* client;
    std::array<std::atomic<XirRpcCallback>, kXirRpcMaxNotifications> callbacks;  ///< in the table's order
    XirConnection connection;
    ProtobufCRPCDispatch* dispatch;
    ProtobufCRPCDispatchTimer* timer;
    xir_common_osal_thread_handle thread;
    std::array<uint8_t, kXirRpcFlagCount> flags;          ///< XirRpcFlag
    std::array<std::mutex, kXirRpcFlagCount> oneAtATime;  ///< a flag serves one call at a time
    const XirRpcClientService* service;
};

/// Starts the dispatch thread, waits without limit for the connection, and checks the peer's version and name.
/// threadRuns is false when the thread could not be made. Answers 0, kXirRpcNotBound, or why the check failed; whenever
/// threadRuns is true, XirRpcStop must follow before the record goes.
int32_t XirRpcStart(XirRpcProxy& proxy, const XirRpcClientService& service, const XirConnection& connection,
                    bool& threadRuns);
/// Ends the thread and with it client and dispatcher.
void XirRpcStop(XirRpcProxy& proxy);

/// Makes a service's proxy in *out: null when it failed; unchanged, with result 0, when the thread could not be made.
template <typename Proxy>
int32_t XirRpcCreateProxy(Proxy** out, const XirRpcClientService& service, const XirConnection& connection) {
    auto proxy = std::unique_ptr<Proxy>(new (std::nothrow) Proxy{});
    if (proxy == nullptr) {
        *out = nullptr;
        return kXirRpcNoMemory;
    }
    bool threadRuns = false;
    const int32_t status = XirRpcStart(*proxy, service, connection, threadRuns);
    if (!threadRuns) {
        return 0;
    }
    if (status != 0) {
        XirRpcStop(*proxy);
        proxy.reset();
    }
    *out = proxy.release();
    return status;
}

/// Null is ignored. No call may be under way.
template <typename Proxy>
void XirRpcReleaseProxy(Proxy* proxy) {
    if (proxy != nullptr) {
        XirRpcStop(*proxy);
        delete proxy;
    }
}

/// False for a null proxy, too. Any thread.
bool XirRpcIsConnected(const XirRpcProxy* proxy);
/// The proxy's client, as generated stubs want it.
ProtobufCService* XirRpcService(const XirRpcProxy& proxy);

/// Registers the callback for the notification with this place in the service's table, and subscribes. The callback
/// stays registered when the peer refuses. Answers the peer's responsecode; kXirRpcNotConnected also for a null proxy;
/// kXirRpcAlreadyRegistered.
int32_t XirRpcRegister(XirRpcProxy* proxy, std::size_t place, XirRpcCallback callback);
/// Clears the registration and withdraws the subscription. Answers the peer's responsecode; kXirRpcNotConnected for a
/// null proxy; kXirRpcNoCallback for a null callback; kXirRpcOtherCallback.
int32_t XirRpcDeregister(XirRpcProxy* proxy, std::size_t place, XirRpcCallback callback);

#endif
