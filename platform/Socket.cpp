#include "Socket.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#if defined(_WIN32)
#include <winsock2.h>
#else
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ctime>
#endif

namespace platform {

namespace {

static_assert(sizeof(SocketAddress) == sizeof(sockaddr_in));

constexpr int kBacklog = 16;

sockaddr* Raw(SocketAddress& address) {
    return reinterpret_cast<sockaddr*>(&address);
}
const sockaddr* Raw(const SocketAddress& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

#if defined(_WIN32)

using AddressLength = int;

SOCKET Native(SocketHandle socket) {
    return static_cast<SOCKET>(socket);
}

bool WasInterrupted() {
    return false;
}

bool WouldWait() {
    return false;
}

void SetOption(SocketHandle socket, int level, int option, int value) {
    setsockopt(Native(socket), level, option, reinterpret_cast<const char*>(&value), sizeof value);
}

#else

using AddressLength = socklen_t;

int Native(SocketHandle socket) {
    return static_cast<int>(socket);
}

bool WasInterrupted() {
    return errno == EINTR;
}

/// What a call says that may not wait.
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

/// `poll` for one event, whatever signals come in between.
int Poll(SocketHandle socket, short events, int milliseconds) {
    const std::int64_t end = Milliseconds() + milliseconds;
    pollfd entry{Native(socket), events, 0};
    for (;;) {
        const int left = static_cast<int>(std::clamp<std::int64_t>(end - Milliseconds(), 0, INT_MAX));
        const int ready = poll(&entry, 1, milliseconds < 0 ? -1 : left);
        if (ready >= 0 || !WasInterrupted()) return ready;
    }
}

#endif

}  // namespace

#if defined(_WIN32)

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

bool ConnectSocket(SocketHandle socket, const SocketAddress& peer, int /*seconds*/) {
    return connect(Native(socket), Raw(peer), sizeof peer) == 0;
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

/// Waits in any case: there is no flag for that here.
std::ptrdiff_t SendSome(SocketHandle socket, const char* bytes, std::size_t count, bool /*waits*/) {
    return send(Native(socket), bytes, static_cast<int>(count), 0);
}

void ShutDownSending(SocketHandle socket) {
    shutdown(Native(socket), SD_SEND);
}

#else

int StartSocketLibrary() {
    return 0;
}

void StopSocketLibrary() {}

int LastSocketError() {
    return errno;
}

bool ConnectSocket(SocketHandle socket, const SocketAddress& peer, int seconds) {
    const int flags = fcntl(Native(socket), F_GETFL);
    fcntl(Native(socket), F_SETFL, flags | O_NONBLOCK);
    int error = connect(Native(socket), Raw(peer), sizeof peer) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        const int ready = Poll(socket, POLLOUT, seconds > 0 ? std::min(seconds, INT_MAX / 1000) * 1000 : -1);
        socklen_t length = sizeof error;
        if (ready == 0) {
            error = ETIMEDOUT;
        } else if (ready < 0 || getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
            error = errno;
        }
    }
    fcntl(Native(socket), F_SETFL, flags);
    errno = error;
    return error == 0;
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

std::ptrdiff_t SendSome(SocketHandle socket, const char* bytes, std::size_t count, bool waits) {
    return send(Native(socket), bytes, count, MSG_NOSIGNAL | (waits ? 0 : MSG_DONTWAIT));
}

void ShutDownSending(SocketHandle socket) {
    shutdown(Native(socket), SHUT_WR);
}

#endif

std::uint16_t ToNetworkOrder(std::uint16_t port) {
    return htons(port);
}

bool FindHost(const char* name, std::vector<std::uint32_t>& addresses) {
    addresses.clear();
    const hostent* const host = gethostbyname(name);  // NOLINT(concurrency-mt-unsafe): one thread at a time
    if (host == nullptr || host->h_addrtype != AF_INET) return false;
    for (char** entry = host->h_addr_list; entry != nullptr && *entry != nullptr; ++entry) {
        std::uint32_t address;
        std::copy_n(*entry, sizeof address, reinterpret_cast<char*>(&address));
        addresses.push_back(address);
    }
    return true;
}

std::uint32_t AddressFromText(const char* text) {
    return static_cast<std::uint32_t>(inet_addr(text));
}

std::string AddressText(const SocketAddress& address) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&address.address);
    std::string text;
    for (int i = 0; i < 4; ++i) text += (i > 0 ? "." : "") + std::to_string(bytes[i]);
    return text;
}

bool FindService(const char* name, const char* protocol, ServiceEntry& entry) {
    const servent* const found = getservbyname(name, protocol);  // NOLINT(concurrency-mt-unsafe)
    if (found == nullptr) return false;
    entry.name = found->s_name;
    entry.protocol = found->s_proto;
    entry.port = static_cast<std::uint16_t>(found->s_port);
    return true;
}

SocketHandle CreateSocket() {
#if defined(_WIN32)
    const SOCKET made = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    return made == INVALID_SOCKET ? kNoSocket : static_cast<SocketHandle>(made);
#else
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
#endif
}

bool ListenOn(SocketHandle socket, std::uint16_t port, bool loopbackOnly) {
#if defined(_WIN32)
    SetOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);  // there, reuse would let a second program take the port
#else
    SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
#endif
    SocketAddress own;
    own.port = ToNetworkOrder(port);
    own.address = htonl(loopbackOnly ? INADDR_LOOPBACK : INADDR_ANY);
    return bind(Native(socket), Raw(own), sizeof own) == 0 && listen(Native(socket), kBacklog) == 0;
}

std::uint16_t BoundPort(SocketHandle socket) {
    SocketAddress own;
    AddressLength length = sizeof own;
    return getsockname(Native(socket), Raw(own), &length) == 0 ? ntohs(own.port) : std::uint16_t{0};
}

SocketHandle AcceptConnection(SocketHandle listener, SocketAddress& peer) {
    AddressLength length = sizeof peer;
#if defined(_WIN32)
    const SOCKET made = accept(Native(listener), Raw(peer), &length);
    return made == INVALID_SOCKET ? kNoSocket : static_cast<SocketHandle>(made);
#else
    for (;;) {
        const int made = accept4(Native(listener), Raw(peer), &length, SOCK_CLOEXEC);
        if (made >= 0 || !WasInterrupted()) return made;
    }
#endif
}

bool SendAll(SocketHandle socket, const void* bytes, std::size_t count, const std::function<bool()>& isStopped) {
    constexpr std::size_t kLargestSend = std::size_t{1} << 30;
    const auto* place = static_cast<const char*>(bytes);
    while (count > 0) {
        const std::size_t step = std::min(count, kLargestSend);
        std::ptrdiff_t sent = SendSome(socket, place, step, false);
        if (sent < 0 && WouldWait()) {
            if (isStopped && isStopped()) return false;
            sent = SendSome(socket, place, step, true);
            if (sent < 0 && WasInterrupted()) continue;
        }
        if (sent <= 0) return false;
        place += sent;
        count -= static_cast<std::size_t>(sent);
    }
    return true;
}

}  // namespace platform
