#include "WireClient.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Journal.h"
#include "MessageBlank.h"
#include "MessageText.h"
#include "lib_c/src-gen/Basetypes.pb-c.h"

namespace {

constexpr size_t kHeaderSize = 12;

uint32_t Number(const Bytes& bytes, size_t at, size_t count) {
    uint32_t value = 0;
    for (size_t byte = 0; byte < count; ++byte) {
        value |= static_cast<uint32_t>(bytes.at(at + byte)) << (8 * byte);
    }
    return value;
}

}  // namespace

std::string Text(const Frame& frame, const ProtobufCMessageDescriptor& descriptor) {
    ProtobufCMessage* message =
        protobuf_c_message_unpack(&descriptor, nullptr, frame.payload.size(), frame.payload.data());
    std::string text = MessageText(message);
    protobuf_c_message_free_unpacked(message, nullptr);
    return text;
}

WireClient::WireClient(uint16_t port, const ProtobufCServiceDescriptor& of)
    : service(of), descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    isConnected = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

WireClient::~WireClient() {
    close(descriptor);
}

uint32_t WireClient::Send(unsigned method, const ProtobufCMessage& request) {
    Bytes payload(protobuf_c_message_get_packed_size(&request));
    protobuf_c_message_pack(&request, payload.data());
    const auto size = static_cast<uint8_t>(payload.size());
    Bytes frame{size, 0, 0, 0, static_cast<uint8_t>(method), 0, kRequest, 0, ++lastId, 0, 0, 0};
    frame.insert(frame.end(), payload.begin(), payload.end());
    EXPECT_EQ(static_cast<ssize_t>(frame.size()), send(descriptor, frame.data(), frame.size(), MSG_NOSIGNAL));
    return lastId;
}

uint32_t WireClient::SendBlank(unsigned method) {
    return Send(method, MessageBlank(*service.methods[method].input).Get());
}

uint32_t WireClient::SendSubscription(unsigned method, uint32_t notification) {
    Com__Vantu__Ms__Protobuf__SubscribeRequest request = COM__VANTU__MS__PROTOBUF__SUBSCRIBE_REQUEST__INIT;
    std::string name("WireClient");
    request.messageid = notification;
    request.clientname = name.data();
    return Send(method, request.base);
}

Frame WireClient::Read() {
    const Bytes header = ReadBytes(kHeaderSize);
    if (header.size() < kHeaderSize) {
        ADD_FAILURE() << "no frame came";
        return {};
    }
    return {.method = static_cast<uint16_t>(Number(header, 4, 2)),
            .kind = header[6],
            .status = header[7],
            .id = Number(header, 8, 4),
            .payload = ReadBytes(Number(header, 0, 4))};
}

Bytes WireClient::ReadBytes(size_t count) {
    Bytes bytes;
    while (bytes.size() < count && IsReadable(Journal::kLimit)) {
        Bytes piece(count - bytes.size());
        const ssize_t got = recv(descriptor, piece.data(), piece.size(), 0);
        if (got <= 0) {
            break;
        }
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
    }
    return bytes;
}

bool WireClient::IsReadable(std::chrono::milliseconds limit) const {
    pollfd wait{.fd = descriptor, .events = POLLIN, .revents = 0};
    return poll(&wait, 1, static_cast<int>(limit.count())) == 1;
}

bool WireClient::IsClosed() {
    uint8_t byte = 0;
    return IsReadable(Journal::kLimit) && recv(descriptor, &byte, 1, 0) <= 0;
}
