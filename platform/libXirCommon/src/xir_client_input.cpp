// Reading: by the dispatch thread, or in its place by one waiter. Frames leave the input one by one, each with the
// reader role held; callbacks run without it, so during a callback another thread can go on with the next frame.
//
// A waiter completes replies only. Every other frame it moves, untouched, to the deferred queue, which the dispatch
// thread empties before it looks at the input again: so the order of notifications is the order on the wire.
#include <poll.h>

#include <cerrno>
#include <cstring>

#include "xir_client.h"

namespace {

constexpr const char* kBrokenFraming = "the peer breaks the framing";

}  // namespace

std::shared_ptr<XirStream> XirClient::OpenStream() const {
    const std::scoped_lock lock(mutex);
    return IsConnected() ? current : nullptr;
}

XirClient::Incoming XirClient::Look(const XirByteQueue& queue) {
    Incoming incoming;
    incoming.frame = XirFirstFrame(protocol, queue.Bytes());
    incoming.kind = Classify(incoming);
    return incoming;
}

XirClient::Incoming::Kind XirClient::Classify(Incoming& incoming) {
    switch (incoming.frame.result) {
        case XIR_COMMON_RPC_NEED_MORE:
            return Incoming::Kind::None;
        case XIR_COMMON_RPC_BROKEN:
            return Incoming::Kind::Broken;
        default:
            return incoming.frame.header.kind == XIR_COMMON_RPC_KIND_REPLY ? ClassifyReply(incoming)
                                                                           : Incoming::Kind::Message;
    }
}

/// A reply of another method than the call's would hand the caller a message of another type than it expects.
XirClient::Incoming::Kind XirClient::ClassifyReply(Incoming& incoming) {
    std::unique_lock lock(mutex);
    const auto found = calls.find(incoming.frame.header.request_id);
    if (found == calls.end()) {
        return Incoming::Kind::LateReply;
    }
    if (found->second.method != incoming.frame.header.method_index) {
        return Incoming::Kind::Broken;
    }
    incoming.call = std::move(found->second);
    calls.erase(found);
    NoteCalls();
    return Incoming::Kind::Reply;
}

void XirClient::Deliver() {
    std::unique_lock lock(mutex);
    const auto stream = current;
    lock.unlock();
    while (stream != nullptr && phase == Phase::Connected && DeliverNext(stream)) {
    }
}

/// False when there is nothing left, or the connection was closed.
bool XirClient::DeliverNext(const std::shared_ptr<XirStream>& stream) {
    std::unique_lock role(stream->reader);
    XirByteQueue& queue = stream->deferred.IsEmpty() ? stream->input : stream->deferred;
    const Incoming incoming = Look(queue);
    if (incoming.kind == Incoming::Kind::Broken) {
        GiveUp(*stream, role, -EPROTO, kBrokenFraming);
        return true;
    }
    queue.Consume(incoming.frame.size);
    role.unlock();
    switch (incoming.kind) {
        case Incoming::Kind::None:
            if (!IsConnected()) {
                Close();
            }
            return false;
        case Incoming::Kind::Reply:
            HandleReply(incoming);
            return true;
        case Incoming::Kind::Message:
            HandleMessage(incoming);
            return true;
        case Incoming::Kind::LateReply:
        case Incoming::Kind::Broken:
            return true;
    }
    return false;
}

void XirClient::HandleReply(const Incoming& incoming) {
    if (incoming.frame.result == XIR_COMMON_RPC_BAD_PAYLOAD) {
        Report(-EBADMSG,
               "reply of method " + std::to_string(incoming.frame.header.method_index) + " cannot be unpacked");
    }
    Complete(incoming.call, incoming.frame.message.get());
}

void XirClient::HandleMessage(const Incoming& incoming) {
    if (incoming.frame.result == XIR_COMMON_RPC_BAD_PAYLOAD) {
        Report(-EBADMSG,
               "message of method " + std::to_string(incoming.frame.header.method_index) + " cannot be unpacked");
        return;
    }
    if (hooks.message != nullptr) {
        const auto scope = UserScope();
        hooks.message(&facade, &incoming.frame.header, hooks.context);
    }
}

void XirClient::LoseByRead(XirStream& stream, XirReceived received, int error) {
    if (received == XirReceived::End) {
        Lose(stream, 0, "");
    } else {
        Lose(stream, -error, std::string("connection lost: ") + std::strerror(error));
    }
}

void XirClient::ReadInPlace(XirStream& stream, int pollEvents) {
    if ((pollEvents & POLLOUT) != 0) {
        stream.Flush();
    }
    std::unique_lock role(stream.reader);
    XirReceived received = XirReceived::Nothing;
    int error = 0;
    if ((pollEvents & ~POLLOUT) != 0) {
        received = stream.Receive();
        error = errno;
    }
    ReadForWaiter(stream, role);
    role.unlock();
    if (received == XirReceived::End || received == XirReceived::Failed) {
        LoseByRead(stream, received, error);
    }
}

/// The role is given back during each completion, so the input may have moved on when it returns.
void XirClient::ReadForWaiter(XirStream& stream, std::unique_lock<std::mutex>& role) {
    for (;;) {
        const Incoming incoming = Look(stream.input);
        switch (incoming.kind) {
            case Incoming::Kind::None:
                if (!stream.deferred.IsEmpty()) {
                    wake.Ring();
                }
                return;
            case Incoming::Kind::LateReply:
                stream.input.Consume(incoming.frame.size);
                break;
            case Incoming::Kind::Reply:
                stream.input.Consume(incoming.frame.size);
                role.unlock();
                HandleReply(incoming);
                role.lock();
                break;
            case Incoming::Kind::Message:
                if (stream.deferred.Size() + incoming.frame.size > kXirQueueLimit) {
                    GiveUp(stream, role, -ENOBUFS, "too many messages wait for the dispatch thread");
                    return;
                }
                stream.deferred.Append(stream.input.Bytes().first(incoming.frame.size));
                stream.input.Consume(incoming.frame.size);
                break;
            case Incoming::Kind::Broken:
                GiveUp(stream, role, -EPROTO, kBrokenFraming);
                return;
        }
    }
}

/// Drops a connection that cannot be read on; what it had deferred will still be delivered.
void XirClient::GiveUp(XirStream& stream, std::unique_lock<std::mutex>& role, int32_t code, const char* text) {
    stream.input.Clear();
    role.unlock();
    Lose(stream, code, text);
    role.lock();
}
