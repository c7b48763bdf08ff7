// korvane send: files to a storage provider.
#include "Console.h"
#include "NetworkOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    Peer peer;
    std::vector<std::string> sources;
    bool json = false;
};

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

void SendAll(const Arguments& arguments) {
    ConsoleWatcher watcher;
    const SendReport report = Send(arguments.peer, arguments.sources, {&watcher});
    if (arguments.json) {
        std::cout << ToJson(report) << '\n';
    } else {
        PrintText(arguments.peer.Name(), report);
    }
    for (const auto& file : report.failed) Complain(file.path + ": " + file.why);
    const std::size_t failed = report.failed.size();
    if (failed > 0) {
        throw Error(ErrorKind::Refused,
                    std::to_string(failed) + (failed == 1 ? " file was" : " files were") + " not stored");
    }
    if (report.stored == 0) throw Error(ErrorKind::NotFound, arguments.sources.front() + ": no DICOM files");
}

}  // namespace

void AddSendVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("send", "Send files to a DICOM program that stores them (C-STORE)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    verb->add_option("FILE", arguments->sources, "DICOM files, and folders with all below them")->required();
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { SendAll(*arguments); });
}
