// The report of `Send` as JSON.
#include "../core/JsonText.h"
#include "Send.h"

#include <nlohmann/json.hpp>

namespace korvane {

namespace {

nlohmann::ordered_json FilesJson(const std::vector<SendReport::File>& files) {
    auto array = nlohmann::ordered_json::array();
    for (const auto& file : files) {
        array.push_back({{"path", JsonText(file.path)}, {"why", JsonText(file.why)}});
        if (file.status != 0) array.back()["status"] = file.status;
    }
    return array;
}

}  // namespace

std::string ToJson(const SendReport& report) {
    nlohmann::ordered_json json;
    json["schema"] = "korvane.send";
    json["version"] = 1;
    json["stored"] = report.stored;
    json["earlier"] = report.earlier;
    json["bytes"] = report.bytes;
    json["associations"] = report.associations;
    json["seconds"] = report.seconds;
    json["failed"] = FilesJson(report.failed);
    json["warned"] = FilesJson(report.warned);
    json["leftOut"] = FilesJson(report.leftOut);
    json["decoded"] = FilesJson(report.decoded);
    json["again"] = FilesJson(report.again);
    if (report.commitment) json["commitment"] = nlohmann::ordered_json::parse(ToJson(*report.commitment));
    return json.dump(2);
}

}  // namespace korvane
