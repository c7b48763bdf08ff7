// korvane media: a DICOM file-set with its DICOMDIR, made or examined.
#include "Console.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <memory>

using namespace korvane;

namespace {

struct Arguments {
    std::string root;
    std::vector<std::string> sources;
    MediumOptions medium;
    bool verify = false;
    bool json = false;
};

void Media(Arguments& arguments) {
    const bool hasSources = !arguments.sources.empty();
    if (arguments.verify == hasSources)
        throw Error(ErrorKind::WrongArgument, hasSources ? "--verify takes no files" : "no files given");
    ConsoleWatcher watcher;
    if (arguments.verify) {
        const MediumContents contents = CheckMedium(arguments.root, MediumDepth::Contents, &watcher);
        return Conclude(OutcomeOf(contents), arguments.json ? ToJson(contents) : "");
    }
    arguments.medium.watcher = &watcher;
    const MediumReport report = BuildMedium(arguments.root, arguments.sources, arguments.medium);
    Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : "");
}

}  // namespace

void AddMediaVerb(CLI::App& program) {
    CLI::App* const verb = program.add_subcommand("media", "Build or verify a DICOM medium: files and their DICOMDIR");
    const auto arguments = std::make_shared<Arguments>();
    MediumOptions& medium = arguments->medium;
    verb->add_option("ROOT", arguments->root, "The medium's folder; made where it is not there")->required();
    verb->add_option("FILE", arguments->sources, "DICOM files, and folders with all below them");
    CLI::Option* const verify = verb->add_flag("--verify", arguments->verify,
                                               "Examine the medium in ROOT: offsets, and each file against its record");
    verb->add_flag("--transcode", medium.transcode,
                   "Decode what is compressed or big endian, and write it explicit VR little endian")
        ->excludes(verify);
    verb->add_flag("--link", medium.link, "Hard links instead of copies where the file system can")->excludes(verify);
    verb->add_option("--fileset-id", medium.fileSetId, "Name of the file-set")
        ->check(FaultOfFileSetId)
        ->excludes(verify);
    verb->add_option("--private", medium.privateFiles, "A file of any kind to lie beside the last one; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->excludes(verify);
    verb->add_flag("--json", arguments->json, "For programs");
    verb->add_option("--jobs", medium.jobs, "Threads that read headers ahead (one for each core)");
    verb->callback([arguments] { Media(*arguments); });
}
