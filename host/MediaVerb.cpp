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
    std::vector<std::string> remove;
    bool verify = false;
    bool json = false;
};

void Media(Arguments& arguments) {
    const bool hasSources = !arguments.sources.empty();
    const bool makes = !arguments.verify && arguments.remove.empty();
    if (makes != hasSources)
        throw Error(ErrorKind::WrongArgument, hasSources ? "--verify and --remove take no files" : "no files given");
    ConsoleWatcher watcher;
    const auto conclude = [&](const auto& report) {
        Conclude(OutcomeOf(report), arguments.json ? ToJson(report) : "");
    };
    const std::string& root = arguments.root;
    arguments.medium.watcher = &watcher;
    if (arguments.verify) {
        conclude(CheckMedium(root, MediumDepth::Contents, &watcher, arguments.medium.profile));
    } else if (!makes) {
        conclude(RemoveFromMedium(root, arguments.remove, &watcher));
    } else {
        conclude(BuildMedium(root, arguments.sources, arguments.medium));
    }
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
    verb->add_option("--profile", medium.profile,
                     "Application profile: what it does not allow is decoded or left out; with --verify it is checked")
        ->check(CLI::IsMember(GetMediumProfiles()));
    verb->add_flag("--append", medium.append, "Add to the medium that is in ROOT")->excludes(verify);
    verb->add_flag("--icons", medium.icons, "Small pictures in the directory")->excludes(verify);
    verb->add_flag("--invent-patient-id", medium.inventPatientId, "Give files without a Patient ID one for each study")
        ->excludes(verify);
    verb->add_option("--private", medium.privateFiles, "A file of any kind to lie beside the last one; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->excludes(verify);
    CLI::Option* const remove =
        verb->add_option(
                "--remove", arguments->remove,
                "Take the patient, study, series or instance with this ID or UID out of the medium; may be repeated")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
            ->excludes(verify);
    // They say how files are put on; none is.
    for (const char* const made : {"--transcode", "--link", "--append", "--icons", "--invent-patient-id",
                                   "--fileset-id", "--profile", "--private"})
        remove->excludes(verb->get_option(made));
    verb->add_flag("--json", arguments->json, "For programs");
    verb->add_option("--jobs", medium.jobs, "Threads that read, decode and copy (one for each core)");
    verb->callback([arguments] { Media(*arguments); });
}
