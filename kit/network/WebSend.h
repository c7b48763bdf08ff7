// Storage at a DICOMweb service (STOW-RS, PS3.18 10.5).
#pragma once

#include "Send.h"

#include <string>
#include <vector>

namespace korvane {

/// As `Send`, which calls it for a peer with an http or https address.
SendReport WebSend(const Peer& peer, const std::vector<std::string>& sources, const SendOptions& options);

}  // namespace korvane
