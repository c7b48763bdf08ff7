#include "HostLookUp.h"

#include "../core/Error.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace korvane {

namespace {

constexpr std::chrono::milliseconds kLook{20};

// A look-up of a host name, shared with the thread that makes it.
struct HostLookUp {
    std::mutex mutex;
    std::condition_variable changed;
    const std::string host;
    const std::string service;
    std::vector<platform::Endpoint> endpoints;
    bool knowsHost = false;
    bool isFound = false;
    bool isDone = false;

    HostLookUp(std::string asked, std::string name) : host(std::move(asked)), service(std::move(name)) {}

    void Run() {
        std::vector<platform::Endpoint> found;
        bool knows = false;
        platform::StartSocketLibrary();
        const bool known = platform::LookUp(host, service, found, knows);
        platform::StopSocketLibrary();
        const std::lock_guard<std::mutex> lock(mutex);
        endpoints = std::move(found);
        knowsHost = knows;
        isFound = known;
        isDone = true;
        changed.notify_all();
    }
};

// A look-up cannot be interrupted, so after a stop the thread is left to finish alone. Otherwise it is joined: MinGW's threads
// now and then lose the next one when one is detached just as it ends, and that one's look-up would never come.
class LookUpThread {
public:
    explicit LookUpThread(const std::shared_ptr<HostLookUp>& lookUp) : m_Thread([lookUp] { lookUp->Run(); }) {}
    ~LookUpThread() {
        if (m_Thread.joinable()) m_Thread.detach();
    }
    LookUpThread(const LookUpThread&) = delete;
    LookUpThread& operator=(const LookUpThread&) = delete;

    void Join() { m_Thread.join(); }

private:
    std::thread m_Thread;
};

}  // namespace

std::vector<platform::Endpoint> LookUpHost(const std::string& host, const std::string& service, const Watch& watch) {
    const auto lookUp = std::make_shared<HostLookUp>(host, service);
    LookUpThread thread(lookUp);
    {
        std::unique_lock<std::mutex> lock(lookUp->mutex);
        while (!lookUp->changed.wait_for(lock, kLook, [&] { return lookUp->isDone; })) watch.StopIfAsked();
    }
    thread.Join();
    if (!lookUp->isFound) {
        throw Error(ErrorKind::NotFound, lookUp->knowsHost ? "unknown service " + service : "unknown host " + host);
    }
    return lookUp->endpoints;
}

}  // namespace korvane
