// Bounds the waiting of an FTP session.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

struct NetBuf;

namespace korvane_detail {

/// `FtpConnect` that gives up after `limit` milliseconds (0: never) of looking the name up, connecting and waiting for
/// the greeting. Null on failure. What was given up is left to a thread of its own, which ends with the connection.
NetBuf* ConnectWithin(const std::string& host, int limit);

/// Breaks a session's connections when one call of ftplib has waited for too long; the call, and all later ones, then
/// fail as with a server that has gone.
///
/// ftplib itself cannot do that: the idle time of `FtpOptions` does not cover the control connection, is overruled where
/// a binary file is written, and needs descriptors below 1024; and it reads again when a socket's own time-out strikes. So
/// this takes a thread, the library's only one: it does nothing but wait, and calls nothing of the host's.
class FtpWatch {
public:
    /// Calls on `control` may take `limit` milliseconds each; 0 for no limit.
    FtpWatch(NetBuf* control, int limit);
    ~FtpWatch();
    FtpWatch(const FtpWatch&) = delete;
    FtpWatch& operator=(const FtpWatch&) = delete;

    /// A call begins that waits for the control connection and for `data` (may be null).
    void Begin(NetBuf* data);
    void End();

    /// `FtpAccess` for writing, within the limit; null on failure. It may hang where there is nothing to break yet: in
    /// connecting to an address that does not answer. Then the whole session is given up and left to a thread of its own,
    /// which ends it when the system gives up connecting.
    NetBuf* OpenRemote(const std::string& path, char kind);

    /// The session was given up: its connections belong to that thread.
    bool IsLost() const { return m_bLost; }

private:
    using Clock = std::chrono::steady_clock;
    void Run();

    NetBuf* const m_pControl;
    const int m_nControl;
    const std::chrono::milliseconds m_Limit;
    bool m_bLost = false;  // of the caller's thread alone
    int m_nData = -1;
    Clock::time_point m_Deadline = Clock::time_point::max();
    bool m_bEnd = false;
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::thread m_Thread;
};

}  // namespace korvane_detail
