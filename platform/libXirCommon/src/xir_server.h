/// One RPC server: listens, accepts, hands requests to the service, sends notifications.
///
/// Requests are read and handed over on the dispatch thread. Replies and notifications may come from any thread: each
/// is written at once, and what the socket does not take is left to the dispatch thread.
#ifndef XIR_SERVER_H
#define XIR_SERVER_H

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "xir_address.h"
#include "xir_common_rpc.h"
#include "xir_peer.h"
#include "xir_reader_seat.h"

constexpr size_t kXirClientLimit = 64;
/// When all places are taken, a newcomer gets that of the client whose last request lies longest back, if it lies this
/// far back and nothing is owed to that client: half a frame, or nothing at all, must not keep a place for ever.
constexpr std::chrono::seconds kXirClientGrace{10};
/// A client with more unanswered requests than this is disconnected.
constexpr int kXirOpenRequestLimit = 4096;

/// What the user holds.
struct xir_common_rpc_server {
    XirServer* server;
};

class XirServer : public std::enable_shared_from_this<XirServer> {
  public:
    /// What the user installs, before the dispatcher runs.
    struct Hooks {
        xir_common_rpc_error_fn error = nullptr;
        void* errorContext = nullptr;
        xir_common_rpc_server_connection_fn connection = nullptr;
        void* connectionContext = nullptr;
    };

    /// Null when the address cannot be bound, and without memory or descriptors.
    static xir_common_rpc_server* Make(const XirAddress& address, ProtobufCService* service,
                                       ProtobufCRPCDispatch* dispatch, const xir_common_rpc_interface& interface);
    XirServer(const XirAddress& itsAddress, ProtobufCService* itsService, ProtobufCRPCDispatch* itsDispatch,
              const xir_common_rpc_interface& itsInterface);

    void ConfigureThreading(xir_common_osal_thread_handle thread) { seat = XirSeatOf(thread); }
    int32_t Notify(uint16_t method, const ProtobufCMessage* message);
    void End();

    XirProtocol protocol;
    Hooks hooks;

  private:
    using PeerPointer = std::shared_ptr<XirPeer>;

    void Report(int32_t code, const std::string& text);
    void TellConnection(const XirPeer& peer, int32_t event);
    std::vector<PeerPointer> Peers();

    void WatchListener();
    void OnAccept();
    void OnAcceptFailed(int error);
    bool HasRoom();
    void Add(XirDescriptor connected, std::string name);
    void Drop(const PeerPointer& peer, int32_t code, const std::string& reason);
    void Disconnect(XirPeer& peer);

    void WatchPeer(XirPeer& peer);
    void OnPeer(const PeerPointer& peer, unsigned events);
    void OnWake();
    /// False when no whole request is there, or the peer was dropped.
    bool ServeNext(const PeerPointer& peer);
    void HandOver(const PeerPointer& peer, const xir_common_rpc_header& request);
    static void Refuse(XirPeer& peer, const xir_common_rpc_header& request, xir_common_rpc_status status);
    bool HasHandler(unsigned method) const;

    const XirAddress address;
    ProtobufCService* const service;
    ProtobufCRPCDispatch* const dispatch;
    const xir_common_rpc_interface interface;
    const std::shared_ptr<XirWake> wake = std::make_shared<XirWake>();
    std::shared_ptr<XirReaderSeat> seat;
    xir_common_rpc_server facade = {this};
    std::shared_ptr<XirServer> keepAlive;  // until End

    // The dispatch thread's own.
    XirDescriptor listener;
    XirFileIdentity socketFile;  // of a local socket
    ProtobufCRPCDispatchTimer* acceptTimer = nullptr;
    unsigned clientsSoFar = 0;
    bool refusalReported = false;

    std::mutex mutex;  // for what follows
    std::vector<PeerPointer> peers;
};

#endif
