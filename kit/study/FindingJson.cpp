#include "FindingJson.h"

#include "../core/TextEncoding.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

std::string Text(const std::string& text) {
    return TextDecoder("ISO_IR 192").ToUtf8(text);
}

Json Texts(const std::vector<std::string>& texts) {
    Json array = Json::array();
    for (const std::string& text : texts) array.push_back(Text(text));
    return array;
}

}  // namespace

nlohmann::ordered_json JsonOf(const Finding& finding) {
    Json json;
    json["kind"] = WordOf(finding.kind);
    json["text"] = Text(finding.text);
    if (!finding.slices.empty()) json["slices"] = finding.slices;
    if (!finding.files.empty()) json["files"] = Texts(finding.files);
    if (!finding.lengths.empty()) json["lengths"] = finding.lengths;
    if (!finding.angles.empty()) json["angles"] = finding.angles;
    if (finding.count != 0) json["count"] = finding.count;
    return json;
}

}  // namespace korvane
