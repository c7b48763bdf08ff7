// korvane send: files to a storage provider.
#include "Console.h"
#include "NetworkOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <map>
#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    Peer peer;
    std::vector<std::string> sources;
    SendOptions options;
    bool json = false;
};

void PrintText(const std::string& peer, const SendReport& report) {
    const double megabytes = static_cast<double>(report.bytes) / 1e6;
    std::printf("%zu files stored at %s: %.1f MB in %.1f s\n", report.stored, Visible(peer).c_str(), megabytes,
                report.seconds);
    if (report.earlier > 0) std::printf("%zu files were stored by an earlier run\n", report.earlier);
    std::map<std::string, std::size_t> reasons;
    for (const auto& file : report.decoded) ++reasons[file.why];
    for (const auto& [why, count] : reasons) std::printf("%zu files sent decoded: %s\n", count, Visible(why).c_str());
    for (const auto& file : report.again) {
        std::printf("sent once more: %s: %s\n", Visible(file.path).c_str(), Visible(file.why).c_str());
    }
    for (const auto& file : report.warned) {
        std::printf("stored with a warning: %s: %s\n", Visible(file.path).c_str(), Visible(file.why).c_str());
    }
    for (const auto& file : report.leftOut) {
        std::printf("left out: %s: %s\n", Visible(file.path).c_str(), Visible(file.why).c_str());
    }
}

void SendAll(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.options.watcher = &watcher;
    const SendReport report = Send(arguments.peer, arguments.sources, arguments.options);
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
    if (report.stored + report.earlier == 0 && !arguments.sources.empty())
        throw Error(ErrorKind::NotFound, arguments.sources.front() + ": no DICOM files");
}

}  // namespace

void AddSendVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("send", "Send files to a DICOM program that stores them (C-STORE)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    verb->add_option("FILE", arguments->sources,
                     "DICOM files, and folders with all below them; none: those of the queue");
    SendOptions& options = arguments->options;
    verb->add_option("--jobs,-j", options.jobs, "Associations at once (1)")->check(CLI::Range(1, 64));
    verb->add_option("--retry", options.retries,
                     "Try again so often after an association that broke off or was not to be had, or a full disk (0)")
        ->check(CLI::Range(0, 1000));
    verb->add_option("--retry-wait", options.retryWait, "Seconds before the first of them, then twice as long (1)")
        ->check(CLI::Range(0, 60));
    verb->add_option("--queue", options.queue,
                     "File that keeps what is to be sent and what was acknowledged: the same again goes on from there");
    verb->add_flag("--decode-lossy", options.decodeLossy,
                   "Decode what was compressed with loss, too, where the peer does not take its syntax");
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] {
        if (arguments->sources.empty() && arguments->options.queue.empty()) throw CLI::RequiredError("FILE");
        SendAll(*arguments);
    });
}
