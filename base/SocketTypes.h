// The types that describe a TCP connection, the same on every system: what `DcmSocket` holds and platform/Socket.h
// takes.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// The system's number for a socket.
using SocketHandle = std::intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

/// An IPv4 socket address as the system lays it out. Port and address are in network byte order.
struct SocketAddress {
    std::uint16_t family = 2;  ///< AF_INET
    std::uint16_t port = 0;
    std::uint32_t address = 0;
    unsigned char zero[8] = {};
};

/// One entry of the system's table of services; the port in network byte order.
struct ServiceEntry {
    std::string name;
    std::string protocol;
    std::uint16_t port = 0;
};

/// Returned in place of a count of bytes by the calls that receive without waiting: the connection is open, but no byte
/// has arrived.
inline constexpr int kNothingReceived = -2;

}  // namespace platform
