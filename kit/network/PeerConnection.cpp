#include "PeerConnection.h"

#include "HostLookUp.h"
#include "WebService.h"

#include "platform/Socket.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <system_error>
#include <utility>

namespace korvane {

std::string FaultOfTitle(const std::string& title) {
    const bool fits = title.size() <= 16 && title.find_first_not_of(' ') != std::string::npos &&
                      std::all_of(title.begin(), title.end(), [](char c) { return c >= ' ' && c < 127 && c != '\\'; });
    return fits ? "" : "an AE title is at most 16 letters, digits and other ASCII characters without backslash";
}

std::string FaultOfPort(const std::string& port) {
    if (port.empty()) return "a port is a number or the name of a service";
    if (port.find_first_not_of("0123456789") != std::string::npos) return {};
    const bool fits = port.size() <= 5 && std::stoi(port) >= 1 && std::stoi(port) <= 65535;
    return fits ? "" : "a port is a number from 1 to 65535 or the name of a service";
}

PeerConnection::PeerConnection(const Peer& peer, const Watch& watch) : m_Peer(peer), m_Watch(watch) {
    for (const std::string& fault :
         {FaultOfTitle(peer.ownTitle), FaultOfTitle(peer.peerTitle), FaultOfPort(peer.port)}) {
        if (!fault.empty()) throw Error(ErrorKind::WrongArgument, fault);
    }
    m_Service.SetStopCheck(watch.GetStopQuestion());
    if (peer.tls.isOn) m_pTls = std::make_unique<TlsContext>(peer.tls, TlsContext::Side::Connects);
    m_Endpoints = LookUpHost(peer.host, peer.port, watch);
}

// Connects to the first address that answers. One deadline holds for all: each gets its part of what is left.
void PeerConnection::Connect() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(m_Peer.connectTimeout);
    OwnSocket socket;
    std::error_code reason;
    for (std::size_t i = 0; i < m_Endpoints.size() && !socket.IsOpen(); ++i) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        const auto part = std::max<std::int64_t>(left.count() / static_cast<std::int64_t>(m_Endpoints.size() - i), 1);
        socket = OwnSocket(platform::ConnectTo(m_Endpoints[i], part, m_Watch.GetStopQuestion()));
        if (!socket.IsOpen()) reason = {platform::LastSocketError(), std::system_category()};
        m_Watch.StopIfAsked();
    }
    if (!socket.IsOpen()) {
        throw Error(ErrorKind::Refused, m_Peer.Name() + ": cannot connect: " + SystemText(reason, ""));
    }
    if (m_pTls == nullptr) {
        m_Service.SetTransport(std::make_unique<PlainConnection>(std::move(socket)));
        return;
    }
    platform::TuneSocket(socket.Get(), m_Peer.connectTimeout);
    std::string why;
    auto encrypted = m_pTls->Wrap(std::move(socket), m_Peer.host, deadline, m_Watch.GetStopQuestion(), why);
    m_Watch.StopIfAsked();
    if (encrypted == nullptr) throw Error(ErrorKind::Refused, m_Peer.Name() + ": " + why);
    m_Service.SetTransport(std::move(encrypted));
}

void PeerConnection::Associate() {
    m_Service.AAssociateRQ::m_CallingAETitle = m_Peer.ownTitle;
    m_Service.AAssociateRQ::m_CalledAETitle = m_Peer.peerTitle;
    m_Service.Disconnect();
    m_Service.SetTimeout(m_Peer.connectTimeout);
    Connect();
    const DcmService::Event event = m_Service.Associate();
    m_Watch.StopIfAsked();
    if (event != DcmService::Event::Accepted) throw MakeError();
    m_Service.SetTimeout(m_Peer.timeout);
}

}  // namespace korvane
