#include "RawPeer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "ProtoBytes.h"

namespace {

constexpr int kWaitMs = 60'000;

bool WaitReadable(int fd) {
    pollfd waited{fd, POLLIN, 0};
    return poll(&waited, 1, kWaitMs) == 1;
}

uint64_t Little(const std::string& bytes, std::size_t offset, std::size_t size) {
    uint64_t value = 0;
    for (std::size_t i = size; i > 0; --i) {
        value = value << 8 | static_cast<uint8_t>(bytes[offset + i - 1]);
    }
    return value;
}

sockaddr_un LocalAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

sockaddr_in PortAddress(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void SendAll(int fd, const std::string& bytes) {
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()), send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

std::string ReceiveBytes(int fd, std::size_t count) {
    std::string bytes;
    while (bytes.size() < count) {
        char piece[256];
        const ssize_t got = WaitReadable(fd) ? recv(fd, piece, std::min(sizeof piece, count - bytes.size()), 0) : -1;
        if (got <= 0) {
            ADD_FAILURE() << "the other end sent nothing";
            bytes.resize(count);
            break;
        }
        bytes.append(piece, static_cast<std::size_t>(got));
    }
    return bytes;
}

RawFrame ReceiveFrame(int fd) {
    const std::string head = ReceiveBytes(fd, 12);
    RawFrame frame;
    frame.method = static_cast<uint16_t>(Little(head, 4, 2));
    frame.kind = static_cast<uint8_t>(head[6]);
    frame.status = static_cast<uint8_t>(head[7]);
    frame.id = static_cast<uint32_t>(Little(head, 8, 4));
    frame.payload = ReceiveBytes(fd, Little(head, 0, 4));
    return frame;
}

}  // namespace

std::string FrameBytes(const RawFrame& frame) {
    ProtoBytes out;
    out.Fixed(frame.payload.size(), 4).Fixed(frame.method, 2).Fixed(frame.kind, 1).Fixed(frame.status, 1);
    return out.Fixed(frame.id, 4).bytes + frame.payload;
}

RawPeer::RawPeer() {
    const sockaddr_un address = LocalAddress(place.Path());
    listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, listen(listener, 8));
}

RawPeer::~RawPeer() {
    Drop();
    close(listener);
}

void RawPeer::Accept() {
    Drop();
    ASSERT_TRUE(WaitReadable(listener)) << "no client came";
    connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
}

void RawPeer::Drop() {
    if (connection >= 0) {
        close(connection);
        connection = -1;
    }
}

RawFrame RawPeer::Receive() {
    return ReceiveFrame(connection);
}

void RawPeer::SendTogether(const std::vector<RawFrame>& frames) {
    std::string bytes;
    for (const RawFrame& frame : frames) {
        bytes += FrameBytes(frame);
    }
    SendAll(connection, bytes);
}

RawFrame RawPeer::Serve(const std::string& payload) {
    RawFrame request = Receive();
    Reply(request, payload);
    return request;
}

RawClient::RawClient(const std::string& path) : connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = LocalAddress(path);
    EXPECT_EQ(0, connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

RawClient::RawClient(uint16_t port) : connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = PortAddress(port);
    EXPECT_EQ(0, connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

RawClient::~RawClient() {
    close(connection);
}

void RawClient::Send(const std::string& bytes) {
    SendAll(connection, bytes);
}

void RawClient::SendUntilEnd(const std::string& bytes, int sends) {
    for (int i = 0; i < sends; ++i) {
        if (send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
            return;
        }
    }
    ADD_FAILURE() << "the server still takes everything";
}

uint32_t RawClient::Request(uint16_t method, const std::string& payload) {
    Send(FrameBytes({method, kRequest, 0, ++lastId, payload}));
    return lastId;
}

RawFrame RawClient::Receive() {
    return ReceiveFrame(connection);
}

RawFrame RawClient::Call(uint16_t method, const std::string& payload) {
    Request(method, payload);
    return Receive();
}

void RawClient::WaitForEnd() {
    char bytes[256];
    do {
        ASSERT_TRUE(WaitReadable(connection)) << "the server keeps the connection";
    } while (recv(connection, bytes, sizeof bytes, 0) > 0);
}

TakenPort::TakenPort(uint16_t port) : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const sockaddr_in address = PortAddress(port);
    EXPECT_EQ(0, bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, listen(listener, 1));
}

TakenPort::~TakenPort() {
    close(listener);
}
