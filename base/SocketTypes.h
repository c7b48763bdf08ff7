// What a TCP connection is described by: the values behind `DcmSocket`, the same on every system.
#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// The system's number for a socket.
using SocketHandle = std::intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

/// An IPv4 socket address as the system lays it out. Port and address are in network byte order.
struct SocketAddress {
    std::uint16_t family = 2;
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

/// What taking the bytes that are there returns beside their count; the connection is fine, but there are none.
inline constexpr int kNothingReceived = -2;

}  // namespace platform
