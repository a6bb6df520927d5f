/// The connections of the programs that make just the system calls which a road demands.
#ifndef FLOOR_H
#define FLOOR_H

#include <cstdint>
#include <string_view>

constexpr std::uint16_t kLocationServicePort = 50778;
constexpr std::uint16_t kEcallServicePort = 50911;

/// A connection to this port of the loopback address; ends the process when there is none.
int ConnectTo(std::uint16_t port);
/// Sends these bytes and waits for the reply; ends the process when there is none.
void Exchange(int peer, std::string_view request);

#endif
