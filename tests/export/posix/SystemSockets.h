// Sockets by the names that both systems know.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using Socket = int;
constexpr int kQuietly = MSG_NOSIGNAL;

inline void StartSockets() {}
inline void CloseSocket(Socket socket) {
    close(socket);
}
