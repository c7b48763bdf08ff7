// korvane send: files to a storage provider.
#include "NetworkOptions.h"
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/core/TextEncoding.h>
#include <Korvane/kit/network/Send.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <iostream>
#include <memory>

using namespace korvane;

namespace {

using Json = nlohmann::ordered_json;

struct Arguments {
    PeerOptions peer;
    std::vector<std::string> sources;
    bool json = false;
};

Json FilesJson(const std::vector<SendReport::File>& files) {
    const TextDecoder decoder("ISO_IR 192");
    Json array = Json::array();
    for (const auto& file : files) {
        array.push_back({{"path", decoder.ToUtf8(file.path)}, {"why", decoder.ToUtf8(file.why)}});
        if (file.status != 0) array.back()["status"] = file.status;
    }
    return array;
}

/// One object: "schema" ("korvane.send"), "version" (1; it grows when a member changes its meaning or goes), and the
/// members of `SendReport`.
void PrintJson(const SendReport& report) {
    Json json;
    json["schema"] = "korvane.send";
    json["version"] = 1;
    json["stored"] = report.stored;
    json["bytes"] = report.bytes;
    json["associations"] = report.associations;
    json["seconds"] = report.seconds;
    json["failed"] = FilesJson(report.failed);
    json["warned"] = FilesJson(report.warned);
    json["leftOut"] = FilesJson(report.leftOut);
    std::cout << json.dump(2) << '\n';
}

void PrintText(const std::string& peer, const SendReport& report) {
    const double megabytes = static_cast<double>(report.bytes) / 1e6;
    std::printf("%zu files stored at %s: %.1f MB in %.1f s\n", report.stored, Visible(peer).c_str(), megabytes,
                report.seconds);
    for (const auto& file : report.warned) {
        std::printf("stored with a warning: %s: %s\n", Visible(file.path).c_str(), Visible(file.why).c_str());
    }
    for (const auto& file : report.leftOut) {
        std::printf("left out: %s: %s\n", Visible(file.path).c_str(), Visible(file.why).c_str());
    }
}

void Send(const Arguments& arguments) {
    const SendReport report = SendFiles(arguments.peer, arguments.sources);
    if (arguments.json) {
        PrintJson(report);
    } else {
        PrintText(arguments.peer.Name(), report);
    }
    for (const auto& file : report.failed) Warn(file.path + ": " + file.why);
    const std::size_t failed = report.failed.size();
    if (failed > 0)
        throw HostError(std::to_string(failed) + (failed == 1 ? " file was" : " files were") + " not stored");
    if (report.stored == 0) throw HostError(arguments.sources.front() + ": no DICOM files");
}

}  // namespace

void AddSendVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("send", "Send files to a DICOM program that stores them (C-STORE)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    verb->add_option("FILE", arguments->sources, "DICOM files, and folders with all below them")->required();
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { Send(*arguments); });
}
