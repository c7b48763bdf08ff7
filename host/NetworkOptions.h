// Options of the verbs that connect to other programs.
#pragma once

#include <string>

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

/// Why a text is no AE title (PS3.5 6.2); empty for one.
std::string CheckTitle(const std::string& title);
