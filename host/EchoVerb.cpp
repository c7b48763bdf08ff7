// korvane echo: checks whether a DICOM program answers.
#include "Console.h"
#include "NetworkOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    Peer peer;
    bool json = false;
};

void Ask(const Arguments& arguments) {
    ConsoleWatcher watcher;
    const EchoReport report = Echo(arguments.peer, {&watcher});
    Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : "");
}

}  // namespace

void AddEchoVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("echo", "Ask a DICOM program whether it is there (C-ECHO)");
    const auto arguments = std::make_shared<Arguments>();
    AddPeerOptions(*verb, arguments->peer);
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { Ask(*arguments); });
}
