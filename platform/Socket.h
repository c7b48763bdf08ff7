// TCP over IPv4 and IPv6: the few calls that the network code needs, on BSD sockets and on Windows Sockets.
//
// Nothing is thrown. Calls are retried where a signal interrupted them, and a peer that has gone away raises no signal.
#pragma once

#include "../base/SocketTypes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace platform {

/// Starts the system's socket library, version 2.2; 0, or the error number. Nothing to do but on Windows.
int StartSocketLibrary();
void StopSocketLibrary();

/// The error number of the socket call that failed last in this thread.
int LastSocketError();

std::uint16_t ToNetworkOrder(std::uint16_t port);

/// `gethostbyname`: false when the name is not known. Addresses in network byte order.
bool FindHost(const char* name, std::vector<std::uint32_t>& addresses);

/// An address of either family with its port, as the system lays it out.
struct Endpoint {
    alignas(8) unsigned char bytes[128] = {};
    unsigned length = 0;
};

/// All addresses of a name, or of a text that is one, with the number of a port or service, in the order in which the
/// system would try them; may be called from several threads. False when one of them is not known: the service where
/// `knowsHost`.
bool LookUp(const std::string& host, const std::string& service, std::vector<Endpoint>& endpoints, bool& knowsHost);

/// The address alone, as text; an IPv4 address that came in the form of IPv6 as the former.
std::string AddressText(const Endpoint& endpoint);

/// An address as `AddressText` has it; "" for a text that is no address of either family.
std::string NormalAddress(const std::string& text);

/// A socket that is connected; `kNoSocket` with the reason in `LastSocketError` on failure, and as `ConnectSocket` after so
/// many milliseconds (0: when the system gives up) or when it is stopped.
SocketHandle ConnectTo(const Endpoint& endpoint, std::int64_t milliseconds, const std::function<bool()>& isStopped);

/// A socket that listens on a port (host byte order; 0: the system chooses), on one address of this machine or, where
/// that is "", on all, of both families where the system has both. `kNoSocket` on failure.
SocketHandle ListenTo(const std::string& address, std::uint16_t port);

/// The next connection to such a socket; `kNoSocket` on failure.
SocketHandle AcceptFrom(SocketHandle listener, Endpoint& peer);

/// `inet_addr`: 0xFFFFFFFF for what is no address.
std::uint32_t AddressFromText(const char* text);

/// An address in dotted form.
std::string AddressText(const SocketAddress& address);

/// `getservbyname`; `protocol` may be null. False when there is no such service.
bool FindService(const char* name, const char* protocol, ServiceEntry& entry);

/// A TCP socket; `kNoSocket` on failure, with `errno` set where the system's calls do so.
SocketHandle CreateSocket();
/// Gives up after that many seconds, with ETIMEDOUT, or when the system does (0: then only), or with EINTR when `isStopped`
/// (null: never), which is asked many times a second, says yes.
bool ConnectSocket(SocketHandle socket, const SocketAddress& peer, int seconds,
                   const std::function<bool()>& isStopped = nullptr);
void CloseSocket(SocketHandle socket);

/// Sends small blocks at once, and gives up a send that does not move for that long (0: never).
void TuneSocket(SocketHandle socket, int sendTimeoutSeconds);

/// Has the system ask now and then whether a silent peer is still there.
void KeepAlive(SocketHandle socket);

/// Binds to a port (host byte order; 0 lets the system choose) on the interface of an address of this machine (network
/// byte order), and listens.
bool ListenOn(SocketHandle socket, std::uint16_t port, std::uint32_t address);
inline constexpr std::uint32_t kAnyAddress = 0;
std::uint32_t LoopbackAddress();

/// The port that a socket is bound to, host byte order; 0 on failure.
std::uint16_t BoundPort(SocketHandle socket);

/// The next connection; `kNoSocket` on failure.
SocketHandle AcceptConnection(SocketHandle listener, SocketAddress& peer);

/// Waits until the socket can be read (or has a connection to accept) or the peer has closed. 1 ready; 0 the time is up;
/// -1 error. A signal does not end the wait.
int WaitReadable(SocketHandle socket, int milliseconds);

/// What `ReceiveAvailable` returns beside a count and `kNothingReceived`.
inline constexpr int kReceiveFailed = -1;

/// What is there, without waiting: a count; 0 when the peer has closed; `kNothingReceived`; `kReceiveFailed`.
int ReceiveAvailable(SocketHandle socket, void* bytes, int capacity);

/// All of the bytes, in as many calls as the system needs. False when one failed, or when nothing moved for as long as
/// `TuneSocket` allows. `isStopped` (null: never) is asked many times a second while the peer takes nothing; true gives
/// up.
bool SendAll(SocketHandle socket, const void* bytes, std::size_t count, const std::function<bool()>& isStopped);

/// Tells the peer that nothing more will be sent.
void ShutDownSending(SocketHandle socket);

}  // namespace platform
