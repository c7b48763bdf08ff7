// Asks a DICOM program whether it keeps instances safely (storage commitment as user, PS3.4 J.3).
#pragma once

#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "Peer.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// How the peer's report is awaited.
struct CommitOptions {
    /// Port of this program that the peer has for the title `Peer::ownTitle`: most archives report over an association
    /// of their own. 0: the report can only come over the association that asks, which is held open for it.
    std::uint16_t port = 0;
    std::string bindAddress;     ///< address of this machine for that (IPv4 or IPv6); empty: all
    bool encrypted = false;      ///< what comes there is encrypted, with the certificates of `Peer::tls`
    int wait = 60;               ///< seconds from the last request until what was not reported counts as unanswered
    Watcher* watcher = nullptr;  ///< stays the caller's; null: no reports, no stop
};

/// What the peer said of each instance. Texts may be the peer's: escape them before printing.
struct CommitReport {
    enum class Outcome { Committed, Failed, Unanswered };
    struct Instance {
        std::string path;  ///< the first file with it
        std::string sopClass;
        std::string sopInstance;
        Outcome outcome = Outcome::Unanswered;
        std::uint16_t status = 0;  ///< Failure Reason (0008,1197), or that of the peer's answer to the request
        std::string why;           ///< empty where it is committed
    };
    struct File {
        std::string path;
        std::string why;
    };
    std::string peer;                 ///< its name, as `Peer::Name` has it
    std::vector<Instance> instances;  ///< in the order of the files, each once
    std::vector<File> failed;         ///< files that could not be read
    std::vector<File> leftOut;        ///< files of folders that are not DICOM, or a DICOMDIR
    std::size_t committed = 0;        ///< instances
    double seconds = 0;               ///< from the association to the last report

    /// Whether every file was read and its instance is committed.
    bool IsWhole() const { return failed.empty() && committed == instances.size(); }
};

/// The stable word of an outcome: "committed", "failed", "unanswered".
KORVANE_KIT const char* WordOf(CommitReport::Outcome outcome);

/// Asks for all files, and those below folders, in requests of at most 1,000 instances, and waits for the reports. Only
/// what the peer reports as committed, by class and UID, counts as such.
///
///     const auto report = korvane::Commit({.host = "pacs", .port = "104", .ownTitle = "CT1"}, {"study/"}, {.port = 11112});
///     if (report.IsWhole()) ...  // the local copies may go
///
/// Throws `Error`: `NotFound` for a host that is not known; `Refused` when the association does not come about or the
/// peer has no storage commitment; `Disk` when the port cannot be had; `Stopped`.
KORVANE_KIT CommitReport Commit(const Peer& peer, const std::vector<std::string>& sources,
                                const CommitOptions& options = {});

/// One object: "schema" ("korvane.commit"), "version" (1; it grows when a member changes its meaning or goes), and the
/// members of the report.
KORVANE_KIT std::string ToJson(const CommitReport& report);
/// Every instance that is not committed is a fault, and any of them a failure.
KORVANE_KIT Outcome OutcomeOf(const CommitReport& report);

}  // namespace korvane
