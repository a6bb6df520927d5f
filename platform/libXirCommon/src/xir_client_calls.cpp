// Requests and their completions, on any thread. A call is in the table from before its frame is written until somebody
// takes it out: the reply, the limit, the loss of the connection, or a failed write. Taking it out is what gives the
// right to complete it, so every call is completed exactly once.
#include <cerrno>

#include "xir_client.h"

uint32_t XirClient::NextId() {
    uint32_t id = 0;
    while (id == 0) {
        id = lastId.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return id;
}

XirClock::time_point XirClient::NextLimit() const {
    return XirClock::time_point(XirClock::duration(nextLimit.load(std::memory_order_acquire)));
}

/// Keeps what others read without the lock in step with the table. Called with the lock held.
void XirClient::NoteCalls() {
    const auto limit = calls.empty() ? XirClock::time_point::max() : calls.begin()->second.limit;
    nextLimit.store(limit.time_since_epoch().count(), std::memory_order_release);
    callCount.store(calls.size(), std::memory_order_release);
}

/// Answers the stream on which the request is to be written; null, and no call was added, while not connected.
std::shared_ptr<XirStream> XirClient::AddCall(uint32_t id, const Call& call) {
    std::unique_lock lock(mutex);
    if (!IsConnected()) {
        return nullptr;
    }
    calls.emplace(id, call);
    NoteCalls();
    const bool timerMissing = !limitTimerRuns;
    limitTimerRuns = true;
    auto stream = current;
    lock.unlock();
    if (timerMissing) {
        CallDispatchThread();
    }
    return stream;
}

bool XirClient::TakeCall(uint32_t id, Call& call) {
    const std::scoped_lock lock(mutex);
    const auto found = calls.find(id);
    if (found == calls.end()) {
        return false;
    }
    call = std::move(found->second);
    calls.erase(found);
    NoteCalls();
    return true;
}

void XirClient::CallDispatchThread() {
    if (OnDispatchThread()) {
        WatchStream();
        ArmLimitTimer();
    } else {
        wake.Ring();
    }
}

XirClient::Call XirClient::MakeCall(unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure,
                                    void* closureData) const {
    Call call;
    call.closure = closure;
    call.closureData = closureData;
    call.method = static_cast<uint16_t>(method);
    call.limit = XirClock::now() + kXirRequestLimit;
    call.subscription = XirSubscriptionRequestOf(protocol.service->methods[method], request);
    if (call.subscription.change == XirSubscriptionChange::Subscribe) {
        call.request.resize(protobuf_c_message_get_packed_size(request));
        protobuf_c_message_pack(request, call.request.data());
    }
    return call;
}

bool XirClient::PackRequest(uint32_t id, uint16_t method, ProtobufCMessage* request, XirFrameBuffer& frame) const {
    const xir_common_rpc_header header = {
        .method_index = method, .kind = XIR_COMMON_RPC_KIND_REQUEST, .status = 0, .request_id = id, .message = request};
    return protocol.serialize(&header, frame.Sink()) >= 0;
}

void XirClient::Invoke(unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure, void* closureData) {
    const auto self = shared_from_this();
    const Call call = MakeCall(method, request, closure, closureData);
    const uint32_t id = NextId();
    XirFrameBuffer frame;
    if (!PackRequest(id, call.method, const_cast<ProtobufCMessage*>(request), frame)) {
        Report(-EMSGSIZE, "request of method " + std::to_string(method) + " is too long");
        Complete(call, nullptr);
        return;
    }
    const auto stream = AddCall(id, call);
    if (stream == nullptr) {
        Complete(call, nullptr);
        return;
    }
    SendFrame(*stream, id, frame.Bytes());
}

void XirClient::SendFrame(XirStream& stream, uint32_t id, std::span<const uint8_t> frame) {
    switch (stream.Send(frame)) {
        case XirSent::Whole:
            break;
        case XirSent::Queued:
            CallDispatchThread();
            if (seat != nullptr) {
                seat->Interrupt();  // one who polls in its place began when there was nothing to write
            }
            break;
        case XirSent::Full:
            Report(-ENOBUFS, "request refused: the peer does not read, and too much waits for it");
            CompleteMissing(id);
            break;
        case XirSent::Failed:
            CompleteMissing(id);
            break;
    }
}

void XirClient::CompleteMissing(uint32_t id) {
    Call call;
    if (TakeCall(id, call)) {
        Complete(call, nullptr);
    }
}

void XirClient::Complete(const Call& call, const ProtobufCMessage* reply) {
    Settle(call, reply);
    if (call.closure != nullptr) {
        const auto scope = UserScope();
        call.closure(reply, call.closureData);
    }
}

/// Remembers what has to be repeated after a reconnection. An unsubscription counts, too, when its reply is missing:
/// the user has withdrawn, whatever became of the message.
void XirClient::Settle(const Call& call, const ProtobufCMessage* reply) {
    const bool acknowledged = XirIsAcknowledged(reply);
    switch (call.subscription.change) {
        case XirSubscriptionChange::None:
            return;
        case XirSubscriptionChange::Subscribe:
            // A repetition's entry is there already, unless it was withdrawn in the meantime.
            if (acknowledged && call.closure != nullptr) {
                const std::scoped_lock lock(mutex);
                subscriptions[call.subscription.messageId] = call.request;
            } else if (!acknowledged && call.closure == nullptr && reply != nullptr) {
                Report(-EACCES, "subscription to " + std::to_string(call.subscription.messageId) +
                                    " was refused after the reconnection");
            }
            return;
        case XirSubscriptionChange::Unsubscribe:
            if (acknowledged || reply == nullptr) {
                const std::scoped_lock lock(mutex);
                subscriptions.erase(call.subscription.messageId);
            }
            return;
    }
}

void XirClient::ExpireCalls() {
    const auto now = XirClock::now();
    while (NextLimit() <= now) {
        std::unique_lock lock(mutex);
        if (calls.empty() || calls.begin()->second.limit > now) {
            return;
        }
        const Call call = std::move(calls.begin()->second);
        calls.erase(calls.begin());
        NoteCalls();
        lock.unlock();
        Report(-ETIMEDOUT, "no reply to method " + std::to_string(call.method) + " within " +
                               std::to_string(kXirRequestLimit.count()) + " s");
        Complete(call, nullptr);
    }
}

void XirClient::Lose(XirStream& stream, int32_t code, const std::string& text) {
    const auto self = shared_from_this();
    Calls ended;
    {
        const std::scoped_lock lock(mutex);
        if (current.get() != &stream || !connected.exchange(false)) {
            return;
        }
        ended.swap(calls);
        NoteCalls();
    }
    stream.Shutdown();
    wake.Ring();
    if (code != 0) {
        Report(code, text);
    }
    for (const auto& [id, call] : ended) {
        Complete(call, nullptr);
    }
}

void XirClient::RepeatSubscriptions(XirStream& stream) {
    std::unique_lock lock(mutex);
    const auto repeated = subscriptions;
    lock.unlock();
    const ProtobufCMethodDescriptor* subscribe =
        protobuf_c_service_descriptor_get_method_by_name(protocol.service, "subscribe");
    for (const auto& [messageId, packed] : repeated) {
        const XirMessage request(protobuf_c_message_unpack(subscribe->input, nullptr, packed.size(), packed.data()));
        const auto method = static_cast<unsigned>(subscribe - protocol.service->methods);
        RepeatRequest(stream, MakeCall(method, request.get(), nullptr, nullptr), request.get());
    }
}

void XirClient::RepeatRequest(XirStream& stream, const Call& call, ProtobufCMessage* request) {
    const uint32_t id = NextId();
    XirFrameBuffer frame;
    if (!PackRequest(id, call.method, request, frame)) {
        return;  // cannot be: it was packed once before
    }
    std::unique_lock lock(mutex);
    calls.emplace(id, call);
    NoteCalls();
    lock.unlock();
    SendFrame(stream, id, frame.Bytes());
}
