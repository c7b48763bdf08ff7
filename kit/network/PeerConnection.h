// An association with another program, for the Kit's jobs.
#pragma once

#include "../core/Error.h"
#include "../core/Watch.h"
#include "Connection.h"
#include "Peer.h"

#include "Dicom/Lib/network/DcmService.h"
#include "platform/Socket.h"

#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// A connection to a peer, and the association on it. Whatever a call waits for, it returns within a tenth of a second
/// after the job is stopped.
class PeerConnection {
public:
    /// Looks up host and port. `peer` must outlive the object. Throws `Error`.
    PeerConnection(const Peer& peer, const Watch& watch);

    /// For proposals before `Associate`, and for messages after it.
    DcmService& GetService() { return m_Service; }

    /// Connects and asks for the association. Throws `Error` when it is not accepted.
    void Associate();

    /// The last failure in words, with the peer's name.
    std::string GetError() const { return m_Peer.Name() + ": " + m_Service.GetError(); }
    std::string GetName() const { return m_Peer.Name(); }
    Error MakeError() const { return {ErrorKind::Refused, GetError()}; }

private:
    void Connect();

    const Peer& m_Peer;
    Watch m_Watch;
    SocketLibrary m_Library;
    DcmService m_Service;
    std::vector<platform::Endpoint> m_Endpoints;
    std::unique_ptr<TlsContext> m_pTls;
};

}  // namespace korvane
