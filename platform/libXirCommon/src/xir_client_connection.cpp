// Connecting, losing and connecting again; all of it on the dispatch thread.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "xir_client.h"

namespace {

using std::chrono::milliseconds;

/// A connection that lived for less than this does not count as a success of the attempt: a peer that takes connections
/// only to drop them must not be hammered.
constexpr milliseconds kProvenAfter{1000};

int SocketError(int fd) {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

}  // namespace

void XirClient::Connect() {
    phase = Phase::Connecting;
    connecting = XirOpenSocket(address);
    if (!connecting) {
        OnAttemptFailed(errno);
        return;
    }
    XirTuneConnection(connecting.Get(), address);
    const bool begun = connect(connecting.Get(), &address.any, address.length) == 0 || errno == EINPROGRESS;
    if (!begun) {
        OnAttemptFailed(errno);
        return;
    }
    // Established at once or not: the answer is read when the dispatcher finds the socket writable.
    protobuf_c_rpc_dispatch_watch_fd(
        dispatch, connecting.Get(), PROTOBUF_C_RPC_EVENT_WRITABLE,
        [](ProtobufC_RPC_FD, unsigned, void* self) { static_cast<XirClient*>(self)->OnConnecting(); }, this);
}

void XirClient::OnConnecting() {
    const auto self = shared_from_this();
    const int fd = connecting.Get();
    protobuf_c_rpc_dispatch_watch_fd(dispatch, fd, 0, nullptr, nullptr);
    int error = SocketError(fd);
    if (error == 0 && XirIsSelfConnected(fd)) {
        error = ECONNREFUSED;
    }
    if (error != 0) {
        OnAttemptFailed(error);
        return;
    }
    Open();
}

/// Reported once until a connection stands again: attempts follow each other for as long as the peer is away.
void XirClient::OnAttemptFailed(int error) {
    const auto self = shared_from_this();
    connecting = XirDescriptor();
    RetryLater();
    if (!refusalReported) {
        refusalReported = true;
        Report(-error, std::string("cannot connect: ") + std::strerror(error));
    }
}

/// Ends the process without memory: without its timer this client would be dead for good, and nobody would notice.
ProtobufCRPCDispatchTimer* XirClient::AddTimer(milliseconds delay, ProtobufCRPCDispatchTimerFunc func) {
    auto* timer = protobuf_c_rpc_dispatch_add_timer_millis(dispatch, static_cast<unsigned>(delay.count()), func, this);
    if (timer == nullptr) {
        std::abort();
    }
    return timer;
}

void XirClient::ConnectIn(milliseconds delay) {
    phase = Phase::Waiting;
    retryTimer = AddTimer(delay, [](ProtobufCRPCDispatch*, void* data) {
        auto* self = static_cast<XirClient*>(data);
        self->retryTimer = nullptr;
        self->Connect();
    });
}

void XirClient::RetryLater() {
    ConnectIn(backOff);
    backOff = std::min(backOff * 2, kXirLongestBackOff);
}

/// The repeated subscriptions are on their way before IsConnected lets the first request of the user through.
void XirClient::Open() {
    phase = Phase::Connected;
    openedAt = XirClock::now();
    refusalReported = false;
    const auto stream = std::make_shared<XirStream>(std::exchange(connecting, XirDescriptor()));
    std::unique_lock lock(mutex);
    current = stream;
    lock.unlock();
    RepeatSubscriptions(*stream);
    if (phase != Phase::Connected) {
        return;  // the user ended the client in its error handler
    }
    connected.store(true, std::memory_order_release);
    WatchStream();
    ArmLimitTimer();
    TellConnection(XIR_COMMON_RPC_EVENT_OPENED);
}

void XirClient::Close() {
    UnwatchStream();
    std::unique_lock lock(mutex);
    current.reset();
    lock.unlock();
    if (XirClock::now() - openedAt >= kProvenAfter) {
        backOff = kXirFirstBackOff;
    }
    RetryLater();
    TellConnection(XIR_COMMON_RPC_EVENT_CLOSED);
}

void XirClient::OnSocket(unsigned events) {
    const auto self = shared_from_this();
    std::unique_lock lock(mutex);
    const auto stream = current;
    lock.unlock();
    if ((events & PROTOBUF_C_RPC_EVENT_WRITABLE) != 0) {
        stream->Flush();
        WatchStream();
    }
    if ((events & PROTOBUF_C_RPC_EVENT_READABLE) == 0) {
        return;
    }
    std::unique_lock role(stream->reader);
    const XirReceived received = stream->Receive();
    const int error = errno;
    role.unlock();
    Deliver();
    if (received == XirReceived::End || received == XirReceived::Failed) {
        LoseByRead(*stream, received, error);
        Deliver();
    }
}

void XirClient::OnWake() {
    const auto self = shared_from_this();
    wake.Answer();
    WatchStream();
    ArmLimitTimer();
    Deliver();
}

/// Keeps the watch in step with what the stream needs.
void XirClient::WatchStream() {
    if (phase != Phase::Connected) {
        return;
    }
    const std::scoped_lock lock(mutex);
    const unsigned wanted = current->WantedEvents();
    if (wanted != watched) {
        protobuf_c_rpc_dispatch_watch_fd(
            dispatch, current->Fd(), wanted,
            [](ProtobufC_RPC_FD, unsigned events, void* self) { static_cast<XirClient*>(self)->OnSocket(events); },
            this);
        watched = wanted;
    }
}

void XirClient::UnwatchStream() {
    const std::scoped_lock lock(mutex);
    if (watched != 0) {
        protobuf_c_rpc_dispatch_watch_fd(dispatch, current->Fd(), 0, nullptr, nullptr);
        watched = 0;
    }
}

/// The dispatch thread's watch over the request limit is for calls that nobody waits for. It runs from the first call
/// on until it finds none: calls in quick succession then cost nothing here, and an idle client wakes nobody.
void XirClient::ArmLimitTimer() {
    if (limitTimer != nullptr || phase == Phase::Ended) {
        return;
    }
    std::unique_lock lock(mutex);
    const bool needed = limitTimerRuns = !calls.empty();
    lock.unlock();
    if (needed) {
        const auto left = std::chrono::ceil<milliseconds>(NextLimit() - XirClock::now());
        limitTimer = AddTimer(std::max(left, milliseconds{0}), [](ProtobufCRPCDispatch*, void* data) {
            auto* self = static_cast<XirClient*>(data);
            self->limitTimer = nullptr;
            self->OnLimitTimer();
        });
    }
}

void XirClient::OnLimitTimer() {
    const auto self = shared_from_this();
    ExpireCalls();
    ArmLimitTimer();
}
