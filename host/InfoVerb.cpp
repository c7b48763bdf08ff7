// korvane info: what series lie under some paths.
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/study/InfoJson.h>
#include <Korvane/kit/study/SeriesFinder.h>
#include <Korvane/kit/study/SeriesText.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

using namespace korvane;

namespace {

struct Arguments {
    std::vector<std::string> paths;
    bool json = false;
};

void PrintText(const FoundFiles& found) {
    for (std::size_t i = 0; i < found.series.size(); ++i) std::printf("%s", DescribeSeries(found, i).c_str());
    if (found.copies > 0) std::printf("%zu files repeat others and were left out\n", found.copies);
    if (found.ignored > 0) std::printf("%zu files are not DICOM and were ignored\n", found.ignored);
}

void Info(const Arguments& arguments) {
    const FoundFiles found = FindSeries(arguments.paths);
    if (arguments.json) {
        WriteInfoJson(found, std::cout);
    } else {
        PrintText(found);
    }
    for (const std::string& line : found.unreadable) Warn(line);
    if (!found.unreadable.empty()) throw HostError("some files could not be read");
    if (found.files.empty()) throw HostError(arguments.paths.front() + ": no DICOM files");
}

}  // namespace

void AddInfoVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("info", "Tell what series lie under some paths");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("PATH", arguments->paths, "Folders, searched with all below them, or files")->required();
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { Info(*arguments); });
}
