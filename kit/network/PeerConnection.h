// An association with another program, as jobs ask for one.
#pragma once

#include "../core/Error.h"
#include "../core/Watch.h"
#include "Peer.h"

#include "Dicom/Lib/network/DcmService.h"

#include <string>

namespace korvane {

/// Whatever it waits for, a stop ends within a tenth of a second.
class PeerConnection {
public:
    /// Looks host and port up. `peer` must outlive the object. Throws `Error`.
    PeerConnection(const Peer& peer, const Watch& watch);

    /// For proposals before `Associate`, and for messages after it.
    DcmService& GetService() { return m_Service; }

    /// Throws `Error` when there is no association afterwards.
    void Associate();

    /// What went wrong last, with the peer's name.
    std::string GetError() const { return m_Peer.Name() + ": " + m_Service.GetError(); }
    std::string GetName() const { return m_Peer.Name(); }
    Error MakeError() const { return {ErrorKind::Refused, GetError()}; }

private:
    void LookUp();

    const Peer& m_Peer;
    Watch m_Watch;
    DcmService m_Service;
    std::string m_Address;
    std::string m_Port;
};

}  // namespace korvane
