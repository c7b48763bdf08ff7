// A buffer over a socket.
#pragma once

#include "../stream/Buffer.h"
#include "DcmSocket.h"
#include "Transport.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

/// Reads what the socket receives and sends on `Flush`; or so over a `Transport`, where one is set. The socket is made when it is first asked for, so that an
/// object whose network is never used costs nothing.
///
/// After a failed read (the peer closed, time out, stopped) every further read fails; `WhyReadFailed` tells.
class SocketBuffer : public Buffer {
public:
    enum class ReadFault { None, Closed, TimedOut, Stopped };

    DcmSocket& GetSocket();
    bool HasSocket() const { return m_pSocket != nullptr; }

    /// From now on a connection that is open already takes the place of the socket, until `Disconnect`.
    void SetTransport(std::unique_ptr<Transport> transport);

    bool IsConnected() const;
    void Disconnect();
    /// Tells the peer that nothing more will be sent.
    void ShutDownSending();
    /// `DcmSocket::SetTimeout`, for a transport too.
    void SetTimeout(int seconds);

    ReadFault WhyReadFailed() const { return m_ReadFault; }

    /// Asked several times a second while a read waits; true ends the wait. Null: none.
    void SetStopCheck(std::function<bool()> check) { m_StopCheck = std::move(check); }
    bool IsStopped() const { return m_StopCheck && m_StopCheck(); }

    /// From now on reading fails once so many seconds have passed, even while bytes still arrive. 0: no such limit,
    /// only the socket's own time-out.
    void SetDeadline(int seconds);

    /// From now on reading fails once the reads together have waited so many seconds for the peer; the time between
    /// reads does not count. 0: no such limit.
    void LimitWaiting(std::int64_t seconds);

    /// Whether something can be read before the milliseconds are up. False is not a failure: reading may go on later.
    bool WaitForData(int milliseconds);

    /// Sends bytes directly, after the buffer's write area has been flushed.
    bool Send(const void* bytes, std::size_t count);

    /// Forgets what was read and written, faults and deadline: for another connection.
    void Restart();

protected:
    std::size_t Fill(void* bytes, std::size_t capacity) override;
    bool Drain(const void* bytes, std::size_t count) override;

private:
    bool WaitForSocket();
    int Wait(int milliseconds);
    int ReceiveAvailable(void* bytes, std::size_t capacity);
    bool SendBlock(const void* bytes, std::size_t count);

    std::unique_ptr<DcmSocket> m_pSocket;  // with a transport it only keeps the time-out, and the socket library
    std::unique_ptr<Transport> m_pTransport;
    std::function<bool()> m_StopCheck;
    std::chrono::steady_clock::time_point m_Deadline{};
    std::chrono::steady_clock::duration m_WaitLeft{};
    bool m_bDeadline = false;
    bool m_bWaitLimited = false;
    ReadFault m_ReadFault = ReadFault::None;
};
