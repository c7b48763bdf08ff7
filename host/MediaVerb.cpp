// korvane media: a DICOM file-set with its DICOMDIR, made or examined.
#include "Console.h"
#include "Verbs.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
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

void PrintContents(const MediumContents& contents) {
    std::printf("%s: %zu patients, %zu studies, %zu series, %zu files\n", Visible(contents.root).c_str(),
                contents.patients, contents.studies, contents.series, contents.files);
}

void Verify(const Arguments& arguments) {
    ConsoleWatcher watcher;
    const MediumContents contents = CheckMedium(arguments.root, MediumDepth::Contents, &watcher);
    if (arguments.json) {
        std::cout << ToJson(contents) << '\n';
    } else {
        PrintContents(contents);
    }
    for (const std::string& problem : contents.problems) Complain(problem);
    if (!contents.problems.empty()) {
        throw Error(ErrorKind::Damaged, arguments.root + ": the medium is not as its DICOMDIR says");
    }
}

void PrintReport(const MediumReport& report) {
    PrintContents(report.medium);
    for (const std::string& path : report.privateFiles) std::printf("private file: %s\n", path.c_str());
    for (const auto& copy : report.copies) {
        std::printf("left out: %s: %s\n", Visible(copy.path).c_str(), Visible(copy.why).c_str());
    }
    const auto directories = static_cast<std::size_t>(std::count_if(report.notMeant.begin(), report.notMeant.end(),
                                                                    [](const auto& file) { return file.isDirectory; }));
    const std::size_t notDicom = report.notMeant.size() - directories;
    if (notDicom > 0) std::printf("left out: %zu files that are not DICOM\n", notDicom);
    if (directories > 0) std::printf("left out: %zu DICOMDIR files\n", directories);
}

void Build(Arguments& arguments) {
    ConsoleWatcher watcher;
    arguments.medium.watcher = &watcher;
    const MediumReport report = BuildMedium(arguments.root, arguments.sources, arguments.medium);
    if (arguments.json) {
        std::cout << ToJson(report) << '\n';
    } else {
        PrintReport(report);
    }
    for (const auto& fault : report.faults) Complain((fault.path.empty() ? "" : fault.path + ": ") + fault.why);
    if (!report.faults.empty()) {
        throw Error(ErrorKind::Damaged,
                    "the medium lacks " + std::to_string(report.faults.size()) + " of the files; the rest is whole");
    }
}

void Media(Arguments& arguments) {
    std::string& root = arguments.root;
    while (root.size() > 1 && (root.back() == '/' || root.back() == '\\')) root.pop_back();
    const bool hasSources = !arguments.sources.empty();
    if (arguments.verify == hasSources) {
        throw Error(ErrorKind::WrongArgument, hasSources ? "--verify takes no files" : "no files given");
    }
    if (arguments.verify) {
        Verify(arguments);
    } else {
        Build(arguments);
    }
}

std::string CheckFileSetId(const std::string& id) {
    const bool fits = id.size() <= 16 && id.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_ ") == id.npos;
    return fits ? "" : "a file-set ID is at most 16 of A-Z, 0-9, _ and space";
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
    verb->add_option("--fileset-id", medium.fileSetId, "Name of the file-set")->check(CheckFileSetId)->excludes(verify);
    verb->add_option("--private", medium.privateFiles, "A file of any kind to lie beside the last one; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->excludes(verify);
    verb->add_flag("--json", arguments->json, "For programs");
    verb->callback([arguments] { Media(*arguments); });
}
