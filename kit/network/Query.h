// Asks a DICOM program what it has: queries (C-FIND as user; PS3.4 C for archives, K for worklists).
//
//     korvane::QueryOptions asked{.keys = {{"PatientName", "DOE*"}, {"StudyDate", "20260101-"}}};
//     for (const auto& study : korvane::Query({.host = "pacs", .port = "104"}, asked).matches)
//         std::cout << study.Text("StudyInstanceUID") << '\n';
#pragma once

#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "../dataset/DataSet.h"
#include "Peer.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace korvane {

/// The level that a query is about: which kind of thing its answers are.
enum class QueryLevel { Patient, Study, Series, Image, Worklist };

/// "patient", "study", "series", "image", "worklist".
KORVANE_KIT const char* WordOf(QueryLevel level);
/// Throws `Error` of kind `WrongArgument` for another word.
KORVANE_KIT QueryLevel QueryLevelOf(const std::string& word);

/// An attribute of a query. With a value, only what has that value matches (PS3.4 C.2.2.2: wildcards `*` and `?`,
/// ranges of dates and times with `-`, lists of UIDs separated by backslashes). Without one, the answers shall contain
/// the attribute.
struct QueryKey {
    ElementPath path;
    std::string value;  ///< UTF-8
};

/// Reads "KEY=VALUE" or "KEY", KEY being a keyword or tag. Throws `Error` of kind `WrongArgument`.
KORVANE_KIT QueryKey QueryKeyOf(const std::string& text);

/// What `Query` asks for.
struct QueryOptions {
    QueryLevel level = QueryLevel::Study;
    std::vector<QueryKey> keys;
    bool patientRoot = false;  ///< the patient root model in place of the study root; always so for `Patient`
    std::size_t limit = 0;     ///< matches after which the query is cancelled; 0: all, as far as they fit into 512 MB
    /// (0008,0005) of a query whose values are not ASCII.
    std::string characterSet = "ISO_IR 192";
    Watcher* watcher = nullptr;  ///< stays the caller's; null: no reports, no stop
};

/// The answers to a query. Each match is a data set of the attributes that the peer returned.
struct QueryReport {
    QueryLevel level = QueryLevel::Study;
    std::vector<std::string> columns;  ///< the keys that were asked for, in the order in which they were given
    std::vector<DataSet> matches;
    // The watcher is told of these two.
    bool isCut = false;        ///< the limit was reached, and there may be more
    bool ignoredKeys = false;  ///< the peer has ignored some key in matching, so that there may be too many matches
    double seconds = 0;        ///< duration of the whole query
};

/// Asks for all that matches; answers have the usual attributes of the level as well as the given keys. An archive
/// answers a query only when it has the unique keys of the levels above (PS3.4 C.4.1.3): where they are not given,
/// those levels are asked first, with the keys that belong to them.
///
/// Throws `Error`: `NotFound` for a host that is not known; `Refused` without an association, when the peer has no such
/// service, or when it reports a failure; `WrongArgument`; `Stopped`.
KORVANE_KIT QueryReport Query(const Peer& peer, const QueryOptions& options);

/// One object: "schema" ("korvane.find"), "version" (1; it grows when a member changes its meaning or goes), the
/// members of the report, and "matches" in the DICOM JSON model (PS3.18 F).
KORVANE_KIT std::string ToJson(const QueryReport& report);
/// The lines are a table: a row of names, then one for each match.
KORVANE_KIT Outcome OutcomeOf(const QueryReport& report);

}  // namespace korvane
