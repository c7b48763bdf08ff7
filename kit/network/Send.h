// Sends files to a DICOM program that stores them (C-STORE as user, PS3.4 B).
#pragma once

#include "../core/Watcher.h"
#include "Peer.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// Options of `Send`.
struct SendOptions {
    Watcher* watcher = nullptr;  ///< stays the caller's; null: no reports, no stop
};

/// The outcome for each file of `Send`. Reasons may hold text of the peer: escape them before printing.
struct SendReport {
    struct File {
        std::string path;
        std::string why;           ///< the reason, a sentence for people
        std::uint16_t status = 0;  ///< of the provider's answer (PS3.7 C), if there was one
    };
    std::size_t stored = 0;
    std::uint64_t bytes = 0;  ///< of the stored data sets
    std::size_t associations = 0;
    double seconds = 0;         ///< from the first association to the end of the last
    std::vector<File> warned;   ///< stored, with a warning of the provider
    std::vector<File> failed;   ///< not stored
    std::vector<File> leftOut;  ///< files of folders that are not DICOM, or a DICOMDIR
};

/// Sends files, and all files below folders, in as few associations as their SOP classes and transfer syntaxes allow.
/// When an association breaks off, another one is made for the files that are left, unless two in a row broke off
/// before anything was stored.
///
///     const auto report = korvane::Send({.host = "pacs", .port = "104"}, {"study/"});
///     for (const auto& file : report.failed) std::cerr << file.path << ": " << file.why << '\n';
///
/// The outcome for each file is in the report. Throws `Error`: `NotFound` for a host that is not known; `Refused` when
/// the first association does not come about; `Stopped`, with how much was stored by then in the sentence.
KORVANE_KIT SendReport Send(const Peer& peer, const std::vector<std::string>& sources, const SendOptions& options = {});

/// One object: "schema" ("korvane.send"), "version" (1; it grows when a member changes its meaning or goes), and the
/// members of the report.
KORVANE_KIT std::string ToJson(const SendReport& report);

}  // namespace korvane
