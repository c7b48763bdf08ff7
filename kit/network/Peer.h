// Another DICOM program on the network.
#pragma once

#include "../core/KitExport.h"
#include "TlsOptions.h"
#include "WebOptions.h"

#include <string>

namespace korvane {

/// Its address, the AE titles of both sides, and time limits. Titles are application entity titles (PS3.5 6.2): at most
/// 16 ASCII characters.
struct Peer {
    /// Name or address (IPv4 or IPv6); all addresses of a name are tried in order. For `Query`, `Get`, `Send` and what
    /// `WebRetrieve.h` has also the base address of a DICOMweb service, "https://pacs/dicom-web"; no port then, and titles
    /// count for nothing.
    std::string host;
    std::string port;  ///< a number or the name of a service
    std::string ownTitle = "KORVANE";
    std::string peerTitle = "ANY-SCP";
    int connectTimeout = 20;  ///< seconds for the connection, and for the answer to the request for an association
    int timeout = 300;        ///< seconds for each other answer
    TlsOptions tls{};         ///< off unless it says otherwise; always on for an https address
    WebOptions web{};         ///< for an http or https address

    /// "host:port", an IPv6 address in brackets; an http or https address as it is.
    std::string Name() const {
        if (host.find("://") != std::string::npos) return host;
        return (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" + port;
    }
};

/// Whether a peer is a web service: its host is an http or https address. Throws `Error` of kind `WrongArgument` when it has
/// a port beside it.
KORVANE_KIT bool IsWebService(const Peer& peer);

/// Why a text is not an application entity title; empty when it is one.
KORVANE_KIT std::string FaultOfTitle(const std::string& title);
/// Why a text is neither a port nor can be the name of a service; empty when it is. Names are looked up later.
KORVANE_KIT std::string FaultOfPort(const std::string& port);

}  // namespace korvane
