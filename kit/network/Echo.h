// Checks whether a DICOM program answers: verification (C-ECHO, PS3.4 A).
#pragma once

#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "Peer.h"

#include <string>

namespace korvane {

/// Options of `Echo`.
struct EchoOptions {
    Watcher* watcher = nullptr;  ///< stays the caller's; null: no reports, no stop
};

/// The answer of a peer to `Echo`.
struct EchoReport {
    Peer peer;                   ///< the one that was asked
    std::string implementation;  ///< its implementation version name; may be empty. Escape it before printing.
    double milliseconds = 0;     ///< from the association request to the C-ECHO response
};

/// Asks for an association, sends one C-ECHO and releases the association. Throws `Error`: `NotFound` for an unknown
/// host or service; `Refused` without a connection, association or answer in time, or when the answer is a failure;
/// `Stopped`.
///
///     korvane::Peer peer{.host = "pacs", .port = "104"};
///     std::cout << korvane::Echo(peer).milliseconds << " ms\n";
KORVANE_KIT EchoReport Echo(const Peer& peer, const EchoOptions& options = {});

/// One object: "schema" ("korvane.echo"), "version" (1; it grows when a member changes its meaning or goes), and the
/// members of the report.
KORVANE_KIT std::string ToJson(const EchoReport& report);
KORVANE_KIT Outcome OutcomeOf(const EchoReport& report);

}  // namespace korvane
