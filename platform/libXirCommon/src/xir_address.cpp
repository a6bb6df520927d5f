#include "xir_address.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <string_view>

#include "xir_common_rpc.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// A peer that vanished is found within these, before the request limit makes callers doubt it.
constexpr seconds kKeepAliveIdle{10};
constexpr seconds kKeepAliveInterval{5};
constexpr int kKeepAliveProbes = 3;
constexpr milliseconds kUserTimeout{20'000};

std::optional<uint16_t> ParsePort(std::string_view text) {
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && port != 0 ? std::optional(port) : std::nullopt;
}

XirAddress Loopback(uint16_t port) {
    XirAddress address = {};
    address.ip4 = {
        .sin_family = AF_INET, .sin_port = htons(port), .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
    address.length = sizeof address.ip4;
    return address;
}

std::optional<XirAddress> ParseIp6(const std::string& host, uint16_t port) {
    XirAddress address = {};
    address.ip6.sin6_family = AF_INET6;
    address.ip6.sin6_port = htons(port);
    address.length = sizeof address.ip6;
    const bool isAddress = inet_pton(AF_INET6, host.c_str(), &address.ip6.sin6_addr) == 1;
    return isAddress ? std::optional(address) : std::nullopt;
}

std::optional<XirAddress> ParseHost(const std::string& host, uint16_t port) {
    XirAddress address = Loopback(port);
    if (host == "localhost") {
        return address;
    }
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        return ParseIp6(host.substr(1, host.size() - 2), port);
    }
    const bool isAddress = inet_pton(AF_INET, host.c_str(), &address.ip4.sin_addr) == 1;
    return isAddress ? std::optional(address) : std::nullopt;
}

std::optional<XirAddress> ParsePath(const std::string& path) {
    XirAddress address = {};
    if (path.empty() || path.size() >= sizeof address.local.sun_path) {
        return std::nullopt;
    }
    address.local.sun_family = AF_UNIX;
    std::memcpy(address.local.sun_path, path.data(), path.size());
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return address;
}

void SetOption(int fd, int level, int option, int value) {
    setsockopt(fd, level, option, &value, sizeof value);
}

/// Whether the path holds a socket that nobody listens on.
bool IsStaleSocket(const XirAddress& address) {
    struct stat status = {};
    if (lstat(address.local.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return false;
    }
    const XirDescriptor probe = XirOpenSocket(address);
    return probe && connect(probe.Get(), &address.any, address.length) != 0 && errno == ECONNREFUSED;
}

/// The mode set on the socket is the one that bind gives to the file, so nobody can connect in between.
bool BindLocal(int fd, const XirAddress& address) {
    if (fchmod(fd, S_IRUSR | S_IWUSR) != 0) {
        return false;
    }
    if (IsStaleSocket(address)) {
        unlink(address.local.sun_path);
    }
    return bind(fd, &address.any, address.length) == 0;
}

/// The address may be bound again at once after its server ended, although old connections linger.
bool BindTcp(int fd, const XirAddress& address) {
    SetOption(fd, SOL_SOCKET, SO_REUSEADDR, 1);
    return bind(fd, &address.any, address.length) == 0;
}

}  // namespace

std::optional<XirAddress> XirClientAddress(int32_t transport, const std::string& text) {
    if (transport == XIR_COMMON_RPC_TRANSPORT_FILE) {
        return ParsePath(text);
    }
    if (transport != XIR_COMMON_RPC_TRANSPORT_TCP) {
        return std::nullopt;
    }
    const size_t colon = text.rfind(':');
    const auto port = ParsePort(colon == std::string::npos ? text : text.substr(colon + 1));
    if (!port) {
        return std::nullopt;
    }
    return colon == std::string::npos ? Loopback(*port) : ParseHost(text.substr(0, colon), *port);
}

std::optional<XirAddress> XirServerAddress(int32_t transport, const std::string& text) {
    if (transport == XIR_COMMON_RPC_TRANSPORT_FILE) {
        return ParsePath(text);
    }
    const auto port = transport == XIR_COMMON_RPC_TRANSPORT_TCP ? ParsePort(text) : std::nullopt;
    return port ? std::optional(Loopback(*port)) : std::nullopt;
}

XirDescriptor XirOpenSocket(const XirAddress& address) {
    return XirDescriptor(socket(address.any.sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

void XirTuneConnection(int fd, const XirAddress& address) {
    if (address.IsLocal()) {
        return;
    }
    SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, static_cast<int>(kKeepAliveIdle.count()));
    SetOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, static_cast<int>(kKeepAliveInterval.count()));
    SetOption(fd, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
    SetOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<int>(kUserTimeout.count()));
}

XirDescriptor XirListen(const XirAddress& address) {
    XirDescriptor listener = XirOpenSocket(address);
    if (!listener) {
        return listener;
    }
    const bool bound = address.IsLocal() ? BindLocal(listener.Get(), address) : BindTcp(listener.Get(), address);
    return bound && listen(listener.Get(), SOMAXCONN) == 0 ? std::move(listener) : XirDescriptor();
}

XirFileIdentity XirSocketFile(const XirAddress& address) {
    struct stat status = {};
    const bool found = address.IsLocal() && lstat(address.local.sun_path, &status) == 0;
    return found ? XirFileIdentity{status.st_dev, status.st_ino} : XirFileIdentity{};
}

void XirRemoveSocketFile(const XirAddress& address, const XirFileIdentity& file) {
    if (file != XirFileIdentity{} && XirSocketFile(address) == file) {
        unlink(address.local.sun_path);
    }
}

bool XirIsSelfConnected(int fd) {
    XirAddress own = {};
    XirAddress peer = {};
    own.length = peer.length = sizeof own.ip6;
    if (getsockname(fd, &own.any, &own.length) != 0 || getpeername(fd, &peer.any, &peer.length) != 0) {
        return false;
    }
    const bool itself =
        own.any.sa_family != AF_UNIX && own.length == peer.length && std::memcmp(&own.any, &peer.any, own.length) == 0;
    if (itself) {
        const linger resetOnClose = {.l_onoff = 1, .l_linger = 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &resetOnClose, sizeof resetOnClose);
    }
    return itself;
}
