// The trap of every wait is the notification that comes between looking and sleeping. Here each look at the flag that
// precedes a sleep or a poll is made with the mutex held, and whoever raises a flag takes the mutex after raising it.
#include "xir_reader_seat.h"

#include <poll.h>

#include <algorithm>

namespace {

bool IsRaised(const uint8_t* flag) {
    return std::atomic_ref<uint8_t>(*const_cast<uint8_t*>(flag)).load(std::memory_order_acquire) != 0;
}

/// For poll: rounded up, so that a limit is over when poll returns because of it.
int MillisUntil(XirClock::time_point limit) {
    if (limit == XirClock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - XirClock::now()).count();
    return static_cast<int>(std::max<int64_t>(left, 0));
}

}  // namespace

void XirReaderSeat::Attach(std::shared_ptr<XirSharedConnection> connection) {
    const std::scoped_lock lock(mutex);
    connections.push_back(std::move(connection));
}

void XirReaderSeat::Detach(const XirSharedConnection* connection) {
    const std::scoped_lock lock(mutex);
    std::erase_if(connections, [connection](const auto& attached) { return attached.get() == connection; });
}

bool XirReaderSeat::HasCalls() const {
    return std::any_of(connections.begin(), connections.end(), [](const auto& each) { return each->HasCalls(); });
}

XirClock::time_point XirReaderSeat::NextLimit() const {
    auto limit = XirClock::time_point::max();
    for (const auto& connection : connections) {
        limit = std::min(limit, connection->NextLimit());
    }
    return limit;
}

void XirReaderSeat::ExpireCalls(const Connections& expired) {
    for (const auto& connection : expired) {
        connection->ExpireCalls();
    }
}

void XirReaderSeat::InitFlag(uint8_t* flag) {
    std::atomic_ref<uint8_t>(*flag).store(0, std::memory_order_release);
}

void XirReaderSeat::NotifyFlag(uint8_t* flag) {
    // From here on the flag's owner may be gone: it is not touched again.
    std::atomic_ref<uint8_t>(*flag).store(1, std::memory_order_release);
    std::unique_lock lock(mutex);
    const bool wakeSleepers = sleepers > 0;
    const bool interruptReader = polling;
    lock.unlock();
    Call(wakeSleepers, interruptReader);
}

void XirReaderSeat::Interrupt() {
    std::unique_lock lock(mutex);
    const bool interruptReader = polling;
    lock.unlock();
    Call(false, interruptReader);
}

void XirReaderSeat::Call(bool wakeSleepers, bool interruptReader) {
    if (wakeSleepers) {
        changed.notify_all();
    }
    if (interruptReader) {
        interrupt.Ring();
    }
}

int32_t XirReaderSeat::WaitFlag(uint8_t* flag, bool onDispatchThread) {
    if (IsRaised(flag)) {
        return 0;
    }
    std::unique_lock lock(mutex);
    ++visitors;
    handlerDepth += onDispatchThread ? 1 : 0;  // it cannot read for others while it waits: whoever waits, reads
    while (!IsRaised(flag) && !closed) {
        if (handlerDepth > 0 && !taken && !connections.empty()) {
            ReadOnce(lock, flag);
        } else {
            Sleep(lock);
        }
    }
    handlerDepth -= onDispatchThread ? 1 : 0;
    --visitors;
    const int32_t answer = IsRaised(flag) ? 0 : -1;
    const bool seatIsWanted = handlerDepth > 0 && sleepers > 0;
    if (seatIsWanted || closed) {
        changed.notify_all();
    }
    return answer;
}

void XirReaderSeat::Sleep(std::unique_lock<std::mutex>& lock) {
    const auto limit = NextLimit();
    ++sleepers;
    auto reason = std::cv_status::no_timeout;
    if (limit == XirClock::time_point::max()) {
        changed.wait(lock);
    } else {
        reason = changed.wait_until(lock, limit);
    }
    --sleepers;
    if (reason == std::cv_status::timeout) {
        const Connections expired = connections;
        lock.unlock();
        ExpireCalls(expired);
        lock.lock();
    }
}

/// What the dispatch thread had received before its handler began may hold the reply already; so that comes first, and
/// only then the wait for more.
void XirReaderSeat::ReadOnce(std::unique_lock<std::mutex>& lock, const uint8_t* flag) {
    taken = true;
    const unsigned handlersBefore = handlersSoFar;
    const Connections readable = connections;
    lock.unlock();
    for (const auto& connection : readable) {
        if (const auto stream = connection->OpenStream()) {
            connection->ReadInPlace(*stream, 0);
        }
    }
    lock.lock();
    // With another handler the dispatch thread has read in between, and may have left behind what poll cannot see.
    if (!IsRaised(flag) && !closed && handlersSoFar == handlersBefore) {
        polling = true;
        lock.unlock();
        PollOnce(readable);
        ExpireCalls(readable);
        lock.lock();
    }
    taken = false;
}

void XirReaderSeat::PollOnce(const Connections& readable) {
    struct Open {
        XirSharedConnection* connection;
        std::shared_ptr<XirStream> stream;
    };
    std::vector<Open> open;
    std::vector<pollfd> polled = {{.fd = interrupt.Fd(), .events = POLLIN, .revents = 0}};
    auto limit = XirClock::time_point::max();
    for (const auto& connection : readable) {
        limit = std::min(limit, connection->NextLimit());
        if (auto stream = connection->OpenStream()) {
            const int events = POLLIN | (stream->HasOutput() ? POLLOUT : 0);
            polled.push_back({.fd = stream->Fd(), .events = static_cast<short>(events), .revents = 0});
            open.push_back({connection.get(), std::move(stream)});
        }
    }
    poll(polled.data(), polled.size(), MillisUntil(limit));
    std::unique_lock lock(mutex);
    polling = false;
    const bool stillNeeded = handlerDepth > 0;
    lock.unlock();
    if (polled[0].revents != 0) {
        interrupt.Answer();
    }
    for (size_t index = 0; stillNeeded && index < open.size(); ++index) {
        if (polled[index + 1].revents != 0) {
            open[index].connection->ReadInPlace(*open[index].stream, polled[index + 1].revents);
        }
    }
}

void XirReaderSeat::Close() {
    std::unique_lock lock(mutex);
    closed = true;
    changed.notify_all();
    interrupt.Ring();
    changed.wait(lock, [this] { return visitors == 0; });
}

/// Waiters are only called when there is something to read for them: a completion that was the last call in flight
/// wakes its own waiter soon enough. One who still polls since an earlier handler is called, too: the dispatch thread
/// has read in between, and may leave a reply behind that poll cannot see.
void XirReaderSeat::EnterHandler() {
    std::unique_lock lock(mutex);
    ++handlerDepth;
    ++handlersSoFar;
    const bool wanted = HasCalls();
    const bool wakeSleepers = wanted && sleepers > 0;
    const bool interruptReader = wanted && polling;
    lock.unlock();
    Call(wakeSleepers, interruptReader);
}

void XirReaderSeat::LeaveHandler() {
    const std::scoped_lock lock(mutex);
    --handlerDepth;
}
