// korvane send: files to a storage provider.
#include "Console.h"
#include "NetworkOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    Peer peer;
    std::vector<std::string> sources;
    SendOptions options;
    CommitOptions commit;
    bool asksCommit = false;
    bool json = false;
};

void SendAll(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.options.watcher = &watcher;
    if (arguments.asksCommit) arguments.options.commit = arguments.commit;
    const SendReport report = Send(arguments.peer, arguments.sources, arguments.options);
    Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : "");
}

}  // namespace

void AddSendVerb(CLI::App& program) {
    CLI::App* const verb =
        program.add_subcommand("send", "Send files to a DICOM program that stores them (C-STORE, STOW-RS)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    AddWebOptions(*verb, arguments->peer);
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
    verb->add_flag("--commit", arguments->asksCommit,
                   "Then ask whether the peer keeps what was stored safely (storage commitment); fails unless it does");
    AddCommitOptions(*verb, arguments->commit, "commit-");
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] {
        if (arguments->sources.empty() && arguments->options.queue.empty()) throw CLI::RequiredError("FILE");
        SendAll(*arguments);
    });
}
