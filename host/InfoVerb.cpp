// korvane info: what series lie under some paths.
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/study/InfoJson.h>
#include <Korvane/kit/study/SeriesFinder.h>
#include <Korvane/kit/study/SeriesText.h>
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
    std::vector<std::string> paths;
    bool json = false;
};

void PrintText(const Findings& findings) {
    for (std::size_t i = 0; i < findings.series.size(); ++i) std::printf("%s", DescribeSeries(findings, i).c_str());
    if (findings.copies > 0) std::printf("%zu files repeat others and were left out\n", findings.copies);
    if (findings.ignored > 0) std::printf("%zu files are not DICOM and were ignored\n", findings.ignored);
}

void Info(const Arguments& arguments) {
    const Findings findings = FindSeries(arguments.paths);
    if (arguments.json) {
        WriteInfoJson(findings, std::cout);
    } else {
        PrintText(findings);
    }
    for (const std::string& line : findings.unreadable) Warn(line);
    if (!findings.unreadable.empty()) throw HostError("some files could not be read");
    if (findings.files.empty()) throw HostError(arguments.paths.front() + ": no DICOM files");
}

}  // namespace

void AddInfoVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("info", "Tell what series lie under some paths");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("PATH", arguments->paths, "Folders, searched with all below them, or files")->required();
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { Info(*arguments); });
}
