#include "FindingJson.h"

#include "../core/JsonText.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

}  // namespace

nlohmann::ordered_json JsonOf(const Finding& finding) {
    Json json;
    json["kind"] = WordOf(finding.kind);
    json["text"] = JsonText(finding.text);
    if (!finding.slices.empty()) json["slices"] = finding.slices;
    if (!finding.files.empty()) json["files"] = JsonTexts(finding.files);
    if (!finding.lengths.empty()) json["lengths"] = finding.lengths;
    if (!finding.angles.empty()) json["angles"] = finding.angles;
    if (finding.count != 0) json["count"] = finding.count;
    return json;
}

}  // namespace korvane
