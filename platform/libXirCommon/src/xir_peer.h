/// One client of a server, and the requests of all clients that wait for the service's answer.
#ifndef XIR_PEER_H
#define XIR_PEER_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "xir_frame.h"
#include "xir_stream.h"
#include "xir_subscription.h"
#include "xir_wake.h"

class XirServer;

class XirPeer : public std::enable_shared_from_this<XirPeer> {
  public:
    /// wake: rung when the server's dispatch thread has something to do for this peer.
    XirPeer(XirDescriptor connected, std::string itsName, const XirProtocol& itsProtocol,
            std::shared_ptr<XirWake> itsWake);

    // Any thread.
    /// Sends the reply, and then changes the subscription that it acknowledges: a notification never overtakes it.
    void Reply(const xir_common_rpc_header& header, const XirSubscriptionRequest& acknowledged);
    /// False when the peer has not subscribed, or is lost.
    bool Notify(uint16_t method, std::span<const uint8_t> frame);
    /// True once the peer has stopped reading, so that it has to go.
    bool IsStuck() const { return stuck.load(std::memory_order_acquire); }
    /// True when nobody owes the peer anything: no reply, no notification, no byte.
    bool IsIdle();

    const std::string name;
    XirStream stream;
    std::atomic<int> openRequests{0};

    // The dispatch thread's own.
    XirServer* server = nullptr;  // null once the peer was dropped
    unsigned watched = 0;         // events for which the stream is watched
    std::chrono::steady_clock::time_point lastRequest = std::chrono::steady_clock::now();  // or when it connected

  private:
    bool Send(std::span<const uint8_t> frame);

    const XirProtocol protocol;
    const std::shared_ptr<XirWake> wake;
    std::atomic<bool> stuck{false};
    std::mutex mutex;              // orders frames and subscriptions
    std::vector<bool> subscribed;  // by method index
};

/// Notes a request that is about to be handed to the service. Answers the closure data for it: a number, not an
/// address, so that an answer that comes after the client or the server has gone, or comes twice, finds nothing and
/// does nothing.
void* XirOpenRequest(const std::shared_ptr<XirPeer>& peer, uint16_t method, uint32_t requestId,
                     const XirSubscriptionRequest& subscription);
/// The closure that goes with it; any thread. A null reply refuses the request.
void XirAnswerRequest(const ProtobufCMessage* reply, void* closureData);
/// Forgets the requests of a client that is gone.
void XirForgetRequests(const XirPeer& peer);

#endif
