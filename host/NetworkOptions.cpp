#include "NetworkOptions.h"

#include "terminal/Terminal.h"

#include <Korvane/Kit.h>

#include <CLI/CLI.hpp>

using namespace korvane;

namespace {

constexpr int kLongest = 24 * 3600;

}  // namespace

void AddTlsOptions(CLI::App& verb, TlsOptions& options) {
    verb.add_flag("--tls", options.isOn, "Encrypted connections (TLS 1.2 or 1.3; the usual port is 2762)");
    verb.add_option("--tls-cert", options.certificate,
                    "PEM file with the own certificate, and those up to its authority");
    verb.add_option("--tls-key", options.key, "PEM file with its private key, without a password (that of --tls-cert)");
    verb.add_option("--tls-ca", options.authorities,
                    "PEM file with certificates of authorities that peers are trusted by; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    verb.add_option("--tls-profile", options.profile, "bcp195, or bcp195-extended for the strongest alone (bcp195)")
        ->transform(CLI::CheckedTransformer(TlsProfileWords()));
}

void AddPeerOptions(CLI::App& verb, Peer& options) {
    verb.add_option("HOST", options.host, "Name or address (IPv4 or IPv6)")->required();
    verb.add_option("PORT", options.port, "Number, or name of a service")
        ->required()
        ->check([&options](const std::string& port) {
            return port.empty() && IsWebService(options) ? std::string() : FaultOfPort(port);
        });
    verb.add_option("--aet", options.ownTitle, "AE title of this program (KORVANE)")->check(FaultOfTitle);
    verb.add_option("--aec", options.peerTitle, "AE title of the other one (ANY-SCP)")->check(FaultOfTitle);
    verb.add_option("--connect-timeout", options.connectTimeout,
                    "Seconds for the connection, and for the answer to the request for an association (20)")
        ->check(CLI::Range(1, kLongest));
    verb.add_option("--timeout", options.timeout, "Seconds for each other answer (300)")
        ->check(CLI::Range(1, kLongest));
    AddTlsOptions(verb, options.tls);
    verb.add_flag("!--tls-any-name", options.tls.checksName, "Take a certificate that is for another host name");
}

void AddCommitOptions(CLI::App& verb, CommitOptions& options, const std::string& prefix) {
    verb.add_option("--" + prefix + "port", options.port,
                    "Port that the peer has for --aet, to report over an association of its own")
        ->check(CLI::Range(1, 65535));
    verb.add_option("--" + prefix + "bind", options.bindAddress, "Address of this machine for that (all)");
    verb.add_option("--" + prefix + "wait", options.wait, "Seconds that the report is awaited (60)")
        ->check(CLI::Range(0, kLongest));
    verb.add_flag("--" + prefix + "tls-in", options.encrypted, "What comes to that port is encrypted, too");
}

void AddWebOptions(CLI::App& verb, Peer& options) {
    verb.get_option("HOST")->description(
        "Name or address (IPv4 or IPv6); or https://... of a DICOMweb service, and no PORT then");
    CLI::Option* const file = verb.add_option_function<std::string>(
        "--token-file", [&options](const std::string& path) { options.web.token = ReadToken(path); },
        "File with the bearer token for a web service; goes over https alone");
    verb.add_option_function<std::string>(
            "--token-env",
            [&options](const std::string& name) {
                options.web.token = platform::GetVariable(name.c_str()).value_or("");
                if (options.web.token.empty()) throw CLI::ValidationError("--token-env", "there is no " + name);
            },
            "Name of the environment variable that has it")
        ->excludes(file);
    verb.add_flag("--token-to-loopback", options.web.tokenToLoopback,
                  "Show it to an http service on this machine, too, unencrypted: for tests");
}
