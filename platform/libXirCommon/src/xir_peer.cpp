#include "xir_peer.h"

#include <algorithm>
#include <bit>
#include <unordered_map>
#include <utility>

namespace {

struct OpenRequest {
    std::shared_ptr<XirPeer> peer;
    uint16_t method = 0;
    uint32_t requestId = 0;
    XirSubscriptionRequest subscription;
};

struct OpenRequests {
    std::mutex mutex;
    uintptr_t lastNumber = 0;
    std::unordered_map<uintptr_t, OpenRequest> byNumber;
};

/// Never destroyed: a service may answer while the process ends.
OpenRequests& AllOpenRequests() {
    static auto* const all = new OpenRequests;
    return *all;
}

}  // namespace

XirPeer::XirPeer(XirDescriptor connected, std::string itsName, const XirProtocol& itsProtocol,
                 std::shared_ptr<XirWake> itsWake)
    : name(std::move(itsName)),
      stream(std::move(connected)),
      protocol(itsProtocol),
      wake(std::move(itsWake)),
      subscribed(itsProtocol.service->n_methods) {}

bool XirPeer::Send(std::span<const uint8_t> frame) {
    const XirSent sent = stream.Send(frame);
    if (sent == XirSent::Full) {
        stuck.store(true, std::memory_order_release);
    }
    if (sent == XirSent::Full || sent == XirSent::Queued) {
        wake->Ring();
    }
    return sent == XirSent::Whole || sent == XirSent::Queued;
}

void XirPeer::Reply(const xir_common_rpc_header& header, const XirSubscriptionRequest& acknowledged) {
    XirFrameBuffer frame;
    if (protocol.serialize(&header, frame.Sink()) < 0) {
        xir_common_rpc_header refusal = header;  // the reply is too long for a frame
        refusal.status = XIR_COMMON_RPC_STATUS_REFUSED;
        refusal.message = nullptr;
        protocol.serialize(&refusal, frame.Sink());
    }
    const std::scoped_lock lock(mutex);
    Send(frame.Bytes());
    if (acknowledged.change != XirSubscriptionChange::None && acknowledged.messageId < subscribed.size()) {
        subscribed[acknowledged.messageId] = acknowledged.change == XirSubscriptionChange::Subscribe;
    }
}

bool XirPeer::Notify(uint16_t method, std::span<const uint8_t> frame) {
    const std::scoped_lock lock(mutex);
    return subscribed[method] && Send(frame);
}

bool XirPeer::IsIdle() {
    const std::scoped_lock lock(mutex);
    return openRequests.load(std::memory_order_relaxed) == 0 && !stream.HasOutput() &&
           std::find(subscribed.begin(), subscribed.end(), true) == subscribed.end();
}

void* XirOpenRequest(const std::shared_ptr<XirPeer>& peer, uint16_t method, uint32_t requestId,
                     const XirSubscriptionRequest& subscription) {
    OpenRequests& open = AllOpenRequests();
    const std::scoped_lock lock(open.mutex);
    do {
        ++open.lastNumber;
    } while (open.byNumber.contains(open.lastNumber));
    open.byNumber[open.lastNumber] = {peer, method, requestId, subscription};
    peer->openRequests.fetch_add(1, std::memory_order_relaxed);
    return std::bit_cast<void*>(open.lastNumber);
}

void XirAnswerRequest(const ProtobufCMessage* reply, void* closureData) {
    OpenRequests& open = AllOpenRequests();
    std::unique_lock lock(open.mutex);
    const auto found = open.byNumber.find(std::bit_cast<uintptr_t>(closureData));
    if (found == open.byNumber.end()) {
        return;
    }
    const OpenRequest request = std::move(found->second);
    open.byNumber.erase(found);
    lock.unlock();
    request.peer->openRequests.fetch_sub(1, std::memory_order_relaxed);
    const auto status = reply == nullptr ? XIR_COMMON_RPC_STATUS_REFUSED : XIR_COMMON_RPC_STATUS_DELIVERED;
    request.peer->Reply({.method_index = request.method,
                         .kind = XIR_COMMON_RPC_KIND_REPLY,
                         .status = static_cast<uint8_t>(status),
                         .request_id = request.requestId,
                         .message = const_cast<ProtobufCMessage*>(reply)},
                        XirIsAcknowledged(reply) ? request.subscription : XirSubscriptionRequest{});
}

void XirForgetRequests(const XirPeer& peer) {
    OpenRequests& open = AllOpenRequests();
    const std::scoped_lock lock(open.mutex);
    std::erase_if(open.byNumber, [&peer](const auto& each) { return each.second.peer.get() == &peer; });
}
