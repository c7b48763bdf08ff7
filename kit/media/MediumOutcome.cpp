// Reports on media, as JSON and in words.
#include "../core/JsonText.h"
#include "Medium.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

Json ContentsJson(const MediumContents& contents) {
    Json json;
    json["schema"] = "korvane.media";
    json["version"] = 1;
    json["root"] = JsonText(contents.root);
    json["patients"] = contents.patients;
    json["studies"] = contents.studies;
    json["series"] = contents.series;
    json["files"] = contents.files;
    json["problems"] = JsonTexts(contents.problems);
    return json;
}

std::string LineOf(const MediumContents& contents) {
    return contents.root + ": " + std::to_string(contents.patients) + " patients, " + std::to_string(contents.studies) +
           " studies, " + std::to_string(contents.series) + " series, " + std::to_string(contents.files) + " files";
}

}  // namespace

std::string ToJson(const MediumContents& contents) {
    return ContentsJson(contents).dump(2);
}

std::string ToJson(const MediumReport& report) {
    Json json = ContentsJson(report.medium);
    json["privateFiles"] = report.privateFiles;
    json["faults"] = FilesJson(report.faults);
    json["copies"] = FilesJson(report.copies);
    json["notMeant"] = FilesJson(report.notMeant);
    json["rewritten"] = FilesJson(report.rewritten);
    json["namesakes"] = FilesJson(report.namesakes);
    json["profile"] = report.profile;
    return json.dump(2);
}

std::string ToJson(const MediumRemoval& removal) {
    Json json = ContentsJson(removal.medium);
    json["removed"] = JsonTexts(removal.removed);
    json["notRemoved"] = JsonTexts(removal.faults);
    return json.dump(2);
}

Outcome OutcomeOf(const MediumContents& contents) {
    Outcome outcome{.lines = {LineOf(contents)}, .faults = contents.problems};
    if (!contents.problems.empty())
        outcome.failure.emplace(ErrorKind::Damaged, contents.root + ": the medium is not as its DICOMDIR says");
    return outcome;
}

Outcome OutcomeOf(const MediumReport& report) {
    Outcome outcome{.lines = {LineOf(report.medium)}};
    for (const std::string& path : report.privateFiles) outcome.lines.push_back("private file: " + path);
    if (!report.profile.empty()) outcome.lines.push_back("profile: " + report.profile);
    for (const auto& file : report.rewritten) outcome.lines.push_back("written anew: " + file.path + ": " + file.why);
    for (const auto& file : report.namesakes)
        outcome.lines.push_back("another patient? " + file.path + ": " + file.why);
    for (const auto& copy : report.copies) outcome.lines.push_back("left out: " + copy.path + ": " + copy.why);
    const auto directories = static_cast<std::size_t>(std::count_if(report.notMeant.begin(), report.notMeant.end(),
                                                                    [](const auto& file) { return file.isDirectory; }));
    const auto leaveOut = [&](std::size_t count, const char* what) {
        if (count > 0) outcome.lines.push_back("left out: " + std::to_string(count) + what);
    };
    leaveOut(report.notMeant.size() - directories, " files that are not DICOM");
    leaveOut(directories, " DICOMDIR files");
    for (const auto& fault : report.faults)
        outcome.faults.push_back((fault.path.empty() ? "" : fault.path + ": ") + fault.why);
    if (!report.faults.empty()) {
        outcome.failure.emplace(ErrorKind::Damaged, "the medium lacks " + std::to_string(report.faults.size()) +
                                                        " of the files; the rest is whole");
    }
    return outcome;
}

Outcome OutcomeOf(const MediumRemoval& removal) {
    Outcome outcome{.lines = {std::to_string(removal.removed.size()) + " files removed", LineOf(removal.medium)},
                    .faults = removal.faults};
    outcome.faults.insert(outcome.faults.end(), removal.medium.problems.begin(), removal.medium.problems.end());
    if (!outcome.faults.empty())
        outcome.failure.emplace(ErrorKind::Disk, removal.medium.root + ": not all is as it should be");
    return outcome;
}

}  // namespace korvane
