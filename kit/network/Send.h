// Sends files to a DICOM program that stores them (C-STORE as user, PS3.4 B).
#pragma once

#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "Commit.h"
#include "Peer.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// Options of `Send`.
struct SendOptions {
    /// How often a file is tried again whose association broke off or that the peer had no room for (0xA7xx), and an
    /// association that could not be made. Permanent refusals are final.
    unsigned retries = 0;
    int retryWait = 1;  ///< seconds before the first of them; each further one waits twice as long, at most a minute
    /// A file that keeps, across runs, what is to be sent and what was acknowledged; made where it is not there, and
    /// left when all is sent. Empty: none. A run with the queue of an earlier one sends what that did not.
    std::string queue;
    /// Decode what was compressed with loss, too, for a peer that does not take its syntax.
    bool decodeLossy = false;
    /// Ask afterwards whether the peer keeps safely what it has stored, by earlier runs of the queue too.
    std::optional<CommitOptions> commit;
    unsigned jobs = 1;           ///< associations, or requests, at once, at most; at most 64
    Watcher* watcher = nullptr;  ///< stays the caller's; null: no reports, no stop
};

/// The outcome for each file of `Send`. Reasons may hold text of the peer: escape them before printing.
struct SendReport {
    struct File {
        std::string path;
        std::string why;           ///< the reason, a sentence for people
        std::uint16_t status = 0;  ///< of the provider's answer (PS3.7 C), if there was one
    };
    std::string peer;                  ///< its name, as `Peer::Name` has it
    std::vector<std::string> sources;  ///< as they were given
    std::size_t stored = 0;
    std::size_t earlier = 0;  ///< files of the queue that were stored by an earlier run, and not sent now
    std::uint64_t bytes = 0;  ///< of the stored data sets
    std::size_t associations = 0;
    double seconds = 0;         ///< from the first association to the end of the last
    std::vector<File> warned;   ///< stored, with a warning of the provider
    std::vector<File> failed;   ///< not stored
    std::vector<File> leftOut;  ///< files of folders that are not DICOM, or a DICOMDIR
    std::vector<File> decoded;  ///< stored uncompressed, since the peer does not take the syntax of the file
    std::optional<CommitReport> commitment;  ///< where that was asked for and anything was stored
    std::vector<File>
        again;  ///< sent once more, since nobody knows whether they had arrived: the peer may have them twice
};

/// Sends files, and all files below folders, in as few associations as their SOP classes and transfer syntaxes allow;
/// with `jobs`, each of them several times at once. When an association breaks off, another one is made for the files
/// that are left, unless two in a row (or as many as there are retries) broke off before anything was stored.
///
/// A file goes out as it is where the peer takes its transfer syntax; else uncompressed, explicit or implicit little
/// endian: nothing is lost by that, and the report names it.
///
///     const auto report = korvane::Send({.host = "pacs", .port = "104"}, {"study/"});
///     for (const auto& file : report.failed) std::cerr << file.path << ": " << file.why << '\n';
///
/// To a web service (STOW-RS) several files go in one request, as they are; those whose transfer syntax the answer refuses
/// go once more by themselves, explicit little endian. What counts as stored is what the answer names as such.
///
/// No sources: those of the queue.
///
/// The outcome for each file is in the report. Throws `Error`: `NotFound` for a host that is not known; `Refused` when
/// the first association does not come about; `WrongArgument` for a queue that is none or belongs to another peer;
/// `Disk` when the queue cannot be written; `Stopped`, with how much was stored by then in the sentence.
KORVANE_KIT SendReport Send(const Peer& peer, const std::vector<std::string>& sources, const SendOptions& options = {});

/// One object: "schema" ("korvane.send"), "version" (1; it grows when a member changes its meaning or goes), and the
/// members of the report.
KORVANE_KIT std::string ToJson(const SendReport& report);
KORVANE_KIT Outcome OutcomeOf(const SendReport& report);

}  // namespace korvane
