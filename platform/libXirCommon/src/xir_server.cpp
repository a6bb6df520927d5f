#include "xir_server.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

/// Pause after a connection could not be accepted for want of descriptors or memory: the listener stays readable, and
/// trying again at once would be a busy loop.
constexpr unsigned kAcceptPauseMillis = 100;

std::string NameOf(const XirAddress& peer, unsigned serial) {
    if (peer.any.sa_family != AF_INET) {
        return "local#" + std::to_string(serial);
    }
    char host[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &peer.ip4.sin_addr, host, sizeof host);
    return std::string(host) + ":" + std::to_string(ntohs(peer.ip4.sin_port));
}

}  // namespace

xir_common_rpc_server* XirServer::Make(const XirAddress& address, ProtobufCService* service,
                                       ProtobufCRPCDispatch* dispatch, const xir_common_rpc_interface& interface) try {
    auto server = std::make_shared<XirServer>(address, service, dispatch, interface);
    server->listener = *server->wake ? XirListen(address) : XirDescriptor();
    if (!server->listener) {
        return nullptr;
    }
    server->socketFile = XirSocketFile(address);
    server->keepAlive = server;
    server->WatchListener();
    protobuf_c_rpc_dispatch_watch_fd(
        dispatch, server->wake->Fd(), PROTOBUF_C_RPC_EVENT_READABLE,
        [](ProtobufC_RPC_FD, unsigned, void* self) { static_cast<XirServer*>(self)->OnWake(); }, server.get());
    return &server->facade;
} catch (const std::bad_alloc&) {
    return nullptr;
}

XirServer::XirServer(const XirAddress& itsAddress, ProtobufCService* itsService, ProtobufCRPCDispatch* itsDispatch,
                     const xir_common_rpc_interface& itsInterface)
    : protocol{itsService->descriptor, xir_common_rpc_server_serialize, xir_common_rpc_deserialize},
      address(itsAddress),
      service(itsService),
      dispatch(itsDispatch),
      interface(itsInterface) {}

void XirServer::End() {
    const auto self = shared_from_this();
    protobuf_c_rpc_dispatch_watch_fd(dispatch, listener.Get(), 0, nullptr, nullptr);
    protobuf_c_rpc_dispatch_watch_fd(dispatch, wake->Fd(), 0, nullptr, nullptr);
    protobuf_c_rpc_dispatch_remove_timer(std::exchange(acceptTimer, nullptr));
    for (const auto& peer : Peers()) {
        Disconnect(*peer);
    }
    XirRemoveSocketFile(address, socketFile);
    listener = XirDescriptor();
    keepAlive.reset();
}

void XirServer::Report(int32_t code, const std::string& text) {
    if (hooks.error != nullptr) {
        const XirHandlerScope scope(seat);
        hooks.error(code, ("interface " + std::to_string(interface.id) + ": " + text).c_str(), hooks.errorContext);
    }
}

void XirServer::TellConnection(const XirPeer& peer, int32_t event) {
    if (hooks.connection != nullptr) {
        const XirHandlerScope scope(seat);
        hooks.connection(&facade, hooks.connectionContext, peer.name.c_str(), event);
    }
}

std::vector<XirServer::PeerPointer> XirServer::Peers() {
    const std::scoped_lock lock(mutex);
    return peers;
}

void XirServer::WatchListener() {
    protobuf_c_rpc_dispatch_watch_fd(
        dispatch, listener.Get(), PROTOBUF_C_RPC_EVENT_READABLE,
        [](ProtobufC_RPC_FD, unsigned, void* self) { static_cast<XirServer*>(self)->OnAccept(); }, this);
}

