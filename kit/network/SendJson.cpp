// The report of `Send` as JSON.
#include "../core/JsonText.h"
#include "Send.h"

#include <nlohmann/json.hpp>

namespace korvane {

namespace {

nlohmann::ordered_json WithStatus(const std::vector<SendReport::File>& files) {
    auto array = FilesJson(files);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (files[i].status != 0) array[i]["status"] = files[i].status;
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
    json["failed"] = WithStatus(report.failed);
    json["warned"] = WithStatus(report.warned);
    json["leftOut"] = WithStatus(report.leftOut);
    json["decoded"] = WithStatus(report.decoded);
    json["again"] = WithStatus(report.again);
    if (report.commitment) json["commitment"] = nlohmann::ordered_json::parse(ToJson(*report.commitment));
    return json.dump(2);
}

}  // namespace korvane
