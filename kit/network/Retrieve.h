// Fetches data sets from a DICOM program that has them (C-GET and C-MOVE as user, PS3.4 C.4.2 and C.4.3).
//
//     korvane::RetrieveOptions asked{.keys = {{"StudyInstanceUID", uid}}, .folder = "study"};
//     const auto report = korvane::Get({.host = "pacs", .port = "104"}, asked);
#pragma once

#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "Peer.h"
#include "Query.h"
#include "Receive.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// What `Get` brings of each instance. All but the first come from web services alone, and are files named
/// "<SOP instance UID>.json" (the DICOM JSON model, bulk data as addresses) and "<SOP instance UID>-frame-N.jpg" or what
/// else the type of the frame is, ".raw" where it is not compressed.
enum class RetrievedForm { Objects, Metadata, Frames };

/// What `Get` and `Move` fetch, and where it goes.
struct RetrieveOptions {
    QueryLevel level = QueryLevel::Study;     ///< what the keys choose; not `Worklist`
    std::vector<QueryKey> keys;               ///< as for `Query`; at least one with a value
    bool patientRoot = false;                 ///< as in `QueryOptions`
    std::string characterSet = "ISO_IR 192";  ///< as in `QueryOptions`

    std::string folder;    ///< data sets are stored here as `Receive` does; made where it is not there
    bool replace = false;  ///< as in `ReceiveOptions`
    bool sync = true;      ///< as in `ReceiveOptions`

    // For `Get` from a web service:
    RetrievedForm form = RetrievedForm::Objects;
    std::vector<unsigned> frames{};  ///< numbers from 1 on, for `RetrievedForm::Frames`

    // For `Move`:
    std::string destination;  ///< AE title of a third program that the peer sends to; empty: this one, into `folder`
    std::uint16_t port = 0;   ///< the port of this program that the peer has for the title `Peer::ownTitle`
    bool encrypted = false;   ///< what comes there is encrypted, with the certificates of `Peer::tls`

    Watcher* watcher = nullptr;  ///< stays the caller's; null: no reports, no stop
};

/// The outcome of a retrieval.
struct RetrieveReport {
    struct Failure {
        std::string what;  ///< "study 1.2.3", "series 1.2.3"; or of one instance its UID
        std::string why;
    };
    std::string peer;         ///< its name, as `Peer::Name` has it
    std::string folder;       ///< where files were stored; empty where a third program got them
    std::string destination;  ///< AE title of that one
    std::size_t asked = 0;    ///< patients, studies, series (for `Get`: always series) or instances that were asked for
    std::size_t completed = 0;        ///< successful sub-operations, by the peer's count; warnings are among them
    std::size_t failed = 0;           ///< failed sub-operations, by the peer's count
    std::size_t stored = 0;           ///< files that were stored here
    std::uint16_t status = 0;         ///< the last status that was not success (PS3.7 C); 0: none
    std::vector<ReceivedFile> files;  ///< data sets that were received, stored or not
    std::vector<Failure> failures;
    double seconds = 0;  ///< duration of the whole retrieval
};

/// Fetches from a web service (WADO-RS), which is asked first for the instances that there are: what does not come is
/// asked for again, and told at last. Or fetches over the association itself (C-GET), which works through firewalls and with a peer that does not know this
/// program. The peer is asked first for the series and their SOP classes; these are proposed for storage, in as few
/// associations as 128 contexts allow. Compressed data sets stay compressed where the peer can send them so.
///
/// Throws `Error`: `NotFound` for an unknown host or when nothing matches; `Refused`, `WrongArgument`, `Stopped`. What
/// went wrong with single series is in the report.
KORVANE_KIT RetrieveReport Get(const Peer& peer, const RetrieveOptions& options);

/// Has the peer send to an AE title that it knows (C-MOVE). Without `destination` this program listens at `port`
/// meanwhile and stores what the peer sends; other calling titles are rejected.
///
/// Throws `Error` as `Get`; `Refused` also when the peer does not know the title.
KORVANE_KIT RetrieveReport Move(const Peer& peer, const RetrieveOptions& options);

/// One object: "schema" ("korvane.retrieve"), "version" (1; it grows when a member changes its meaning or goes), and
/// the members of the report.
KORVANE_KIT std::string ToJson(const RetrieveReport& report);
KORVANE_KIT Outcome OutcomeOf(const RetrieveReport& report);

}  // namespace korvane
