// Ctrl-C while a server keeps the program waiting.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace korvane {

/// The FTP library waits for its server without an end, and on some systems Ctrl-C does not reach it there (nor anywhere
/// while a host's name is looked up). While an object of this class lives, Ctrl-C ends the program, with exit status 1 and
/// a message, when the work has not come to its end by itself within 0.15 seconds.
class ServerGuard {
public:
    ServerGuard();
    ~ServerGuard();
    ServerGuard(const ServerGuard&) = delete;
    ServerGuard& operator=(const ServerGuard&) = delete;

    /// From now on there are files on the server.
    void SetBegun() { m_bBegun = true; }

private:
    void Run();
    bool WaitForEnd(int milliseconds);

    std::mutex m_Mutex;
    std::condition_variable m_Changed;
    std::atomic<bool> m_bBegun = false;
    bool m_bEnd = false;
    std::thread m_Thread;
};

}  // namespace korvane
