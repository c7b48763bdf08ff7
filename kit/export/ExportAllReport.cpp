#include "ExportAll.h"

#include "../core/JsonText.h"

#include <Korvane/Version.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;
using Status = ExportedSeries::Status;

constexpr int kVersion = 1;

Json JsonOf(const ExportedSeries& series) {
    Json json;
    json["row"] = series.row;
    json["seriesNumber"] = series.number;
    json["uid"] = JsonText(series.uid);
    json["description"] = JsonText(series.description);
    json["firstFile"] = JsonText(series.firstFile);
    json["images"] = series.images;
    json["name"] = JsonText(series.name);
    json["status"] = WordOf(series.status);
    if (!series.why.empty()) json["why"] = JsonText(series.why);
    json["outputs"] = Json::array();
    for (const ExportOutput& output : series.outputs) {
        char crc[16];
        std::snprintf(crc, sizeof crc, "%08x", static_cast<unsigned>(output.crc));
        json["outputs"].push_back(Json{{"file", JsonText(output.name)}, {"size", output.size}, {"crc32", crc}});
    }
    if (series.report.hasSeries) json["report"] = Json::parse(ToJson(series.report));
    return json;
}

std::string Title(const ExportedSeries& series) {
    std::string text = "#" + std::to_string(series.row) + " series " + std::to_string(series.number);
    if (!series.description.empty()) text += " \"" + series.description + "\"";
    return text;
}

std::string NamesOf(const std::vector<ExportOutput>& outputs) {
    std::string names;
    for (const ExportOutput& output : outputs) names += (names.empty() ? "" : ", ") + output.name;
    return names;
}

std::string SizeOf(const ExportedVolume& volume) {
    std::string text;
    for (const int side : volume.size) text += (text.empty() ? "" : " x ") + std::to_string(side);
    return text + (volume.times > 1 ? " x " + std::to_string(volume.times) : "");
}

void AddLines(const ExportedSeries& series, std::vector<std::string>& lines) {
    const std::string title = Title(series) + ": ";
    switch (series.status) {
    case Status::Written:
        for (const ExportedVolume& volume : series.report.volumes) {
            const bool dryRun = series.report.status == ExportReport::Status::DryRun;
            lines.push_back(title + (dryRun ? "would write " : "wrote ") + NamesOf(volume.outputs) + ", " +
                            SizeOf(volume) + (series.why.empty() ? "" : " (" + series.why + ")"));
        }
        break;
    case Status::Refused: lines.push_back(title + "refused: " + series.why); break;
    case Status::Whole: lines.push_back(title + "done before: " + NamesOf(series.outputs)); break;
    case Status::NoImage: lines.push_back(title + "no image"); break;
    case Status::Open: lines.push_back(title + "not reached"); break;
    }
}

}  // namespace

const char* WordOf(Status status) {
    switch (status) {
    case Status::Written: return "written";
    case Status::Refused: return "refused";
    case Status::Whole: return "whole";
    case Status::NoImage: return "no image";
    case Status::Open: break;
    }
    return "open";
}

std::size_t ExportAllReport::Count(Status status) const {
    return static_cast<std::size_t>(std::count_if(
        series.begin(), series.end(), [status](const ExportedSeries& entry) { return entry.status == status; }));
}

std::string ToJson(const ExportAllReport& report) {
    Json json;
    json["schema"] = "korvane.export-all";
    json["version"] = kVersion;
    json["program"] = "korvane " KORVANE_VERSION;
    json["status"] = report.stopped ? "stopped" : (report.IsWhole() ? "done" : "failed");
    json["format"] = report.format;
    json["destination"] = JsonText(report.destination);
    json["written"] = report.Count(Status::Written);
    json["refused"] = report.Count(Status::Refused);
    json["whole"] = report.Count(Status::Whole);
    json["noImage"] = report.Count(Status::NoImage);
    json["unreadable"] = Json::array();
    for (const std::string& line : report.unreadable) json["unreadable"].push_back(JsonText(line));
    json["series"] = Json::array();
    for (const ExportedSeries& series : report.series) json["series"].push_back(JsonOf(series));
    return json.dump(1) + "\n";
}

Outcome OutcomeOf(const ExportAllReport& report) {
    Outcome outcome;
    for (const ExportedSeries& series : report.series) AddLines(series, outcome.lines);
    for (const std::string& line : report.unreadable) outcome.lines.push_back("not read: " + line);
    const auto count = [&](Status status) { return std::to_string(report.Count(status)); };
    outcome.lines.push_back(std::to_string(report.series.size()) + " series: " + count(Status::Written) + " written, " +
                            count(Status::Refused) + " refused, " + count(Status::Whole) + " done before, " +
                            count(Status::NoImage) + " without image");
    if (!report.IsWhole()) {
        outcome.failure.emplace(ErrorKind::Damaged, count(Status::Refused) + " of " +
                                                        std::to_string(report.series.size()) + " series refused, " +
                                                        std::to_string(report.unreadable.size()) +
                                                        " files or folders not read");
    }
    return outcome;
}

}  // namespace korvane
