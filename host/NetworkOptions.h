// Options of the verbs that connect to other programs.
#pragma once

namespace CLI {
class App;
}
namespace korvane {
struct Peer;
struct TlsOptions;
}  // namespace korvane

/// Adds --tls and its options.
void AddTlsOptions(CLI::App& verb, korvane::TlsOptions& options);

/// Adds HOST, PORT, AE titles and time-outs to a verb.
void AddPeerOptions(CLI::App& verb, korvane::Peer& options);
