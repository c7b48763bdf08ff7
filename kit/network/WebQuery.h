// Queries of a DICOMweb service (QIDO-RS, PS3.18 10.6).
#pragma once

#include "Query.h"

#include <string>

namespace korvane {

/// As `Query`, which calls it for a peer with an http or https address. Levels above the target are asked first where
/// their unique keys are not given, since services need not answer for series of several studies.
QueryReport WebQuery(const Peer& peer, const QueryOptions& options);

/// A step of a path with a UID: "/studies/1.2". Throws `Error` of kind `Refused` for a text that is none, which might lead
/// elsewhere.
std::string PathStep(const char* collection, const std::string& uid);

}  // namespace korvane
