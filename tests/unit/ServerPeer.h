/// A service for tests: a real server of the platform's RPC library, with canned replies and a record of requests.
#ifndef SERVER_PEER_H
#define SERVER_PEER_H

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ScratchSocket.h"
#include "XirRpcServer.h"

struct PeerRequest {
    unsigned method;
    std::string payload;  ///< packed
    bool operator==(const PeerRequest&) const = default;
};

/// Which service a peer is.
struct PeerService {
    const ProtobufCServiceDescriptor* descriptor;
    unsigned versionMethod;
    int major;
    const char* interfaceName;
};
extern const PeerService kEcallService;

/// The reply to the version question, packed.
std::string VersionReply(int code, int major, const std::string& name);

class ServerPeer {
  public:
    /// Answers the version question as the service does, and every other method with responsecode 0 alone.
    explicit ServerPeer(const PeerService& service = kEcallService);
    ServerPeer(const ServerPeer&) = delete;
    ServerPeer& operator=(const ServerPeer&) = delete;
    ~ServerPeer() { Stop(); }

    /// Makes the reply of a request, both packed; what is no such message refuses the request. On the server thread.
    using Handler = std::function<std::string(const std::string& request)>;
    void Handle(unsigned method, Handler handler);
    void Answer(unsigned method, const std::string& payload) {
        Handle(method, [payload](const std::string& /*request*/) { return payload; });
    }
    /// Sends a notification to the subscribers. Answers how many there were.
    int Notify(uint16_t method, const std::string& payload);
    std::vector<PeerRequest> Requests() const;
    /// The request of the method with this number among those since the beginning, from 1; it has been answered.
    PeerRequest WaitFor(unsigned method, std::size_t count = 1) const;

    void Start();
    void Stop();
    std::string Url() const { return place.Url(); }
    std::string SocketPath() const { return place.Path(); }

  private:
    struct Service {
        ProtobufCService base;
        ServerPeer* peer;
    };
    static void Invoke(ProtobufCService* service, unsigned method, const ProtobufCMessage* request,
                       ProtobufCClosure closure, void* closureData);
    Handler Record(const PeerRequest& request);
    void NoteAnswer();

    const PeerService& identity;
    ScratchSocket place;
    const std::string url = place.Url();
    const char* const urls[1] = {url.c_str()};
    XirRpcServer<Service>* server = nullptr;
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::map<unsigned, Handler> handlers;
    std::vector<PeerRequest> requests;
    std::size_t answered = 0;  ///< of the requests, in their order
};

#endif
