// korvane dump: the elements of files.
#include "Console.h"
#include "Verbs.h"
#include "terminal/StandardStreams.h"
#include <Korvane/Kit.h>

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

using namespace korvane;

namespace {

struct Arguments {
    std::vector<std::string> paths;
    std::vector<std::string> only;
    std::vector<std::string> columns;
    bool json = false;
    bool xml = false;
    DumpOptions options;
};

void DumpFiles(Arguments& arguments) {
    ConsoleWatcher watcher;
    DumpOptions& options = arguments.options;
    options.watcher = &watcher;
    if (arguments.json) options.form = DumpForm::Json;
    if (arguments.xml) options.form = DumpForm::Xml;
    if (!arguments.columns.empty()) options.form = DumpForm::Csv;
    for (const std::string& path : arguments.columns) options.only.emplace_back(path);
    for (const std::string& path : arguments.only) options.only.emplace_back(path);
    platform::StandardOutput out;
    if (arguments.paths == std::vector<std::string>{"-"}) {
        platform::StandardInput in;
        return Dump(in, out, options);
    }
    const DumpReport report = DumpAll(arguments.paths, out, options);
    out.flush();
    if (report.failed > 0) {
        throw Error(ErrorKind::Damaged,
                    std::to_string(report.failed) + " files could not be read, or not to their end");
    }
    if (report.written == 0) throw Error(ErrorKind::NotDicom, arguments.paths.front() + ": no DICOM files");
}

}  // namespace

void AddDumpVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("dump", "Print the elements of files");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("FILE", arguments->paths, "DICOM files, or folders with all below them, or - for standard input")
        ->required();
    CLI::Option* const only =
        verb->add_option("--only", arguments->only,
                         "KEYWORD: only this element; again for more. Also a tag (0010,0010) or a way into items: "
                         "ReferencedSeriesSequence[0].SeriesInstanceUID")
            ->allow_extra_args(false);
    CLI::Option* const json = verb->add_flag("--json", arguments->json, "As DICOM JSON model (PS3.18 Annex F)");
    CLI::Option* const xml =
        verb->add_flag("--xml", arguments->xml, "One file as Native DICOM Model (PS3.19 Annex A.1)")->excludes(json);
    verb->add_option("--csv", arguments->columns, "KEYWORD,KEYWORD...: a table of these, a row for each file")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->excludes(json)
        ->excludes(xml)
        ->excludes(only);
    verb->add_flag("--meta", arguments->options.meta, "With group 0002, which is not part of JSON and XML models");
    verb->add_flag("--whole", arguments->options.whole, "Long values whole")->excludes(json)->excludes(xml);
    verb->callback([arguments] { DumpFiles(*arguments); });
}
