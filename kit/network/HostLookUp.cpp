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

// A look-up of a host name, shared with the thread that makes it. A look-up cannot be interrupted, so after a stop the
// thread is left to finish alone.
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

}  // namespace

std::vector<platform::Endpoint> LookUpHost(const std::string& host, const std::string& service, const Watch& watch) {
    const auto lookUp = std::make_shared<HostLookUp>(host, service);
    std::thread([lookUp] { lookUp->Run(); }).detach();
    std::unique_lock<std::mutex> lock(lookUp->mutex);
    while (!lookUp->changed.wait_for(lock, kLook, [&] { return lookUp->isDone; })) watch.StopIfAsked();
    if (!lookUp->isFound) {
        throw Error(ErrorKind::NotFound, lookUp->knowsHost ? "unknown service " + service : "unknown host " + host);
    }
    return lookUp->endpoints;
}

}  // namespace korvane
