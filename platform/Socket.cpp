#include "Socket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
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

constexpr int kBacklog = SOMAXCONN;
constexpr int kAskEvery = 50;  // milliseconds

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

/// 1 when the socket takes bytes, is connected or has failed to, 0 when the time is up, -1 on error.
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

/// Seconds that `TuneSocket` set, in milliseconds; 0: no limit.
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

#else

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

#endif

/// Until the socket takes bytes: 0, or the error that it ended with. `limit`: milliseconds, 0 for none.
int AwaitWritable(SocketHandle socket, std::int64_t limit, const std::function<bool()>& isStopped) {
    const std::int64_t begin = Milliseconds();
    for (;;) {
        if (isStopped && isStopped()) return kInterrupted;
        const std::int64_t left = limit > 0 ? begin + limit - Milliseconds() : kAskEvery;
        if (left <= 0) return kTimedOut;
        const int ready = WaitWritable(socket, static_cast<int>(std::min<std::int64_t>(left, kAskEvery)));
        if (ready != 0) return ready > 0 ? 0 : LastSocketError();
    }
}

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

/// What the system takes without waiting, for which there is no flag here.
std::ptrdiff_t SendSome(SocketHandle socket, const char* bytes, std::size_t count) {
    SetBlocking(socket, false);
    const int sent = send(Native(socket), bytes, static_cast<int>(count), 0);
    const int error = WSAGetLastError();
    SetBlocking(socket, true);
    SetError(error);
    return sent;
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

/// What the system takes without waiting.
std::ptrdiff_t SendSome(SocketHandle socket, const char* bytes, std::size_t count) {
    return send(Native(socket), bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void ShutDownSending(SocketHandle socket) {
    shutdown(Native(socket), SHUT_WR);
}

#endif

bool ConnectSocket(SocketHandle socket, const SocketAddress& peer, int seconds,
                   const std::function<bool()>& isStopped) {
    SetBlocking(socket, false);
    int error = connect(Native(socket), Raw(peer), sizeof peer) == 0 ? 0 : LastSocketError();
    if (error == kInProgress) {
        error = AwaitWritable(socket, std::int64_t{seconds} * 1000, isStopped);
        int found = 0;
        AddressLength length = sizeof found;
        if (error == 0) {
            const int asked =
                getsockopt(Native(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&found), &length);
            error = asked == 0 ? found : LastSocketError();
        }
    }
    SetBlocking(socket, true);
    SetError(error);
    return error == 0;
}

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

bool LookUp(const std::string& host, const std::string& service, std::vector<std::uint32_t>& addresses,
            std::uint16_t& port) {
    addresses.clear();
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    const auto find = [&](const char* asked) {
        addrinfo* found = nullptr;
        if (getaddrinfo(host.c_str(), asked, &hints, &found) != 0) return false;
        addresses.clear();
        for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
            SocketAddress address;
            std::memcpy(Raw(address), entry->ai_addr, sizeof address);
            addresses.push_back(address.address);
            port = ntohs(address.port);
        }
        freeaddrinfo(found);
        return !addresses.empty();
    };
    return find(nullptr) && find(service.c_str());
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

std::uint32_t LoopbackAddress() {
    return htonl(INADDR_LOOPBACK);
}

void KeepAlive(SocketHandle socket) {
    SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
}

bool ListenOn(SocketHandle socket, std::uint16_t port, std::uint32_t address) {
#if defined(_WIN32)
    SetOption(socket, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);  // there, reuse would let a second program take the port
#else
    SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
#endif
    SocketAddress own;
    own.port = ToNetworkOrder(port);
    own.address = address;
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
        const std::ptrdiff_t sent = SendSome(socket, place, std::min(count, kLargestSend));
        if (sent < 0 && WouldWait()) {
            const int error = AwaitWritable(socket, SendLimit(socket), isStopped);
            if (error == 0) continue;
            SetError(error);
            return false;
        }
        if (sent <= 0) return false;
        place += sent;
        count -= static_cast<std::size_t>(sent);
    }
    return true;
}

}  // namespace platform
