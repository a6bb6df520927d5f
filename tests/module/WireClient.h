/// A client that knows nothing but the bytes on the wire, for tests of the services beside the module.
#ifndef WIRE_CLIENT_H
#define WIRE_CLIENT_H

#include <protobuf-c/protobuf-c.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kReply = 0, kRequest = 1, kNotification = 2;

struct Frame {
    uint16_t method = 0;
    uint8_t kind = 0;
    uint8_t status = 0;
    uint32_t id = 0;
    Bytes payload;
};

/// The fields of the frame's payload, as MessageText writes them.
std::string Text(const Frame& frame, const ProtobufCMessageDescriptor& descriptor);

class WireClient {
  public:
    /// Connects to the port of this machine; service: the descriptor of the one that listens there, borrowed.
    WireClient(uint16_t port, const ProtobufCServiceDescriptor& service);
    ~WireClient();
    WireClient(const WireClient&) = delete;
    WireClient& operator=(const WireClient&) = delete;

    bool IsConnected() const { return isConnected; }

    /// Sends a request and answers its id.
    template <typename Method>
    uint32_t Ask(Method method, const ProtobufCMessage& request) {
        return Send(static_cast<unsigned>(method), request);
    }
    /// The same with every field at its default.
    template <typename Method>
    uint32_t Ask(Method method) {
        return SendBlank(static_cast<unsigned>(method));
    }
    /// Sends a request that names a notification, as "subscribe" does, under the client name "WireClient".
    template <typename Method>
    uint32_t AskFor(Method method, uint32_t notification) {
        return SendSubscription(static_cast<unsigned>(method), notification);
    }

    /// The next frame, whatever it is.
    Frame Read();
    /// That many bytes; fewer when the peer closes or nothing comes for a long time.
    Bytes ReadBytes(size_t count);
    bool IsReadable(std::chrono::milliseconds limit) const;
    /// True when the peer has closed the connection.
    bool IsClosed();

  private:
    uint32_t Send(unsigned method, const ProtobufCMessage& request);
    uint32_t SendBlank(unsigned method);
    uint32_t SendSubscription(unsigned method, uint32_t notification);

    const ProtobufCServiceDescriptor& service;
    int descriptor;
    bool isConnected = false;
    uint8_t lastId = 0;
};

#endif
