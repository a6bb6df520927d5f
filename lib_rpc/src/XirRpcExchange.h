/// The blocking exchange: one request, one reply, the caller waits in between. Written once for all methods.
///
/// The completion runs on the dispatch thread, or on any thread that waits for a reply of the same connection while the
/// dispatch thread is inside a handler. The one trap is the end of the call: as soon as the flag is raised the waiter
/// may leave and take the exchange off its stack, so the completion touches nothing of it after that.
#ifndef XIR_RPC_EXCHANGE_H
#define XIR_RPC_EXCHANGE_H

#include <atomic>
#include <cstddef>
#include <mutex>

#include "XirRpcClient.h"
#include "XirRpcRecords.h"
#include "XirRpcTypes.h"

/// A generated client stub.
template <typename Request, typename Response>
using XirRpcStub = void (*)(ProtobufCService* service, const Request* request,
                            void (*closure)(const Response* response, void* data), void* data);

/// One call under way, on the stack of its caller.
template <typename Response, typename Take>
struct XirRpcCallUnderWay {
    XirRpcProxy& proxy;
    uint8_t& flag;
    Take& take;
    int32_t status = kXirRpcPending;
    std::atomic<bool> completed{false};  // tells a reply whose responsecode looks like "pending" from no reply yet

    static void Complete(const Response* response, void* data) {
        auto& call = *static_cast<XirRpcCallUnderWay*>(data);
        XirRpcProxy& proxy = call.proxy;
        uint8_t& flag = call.flag;
        call.status = response == nullptr ? kXirRpcNotConnected : call.take(*response);
        call.completed.store(true, std::memory_order_release);
        xir_common_osal_notify_flag(proxy.thread, &flag);
    }
};

/// Sends the request and waits for its completion. flagIndex: the call's completion flag in the proxy. take(response)
/// gets a reply that came, before the caller wakes, and makes the status of it; a missing reply gives
/// kXirRpcNotConnected. Calls with the same flag wait for each other, each at most for the request limit of those
/// before it.
template <typename Request, typename Response, typename Take>
int32_t XirRpcExchange(XirRpcProxy& proxy, std::size_t flagIndex, XirRpcStub<Request, Response> stub,
                       const Request& request, Take take) {
    const std::lock_guard oneAtATime(proxy.oneAtATime[flagIndex]);
    XirRpcCallUnderWay<Response, Take> call{proxy, proxy.flags[flagIndex], take};
    xir_common_osal_init_flag(proxy.thread, &call.flag);
    stub(XirRpcService(proxy), &request, XirRpcCallUnderWay<Response, Take>::Complete, &call);
    // The flag is waited for even if the reply is here already: left unawaited, it could be raised in the next call.
    do {
        xir_common_osal_wait_flag(proxy.thread, &call.flag);
    } while (!call.completed.load(std::memory_order_acquire));
    return call.status;
}

/// The exchange of a method of the service. build(request) fills the initialised request; it is not called, and nothing
/// is sent, when there is no proxy or no connection: then kXirRpcNotConnected.
template <typename Request, typename Response, typename Build, typename Take>
int32_t XirRpcCall(XirRpcProxy* proxy, unsigned methodIndex, XirRpcStub<Request, Response> stub, Build build,
                   Take take) {
    if (!XirRpcIsConnected(proxy)) {
        return kXirRpcNotConnected;
    }
    Request request{};
    protobuf_c_message_init(proxy->service->descriptor->methods[methodIndex].input, &request);
    build(request);
    return XirRpcExchange(*proxy, kXirRpcFlagFirstMethod + methodIndex, stub, request, take);
}

/// The status that a reply carries; the usual take.
template <typename Response>
int32_t XirRpcResponsecode(const Response& response) {
    return static_cast<int32_t>(response.responsecode);
}

/// For requests without fields; a build.
constexpr auto kXirRpcNoArguments = [](auto& /*request*/) {};

/// A method that answers with a responsecode only.
template <typename Request, typename Build>
int32_t XirRpcSend(XirRpcProxy* proxy, unsigned methodIndex,
                   XirRpcStub<Request, Com__Vantu__Ms__Protobuf__VoidResponse> stub, Build build) {
    return XirRpcCall(proxy, methodIndex, stub, build, XirRpcResponsecode<Com__Vantu__Ms__Protobuf__VoidResponse>);
}

/// A method that answers with a record. payload(response): the message to make it of; null when the reply carries none,
/// then *out is unchanged.
template <typename Request, typename Response, typename Build, typename Record, typename Payload>
int32_t XirRpcGet(XirRpcProxy* proxy, unsigned methodIndex, XirRpcStub<Request, Response> stub, Build build,
                  XirRecord<Record>** out, Payload payload) {
    const auto take = [out, payload](const Response& response) {
        const auto* message = payload(response);
        const bool taken = message == nullptr || MakeRecord(*message, out);
        return taken ? XirRpcResponsecode(response) : int32_t{kXirRpcNoMemory};
    };
    return XirRpcCall(proxy, methodIndex, stub, build, take);
}

#endif
