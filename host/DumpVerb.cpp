// korvane dump: every element of a file.
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/dataset/DataSetFile.h>
#include <Korvane/kit/dataset/DumpText.h>

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>

using namespace korvane;

namespace {

struct Arguments {
    std::string path;
    bool json = false;
    bool meta = false;
    bool whole = false;
};

void Dump(const Arguments& arguments) {
    const DataSetFile file = ReadDataSetFile(arguments.path, kParseAll);
    if (file.dataSet == nullptr) throw HostError(arguments.path + ": not a DICOM file");
    if (arguments.json) {
        DumpAsJson(*file.dataSet, arguments.meta, std::cout);
    } else {
        DumpAsText(*file.dataSet, arguments.whole, stdout);
    }
    if (!file.complete) throw HostError(arguments.path + ": the data ends early or is damaged; the rest was not read");
}

}  // namespace

void AddDumpVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("dump", "Print every element of a file");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("FILE", arguments->path, "A DICOM file")->required();
    CLI::Option* const json = verb->add_flag("--json", arguments->json, "As DICOM JSON model (PS3.18 Annex F)");
    verb->add_flag("--meta", arguments->meta, "With group 0002, which is not part of that model")->needs(json);
    verb->add_flag("--whole", arguments->whole, "Long values whole")->excludes(json);
    verb->callback([arguments] { Dump(*arguments); });
}
