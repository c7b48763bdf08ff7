// korvane media: a DICOM file-set with its DICOMDIR, made or examined.
#include "Verbs.h"
#include <Korvane/kit/core/HostError.h>
#include <Korvane/kit/core/TextEncoding.h>
#include <Korvane/kit/media/MediumBuilder.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

using namespace korvane;

namespace {

using Json = nlohmann::ordered_json;

struct Arguments {
    MediumOptions medium;
    bool verify = false;
    bool json = false;
};

std::string Text(const std::string& text) {
    return TextDecoder("ISO_IR 192").ToUtf8(text);
}

Json LeftOutJson(const std::vector<MediumSummary::LeftOut>& files) {
    Json array = Json::array();
    for (const auto& file : files) array.push_back({{"path", Text(file.path)}, {"why", Text(file.why)}});
    return array;
}

/// One object: "schema" ("korvane.media"), "version" (1; it grows when a member changes its meaning or goes), counts of
/// records, and what was left out.
Json ReportJson(const std::string& root, const MediumReport& report) {
    Json json;
    json["schema"] = "korvane.media";
    json["version"] = 1;
    json["root"] = Text(root);
    json["patients"] = report.patients;
    json["studies"] = report.studies;
    json["series"] = report.series;
    json["files"] = report.files;
    json["problems"] = Json::array();
    for (const std::string& problem : report.problems) json["problems"].push_back(Text(problem));
    return json;
}

void PrintReport(const std::string& root, const MediumReport& report) {
    std::printf("%s: %zu patients, %zu studies, %zu series, %zu files\n", Visible(root).c_str(), report.patients,
                report.studies, report.series, report.files);
}

void Verify(const Arguments& arguments) {
    const std::string& root = arguments.medium.root;
    const MediumReport report = CheckMedium(root, root + "/DICOMDIR", MediumDepth::Contents);
    if (arguments.json) {
        std::cout << ReportJson(root, report).dump(2) << '\n';
    } else {
        PrintReport(root, report);
    }
    for (const std::string& problem : report.problems) Warn(problem);
    if (!report.problems.empty()) throw HostError(root + ": the medium is not as its DICOMDIR says");
}

void PrintSummary(const Arguments& arguments, const MediumSummary& summary) {
    PrintReport(arguments.medium.root, summary.medium);
    for (const std::string& path : summary.privateFiles) std::printf("private file: %s\n", path.c_str());
    for (const auto& copy : summary.copies) {
        std::printf("left out: %s: %s\n", Visible(copy.path).c_str(), Visible(copy.why).c_str());
    }
    const auto directories = static_cast<std::size_t>(
        std::count_if(summary.notMeant.begin(), summary.notMeant.end(),
                      [](const MediumSummary::LeftOut& file) { return file.why == "a DICOMDIR"; }));
    const std::size_t notDicom = summary.notMeant.size() - directories;
    if (notDicom > 0) std::printf("left out: %zu files that are not DICOM\n", notDicom);
    if (directories > 0) std::printf("left out: %zu DICOMDIR files\n", directories);
}

void Build(const Arguments& arguments) {
    const MediumSummary summary = BuildMedium(arguments.medium);
    if (arguments.json) {
        Json json = ReportJson(arguments.medium.root, summary.medium);
        json["privateFiles"] = summary.privateFiles;
        json["faults"] = LeftOutJson(summary.faults);
        json["copies"] = LeftOutJson(summary.copies);
        json["notMeant"] = LeftOutJson(summary.notMeant);
        std::cout << json.dump(2) << '\n';
    } else {
        PrintSummary(arguments, summary);
    }
    for (const auto& fault : summary.faults) Warn((fault.path.empty() ? "" : fault.path + ": ") + fault.why);
    if (!summary.faults.empty()) {
        throw HostError("the medium lacks " + std::to_string(summary.faults.size()) +
                        " of the files; the rest is whole");
    }
}

void Media(Arguments& arguments) {
    std::string& root = arguments.medium.root;
    while (root.size() > 1 && (root.back() == '/' || root.back() == '\\')) root.pop_back();
    const bool hasSources = !arguments.medium.sources.empty();
    if (arguments.verify == hasSources) throw UsageError(hasSources ? "--verify takes no files" : "no files given");
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
    verb->add_option("ROOT", medium.root, "The medium's folder; made where it is not there")->required();
    verb->add_option("FILE", medium.sources, "DICOM files, and folders with all below them");
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
