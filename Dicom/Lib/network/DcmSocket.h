// The TCP connection under the DICOM upper layer (PS3.8 9.1.1).
#pragma once

#include "../../../base/SocketTypes.h"

#include <cstddef>
#include <cstdint>
#include <functional>

/// Traces a block that is sent or received, at level `kDumpSocket`. `format` is a printf format for its length.
void TraceSocketBlock(const char* format, const void* bytes, int count);

/// A TCP socket over IPv4. Calls return 1, or 0 with the reason in the error text. Nothing is thrown.
///
/// The first socket of the process starts the system's socket library, the last one that is destroyed stops it. With
/// the environment variable "DCM_DUMP_SOCKET" set, every send and receive goes to the dump log. Different objects may
/// be used by different threads, but for host names and names of services, which are looked up by one thread at a time.
class DcmSocket {
public:
    DcmSocket();
    ~DcmSocket();
    DcmSocket(const DcmSocket&) = delete;
    DcmSocket& operator=(const DcmSocket&) = delete;

    /// Connects to a host (name, or address in dotted form) and a port (number, or name of a service). What was open is
    /// closed first. The numbers in the error texts are those of the C library's `errno`, also where the system keeps
    /// socket errors elsewhere: hosts depend on the texts as they are.
    ///
    /// `isStopped` is asked many times a second while the connection is made (not while a name is looked up); true is a
    /// failure.
    int Open(const char* host, const char* port, const std::function<bool()>& isStopped = nullptr);

    /// Looks up a port given as text: a number other than 0, or the name of a service. `protocol` may be null. Null on
    /// failure; the result stays valid until the next call. The port in it is in network byte order.
    const platform::ServiceEntry* ResolvePort(const char* port, const char* protocol);

    /// Sends all bytes of a block. 0 only when the socket is not connected: a failure on the way does not change the
    /// result, `HasFailed` tells of it. Hosts depend on that. `isStopped` is asked many times a second while the peer
    /// takes nothing; true is such a failure.
    int Send(const void* bytes, int count, const std::function<bool()>& isStopped = nullptr);

    /// Waits until something arrives, at most for the time-out, and takes at most `capacity` bytes of it. Returns their
    /// number; -1 when the time is up, when the peer has closed and when the socket is not connected; 0 when the
    /// time-out is 0 and nothing has arrived.
    int Recv(void* bytes, int capacity);

    /// The two steps of `Recv`. `Wait` returns 1 when something can be read, 0 when the time is up, -1 on error.
    /// `RecvAvailable` takes what has arrived and returns its length, -1 as `Recv` does, or
    /// `platform::kNothingReceived`.
    int Wait(int milliseconds);
    int RecvAvailable(void* bytes, int capacity);

    void Close();

    /// Tells the peer that nothing more will be sent.
    void ShutDown();

    /// Waits for connections to a port (0: the system chooses) on the loopback interface or on all. 1 or 0.
    int Listen(std::uint16_t port, bool loopbackOnly);
    /// The same on one address of this machine, in network byte order.
    int ListenAt(std::uint16_t port, std::uint32_t address);
    /// The port listened on.
    std::uint16_t GetListeningPort() const;
    /// Waits for the next connection and gives it to another socket object, which is closed first. 0 when none came in
    /// time.
    int Accept(DcmSocket& connection, int milliseconds);

    /// Has the system probe now and then whether a silent peer is still there (TCP keep-alive).
    void KeepAlive();

    bool IsConnected() const { return m_bConnected != 0; }
    /// Whether sending or receiving has failed since the socket was opened; the number is that of the system's socket
    /// library.
    bool HasFailed() const { return m_LastError != 0; }
    std::int32_t GetLastError() const { return m_LastError; }
    const char* GetErrorText() const { return m_ErrorText; }
    const platform::SocketAddress& GetPeer() const { return m_Peer; }

    /// Seconds that a receive waits, 300 at first; a send gives up as well when nothing moves for that long, and so
    /// does connecting, where the system has not done so by itself.
    int GetTimeout() const { return m_Timeout; }
    void SetTimeout(int seconds);

private:
    int Connect(const char* host, const char* port, const std::function<bool()>& isStopped);
    void Attach(platform::SocketHandle handle);

    std::int32_t m_LastError = 0;
    platform::SocketHandle m_Handle = platform::kNoSocket;
    std::int32_t m_bConnected = 0;
    char m_ErrorText[512] = {};
    platform::SocketAddress m_Peer;
    std::int32_t m_Timeout = 300;
    platform::ServiceEntry m_Service;
    bool m_bUsable = false;
};
