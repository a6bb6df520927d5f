/// The least that answers a client: a process that replies to every request at once, so that only the calling side is
/// measured.
#ifndef ECHO_PEER_H
#define ECHO_PEER_H

#include <cstdint>
#include <functional>
#include <string>

/// What one service answers each method with, packed.
using EchoPayloads = const std::string& (*)(std::uint16_t method);
const std::string& EcallPayload(std::uint16_t method);
const std::string& LocationPayload(std::uint16_t method);

/// Called before each reply, with the connection that it goes to.
using EchoSeen = std::function<void(std::uint16_t method, int connection)>;

/// Binds a free port of the loopback address (0) or the one given. Answers the listening descriptor, -1 on failure, and
/// writes the port.
int EchoPeerListen(std::uint16_t& port);

/// Serves every client of the listening descriptor for ever.
[[noreturn]] void EchoPeerServe(int listener, EchoPayloads payloads, const EchoSeen& seen);

/// A position as the location service notifies it, and the request with which it is to be sent on: whole frames.
std::string PositionNotification();
std::string PositionRequest();

#endif
