/// Addresses of the two transports, and sockets for them.
#ifndef XIR_ADDRESS_H
#define XIR_ADDRESS_H

#include <sys/socket.h>
#include <sys/un.h>

#include <netinet/in.h>

#include <optional>
#include <string>

#include "xir_descriptor.h"

struct XirAddress {
    union {
        sockaddr any;
        sockaddr_in ip4;
        sockaddr_in6 ip6;
        sockaddr_un local;
    };
    socklen_t length;

    bool IsLocal() const { return any.sa_family == AF_UNIX; }
};

struct XirFileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const XirFileIdentity&) const = default;
};

/// TCP: "host:port", or a port alone, which is one of this machine. A host is an IPv4 address, an IPv6 address in
/// brackets, or "localhost": names are not looked up, that could block the dispatch thread. Local socket: a path.
std::optional<XirAddress> XirClientAddress(int32_t transport, const std::string& text);
/// TCP: a port, always of the loopback address. Local socket: a path.
std::optional<XirAddress> XirServerAddress(int32_t transport, const std::string& text);

/// A non-blocking socket for the address; empty on failure, with errno.
XirDescriptor XirOpenSocket(const XirAddress& address);
/// What every TCP connection gets: no delay, and an end to half-open connections. Nothing on a local socket.
void XirTuneConnection(int fd, const XirAddress& address);
/// A bound and listening socket; empty on failure, with errno. A local socket gets mode 0600; one that nobody listens
/// on is replaced, EADDRINUSE when somebody does.
XirDescriptor XirListen(const XirAddress& address);
/// Which file a local socket is bound to; empty for TCP.
XirFileIdentity XirSocketFile(const XirAddress& address);
/// Removes a local socket's file, unless another file has taken its place.
void XirRemoveSocketFile(const XirAddress& address, const XirFileIdentity& file);
/// Whether a TCP socket is connected to itself, as happens when a port of the kernel's ephemeral range is called while
/// nobody listens there. Such a socket keeps the real server from binding its port; so when it is closed now, it is
/// without the lingering that would keep the port for another minute.
bool XirIsSelfConnected(int fd);

#endif
