// Options of the verbs that connect to other programs.
#pragma once

#include <string>

namespace CLI {
class App;
}
namespace korvane {
struct CommitOptions;
struct Peer;
struct TlsOptions;
}  // namespace korvane

/// Adds --tls and its options.
void AddTlsOptions(CLI::App& verb, korvane::TlsOptions& options);

/// Adds HOST, PORT, AE titles and time-outs to a verb.
void AddPeerOptions(CLI::App& verb, korvane::Peer& options);

/// Adds the options for how a report of commitment is awaited, each behind "--" and the prefix.
void AddCommitOptions(CLI::App& verb, korvane::CommitOptions& options, const std::string& prefix);

/// Adds what web services want, for the verbs that take their addresses as HOST.
void AddWebOptions(CLI::App& verb, korvane::Peer& options);
