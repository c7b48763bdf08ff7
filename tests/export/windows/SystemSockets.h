// Sockets by the names that both systems know.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>

using Socket = SOCKET;
constexpr int kQuietly = 0;

inline void StartSockets() {
    static WSADATA data;
    static const int started = WSAStartup(MAKEWORD(2, 2), &data);
    static_cast<void>(started);
}
inline void CloseSocket(Socket socket) {
    closesocket(socket);
}
