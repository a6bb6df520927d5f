/// The least that answers an eCall client: a process that replies to every request at once, so that only the calling
/// side is measured.
#ifndef ECHO_PEER_H
#define ECHO_PEER_H

#include <cstdint>
#include <functional>

/// Binds a free port of the loopback address (0) or the one given. Answers the listening descriptor, -1 on failure, and
/// writes the port.
int EchoPeerListen(std::uint16_t& port);

/// Serves every client of the listening descriptor for ever; seen(methodIndex) is called before each reply.
[[noreturn]] void EchoPeerServe(int listener, const std::function<void(std::uint16_t)>& seen);

#endif
