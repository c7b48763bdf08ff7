// korvane dump: every element of a file.
#include "Console.h"
#include "Verbs.h"
#include "terminal/StandardStreams.h"
#include <Korvane/Kit.h>
#include <Korvane/kit/dataset/DataSetFile.h>
#include <Korvane/kit/dataset/DumpText.h>

#include <CLI/CLI.hpp>

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
    ConsoleWatcher watcher;
    const DataSetFile file = ReadDataSetFile(arguments.path, kParseAll, &watcher);
    if (file.dataSet == nullptr) throw Error(ErrorKind::NotDicom, arguments.path + ": not a DICOM file");
    for (const Finding& finding : file.findings) watcher.OnFinding(finding);
    platform::StandardOutput out;
    if (arguments.json) {
        DumpAsJson(*file.dataSet, arguments.meta, out, &watcher);
    } else {
        DumpAsText(*file.dataSet, arguments.whole, out, &watcher);
    }
    if (!file.complete) {
        throw Error(ErrorKind::Damaged, arguments.path + ": the data ends early or is damaged; the rest was not read");
    }
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
