#include "platform/Socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace platform {

namespace {

using AddressLength = socklen_t;

int Native(SocketHandle socket) {
    return static_cast<int>(socket);
}

bool WasInterrupted() {
    return errno == EINTR;
}

// Whether errno means that the call would have blocked.
bool WouldWait() {
    return errno == EAGAIN || errno == EWOULDBLOCK || WasInterrupted();
}

void SetOption(SocketHandle socket, int level, int option, int value) {
    setsockopt(Native(socket), level, option, &value, sizeof value);
}

std::int64_t Milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// `poll` for one event, whatever signals come in between.
int Poll(SocketHandle socket, short events, int milliseconds) {
    const std::int64_t end = Milliseconds() + milliseconds;
    pollfd entry{Native(socket), events, 0};
    for (;;) {
        const int left = static_cast<int>(std::clamp<std::int64_t>(end - Milliseconds(), 0, INT_MAX));
        const int ready = poll(&entry, 1, milliseconds < 0 ? -1 : left);
        if (ready >= 0 || !WasInterrupted()) return ready;
    }
}

void SetBlocking(SocketHandle socket, bool blocks) {
    const int flags = fcntl(Native(socket), F_GETFL);
    fcntl(Native(socket), F_SETFL, blocks ? flags & ~O_NONBLOCK : flags | O_NONBLOCK);
}

void SetError(int error) {
    errno = error;
}

int WaitWritable(SocketHandle socket, int milliseconds) {
    return Poll(socket, POLLOUT, milliseconds);
}

std::int64_t SendLimit(SocketHandle socket) {
    timeval limit{};
    socklen_t length = sizeof limit;
    getsockopt(Native(socket), SOL_SOCKET, SO_SNDTIMEO, &limit, &length);
    return std::int64_t{limit.tv_sec} * 1000 + limit.tv_usec / 1000;
}

constexpr int kInProgress = EINPROGRESS;
constexpr int kTimedOut = ETIMEDOUT;
constexpr int kInterrupted = EINTR;

SocketHandle CreateSocketOf(int family) {
    return socket(family, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
}

// Lets a program that is started anew have its port at once.
void SetSharing(SocketHandle socket) {
    SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
}

SocketHandle Accept(SocketHandle listener, sockaddr* peer, AddressLength& length) {
    for (;;) {
        const int made = accept4(Native(listener), peer, &length, SOCK_CLOEXEC);
        if (made >= 0 || !WasInterrupted()) return made;
    }
}

// What the system takes without waiting.
std::ptrdiff_t SendSome(SocketHandle socket, const char* bytes, std::size_t count) {
    return send(Native(socket), bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace

#include "platform/CommonSockets.inc"

int StartSocketLibrary() {
    return 0;
}

void StopSocketLibrary() {}

int LastSocketError() {
    return errno;
}

void CloseSocket(SocketHandle socket) {
    const int kept = errno;
    close(Native(socket));
    errno = kept;
}

void TuneSocket(SocketHandle socket, int sendTimeoutSeconds) {
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    const timeval time{sendTimeoutSeconds, 0};
    setsockopt(Native(socket), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

int WaitReadable(SocketHandle socket, int milliseconds) {
#if defined(TCP_QUICKACK)
    // A peer that writes a message in several small pieces waits for the first to be confirmed, which the system likes to
    // put off by 40 ms. It forgets this setting again, so it is made for each wait.
    SetOption(socket, IPPROTO_TCP, TCP_QUICKACK, 1);
#endif
    return Poll(socket, POLLIN, milliseconds);
}

int ReceiveAvailable(SocketHandle socket, void* bytes, int capacity) {
    for (;;) {
        const auto got = recv(Native(socket), bytes, static_cast<std::size_t>(capacity), MSG_DONTWAIT);
        if (got >= 0) return static_cast<int>(got);
        if (WasInterrupted()) continue;
        return WouldWait() ? kNothingReceived : kReceiveFailed;
    }
}

void ShutDownSending(SocketHandle socket) {
    shutdown(Native(socket), SHUT_WR);
}

}  // namespace platform