void XirServer::OnAccept() {
    const auto self = shared_from_this();
    XirAddress peer = {};
    peer.length = sizeof peer.ip6;
    XirDescriptor connected(accept4(listener.Get(), &peer.any, &peer.length, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!connected) {
        OnAcceptFailed(errno);
        return;
    }
    std::string name = NameOf(peer, ++clientsSoFar);
    if (HasRoom()) {
        Add(std::move(connected), std::move(name));
        return;
    }
    if (!refusalReported) {
        refusalReported = true;
        Report(-EUSERS, "client " + name + " refused: " + std::to_string(kXirClientLimit) + " are connected");
    }
}

/// Makes room if there is none. What a client has sent may lie unread while a handler took its time.
bool XirServer::HasRoom() {
    std::vector<PeerPointer> clients = Peers();
    if (clients.size() < kXirClientLimit) {
        return true;
    }
    const auto expired = std::chrono::steady_clock::now() - kXirClientGrace;
    std::erase_if(clients, [expired](const PeerPointer& peer) {
        return peer->lastRequest > expired || !peer->IsIdle() || peer->stream.HasUnread();
    });
    const auto oldest = std::min_element(clients.begin(), clients.end(), [](const auto& left, const auto& right) {
        return left->lastRequest < right->lastRequest;
    });
    if (oldest == clients.end()) {
        return false;
    }
    Drop(*oldest, -ETIMEDOUT, "it has been silent, and another client needs its place");
    return keepAlive != nullptr;  // the callback may have ended the server
}

void XirServer::OnAcceptFailed(int error) {
    if (error == EAGAIN || error == ECONNABORTED || error == EINTR) {
        return;
    }
    protobuf_c_rpc_dispatch_watch_fd(dispatch, listener.Get(), 0, nullptr, nullptr);
    acceptTimer = protobuf_c_rpc_dispatch_add_timer_millis(
        dispatch, kAcceptPauseMillis,
        [](ProtobufCRPCDispatch*, void* data) {
            auto* server = static_cast<XirServer*>(data);
            server->acceptTimer = nullptr;
            server->WatchListener();
        },
        this);
    if (acceptTimer == nullptr) {
        std::abort();  // out of memory; without the timer this server would be deaf for good, in silence
    }
    if (!refusalReported) {
        refusalReported = true;
        Report(-error, std::string("cannot accept a client: ") + std::strerror(error));
    }
}

void XirServer::Add(XirDescriptor connected, std::string name) {
    XirTuneConnection(connected.Get(), address);
    refusalReported = false;
    const auto peer = std::make_shared<XirPeer>(std::move(connected), std::move(name), protocol, wake);
    peer->server = this;
    std::unique_lock lock(mutex);
    peers.push_back(peer);
    lock.unlock();
    WatchPeer(*peer);
    TellConnection(*peer, XIR_COMMON_RPC_EVENT_OPENED);
}

/// Takes the peer out of everything that leads to it. Threads that are just replying to it may hold it a little longer.
void XirServer::Disconnect(XirPeer& peer) {
    protobuf_c_rpc_dispatch_watch_fd(dispatch, peer.stream.Fd(), 0, nullptr, nullptr);
    peer.server = nullptr;
    peer.stream.Shutdown();
    XirForgetRequests(peer);
    const std::scoped_lock lock(mutex);
    std::erase_if(peers, [&peer](const auto& each) { return each.get() == &peer; });
}

/// code 0: the peer went by itself, nothing to report.
void XirServer::Drop(const PeerPointer& peer, int32_t code, const std::string& reason) {
    Disconnect(*peer);
    if (code != 0) {
        Report(code, "client " + peer->name + " disconnected: " + reason);
    }
    TellConnection(*peer, XIR_COMMON_RPC_EVENT_CLOSED);
}

void XirServer::WatchPeer(XirPeer& peer) {
    const unsigned wanted = peer.stream.WantedEvents();
    if (wanted != peer.watched) {
        peer.watched = wanted;
        protobuf_c_rpc_dispatch_watch_fd(
            dispatch, peer.stream.Fd(), wanted,
            [](ProtobufC_RPC_FD, unsigned events, void* data) {
                auto* ready = static_cast<XirPeer*>(data);
                ready->server->OnPeer(ready->shared_from_this(), events);
            },
            &peer);
    }
}

void XirServer::OnWake() {
    const auto self = shared_from_this();
    wake->Answer();
    for (const auto& peer : Peers()) {
        if (peer->server == nullptr) {
            continue;  // a callback for a peer before it ended the server
        }
        if (peer->IsStuck()) {
            Drop(peer, -ENOBUFS, "it does not read, and too much waits for it");
        } else {
            WatchPeer(*peer);
        }
    }
}

void XirServer::OnPeer(const PeerPointer& peer, unsigned events) {
    const auto self = shared_from_this();
    if ((events & PROTOBUF_C_RPC_EVENT_WRITABLE) != 0) {
        peer->stream.Flush();
        WatchPeer(*peer);
    }
    if ((events & PROTOBUF_C_RPC_EVENT_READABLE) == 0) {
        return;
    }
    const XirReceived received = peer->stream.Receive();
    const int error = errno;
    while (peer->server != nullptr && ServeNext(peer)) {
    }
    if (peer->server == nullptr) {
        return;
    }
    if (received == XirReceived::End) {
        Drop(peer, 0, "");
    } else if (received == XirReceived::Failed) {
        Drop(peer, -error, std::strerror(error));
    }
}

bool XirServer::ServeNext(const PeerPointer& peer) {
    const XirFrame frame = XirFirstFrame(protocol, peer->stream.input.Bytes());
    const xir_common_rpc_header& header = frame.header;
    if (frame.result == XIR_COMMON_RPC_NEED_MORE) {
        return false;
    }
    if (frame.result == XIR_COMMON_RPC_BROKEN || header.kind != XIR_COMMON_RPC_KIND_REQUEST) {
        Drop(peer, -EPROTO, "it breaks the framing");
        return false;
    }
    peer->stream.input.Consume(frame.size);
    peer->lastRequest = std::chrono::steady_clock::now();
    if (frame.result == XIR_COMMON_RPC_UNKNOWN_METHOD ||
        (frame.result == XIR_COMMON_RPC_COMPLETE && !HasHandler(header.method_index))) {
        Refuse(*peer, header, XIR_COMMON_RPC_STATUS_UNKNOWN_METHOD);
    } else if (frame.result == XIR_COMMON_RPC_BAD_PAYLOAD) {
        Refuse(*peer, header, XIR_COMMON_RPC_STATUS_BAD_REQUEST);
    } else if (peer->openRequests.load(std::memory_order_relaxed) >= kXirOpenRequestLimit) {
        Drop(peer, -ENOBUFS, "too many of its requests wait for an answer");
    } else {
        HandOver(peer, header);
    }
    return true;
}

/// A service may leave out handlers, for instance of methods that only notify.
bool XirServer::HasHandler(unsigned method) const {
    if (service->invoke != protobuf_c_service_invoke_internal) {
        return true;  // it has its own way to find them
    }
    using Handler = void (*)();
    return reinterpret_cast<const Handler*>(service + 1)[method] != nullptr;
}

void XirServer::Refuse(XirPeer& peer, const xir_common_rpc_header& request, xir_common_rpc_status status) {
    peer.Reply({.method_index = request.method_index,
                .kind = XIR_COMMON_RPC_KIND_REPLY,
                .status = static_cast<uint8_t>(status),
                .request_id = request.request_id,
                .message = nullptr},
               {});
}

void XirServer::HandOver(const PeerPointer& peer, const xir_common_rpc_header& request) {
    const auto subscription =
        XirSubscriptionRequestOf(protocol.service->methods[request.method_index], request.message);
    void* const closureData = XirOpenRequest(peer, request.method_index, request.request_id, subscription);
    const XirHandlerScope scope(seat);
    service->invoke(service, request.method_index, request.message, XirAnswerRequest, closureData);
}

int32_t XirServer::Notify(uint16_t method, const ProtobufCMessage* message) {
    const xir_common_rpc_header header = {.method_index = method,
                                          .kind = XIR_COMMON_RPC_KIND_NOTIFICATION,
                                          .status = 0,
                                          .request_id = 0,
                                          .message = const_cast<ProtobufCMessage*>(message)};
    XirFrameBuffer frame;
    if (method >= protocol.service->n_methods || protocol.serialize(&header, frame.Sink()) < 0) {
        return -1;
    }
    int32_t reached = 0;
    for (const auto& peer : Peers()) {
        reached += peer->Notify(method, frame.Bytes()) ? 1 : 0;
    }
    return reached;
}

xir_common_rpc_server* xir_common_rpc_server_new(int32_t transport, const char* address, ProtobufCService* service,
                                                 ProtobufCRPCDispatch* dispatch,
                                                 const xir_common_rpc_interface* interface_record) {
    if (address == nullptr || service == nullptr || dispatch == nullptr || interface_record == nullptr) {
        return nullptr;
    }
    const auto parsed = XirServerAddress(transport, address);
    return parsed ? XirServer::Make(*parsed, service, dispatch, *interface_record) : nullptr;
}

int32_t xir_common_rpc_server_set_error_handler(xir_common_rpc_server* server, xir_common_rpc_error_fn handler,
                                                void* context) {
    if (server == nullptr) {
        return -1;
    }
    server->server->hooks.error = handler;
    server->server->hooks.errorContext = context;
    return 0;
}

int32_t xir_common_rpc_server_set_rpc_protocol(xir_common_rpc_server* server, xir_common_rpc_serialize_fn serialize,
                                               xir_common_rpc_deserialize_fn deserialize) {
    if (server == nullptr || serialize == nullptr || deserialize == nullptr) {
        return -1;
    }
    server->server->protocol.serialize = serialize;
    server->server->protocol.deserialize = deserialize;
    return 0;
}

int32_t xir_common_rpc_server_configure_threading(xir_common_rpc_server* server,
                                                  xir_common_rpc_is_dispatch_thread_fn /*is_dispatch_thread*/,
                                                  xir_common_osal_thread_handle handle) {
    if (server == nullptr) {
        return -1;
    }
    server->server->ConfigureThreading(handle);
    return 0;
}

int32_t xir_common_rpc_server_register_connection_callback(xir_common_rpc_server* server,
                                                           xir_common_rpc_server_connection_fn callback,
                                                           void* context) {
    if (server == nullptr) {
        return -1;
    }
    server->server->hooks.connection = callback;
    server->server->hooks.connectionContext = context;
    return 0;
}

int32_t xir_common_rpc_server_notify(xir_common_rpc_server* server, uint16_t method_index,
                                     const ProtobufCMessage* message) {
    return server == nullptr || message == nullptr ? -1 : server->server->Notify(method_index, message);
}

int32_t xir_common_rpc_server_destroy(xir_common_rpc_server* server, int32_t /*flags*/) {
    if (server == nullptr) {
        return -1;
    }
    server->server->End();
    return 0;
}
