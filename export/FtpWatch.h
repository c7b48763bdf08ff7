// Time limits for the calls of an FTP session.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

struct NetBuf;

namespace korvane_detail {

/// Calls `FtpConnect`, which looks the name up, connects and waits for the greeting, and gives up after `limit`
/// milliseconds (0: never). Null on failure. An attempt that was given up goes on in a thread of its own until the
/// system or the server ends it.
NetBuf* ConnectWithin(const std::string& host, int limit);

/// Watches a session and breaks its connections when one call of ftplib takes too long. That call and all later ones
/// then fail, as they do when the server has gone.
///
/// ftplib has no limit that would do: the idle time of `FtpOptions` does not cover the control connection, is not used
/// while a binary file is written, and fails for descriptors from 1024 on; a time-out set on the socket makes it read
/// again. Hence a thread, the only one that the module starts while calls go well. It only waits, and calls nothing of
/// the host's.
class FtpWatch {
public:
    /// Calls on `control` may take `limit` milliseconds each; 0 for no limit.
    FtpWatch(NetBuf* control, int limit);
    ~FtpWatch();
    FtpWatch(const FtpWatch&) = delete;
    FtpWatch& operator=(const FtpWatch&) = delete;

    /// Called before and after each call of ftplib. `data` is the data connection that it uses besides the control
    /// connection; null for none.
    void Begin(NetBuf* data);
    void End();

    /// Calls `FtpAccess` for writing, within the limit; null on failure. While it connects to an address that does not
    /// answer there is no connection to break; the whole session is then given up and left to a thread of its own,
    /// which ends it when the system gives up connecting.
    NetBuf* OpenRemote(const std::string& path, char kind);

    /// Whether the session was given up by OpenRemote; its connections then belong to the other thread.
    bool IsLost() const { return m_bLost; }

private:
    using Clock = std::chrono::steady_clock;
    void Run();

    NetBuf* const m_pControl;
    const int m_nControl;
    const std::chrono::milliseconds m_Limit;
    bool m_bLost = false;  ///< only used by the caller's thread
    int m_nData = -1;
    Clock::time_point m_Deadline = Clock::time_point::max();
    bool m_bEnd = false;
    std::mutex m_Mutex;
    std::condition_variable m_Wake;
    std::thread m_Thread;
};

}  // namespace korvane_detail
