#include "ExportReport.h"

#include "../core/JsonText.h"
#include "../study/FindingJson.h"
#include "../study/SeriesFindings.h"
#include "../study/SeriesVolume.h"
#include "ExportFormat.h"
#include "IrregularPolicy.h"

#include "volume/CImagePlane.h"
#include "volume/CVolume.h"

#include <Korvane/Version.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;

/// Slices and files that no part has.
std::vector<ExportReport::LeftOut> FindLeftOut(const SeriesVolume& series, const std::vector<ExportPart>& parts,
                                               bool otherSeries) {
    const FoundFiles& found = series.GetFound();
    std::vector<ExportReport::LeftOut> list;
    const auto add = [&](const std::string& name, const std::string& why) { list.push_back({name, why}); };
    for (const LeftOutFile& file : found.leftOut) add(file.path, file.why);
    std::set<std::string> used;
    for (const ExportPart& part : parts) {
        for (const SliceRef& slice : part.slices) used.insert(found.NameOf(slice));
        for (const std::vector<SliceRef>& time : part.later) {
            for (const SliceRef& slice : time) used.insert(found.NameOf(slice));
        }
    }
    const VolumeSets& sets = series.GetSets();
    for (std::size_t i = 0; i < sets.volumes.size(); ++i) {
        for (const SliceRef& slice : sets.volumes[i]) {
            const std::string name = found.NameOf(slice);
            if (!used.contains(name)) add(name, "of volume " + std::to_string(i + 1));
        }
    }
    if (!otherSeries) return list;
    for (const FoundSeries& other : found.series) {
        if (&other == &series.GetSeries()) continue;
        for (const SliceRef& slice : other.slices) {
            add(found.NameOf(slice), "of another series, UID " + found.FirstFile(other).common->seriesUid);
        }
    }
    return list;
}

/// Size, spacing, directions and positions of the volume in memory.
void AddGeometry(ExportedVolume& entry, const SeriesVolume& series, CDicomVolume& assembled, bool lastFirst) {
    const CVolume& volume = *assembled.GetVolume();
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    std::copy(dim, dim + 3, entry.size.begin());
    std::copy(space, space + 3, entry.spacing.begin());
    entry.sized = series.GetPlace().hasSpacing;
    entry.cosines = series.GetPlace().orientation;
    float reference[4];
    volume.GetOrigin(reference);
    const float firstZ = dim[2] > 0 ? assembled.GetVolume()->GetPlane(0)->m_Org[2] : 0;
    entry.positions.reserve(static_cast<std::size_t>(std::max(dim[2], 0)));
    for (int k = 0; k < dim[2]; ++k) {
        // A plane's origin is its position along rows and columns, the reference's own position added.
        const float* const plane = assembled.GetVolume()->GetPlane(k)->m_Org;
        float inVolume[3] = {plane[0] - reference[0], plane[1] - reference[1], plane[2] - firstZ};
        float patient[3];
        assembled.VolToDicom(inVolume, patient);
        entry.positions.push_back({patient[0], patient[1], patient[2]});
    }
    if (lastFirst) std::reverse(entry.positions.begin(), entry.positions.end());
}

Json JsonOf(const ExportedVolume& volume) {
    Json json;
    if (!volume.what.empty()) json["what"] = volume.what;
    json["inputs"] = JsonTexts(volume.inputs);
    json["size"] = volume.size;
    if (volume.times > 1) json["times"] = volume.times;
    json["spacing"] = volume.spacing;
    if (!volume.sized) json["pixelSize"] = "unknown";
    json["orientation"] = volume.cosines;
    json["slicePositions"] = volume.positions;
    json["values"] = Json{{"stored", volume.stored},
                          {"smallest", volume.smallest},
                          {"largest", volume.largest},
                          {"inFile", volume.values.formula},
                          {"scale", volume.values.scale},
                          {"shift", volume.values.shift},
                          {"remarks", JsonTexts(volume.values.remarks)}};
    if (volume.filled > 0) json["filled"] = Json{{"voxels", volume.filled}, {"value", volume.fill}};
    json["outputs"] = Json::array();
    for (const ExportOutput& output : volume.outputs) {
        char crc[16];
        std::snprintf(crc, sizeof crc, "%08x", static_cast<unsigned>(output.crc));
        json["outputs"].push_back(Json{{"file", JsonText(output.name)}, {"size", output.size}, {"crc32", crc}});
    }
    return json;
}

