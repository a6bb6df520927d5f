#include "EchoPeer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lib_Ecall/src/ecallapp.pb-c.h"

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::uint16_t kRequestState = 8;
constexpr std::uint16_t kGetCfgParameter = 9;
constexpr std::uint16_t kGetVersion = 21;

struct Peer {
    int fd = -1;
    std::vector<std::uint8_t> received;
};

std::uint32_t PayloadLength(const std::vector<std::uint8_t>& bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8U |
           static_cast<std::uint32_t>(bytes[2]) << 16U | static_cast<std::uint32_t>(bytes[3]) << 24U;
}

template <typename Message, typename Pack>
std::string Packed(const Message& message, Pack pack) {
    std::array<std::uint8_t, 256> buffer{};
    return {reinterpret_cast<const char*>(buffer.data()), pack(&message, buffer.data())};
}

std::string VersionPayload() {
    Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse version =
        COM__VANTU__MS__PROTOBUF__GET_REMOTE_VERSION_RESPONSE__INIT;
    static char name[] = "com.vantu.ecallapp.iecallapp";
    version.major = 2;
    version.name = name;
    return Packed(version, com__vantu__ms__protobuf__get_remote_version_response__pack);
}

std::string StatePayload() {
    Com__Vantu__Ecallapp__TEcallappState state = COM__VANTU__ECALLAPP__TECALLAPP_STATE__INIT;
    state.servicestate = COM__VANTU__ECALLAPP__TECALLAPP_SERVICE_STATE__TEcallappServiceState_Available_Idle;
    Com__Vantu__Ecallapp__RequestStateResponse response = COM__VANTU__ECALLAPP__REQUEST_STATE_RESPONSE__INIT;
    response.ecallappstate = &state;
    return Packed(response, com__vantu__ecallapp__request_state_response__pack);
}

std::string ParameterPayload() {
    Com__Vantu__Ecallapp__TCfgParamValue value = COM__VANTU__ECALLAPP__TCFG_PARAM_VALUE__INIT;
    static char text[] = "";
    value.intvalue = 1;
    value.strvalue = text;
    Com__Vantu__Ecallapp__GetCfgParameterResponse response = COM__VANTU__ECALLAPP__GET_CFG_PARAMETER_RESPONSE__INIT;
    response.paramvalue = &value;
    return Packed(response, com__vantu__ecallapp__get_cfg_parameter_response__pack);
}

const std::string& PayloadOf(std::uint16_t method) {
    static const std::string version = VersionPayload();
    static const std::string state = StatePayload();
    static const std::string parameter = ParameterPayload();
    static const std::string done("\x08\x00", 2);
    switch (method) {
        case kGetVersion:
            return version;
        case kRequestState:
            return state;
        case kGetCfgParameter:
            return parameter;
        default:
            return done;
    }
}

/// The request's header with the reply's length and kind in it, then the payload.
bool Reply(int fd, const std::uint8_t* request, const std::string& payload) {
    std::string frame(reinterpret_cast<const char*>(request), kHeaderSize);
    frame[0] = static_cast<char>(payload.size());
    frame[1] = frame[2] = frame[3] = '\0';
    frame[6] = '\0';
    frame += payload;
    return send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(frame.size());
}

bool ServeOnce(Peer& peer, const std::function<void(std::uint16_t)>& seen) {
    std::array<std::uint8_t, 4096> buffer{};
    const ssize_t count = recv(peer.fd, buffer.data(), buffer.size(), 0);
    if (count <= 0) {
        return false;
    }
    peer.received.insert(peer.received.end(), buffer.data(), buffer.data() + count);
    while (peer.received.size() >= kHeaderSize && peer.received.size() >= kHeaderSize + PayloadLength(peer.received)) {
        const auto method =
            static_cast<std::uint16_t>(peer.received[4] | static_cast<unsigned>(peer.received[5]) << 8U);
        seen(method);
        if (!Reply(peer.fd, peer.received.data(), PayloadOf(method))) {
            return false;
        }
        const auto size = static_cast<std::ptrdiff_t>(kHeaderSize + PayloadLength(peer.received));
        peer.received.erase(peer.received.begin(), peer.received.begin() + size);
    }
    return true;
}

}  // namespace

int EchoPeerListen(std::uint16_t& port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(listener, 8) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        close(listener);
        return -1;
    }
    port = ntohs(address.sin_port);
    return listener;
}

void EchoPeerServe(int listener, const std::function<void(std::uint16_t)>& seen) {
    std::vector<Peer> peers;
    for (;;) {
        std::vector<pollfd> watched{{listener, POLLIN, 0}};
        for (const Peer& peer : peers) {
            watched.push_back({peer.fd, POLLIN, 0});
        }
        if (poll(watched.data(), watched.size(), -1) < 0) {
            continue;
        }
        for (std::size_t i = peers.size(); i-- > 0;) {
            if (watched[i + 1].revents != 0 && !ServeOnce(peers[i], seen)) {
                close(peers[i].fd);
                peers.erase(peers.begin() + static_cast<std::ptrdiff_t>(i));
            }
        }
        if (watched[0].revents != 0) {
            const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            peers.push_back({fd, {}});
        }
    }
}
