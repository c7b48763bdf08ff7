#include "PeerConnection.h"

#include "../core/HostError.h"

#include "host/terminal/Terminal.h"

#include <system_error>
#include <vector>

namespace korvane {

PeerConnection::PeerConnection(const PeerOptions& options) : m_Options(options) {
    m_Service.SetStopCheck(platform::WasInterrupted);
    m_Service.GetSocket();  // which starts the system's socket library
    // The library takes whatever begins with a digit for an address; names may begin so.
    std::vector<std::uint32_t> addresses;
    if (!platform::FindHost(options.host.c_str(), addresses) || addresses.empty()) {
        StopIfInterrupted();
        throw HostError("unknown host " + options.host);
    }
    platform::SocketAddress first;
    first.address = addresses.front();
    m_Address = platform::AddressText(first);
}

void PeerConnection::Associate() {
    DcmSocket& socket = m_Service.GetSocket();
    m_Service.AAssociateRQ::m_CallingAETitle = m_Options.ownTitle;
    m_Service.AAssociateRQ::m_CalledAETitle = m_Options.peerTitle;
    socket.SetTimeout(m_Options.connectTimeout);
    const DcmService::Event event = m_Service.Associate(m_Address.c_str(), m_Options.port.c_str());
    StopIfInterrupted();
    if (event == DcmService::Event::Accepted) {
        socket.SetTimeout(m_Options.timeout);
        return;
    }
    // Texts about connecting show the C library's error number, which says nothing on Windows.
    if (socket.HasFailed() && m_Service.GetError().starts_with("Open(")) {
        const std::error_code reason(socket.GetLastError(), std::system_category());
        throw HostError(m_Options.Name() + ": cannot connect: " + SystemText(reason, ""));
    }
    throw HostError(GetError());
}

}  // namespace korvane
