// korvane info: what series lie under some paths.
#include "Console.h"
#include "PathOptions.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

using namespace korvane;

namespace {

struct Arguments {
    PathOptions paths;
    bool json = false;
    unsigned jobs = 0;
};

void PrintText(const Found& found) {
    for (const Series& series : found.GetSeries()) std::printf("%s", Describe(series).c_str());
    if (found.CountCopies() > 0) std::printf("%zu files repeat others and were left out\n", found.CountCopies());
    if (found.CountIgnored() > 0) std::printf("%zu files are not DICOM and were ignored\n", found.CountIgnored());
}

void Info(Arguments& arguments) {
    ConsoleWatcher watcher;
    FindOptions options;
    options.jobs = arguments.jobs;
    options.watcher = &watcher;
    std::vector<std::string> paths;
    arguments.paths.Fill(paths, options.input);
    const Found found = Find(paths, options);
    if (arguments.json) {
        std::cout << ToJson(found);
    } else {
        PrintText(found);
    }
    for (const Finding& failure : found.GetUnreadable()) Warn(failure.text);
    if (!found.GetUnreadable().empty()) throw Error(ErrorKind::Disk, "some files could not be read");
    if (found.CountFiles() == 0) throw Error(ErrorKind::NotFound, paths.front() + ": no DICOM files");
}

}  // namespace

void AddInfoVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("info", "Tell what series lie under some paths");
    const auto arguments = std::make_shared<Arguments>();
    arguments->paths.AddTo(*verb, "PATH", "Folders, searched with all below them, or files");
    verb->add_flag("--json", arguments->json, "For programs");
    verb->add_option("--jobs", arguments->jobs, "Threads (one for each core)");
    verb->callback([arguments] { Info(*arguments); });
}
