#include "FtpWatch.h"

#include "platform/Connection.h"
#include "platform/Signals.h"

#include <algorithm>
#include <cstddef>
#include <ftplib.h>
#include <functional>
#include <memory>
#include <utility>

namespace korvane_detail {

namespace {

// How long a call whose connection has been broken may take to return.
constexpr std::chrono::milliseconds kGrace{250};

// A call that makes a connection and cannot be interrupted. It runs on a thread of its own, so that the caller can give
// it up; both threads own the Attempt.
struct Attempt {
    const std::function<NetBuf*()> make;
    const std::function<void(NetBuf*)>
        dispose;  // called with the connection (may be null) when the caller has given up
    std::mutex mutex;
    std::condition_variable finished;
    NetBuf* made = nullptr;
    bool done = false;
    bool abandoned = false;

    Attempt(std::function<NetBuf*()> makes, std::function<void(NetBuf*)> disposes)
        : make(std::move(makes)), dispose(std::move(disposes)) {}
};

void Try(const std::shared_ptr<Attempt>& attempt) {
    const platform::BlockBrokenPipe guard;
    NetBuf* const made = attempt->make();
    std::unique_lock lock(attempt->mutex);
    if (!attempt->abandoned) {
        attempt->made = made;
        attempt->done = true;
        attempt->finished.notify_one();
    } else {
        lock.unlock();
        attempt->dispose(made);
    }
}

// Runs an attempt for at most `limit`. False when the time ran out; the thread then goes on by itself and disposes of
// what it makes. `control` is the socket of the session, which is broken to make the call return; -1 for none.
bool TryWithin(const std::shared_ptr<Attempt>& attempt, std::chrono::milliseconds limit, int control = -1) {
    std::thread thread(Try, attempt);
    std::unique_lock lock(attempt->mutex);
    const auto isDone = [&attempt] { return attempt->done; };
    if (!attempt->finished.wait_for(lock, limit, isDone) && control >= 0) {
        platform::BreakConnection(control);
        attempt->finished.wait_for(lock, kGrace, isDone);
    }
    const bool done = attempt->done;
    attempt->abandoned = !done;
    lock.unlock();
    if (done) {
        thread.join();
    } else {
        thread.detach();
    }
    return done;
}

void QuitIfConnected(NetBuf* control) {
    if (control != nullptr) {
        FtpQuit(control);
    }
}

// The beginning of ftplib 4.0's private structure for a connection. Its public calls do not give the socket, which is
// needed to break the connection.
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

// Whether the ftplib at hand has that layout: its last reply must lie at the offset of `response`.
bool IsKnownLayout(NetBuf* control) {
    return FtpLastResponse(control) == reinterpret_cast<char*>(control) + offsetof(NetBufStart, response);
}

int SocketOf(NetBuf* connection) {
    return reinterpret_cast<NetBufStart*>(connection)->handle;
}

}  // namespace

NetBuf* ConnectWithin(const std::string& host, int limit) {
    const auto connect = [host] {
        NetBuf* control = nullptr;
        return FtpConnect(host.c_str(), &control) == 0 ? nullptr : control;
    };
    if (limit <= 0) {
        const platform::BlockBrokenPipe guard;
        return connect();
    }
    const auto attempt = std::make_shared<Attempt>(connect, QuitIfConnected);
    return TryWithin(attempt, std::chrono::milliseconds(limit)) ? attempt->made : nullptr;
}

FtpWatch::FtpWatch(NetBuf* control, int limit)
    : m_pControl(control), m_nControl(IsKnownLayout(control) ? SocketOf(control) : -1), m_Limit(limit) {
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

void FtpWatch::Begin(NetBuf* data) {
    if (m_Thread.joinable() && !m_bLost) {
        const std::lock_guard lock(m_Mutex);
        m_nData = data == nullptr ? -1 : SocketOf(data);
        m_Deadline = Clock::now() + m_Limit;
    }
}

void FtpWatch::End() {
    if (m_Thread.joinable()) {
        const std::lock_guard lock(m_Mutex);
        m_Deadline = Clock::time_point::max();
    }
}

NetBuf* FtpWatch::OpenRemote(const std::string& path, char kind) {
    const auto open = [control = m_pControl, path, kind] {
        NetBuf* data = nullptr;
        return FtpAccess(path.c_str(), FTPLIB_FILE_WRITE, kind, control, &data) == 0 ? nullptr : data;
    };
    if (m_Limit.count() <= 0) {
        const platform::BlockBrokenPipe guard;
        return open();
    }
    const auto end = [control = m_pControl](NetBuf* data) {
        if (data != nullptr) {
            FtpClose(data);
        }
        FtpQuit(control);
    };
    const auto attempt = std::make_shared<Attempt>(open, end);
    m_bLost = !TryWithin(attempt, m_Limit, m_nControl);
    return attempt->made;
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
        // A call that begins while this thread sleeps has a deadline of at least now + m_Limit, so waking then is early
        // enough.
        m_Wake.wait_until(lock, std::min(m_Deadline, now + m_Limit));
    }
}

}  // namespace korvane_detail
