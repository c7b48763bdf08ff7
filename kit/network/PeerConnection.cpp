#include "PeerConnection.h"

#include "platform/Socket.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

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
    std::vector<std::uint32_t> addresses;
    std::uint16_t port = 0;
    bool isFound = false;
    bool isDone = false;

    HostLookUp(std::string asked, std::string name) : host(std::move(asked)), service(std::move(name)) {}

    void Run() {
        std::vector<std::uint32_t> found;
        std::uint16_t number = 0;
        platform::StartSocketLibrary();
        const bool known = platform::LookUp(host, service, found, number);
        platform::StopSocketLibrary();
        const std::lock_guard<std::mutex> lock(mutex);
        addresses = std::move(found);
        port = number;
        isFound = known;
        isDone = true;
        changed.notify_all();
    }
};

}  // namespace

std::string FaultOfTitle(const std::string& title) {
    const bool fits = title.size() <= 16 && title.find_first_not_of(' ') != std::string::npos &&
                      std::all_of(title.begin(), title.end(), [](char c) { return c >= ' ' && c < 127 && c != '\\'; });
    return fits ? "" : "an AE title is at most 16 letters, digits and other ASCII characters without backslash";
}

PeerConnection::PeerConnection(const Peer& peer, const Watch& watch) : m_Peer(peer), m_Watch(watch) {
    for (const std::string& title : {peer.ownTitle, peer.peerTitle}) {
        if (const std::string fault = FaultOfTitle(title); !fault.empty()) throw Error(ErrorKind::WrongArgument, fault);
    }
    m_Service.SetStopCheck(watch.GetStopQuestion());
    LookUp();
}

void PeerConnection::LookUp() {
    const auto lookUp = std::make_shared<HostLookUp>(m_Peer.host, m_Peer.port);
    std::thread([lookUp] { lookUp->Run(); }).detach();
    std::unique_lock<std::mutex> lock(lookUp->mutex);
    while (!lookUp->changed.wait_for(lock, kLook, [&] { return lookUp->isDone; })) m_Watch.StopIfAsked();
    if (!lookUp->isFound) {
        const bool knowsHost = !lookUp->addresses.empty();
        throw Error(ErrorKind::NotFound, knowsHost ? "unknown service " + m_Peer.port : "unknown host " + m_Peer.host);
    }
    platform::SocketAddress first;
    first.address = lookUp->addresses.front();
    m_Address = platform::AddressText(first);
    m_Port = std::to_string(lookUp->port);
}

void PeerConnection::Associate() {
    DcmSocket& socket = m_Service.GetSocket();
    m_Service.AAssociateRQ::m_CallingAETitle = m_Peer.ownTitle;
    m_Service.AAssociateRQ::m_CalledAETitle = m_Peer.peerTitle;
    socket.SetTimeout(m_Peer.connectTimeout);
    const DcmService::Event event = m_Service.Associate(m_Address.c_str(), m_Port.c_str());
    m_Watch.StopIfAsked();
    if (event == DcmService::Event::Accepted) {
        socket.SetTimeout(m_Peer.timeout);
        return;
    }
    // The socket's own text shows the number in `errno`, which is not where Windows keeps socket errors.
    if (socket.HasFailed() && m_Service.GetError().starts_with("Open(")) {
        const std::error_code reason(socket.GetLastError(), std::system_category());
        throw Error(ErrorKind::Refused, m_Peer.Name() + ": cannot connect: " + SystemText(reason, ""));
    }
    throw MakeError();
}

}  // namespace korvane
