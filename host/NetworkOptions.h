// Options of the verbs that speak to other programs.
#pragma once

#include <string>

namespace CLI {
class App;
}
namespace korvane {
struct Peer;
}

/// HOST, PORT, titles and time-outs.
void AddPeerOptions(CLI::App& verb, korvane::Peer& options);

/// Why a text is no AE title (PS3.5 6.2); empty for one.
std::string CheckTitle(const std::string& title);
