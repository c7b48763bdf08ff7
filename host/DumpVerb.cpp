// korvane dump: every element of a file.
#include "Console.h"
#include "Verbs.h"
#include "terminal/StandardStreams.h"
#include <Korvane/Kit.h>

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

using namespace korvane;

namespace {

struct Arguments {
    std::string path;
    DumpOptions options;
};

void DumpFile(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.options.watcher = &watcher;
    platform::StandardOutput out;
    if (arguments.path != "-") return Dump(arguments.path, out, arguments.options);
    platform::StandardInput in;
    Dump(in, out, arguments.options);
}

}  // namespace

void AddDumpVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("dump", "Print every element of a file");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("FILE", arguments->path, "A DICOM file, or - for standard input")->required();
    CLI::Option* const json = verb->add_flag("--json", arguments->options.json, "As DICOM JSON model (PS3.18 Annex F)");
    verb->add_flag("--meta", arguments->options.meta, "With group 0002, which is not part of that model")->needs(json);
    verb->add_flag("--whole", arguments->options.whole, "Long values whole")->excludes(json);
    verb->callback([arguments] { DumpFile(*arguments); });
}
