/// The server end of a connection: one dispatch thread that serves a protobuf-c service on up to three URLs.
///
/// A service adds a row (XirRpcServerTexts) and its handlers; all handlers run on the thread, one at a time.
#ifndef XIR_RPC_SERVER_H
#define XIR_RPC_SERVER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>

#include "XirRpcTypes.h"
#include "xir_common_rpc.h"

constexpr std::size_t kXirRpcMaxUrls = 3;

/// The URLs to serve on, none of them null; borrowed for the server's life.
struct XirRpcUrlList {
    std::size_t count;
    const char* const* urls;
};

/// A service's names, one constant row for each.
struct XirRpcServerTexts {
    const char* threadName;
    const char* threadLabel;  ///< opens the thread's messages
    const char* createName;   ///< of the operation that makes the server, for its messages
};

/// What a server has beside its service object.
struct XirRpcServerEnd {
    XirRpcUrlList urls;
    std::size_t boundCount;
    std::array<xir_common_rpc_server*, kXirRpcMaxUrls> servers;
    ProtobufCRPCDispatch* dispatch;
    ProtobufCRPCDispatchTimer* timer;
    xir_common_osal_thread_handle thread;
    ProtobufCService* service;
    const XirRpcServerTexts* texts;
};

/// The server record. Service: a generated service object (its ProtobufCService is its first member).
template <typename Service>
struct XirRpcServer {
    Service service;
    XirRpcServerEnd end;
};

/// The thread's start. Answers 0; kXirRpcTooManyUrls, before any binding; kXirRpcNoTransport when a URL, or the
/// dispatcher, could not be had: the URLs before it stay bound.
int32_t XirRpcServerThreadInit(xir_common_osal_thread_handle handle, void* end);

/// Starts the thread. threadRuns is false when it could not be made. Answers 0, or kXirRpcNotBound when not every URL
/// was bound; whenever threadRuns is true, XirRpcServerStop must follow before the record goes.
int32_t XirRpcServerStart(XirRpcServerEnd& end, bool& threadRuns);
/// Ends the thread and with it every server and connection.
void XirRpcServerStop(XirRpcServerEnd& end);

/// Makes a server of a copy of the service object in *out. Answers 0; kXirRpcNoMemory; kXirRpcNotBound, with *out null;
/// 0 with *out unchanged when the thread could not be made.
template <typename Service>
int32_t XirRpcCreateServer(XirRpcServer<Service>** out, const Service& service, const XirRpcServerTexts& texts,
                           const XirRpcUrlList& urls) {
    auto server = std::unique_ptr<XirRpcServer<Service>>(new (std::nothrow) XirRpcServer<Service>{service, {}});
    if (server == nullptr) {
        *out = nullptr;
        return kXirRpcNoMemory;
    }
    server->end.urls = urls;
    server->end.texts = &texts;
    server->end.service = reinterpret_cast<ProtobufCService*>(&server->service);
    bool threadRuns = false;
    const int32_t status = XirRpcServerStart(server->end, threadRuns);
    if (!threadRuns) {
        return 0;
    }
    if (status != 0) {
        XirRpcServerStop(server->end);
        server.reset();
        std::printf("ERROR.2: failed to create %s ", texts.createName);
    }
    *out = server.release();
    return status;
}

/// Null is ignored.
template <typename Service>
void XirRpcReleaseServer(XirRpcServer<Service>* server) {
    if (server != nullptr) {
        XirRpcServerStop(server->end);
        delete server;
    }
}

#endif