void AddSeriesJson(Json& json, const ExportReport& report) {
    json["irregular"]["found"] = JsonTexts(report.found);
    json["irregular"]["done"] = report.done;
    json["series"] = Json{{"uid", JsonText(report.uid)},
                          {"modality", JsonText(report.modality)},
                          {"description", JsonText(report.description)}};
    json["warnings"] = JsonTexts(report.warnings);
    json["findings"] = Json::array();
    for (const Finding& finding : report.findings) json["findings"].push_back(JsonOf(finding));
    json["leftOut"] = Json::array();
    for (const ExportReport::LeftOut& file : report.leftOut) {
        json["leftOut"].push_back(Json{{"file", JsonText(file.file)}, {"why", JsonText(file.why)}});
    }
    json["volumes"] = Json::array();
    for (const ExportedVolume& volume : report.volumes) json["volumes"].push_back(JsonOf(volume));
}

const char* WordOf(ExportReport::Status status) {
    switch (status) {
    case ExportReport::Status::Done: return "done";
    case ExportReport::Status::DryRun: return "dry run";
    case ExportReport::Status::Failed: break;
    }
    return "failed";
}

}  // namespace

const char* WordOf(Irregular policy) {
    switch (policy) {
    case Irregular::Reject: return "reject";
    case Irregular::Resample: return "resample";
    case Irregular::Split: return "split";
    case Irregular::Keep: break;
    }
    return "keep";
}

const std::map<std::string, Irregular>& PolicyWords() {
    static const std::map<std::string, Irregular> kWords = {{"keep", Irregular::Keep},
                                                            {"reject", Irregular::Reject},
                                                            {"resample", Irregular::Resample},
                                                            {"split", Irregular::Split}};
    return kWords;
}

void AddSeries(ExportReport& report, const SeriesVolume& series, const ExportPlan& plan, bool otherSeries) {
    const ImageHeader& header = series.GetHeader();
    report.hasSeries = true;
    report.found = plan.found;
    report.done = plan.done;
    report.uid = header.common->seriesUid;
    report.modality = header.common->modality;
    report.description = header.common->description;
    for (const Finding& finding : series.GetSeries().findings) report.warnings.push_back(finding.text);
    report.findings = series.GetSeries().findings;
    report.findings.insert(report.findings.end(), plan.errors.begin(), plan.errors.end());
    report.leftOut = FindLeftOut(series, plan.parts, otherSeries);
}

ExportedVolume DescribeVolume(SeriesVolume& series, const ExportPart& part, bool lastFirst) {
    ExportedVolume entry;
    entry.what = part.what;
    entry.inputs.reserve(part.slices.size());
    for (const SliceRef& slice : part.slices) entry.inputs.push_back(series.GetFound().NameOf(slice));
    for (const std::vector<SliceRef>& time : part.later) {
        for (const SliceRef& slice : time) entry.inputs.push_back(series.GetFound().NameOf(slice));
    }
    AddGeometry(entry, series, series.GetAssembled(), lastFirst);
    entry.stored = WordOf(series.GetType());
    const MeasuredRange range = series.GetMeasuredRange();
    entry.smallest = range.smallest;
    entry.largest = range.largest;
    entry.padding = range.padding;
    return entry;
}

std::string ToJson(const ExportReport& report) {
    Json json;
    json["schema"] = "korvane.export";
    json["version"] = kVersion;
    json["program"] = "korvane " KORVANE_VERSION;
    json["status"] = WordOf(report.status);
    json["format"] = report.format;
    json["destination"] = JsonText(report.destination);
    json["irregular"]["policy"] = WordOf(report.policy);
    if (report.hasSeries) AddSeriesJson(json, report);
    if (!report.error.empty()) json["error"] = JsonText(report.error);
    return json.dump(1) + "\n";
}

std::vector<std::string> Describe(const ExportReport& report) {
    const bool dryRun = report.status == ExportReport::Status::DryRun;
    std::vector<std::string> lines;
    for (const ExportedVolume& volume : report.volumes) {
        std::string names;
        for (std::size_t i = 0; i < volume.outputs.size(); ++i) {
            if (i > 0) names += i + 1 < volume.outputs.size() ? ", " : " and ";
            names += volume.outputs[i].name;
            if (dryRun) names += " (" + std::to_string(volume.outputs[i].size) + " bytes)";
        }
        lines.push_back((dryRun ? "would write " : "wrote ") + names);
        if (!volume.what.empty()) lines.push_back(volume.what);
        lines.push_back(std::to_string(volume.size[0]) + " x " + std::to_string(volume.size[1]) + " x " +
                        std::to_string(volume.size[2]) +
                        (volume.times > 1 ? " x " + std::to_string(volume.times) : "") + " voxels of " +
                        (volume.sized ? ShortNumber(volume.spacing[0]) + " x " + ShortNumber(volume.spacing[1])
                                      : std::string("unknown size")) +
                        " x " + ShortNumber(volume.spacing[2]) + " mm, values " + std::to_string(volume.smallest) +
                        " to " + std::to_string(volume.largest));
        lines.insert(lines.end(), volume.values.remarks.begin(), volume.values.remarks.end());
    }
    return lines;
}

std::vector<std::string> GetExportFormats() {
    return ExportFormat::GetNames();
}

}  // namespace korvane
