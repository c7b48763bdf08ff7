#include "FtpWriter.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <thread>
#include <utility>

namespace korvane {

namespace {

constexpr std::chrono::milliseconds kLook{20};
constexpr std::chrono::milliseconds kGrace{100};

}  // namespace

// Shared by the writer and the session's thread; the module's writer is touched by the thread alone.
struct FtpWriter::Session {
    std::mutex mutex;
    std::condition_variable changed;
    std::function<unsigned(CFTPSend&)> call;  // the call to be made; empty: none
    unsigned result = 0;
    std::string reply;
    bool isOver = false;
    bool hasEnded = false;
    std::chrono::steady_clock::time_point givenUp = std::chrono::steady_clock::time_point::max();

    void Run();
};

void FtpWriter::Session::Run() {
    {
        CFTPSend writer;
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return call || isOver; });
            if (isOver) break;
            const auto work = call;
            lock.unlock();
            const unsigned made = work(writer);
            const char* const said = writer.StrError();
            lock.lock();
            result = made;
            if (reply.empty()) reply = said != nullptr ? said : "";
            call = nullptr;
            changed.notify_all();
        }
        lock.unlock();  // ending the session waits for the server
    }
    const std::lock_guard<std::mutex> lock(mutex);
    hasEnded = true;
    changed.notify_all();
}

FtpWriter::FtpWriter(std::function<bool()> stop) : m_pSession(std::make_shared<Session>()), m_Stop(std::move(stop)) {
    m_Thread = std::thread([session = m_pSession] { session->Run(); });
}

FtpWriter::~FtpWriter() {
    std::unique_lock<std::mutex> lock(m_pSession->mutex);
    m_pSession->isOver = true;
    m_pSession->changed.notify_all();
    lock.unlock();
    // Detached only where it hangs: MinGW's threads now and then lose the next one when one is detached just as it ends.
    WaitForThread() ? m_Thread.join() : m_Thread.detach();
}

// Waits until the thread has finished its call, or has ended where the session is over. False when it was given up.
bool FtpWriter::WaitForThread() {
    std::unique_lock<std::mutex> lock(m_pSession->mutex);
    const auto isBack = [this] { return m_pSession->isOver ? m_pSession->hasEnded : !m_pSession->call; };
    while (!m_bLost && !m_pSession->changed.wait_for(lock, kLook, isBack)) {
        const auto now = std::chrono::steady_clock::now();
        if (!m_bStopping && m_Stop && m_Stop()) {
            m_bStopping = true;
            m_pSession->givenUp = now + kGrace;
        }
        m_bLost = now >= m_pSession->givenUp;
    }
    if (m_bLost) m_pSession->isOver = true;
    return !m_bLost;
}

unsigned FtpWriter::Call(std::function<unsigned(CFTPSend&)> call, unsigned otherwise) {
    if (m_bLost) return otherwise;
    {
        const std::lock_guard<std::mutex> lock(m_pSession->mutex);
        m_pSession->call = std::move(call);
        m_pSession->reply.clear();
    }
    m_pSession->changed.notify_all();
    if (!WaitForThread()) return otherwise;
    const std::lock_guard<std::mutex> lock(m_pSession->mutex);
    m_Reply = m_pSession->reply;
    return m_pSession->result;
}

bool FtpWriter::Connect(const std::string& host, const std::string& user, const std::string& password) {
    const auto connect = [host, user, password, session = m_pSession.get()](CFTPSend& writer) {
        try {
            writer.Connect(host.c_str(), user.c_str(), password.c_str());
            return 1U;
        } catch (const char* reply) {
            const std::lock_guard<std::mutex> lock(session->mutex);
            session->reply = reply;
            return 0U;
        }
    };
    return Call(connect, 0) != 0;
}

bool FtpWriter::Open(const char* path, const char* mode) {
    const auto open = [path = std::string(path), mode = std::string(mode)](CFTPSend& writer) {
        return writer.Open(path.c_str(), mode.c_str()) ? 1U : 0U;
    };
    return Call(open, 0) != 0;
}

int FtpWriter::Close() {
    return static_cast<int>(Call([](CFTPSend& writer) { return static_cast<unsigned>(writer.Close()); }, 0));
}

unsigned FtpWriter::Write(void* bytes, unsigned size, unsigned count) {
    const auto* const from = static_cast<const char*>(bytes);
    const auto data = std::make_shared<std::string>(from, std::size_t{size} * count);
    const auto write = [data, size, count](CFTPSend& writer) { return writer.Write(data->data(), size, count); };
    return Call(write, 0);
}

int FtpWriter::Print(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    char text[512];  // the longest text that `CFTPSend::Print` sends
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) return length;
    const int most = std::min(length, static_cast<int>(sizeof text) - 1);
    return static_cast<int>(Write(text, 1, static_cast<unsigned>(most)));
}

unsigned FtpWriter::Seek(unsigned long offset) {
    return Call([offset](CFTPSend& writer) { return writer.Seek(offset); }, 0);
}

char* FtpWriter::StrError() {
    return m_Reply.data();
}

}  // namespace korvane
