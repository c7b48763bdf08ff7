// Reports on media as JSON.
#include "../core/JsonText.h"
#include "Medium.h"

#include <nlohmann/json.hpp>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

Json FilesJson(const std::vector<MediumReport::LeftOut>& files) {
    Json array = Json::array();
    for (const auto& file : files) array.push_back({{"path", JsonText(file.path)}, {"why", JsonText(file.why)}});
    return array;
}

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
    return json.dump(2);
}

}  // namespace korvane
