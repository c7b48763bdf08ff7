// An association with another program, as the verbs ask for one.
#pragma once

#include "../core/ServerGuard.h"

#include <Korvane/Dicom.h>

#include <string>

namespace korvane {

struct PeerOptions {
    std::string host;
    std::string port;  ///< a number or the name of a service
    std::string ownTitle = "KORVANE";
    std::string peerTitle = "ANY-SCP";
    int connectTimeout = 20;  ///< seconds for the connection, and for the answer to the request
    int timeout = 300;        ///< seconds for each other answer

    std::string Name() const { return host + ":" + port; }
};

/// Ctrl-C stops what it waits for; where that does not work (the system connects, or sends to a peer that takes nothing),
/// it ends the program.
class PeerConnection {
public:
    /// Looks the host up. Throws `HostError`.
    explicit PeerConnection(const PeerOptions& options);

    /// For proposals before `Associate`, and for messages after it.
    DcmService& GetService() { return m_Service; }

    /// Throws `HostError` when there is no association afterwards, `Interrupted`.
    void Associate();

    /// What went wrong last, with the peer's name.
    std::string GetError() const { return m_Options.Name() + ": " + m_Service.GetError(); }

private:
    const PeerOptions& m_Options;
    DcmService m_Service;
    ServerGuard m_Guard;
    std::string m_Address;
};

}  // namespace korvane
