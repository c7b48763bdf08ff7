// korvane echo: whether a DICOM program answers.
#include "NetworkOptions.h"
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/core/TextEncoding.h>
#include <Korvane/kit/network/PeerConnection.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    PeerOptions peer;
    bool json = false;
};

/// One object: "schema" ("korvane.echo"), "version" (1; it grows when a member changes its meaning or goes).
void PrintJson(const PeerOptions& options, const std::string& implementation, double milliseconds) {
    const TextDecoder decoder("ISO_IR 192");
    nlohmann::ordered_json json;
    json["schema"] = "korvane.echo";
    json["version"] = 1;
    json["host"] = decoder.ToUtf8(options.host);
    json["port"] = decoder.ToUtf8(options.port);
    json["calling"] = options.ownTitle;
    json["called"] = options.peerTitle;
    json["implementation"] = decoder.ToUtf8(implementation);
    json["milliseconds"] = milliseconds;
    std::cout << json.dump(2) << '\n';
}

void Echo(const Arguments& arguments) {
    const PeerOptions& options = arguments.peer;
    PeerConnection peer(options);
    DcmService& service = peer.GetService();
    service.Propose(kVerificationClass);
    const auto start = std::chrono::steady_clock::now();
    peer.Associate();
    std::uint16_t status = kStatusSuccess;
    const DcmService::Event event = service.Echo(status);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    StopIfInterrupted();
    if (event != DcmService::Event::Message) throw HostError(peer.GetError());
    const std::string implementation = service.AAssociateAC::m_UserInformation.implementationVersion;
    service.Release();
    if (status != kStatusSuccess) throw HostError(options.Name() + ": " + DimseStatusText(status));
    if (arguments.json) {
        PrintJson(options, implementation, took.count());
    } else {
        std::printf("%s answers as %s (%s), %.1f ms\n", Visible(options.Name()).c_str(), options.peerTitle.c_str(),
                    implementation.empty() ? "unnamed" : Visible(implementation).c_str(), took.count());
    }
}

}  // namespace

void AddEchoVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("echo", "Ask a DICOM program whether it is there (C-ECHO)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { Echo(*arguments); });
}
