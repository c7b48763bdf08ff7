// korvane commit: asks another DICOM program whether it keeps files safely.
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
    CommitOptions options;
    bool json = false;
};

void Run(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.options.watcher = &watcher;
    const CommitReport report = Commit(arguments.peer, arguments.sources, arguments.options);
    Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : "");
}

}  // namespace

void AddCommitVerb(CLI::App& program) {
    CLI::App* const verb =
        program.add_subcommand("commit", "Ask whether a DICOM program keeps files safely (storage commitment)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    verb->add_option("FILE", arguments->sources, "DICOM files, and folders with all below them")->required();
    AddCommitOptions(*verb, arguments->options, "");
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { Run(*arguments); });
}
