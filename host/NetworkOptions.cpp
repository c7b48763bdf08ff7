#include "NetworkOptions.h"

#include <Korvane/Kit.h>

#include <CLI/CLI.hpp>

using namespace korvane;

namespace {

constexpr int kLongest = 24 * 3600;

// Service names are looked up later; numbers must be ports.
std::string CheckPort(const std::string& text) {
    const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber) return text.empty() ? "a port is a number or the name of a service" : "";
    const bool fits = text.size() <= 5 && std::stoi(text) >= 1 && std::stoi(text) <= 65535;
    return fits ? "" : "a port is a number from 1 to 65535 or the name of a service";
}

}  // namespace

std::string CheckTitle(const std::string& title) {
    return FaultOfTitle(title);
}

void AddPeerOptions(CLI::App& verb, Peer& options) {
    verb.add_option("HOST", options.host, "Name or IPv4 address")->required();
    verb.add_option("PORT", options.port, "Number, or name of a service")->required()->check(CheckPort);
    verb.add_option("--aet", options.ownTitle, "AE title of this program (KORVANE)")->check(CheckTitle);
    verb.add_option("--aec", options.peerTitle, "AE title of the other one (ANY-SCP)")->check(CheckTitle);
    verb.add_option("--connect-timeout", options.connectTimeout,
                    "Seconds for the connection, and for the answer to the request for an association (20)")
        ->check(CLI::Range(1, kLongest));
    verb.add_option("--timeout", options.timeout, "Seconds for each other answer (300)")
        ->check(CLI::Range(1, kLongest));
}
