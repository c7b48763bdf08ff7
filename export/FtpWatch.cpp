#include "export/FtpWatch.h"

#include "platform/Connection.h"
#include "platform/Signals.h"

#include <algorithm>
#include <cstddef>
#include <ftplib.h>
#include <memory>

namespace korvane_detail {

namespace {

struct Attempt {
    std::mutex mutex;
    std::condition_variable finished;
    NetBuf* control = nullptr;
    bool done = false;
    bool abandoned = false;
};

void Try(const std::shared_ptr<Attempt>& attempt, const std::string& host) {
    const platform::BlockBrokenPipe guard;
    NetBuf* control = nullptr;
    if (FtpConnect(host.c_str(), &control) == 0) {
        control = nullptr;
    }
    std::unique_lock lock(attempt->mutex);
    if (!attempt->abandoned) {
        attempt->control = control;
        attempt->done = true;
        attempt->finished.notify_one();
    } else if (control != nullptr) {
        lock.unlock();
        FtpQuit(control);
    }
}

/// How ftplib 4.0, which has no call that names the socket, begins what it allocates for a connection.
struct NetBufStart {
    char *cput, *cget;
    int handle;
    int cavail, cleft;
    char* buf;
    int dir;
    netbuf *ctrl, *data;
    int cmode;
    long idletime[2];
    FtpCallback idlecb;
    void* idlearg;
    unsigned long xfered, cbbytes, xfered1;
    char response[1];
};

/// Whether that holds for the ftplib at hand: its last reply then lies where it should.
bool IsKnownLayout(NetBuf* control) {
    return FtpLastResponse(control) == reinterpret_cast<char*>(control) + offsetof(NetBufStart, response);
}

int SocketOf(NetBuf* connection) {
    return reinterpret_cast<NetBufStart*>(connection)->handle;
}

}  // namespace

NetBuf* ConnectWithin(const std::string& host, int limit) {
    const auto attempt = std::make_shared<Attempt>();
    if (limit <= 0) {
        Try(attempt, host);
        return attempt->control;
    }
    std::thread(Try, attempt, host).detach();
    std::unique_lock lock(attempt->mutex);
    attempt->finished.wait_for(lock, std::chrono::milliseconds(limit), [&attempt] { return attempt->done; });
    attempt->abandoned = !attempt->done;
    return attempt->control;
}

FtpWatch::FtpWatch(NetBuf* control, int limit)
    : m_nControl(IsKnownLayout(control) ? SocketOf(control) : -1), m_Limit(limit) {
    if (m_nControl >= 0 && limit > 0) {
        m_Thread = std::thread([this] { Run(); });
    }
}

FtpWatch::~FtpWatch() {
    if (m_Thread.joinable()) {
        {
            const std::lock_guard lock(m_Mutex);
            m_bEnd = true;
        }
        m_Wake.notify_one();
        m_Thread.join();
    }
}

void FtpWatch::Begin(NetBuf* data, int bytes) {
    if (m_Thread.joinable()) {
        const std::lock_guard lock(m_Mutex);
        m_nData = data == nullptr ? -1 : SocketOf(data);
        m_Deadline = Clock::now() + m_Limit + std::chrono::milliseconds(bytes);
    }
}

void FtpWatch::End() {
    if (m_Thread.joinable()) {
        const std::lock_guard lock(m_Mutex);
        m_Deadline = Clock::time_point::max();
    }
}

void FtpWatch::Run() {
    std::unique_lock lock(m_Mutex);
    while (!m_bEnd) {
        const auto now = Clock::now();
        if (m_Deadline <= now) {
            platform::BreakConnection(m_nControl);
            if (m_nData >= 0) {
                platform::BreakConnection(m_nData);
            }
            m_Deadline = Clock::time_point::max();
        }
        // No call that begins in the meantime can be late before that.
        m_Wake.wait_until(lock, std::min(m_Deadline, now + m_Limit));
    }
}

}  // namespace korvane_detail
