#include "Find.h"

#include "../core/JsonText.h"
#include "FindingJson.h"
#include "FoundFiles.h"
#include "SeriesText.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;

Json Pixels(const PixelForm& form) {
    Json json;
    json["signed"] = form.isSigned;
    json["float"] = form.kind != PixelForm::Kind::Integer;
    json["bitsAllocated"] = form.allocated;
    json["bitsStored"] = form.stored;
    json["samples"] = form.samples;
    json["photometric"] = JsonText(form.photometric);
    return json;
}

Json Directions(const std::array<double, 6>& o, const std::array<double, 3>& normal) {
    Json json;
    json["rows"] = DirectionLabel(o[0], o[1], o[2]);
    json["columns"] = DirectionLabel(o[3], o[4], o[5]);
    json["slices"] = DirectionLabel(normal[0], normal[1], normal[2]);
    return json;
}

void AddGeometry(const FoundFiles& found, const FoundSeries& series, Json& json) {
    const SeriesGeometry& geometry = series.geometry;
    const bool placed = !geometry.stacks.empty();
    const FramePlace& place = found.PlaceOf(series.slices[placed ? geometry.stacks.front().front() : 0]);
    const FramePlace& sized = found.SizedPlaceOf(series.slices);
    if (sized.hasSpacing) json["pixelSpacing"] = sized.spacing;  // between rows, between columns
    if (place.hasOrientation) {
        json["orientation"] = place.orientation;
        json["directions"] = Directions(place.orientation, geometry.normal);
    }
    if (!placed) return;
    json["origin"] = place.position;
    json["positions"] = geometry.stacks.size();
    json["volumes"] = geometry.volumes;
    if (geometry.stacks.size() < 2) return;
    Json& gaps = json["gaps"];
    gaps["smallest"] = geometry.smallestGap;
    gaps["usual"] = geometry.usualGap;
    gaps["largest"] = geometry.largestGap;
    json["tiltDegrees"] = geometry.tilt;
}

/// What values mean, where anything tells.
void AddValues(const FoundFiles& found, const FoundSeries& series, Json& json) {
    const ImageHeader& header = found.FirstFile(series);
    Json values;
    const std::string& unit = found.PlaneOf(series.slices.front()).unit;
    if (!unit.empty()) values["unit"] = JsonText(unit);
    if (!header.common->corrected.empty()) values["corrected"] = JsonText(header.common->corrected);
    if (!header.common->decayCorrection.empty()) values["decayCorrection"] = JsonText(header.common->decayCorrection);
    if (!values.is_null()) json["values"] = std::move(values);
}

/// By their paths, none twice.
Json FilesOf(const FoundFiles& found, const FoundSeries& series) {
    std::vector<const std::string*> paths;
    paths.reserve(series.slices.size());
    for (const SliceRef& slice : series.slices) paths.push_back(&found.files[slice.file].path);
    std::sort(paths.begin(), paths.end(), [](const auto* a, const auto* b) { return *a < *b; });
    paths.erase(std::unique(paths.begin(), paths.end(), [](const auto* a, const auto* b) { return *a == *b; }),
                paths.end());
    Json::array_t files;
    files.reserve(paths.size());
    for (const std::string* const path : paths) files.emplace_back(JsonText(*path));
    return files;
}

Json OneSeries(const Series& of) {
    const FoundFiles& found = of.GetFiles();
    const std::size_t index = of.GetIndex();
    const FoundSeries& series = found.series[index];
    const ImageHeader& first = found.FirstFile(series);
    Json json;
    json["number"] = index + 1;
    json["uid"] = JsonText(first.common->seriesUid);
    json["modality"] = JsonText(first.common->modality);
    json["description"] = JsonText(first.common->description);
    json["seriesNumber"] = of.GetNumber();
    json["protocol"] = JsonText(of.GetProtocol());
    json["patient"] = Json{{"name", JsonText(of.GetPatientName())}, {"id", JsonText(of.GetPatientId())}};
    json["study"] = Json{{"uid", JsonText(of.GetStudyUid())},
                         {"date", JsonText(of.GetStudyDate())},
                         {"description", JsonText(of.GetStudyDescription())}};
    if (!of.GetEchoNumbers().empty()) json["echoNumbers"] = of.GetEchoNumbers();
    json["sopClass"] = JsonText(first.common->sopClass);
    json["slices"] = CountImages(found, series);
    if (first.form.kind != PixelForm::Kind::None) {
        json["columns"] = first.form.columns;
        json["rows"] = first.form.rows;
        json["pixels"] = Pixels(first.form);
        AddValues(found, series, json);
        AddGeometry(found, series, json);
    }
    std::set<std::string> syntaxes;
    const CommonHeader* last = nullptr;  // most files share it
    for (const SliceRef& slice : series.slices) {
        const CommonHeader* const common = found.files[slice.file].common.get();
        if (std::exchange(last, common) != common) syntaxes.insert(common->transferSyntax);
    }
    json["transferSyntaxes"] = JsonTexts(syntaxes);
    Json warnings = Json::array();
    Json findings = Json::array();
    for (const Finding& finding : series.findings) {
        warnings.push_back(JsonText(finding.text));
        findings.push_back(JsonOf(finding));
    }
    json["warnings"] = std::move(warnings);
    json["findings"] = std::move(findings);
    json["files"] = FilesOf(found, series);
    return json;
}

}  // namespace

std::string ToJson(const Found& found) {
    const FoundFiles& files = found.GetFiles();
    Json json;
    json["schema"] = "korvane.info";
    json["version"] = kVersion;
    json["files"] = files.files.size();
    json["ignored"] = files.ignored;
    json["copies"] = files.copies;
    Json& unreadable = json["unreadable"] = Json::array();
    for (const Finding& failure : files.unreadable) unreadable.push_back(JsonText(failure.text));
    Json& series = json["series"] = Json::array();
    for (std::size_t i = 0; i < files.series.size(); ++i) series.push_back(OneSeries(found.GetSeries()[i]));
    return json.dump(1) + '\n';
}

}  // namespace korvane
