// korvane convert: files into another transfer syntax.
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
    std::string input;
    std::string output;
    std::string syntax = "explicit";
    std::vector<std::string> set;
    std::vector<std::string> remove;
    unsigned jobs = 0;
};

ConvertReport ConvertAsAsked(const Arguments& arguments, const ConvertOptions& options) {
    const bool fromStream = arguments.input == "-";
    if (!fromStream && arguments.output != "-") return Convert(arguments.input, arguments.output, options);
    platform::StandardInput input;
    platform::StandardOutput output;
    if (!fromStream) return Convert(arguments.input, output, options);
    if (arguments.output != "-") return Convert(input, arguments.output, options);
    return Convert(input, output, options);
}

void ConvertFiles(const Arguments& arguments) {
    ConsoleWatcher watcher;
    ConvertOptions options;
    options.syntax = arguments.syntax;
    for (const std::string& edit : arguments.set) {
        const std::size_t equals = edit.find('=');
        if (equals == std::string::npos)
            throw Error(ErrorKind::WrongArgument, "--set takes KEYWORD=VALUE, not " + edit);
        options.set.emplace_back(edit.substr(0, equals), edit.substr(equals + 1));
    }
    for (const std::string& path : arguments.remove) options.remove.emplace_back(path);
    options.jobs = arguments.jobs;
    options.watcher = &watcher;
    Conclude(OutcomeOf(ConvertAsAsked(arguments, options)));
}

}  // namespace

void AddConvertVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("convert", "Rewrite files in another transfer syntax");
    const auto arguments = std::make_shared<Arguments>();
    verb->add_option("IN", arguments->input, "A DICOM file, a folder with all below it, or - for standard input")
        ->required();
    verb->add_option("OUT", arguments->output,
                     "The file, the folder (made where it is not there), or - for standard output")
        ->required();
    verb->add_option("--syntax", arguments->syntax,
                     "implicit, explicit (the default), big: uncompressed; rle, jpegll: compressed without loss")
        ->check(CLI::IsMember(GetSyntaxWords()));
    verb->add_option(
            "--set", arguments->set,
            "KEYWORD=VALUE: sets a value, several between backslashes; again for more. Also a tag (0010,0010) or a "
            "way into items: ReferencedSeriesSequence[0].SeriesInstanceUID=...")
        ->allow_extra_args(false);
    verb->add_option("--delete", arguments->remove, "KEYWORD: takes an element out; again for more")
        ->allow_extra_args(false);
    verb->add_option("--jobs", arguments->jobs, "Threads for the files of a folder (one for each core)");
    verb->callback([arguments] { ConvertFiles(*arguments); });
}
