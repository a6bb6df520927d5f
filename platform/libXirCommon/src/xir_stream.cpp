#include "xir_stream.h"

#include <sys/socket.h>

#include <cerrno>

namespace {

constexpr size_t kReceiveChunk = 4096;

}  // namespace

ssize_t XirStream::Write(std::span<const uint8_t> bytes) {
    for (;;) {
        const ssize_t written = send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (written >= 0) {
            return written;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS) {
            return 0;
        }
        if (errno != EINTR) {
            return -1;
        }
    }
}

XirSent XirStream::Send(std::span<const uint8_t> frame) {
    const std::scoped_lock lock(writer);
    if (output.Size() + frame.size() > kXirQueueLimit) {
        return XirSent::Full;
    }
    ssize_t written = 0;
    if (output.IsEmpty()) {
        written = Write(frame);
        if (written < 0) {
            return XirSent::Failed;
        }
    }
    const auto rest = frame.subspan(static_cast<size_t>(written));
    output.Append(rest);
    hasOutput.store(!output.IsEmpty(), std::memory_order_release);
    return output.IsEmpty() ? XirSent::Whole : XirSent::Queued;
}

XirSent XirStream::Flush() {
    const std::scoped_lock lock(writer);
    if (output.IsEmpty()) {
        return XirSent::Whole;
    }
    const ssize_t written = Write(output.Bytes());
    if (written < 0) {
        return XirSent::Failed;
    }
    output.Consume(static_cast<size_t>(written));
    hasOutput.store(!output.IsEmpty(), std::memory_order_release);
    return output.IsEmpty() ? XirSent::Whole : XirSent::Queued;
}

void XirStream::Shutdown() {
    shutdown(socket.Get(), SHUT_RDWR);
}

XirReceived XirStream::Receive() {
    const auto room = input.Room(kReceiveChunk);
    ssize_t received = 0;
    do {
        received = recv(socket.Get(), room.data(), room.size(), MSG_DONTWAIT);
    } while (received < 0 && errno == EINTR);
    if (received > 0) {
        input.Grow(static_cast<size_t>(received));
        return XirReceived::Some;
    }
    if (received == 0) {
        return XirReceived::End;
    }
    return errno == EAGAIN || errno == EWOULDBLOCK ? XirReceived::Nothing : XirReceived::Failed;
}

bool XirStream::HasUnread() const {
    char byte = 0;
    return recv(socket.Get(), &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT) >= 0 || errno != EAGAIN;
}
