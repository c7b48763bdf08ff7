// What a web service wants beside its address (DICOMweb, PS3.18).
#pragma once

#include "../core/KitExport.h"

#include <string>

namespace korvane {

/// For peers whose `Peer::host` is an https or http address.
struct WebOptions {
    /// Shown to the peer as its bearer (RFC 6750), over https alone, and to nobody that it may redirect to.
    std::string token;
    /// Show it over http, too, where the peer is this machine: for tests.
    bool tokenToLoopback = false;
    /// How often a query or retrieval is tried again after 429, 502, 503, 504 and broken connections. (`Send` has its own
    /// number in `SendOptions`.)
    unsigned retries = 3;
    int retryWait =
        1;  ///< seconds before the first of them, where the peer names none; each further waits twice as long
};

/// Whether this build can talk to web services.
KORVANE_KIT bool HasWeb();

/// The token that a file has, without blanks and line ends around it. Throws `Error`: `Disk`, or `WrongArgument` for
/// contents that are no token.
KORVANE_KIT std::string ReadToken(const std::string& path);

}  // namespace korvane
