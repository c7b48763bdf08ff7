#include "ServerGuard.h"

#include "HostError.h"

#include "host/terminal/Terminal.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace korvane {

namespace {

constexpr int kLook = 20;  // milliseconds
constexpr int kGrace = 150;

}  // namespace

ServerGuard::ServerGuard() : m_Thread([this] { Run(); }) {}

ServerGuard::~ServerGuard() {
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        m_bEnd = true;
    }
    m_Changed.notify_all();
    m_Thread.join();
}

bool ServerGuard::WaitForEnd(int milliseconds) {
    std::unique_lock<std::mutex> lock(m_Mutex);
    return m_Changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return m_bEnd; });
}

void ServerGuard::Run() {
    while (!platform::WasInterrupted()) {
        if (WaitForEnd(kLook)) return;
    }
    if (WaitForEnd(kGrace)) return;
    if (platform::IsErrorTerminal()) std::fputc('\n', stderr);  // behind the progress bar
    Warn(m_bBegun ? "stopped; its files on the server may be there in part" : "stopped");
    platform::EndByInterrupt();
}

}  // namespace korvane
