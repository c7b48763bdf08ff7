#include "NetworkOptions.h"

#include <Korvane/Kit.h>

#include <CLI/CLI.hpp>

#include <map>

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

void AddTlsOptions(CLI::App& verb, TlsOptions& options) {
    verb.add_flag("--tls", options.isOn, "Encrypted connections (TLS 1.2 or 1.3; the usual port is 2762)");
    verb.add_option("--tls-cert", options.certificate,
                    "PEM file with the own certificate, and those up to its authority");
    verb.add_option("--tls-key", options.key, "PEM file with its private key, without a password (that of --tls-cert)");
    verb.add_option("--tls-ca", options.authorities,
                    "PEM file with certificates of authorities that peers are trusted by; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    const std::map<std::string, TlsProfile> profiles = {{"bcp195", TlsProfile::Bcp195},
                                                        {"bcp195-extended", TlsProfile::ExtendedBcp195}};
    verb.add_option("--tls-profile", options.profile, "bcp195, or bcp195-extended for the strongest alone (bcp195)")
        ->transform(CLI::CheckedTransformer(profiles));
}

void AddPeerOptions(CLI::App& verb, Peer& options) {
    verb.add_option("HOST", options.host, "Name or address (IPv4 or IPv6)")->required();
    verb.add_option("PORT", options.port, "Number, or name of a service")->required()->check(CheckPort);
    verb.add_option("--aet", options.ownTitle, "AE title of this program (KORVANE)")->check(CheckTitle);
    verb.add_option("--aec", options.peerTitle, "AE title of the other one (ANY-SCP)")->check(CheckTitle);
    verb.add_option("--connect-timeout", options.connectTimeout,
                    "Seconds for the connection, and for the answer to the request for an association (20)")
        ->check(CLI::Range(1, kLongest));
    verb.add_option("--timeout", options.timeout, "Seconds for each other answer (300)")
        ->check(CLI::Range(1, kLongest));
    AddTlsOptions(verb, options.tls);
    verb.add_flag("!--tls-any-name", options.tls.checksName, "Take a certificate that is for another host name");
}
