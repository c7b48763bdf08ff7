#include "platform/Socket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>
#include <winsock2.h>
#include <ws2tcpip.h>

namespace platform {

namespace {

using AddressLength = int;

SOCKET Native(SocketHandle socket) {
    return static_cast<SOCKET>(socket);
}

bool WouldWait() {
    return WSAGetLastError() == WSAEWOULDBLOCK;
}

void SetBlocking(SocketHandle socket, bool blocks) {
    u_long mode = blocks ? 0 : 1;
    ioctlsocket(Native(socket), FIONBIO, &mode);
}

void SetError(int error) {
    WSASetLastError(error);
}

std::int64_t Milliseconds() {
    return static_cast<std::int64_t>(GetTickCount64());
}

// 1 when the socket takes bytes, is connected or has failed to, 0 when the time is up, -1 on error.
int WaitWritable(SocketHandle socket, int milliseconds) {
    fd_set set;
    fd_set failed;  // where Windows shows that connecting did not work
    FD_ZERO(&set);
    FD_ZERO(&failed);
    FD_SET(Native(socket), &set);
    FD_SET(Native(socket), &failed);
    timeval time{milliseconds / 1000, milliseconds % 1000 * 1000};
    return select(0, nullptr, &set, &failed, &time) > 0 ? 1 : 0;
}

// Seconds that `TuneSocket` set, in milliseconds; 0: no limit.
std::int64_t SendLimit(SocketHandle socket) {
    DWORD limit = 0;
    int length = sizeof limit;
    getsockopt(Native(socket), SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<char*>(&limit), &length);
    return limit;
}

constexpr int kInProgress = WSAEWOULDBLOCK;
constexpr int kTimedOut = WSAETIMEDOUT;
constexpr int kInterrupted = WSAEINTR;

void SetOption(SocketHandle socket, int level, int option, int value) {
    setsockopt(Native(socket), level, option, reinterpret_cast<const char*>(&value), sizeof value);
}

SocketHandle CreateSocketOf(int family) {
    const SOCKET made = socket(family, SOCK_STREAM, IPPROTO_TCP);
    return made == INVALID_SOCKET ? kNoSocket : static_cast<SocketHandle>(made);
}

// Reuse, as elsewhere, would let a second program take the port here.
void SetSharing(SocketHandle socket) {
    SetOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
}

SocketHandle Accept(SocketHandle listener, sockaddr* peer, AddressLength& length) {
    const SOCKET made = accept(Native(listener), peer, &length);
    return made == INVALID_SOCKET ? kNoSocket : static_cast<SocketHandle>(made);
}

// What the system takes without waiting, for which there is no flag here.
std::ptrdiff_t SendSome(SocketHandle socket, const char* bytes, std::size_t count) {
    SetBlocking(socket, false);
    const int sent = send(Native(socket), bytes, static_cast<int>(count), 0);
    const int error = WSAGetLastError();
    SetBlocking(socket, true);
    SetError(error);
    return sent;
}

}  // namespace

#include "platform/CommonSockets.inc"

int StartSocketLibrary() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0 ? 0 : WSAGetLastError();
}

void StopSocketLibrary() {
    WSACleanup();
}

int LastSocketError() {
    return WSAGetLastError();
}

void CloseSocket(SocketHandle socket) {
    closesocket(Native(socket));
}

void TuneSocket(SocketHandle socket, int sendTimeoutSeconds) {
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(socket, SOL_SOCKET, SO_SNDTIMEO, std::min(sendTimeoutSeconds, INT_MAX / 1000) * 1000);
}

int WaitReadable(SocketHandle socket, int milliseconds) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(Native(socket), &set);  // a list of handles here, not a field of bits: any handle fits
    timeval time{milliseconds / 1000, milliseconds % 1000 * 1000};
    return select(0, &set, nullptr, nullptr, &time);
}

int ReceiveAvailable(SocketHandle socket, void* bytes, int capacity) {
    const int ready = WaitReadable(socket, 0);
    if (ready != 1) return ready == 0 ? kNothingReceived : kReceiveFailed;
    return recv(Native(socket), static_cast<char*>(bytes), capacity, 0);
}

void ShutDownSending(SocketHandle socket) {
    shutdown(Native(socket), SD_SEND);
}

}  // namespace platform
