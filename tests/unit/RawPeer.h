/// A peer that speaks the bytes of the wire itself, one step at a time under the test's control: for replies that come
/// late, in another order, damaged, or not at all. Every wait is limited and fails the test when nothing comes.
#ifndef RAW_PEER_H
#define RAW_PEER_H

#include <cstdint>
#include <string>
#include <vector>

#include "ScratchSocket.h"

struct RawFrame {
    uint16_t method = 0;
    uint8_t kind = 0;
    uint8_t status = 0;
    uint32_t id = 0;
    std::string payload;
};

/// As it goes over the wire.
std::string FrameBytes(const RawFrame& frame);

constexpr uint8_t kReply = 0;
constexpr uint8_t kRequest = 1;
constexpr uint8_t kNotification = 2;

class RawPeer {
  public:
    RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;
    ~RawPeer();

    std::string Url() const { return place.Url(); }

    /// Waits for the next client; the previous one is dropped.
    void Accept();
    /// Closes the connection.
    void Drop();
    /// The next frame from the client.
    RawFrame Receive();
    void Send(const RawFrame& frame) { SendTogether({frame}); }
    /// In one write, so that the client most likely reads them at once.
    void SendTogether(const std::vector<RawFrame>& frames);
    void Reply(const RawFrame& request, const std::string& payload) {
        Send({request.method, kReply, 0, request.id, payload});
    }
    void Notify(uint16_t method, const std::string& payload) { Send({method, kNotification, 0, 0, payload}); }
    /// Receives a request, answers it, and gives it back.
    RawFrame Serve(const std::string& payload);

  private:
    ScratchSocket place;
    int listener = -1;
    int connection = -1;
};

/// A client of the same kind.
class RawClient {
  public:
    explicit RawClient(const std::string& path);
    /// Connects to a port of this machine.
    explicit RawClient(uint16_t port);
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    ~RawClient();

    void Send(const std::string& bytes);
    /// Sends until the server has closed the connection; nothing is read meanwhile. Limited by the number of sends.
    void SendUntilEnd(const std::string& bytes, int sends);
    /// Sends a request under the next id; answers that.
    uint32_t Request(uint16_t method, const std::string& payload);
    /// The next frame from the server.
    RawFrame Receive();
    /// Sends a request and waits for its reply, the next frame.
    RawFrame Call(uint16_t method, const std::string& payload);
    /// Until the server has closed the connection; what it sends before is passed over.
    void WaitForEnd();

  private:
    int connection = -1;
    uint32_t lastId = 0;
};

/// Listens on a port of this machine, so that nobody else can.
class TakenPort {
  public:
    explicit TakenPort(uint16_t port);
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;
    ~TakenPort();

  private:
    int listener = -1;
};

#endif
