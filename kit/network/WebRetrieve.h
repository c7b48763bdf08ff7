// Retrieval from a DICOMweb service (WADO-RS, PS3.18 10.4).
#pragma once

#include "Retrieve.h"

namespace korvane {

/// As `Get`, which calls it for a peer with an http or https address.
RetrieveReport WebGet(const Peer& peer, const RetrieveOptions& options);

}  // namespace korvane
