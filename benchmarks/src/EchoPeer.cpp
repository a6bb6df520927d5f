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
#include "lib_Location/src/location.pb-c.h"

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::uint8_t kRequest = 1;
constexpr std::uint8_t kNotification = 2;
// Methods of the eCall service.
constexpr std::uint16_t kUpdateGnssLocation = 7;
constexpr std::uint16_t kRequestState = 8;
constexpr std::uint16_t kGetCfgParameter = 9;
constexpr std::uint16_t kGetVersion = 21;
// And of the location service.
constexpr std::uint16_t kNotifyTheCurrentLocation = 3;
constexpr std::uint16_t kGetLocationProviderVersion = 7;

// The position of the measurements.
constexpr double kLatitude = 48.8566140;
constexpr double kLongitude = 2.3522219;
constexpr std::uint64_t kUtcSeconds = 1'699'999'999;

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
    std::array<std::uint8_t, 512> buffer{};
    return {reinterpret_cast<const char*>(buffer.data()), pack(&message, buffer.data())};
}

std::string VersionPayload(std::uint32_t major, std::string name) {
    Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse version =
        COM__VANTU__MS__PROTOBUF__GET_REMOTE_VERSION_RESPONSE__INIT;
    version.major = major;
    version.name = name.data();
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

/// Responsecode 0.
const std::string& Done() {
    static const std::string done("\x08\x00", 2);
    return done;
}

std::string Frame(std::uint16_t method, std::uint8_t kind, const std::string& payload) {
    std::string frame(kHeaderSize, '\0');
    frame[0] = static_cast<char>(payload.size());
    frame[1] = static_cast<char>(payload.size() >> 8U);
    frame[4] = static_cast<char>(method);
    frame[6] = static_cast<char>(kind);
    return frame + payload;
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

bool ServeOnce(Peer& peer, EchoPayloads payloads, const EchoSeen& seen) {
    std::array<std::uint8_t, 4096> buffer{};
    const ssize_t count = recv(peer.fd, buffer.data(), buffer.size(), 0);
    if (count <= 0) {
        return false;
    }
    peer.received.insert(peer.received.end(), buffer.data(), buffer.data() + count);
    while (peer.received.size() >= kHeaderSize && peer.received.size() >= kHeaderSize + PayloadLength(peer.received)) {
        const auto method =
            static_cast<std::uint16_t>(peer.received[4] | static_cast<unsigned>(peer.received[5]) << 8U);
        seen(method, peer.fd);
        if (!Reply(peer.fd, peer.received.data(), payloads(method))) {
            return false;
        }
        const auto size = static_cast<std::ptrdiff_t>(kHeaderSize + PayloadLength(peer.received));
        peer.received.erase(peer.received.begin(), peer.received.begin() + size);
    }
    return true;
}

}  // namespace

const std::string& EcallPayload(std::uint16_t method) {
    static const std::string version = VersionPayload(2, "com.vantu.ecallapp.iecallapp");
    static const std::string state = StatePayload();
    static const std::string parameter = ParameterPayload();
    switch (method) {
        case kGetVersion:
            return version;
        case kRequestState:
            return state;
        case kGetCfgParameter:
            return parameter;
        default:
            return Done();
    }
}

const std::string& LocationPayload(std::uint16_t method) {
    static const std::string version = VersionPayload(0, "com.vantu.ms.location.locationprovider");
    return method == kGetLocationProviderVersion ? version : Done();
}

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

void EchoPeerServe(int listener, EchoPayloads payloads, const EchoSeen& seen) {
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
            if (watched[i + 1].revents != 0 && !ServeOnce(peers[i], payloads, seen)) {
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

std::string PositionNotification() {
    Com__Vantu__Ms__Location__ErrorEllipseStruct ellipse = COM__VANTU__MS__LOCATION__ERROR_ELLIPSE_STRUCT__INIT;
    Com__Vantu__Ms__Location__QualifiedCoordinateStruct coordinates =
        COM__VANTU__MS__LOCATION__QUALIFIED_COORDINATE_STRUCT__INIT;
    coordinates.latitude = kLatitude;
    coordinates.longitude = kLongitude;
    coordinates.error_ellipse = &ellipse;
    Com__Vantu__Ms__Location__GpsDateStruct date = COM__VANTU__MS__LOCATION__GPS_DATE_STRUCT__INIT;
    Com__Vantu__Ms__Location__TimeInfoStruct time = COM__VANTU__MS__LOCATION__TIME_INFO_STRUCT__INIT;
    time.gps_date = &date;
    time.receive_timestamp = kUtcSeconds * 1000;
    static char info[] = "track";
    Com__Vantu__Ms__Location__LocationStruct location = COM__VANTU__MS__LOCATION__LOCATION_STRUCT__INIT;
    location.extra_info = info;
    location.qualified_coordinates = &coordinates;
    location.time_info = &time;
    location.valid_flag = 1;
    Com__Vantu__Ms__Location__NotifyTheCurrentLocationUpdate update =
        COM__VANTU__MS__LOCATION__NOTIFY_THE_CURRENT_LOCATION_UPDATE__INIT;
    update.location = &location;
    return Frame(kNotifyTheCurrentLocation, kNotification,
                 Packed(update, com__vantu__ms__location__notify_the_current_location_update__pack));
}

std::string PositionRequest() {
    Com__Vantu__Ecallapp__TGnssLocation location = COM__VANTU__ECALLAPP__TGNSS_LOCATION__INIT;
    location.isvalid = 1;
    location.utctime = kUtcSeconds;
    location.latitude = kLatitude;
    location.longitude = kLongitude;
    Com__Vantu__Ecallapp__UpdateGnssLocationRequest request = COM__VANTU__ECALLAPP__UPDATE_GNSS_LOCATION_REQUEST__INIT;
    request.location = &location;
    return Frame(kUpdateGnssLocation, kRequest,
                 Packed(request, com__vantu__ecallapp__update_gnss_location_request__pack));
}
