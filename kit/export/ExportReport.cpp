#include "ExportReport.h"

#include "../core/TextEncoding.h"
#include "../study/SeriesVolume.h"

#include <Korvane/Korvane.h>
#include <Korvane/Version.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kVersion = 1;

/// Texts may be any bytes: what is not UTF-8 is escaped.
std::string Text(const std::string& text) {
    return TextDecoder("ISO_IR 192").ToUtf8(text);
}

Json Texts(const std::vector<std::string>& texts) {
    Json array = Json::array();
    for (const std::string& text : texts) array.push_back(Text(text));
    return array;
}

Json Names(const FoundFiles& found, const std::vector<SliceRef>& slices) {
    Json array = Json::array();
    for (const SliceRef& slice : slices) array.push_back(Text(found.NameOf(slice)));
    return array;
}

const char* NameOf(CVolume::PixelType type) {
    switch (type) {
    case CVolume::PT_SHORT: return "signed 16-bit";
    case CVolume::PT_USHORT: return "unsigned 16-bit";
    case CVolume::PT_BYTE: return "unsigned 8-bit";
    default: return "other";
    }
}

/// Slices and files that no part has.
Json LeftOut(const SeriesVolume& series, const std::vector<ExportPart>& parts) {
    const FoundFiles& found = series.GetFound();
    Json array = Json::array();
    const auto add = [&](const std::string& name, const std::string& why) {
        array.push_back(Json{{"file", Text(name)}, {"why", Text(why)}});
    };
    for (const FoundFiles::LeftOut& file : found.leftOut) add(file.path, file.why);
    std::set<std::string> used;
    for (const ExportPart& part : parts) {
        for (const SliceRef& slice : part.slices) used.insert(found.NameOf(slice));
    }
    const VolumeSets& sets = series.GetSets();
    for (std::size_t i = 0; i < sets.volumes.size(); ++i) {
        for (const SliceRef& slice : sets.volumes[i]) {
            const std::string name = found.NameOf(slice);
            if (!used.contains(name)) add(name, "of volume " + std::to_string(i + 1));
        }
    }
    for (const FoundSeries& other : found.series) {
        if (&other == &series.GetSeries()) continue;
        for (const SliceRef& slice : other.slices) {
            add(found.NameOf(slice), "of another series, UID " + found.FirstFile(other).seriesUid);
        }
    }
    return array;
}

}  // namespace

ExportGeometry::ExportGeometry(const SeriesVolume& series, CDicomVolume& assembled, bool lastFirst) {
    const CVolume& volume = *assembled.GetVolume();
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    std::copy(dim, dim + 3, size.begin());
    std::copy(space, space + 3, spacing.begin());
    cosines = series.GetPlace().orientation;
    float reference[4];
    volume.GetOrigin(reference);
    const float firstZ = dim[2] > 0 ? assembled.GetVolume()->GetPlane(0)->m_Org[2] : 0;
    for (int k = 0; k < dim[2]; ++k) {
        // A plane's origin is its position along rows and columns, the reference's own position added.
        const float* const plane = assembled.GetVolume()->GetPlane(k)->m_Org;
        float inVolume[3] = {plane[0] - reference[0], plane[1] - reference[1], plane[2] - firstZ};
        float patient[3];
        assembled.VolToDicom(inVolume, patient);
        positions.push_back({patient[0], patient[1], patient[2]});
    }
    if (lastFirst) std::reverse(positions.begin(), positions.end());
}

ExportReport::ExportReport() : m_pJson(std::make_unique<Json>()) {
    Json& json = *m_pJson;
    json["schema"] = "korvane.export";
    json["version"] = kVersion;
    json["program"] = "korvane " KORVANE_VERSION;
    json["status"] = "failed";
}

ExportReport::~ExportReport() = default;

void ExportReport::SetTask(const std::string& format, const Destination& destination, const std::string& policy) {
    Json& json = *m_pJson;
    json["format"] = format;
    json["destination"] = Text(destination.Describe());
    json["irregular"]["policy"] = policy;
}

void ExportReport::AddSeries(const SeriesVolume& series, const ExportPlan& plan) {
    Json& json = *m_pJson;
    const ImageHeader& header = series.GetHeader();
    json["irregular"]["found"] = Texts(plan.found);
    json["irregular"]["done"] = plan.done;
    json["series"] = Json{{"uid", Text(header.seriesUid)},
                          {"modality", Text(header.modality)},
                          {"description", Text(header.description)}};
    json["warnings"] = Texts(series.GetSeries().warnings);
    json["leftOut"] = LeftOut(series, plan.parts);
    json["volumes"] = Json::array();
}

void ExportReport::AddVolume(SeriesVolume& series, const ExportPart& part, const ExportGeometry& geometry,
                             const ValueMapping& mapping) {
    Json volume;
    if (!part.what.empty()) volume["what"] = part.what;
    volume["inputs"] = Names(series.GetFound(), part.slices);
    volume["size"] = geometry.size;
    volume["spacing"] = geometry.spacing;
    volume["orientation"] = geometry.cosines;
    volume["slicePositions"] = geometry.positions;
    Json& values = volume["values"];
    values["stored"] = NameOf(series.GetVolume().GetType());
    values["smallest"] = series.GetVolume().GetMin();
    values["largest"] = series.GetVolume().GetMax();
    values["inFile"] = mapping.formula;
    values["scale"] = mapping.scale;
    values["shift"] = mapping.shift;
    values["remarks"] = Texts(mapping.remarks);
    volume["outputs"] = Json::array();
    (*m_pJson)["volumes"].push_back(std::move(volume));
}

void ExportReport::AddOutput(const ExportOutput& output) {
    char crc[16];
    std::snprintf(crc, sizeof crc, "%08x", static_cast<unsigned>(output.crc));
    (*m_pJson)["volumes"].back()["outputs"].push_back(
        Json{{"file", Text(output.name)}, {"size", output.size}, {"crc32", crc}});
}

void ExportReport::SetStatus(const std::string& status, const std::string& error) {
    (*m_pJson)["status"] = status;
    if (!error.empty()) (*m_pJson)["error"] = Text(error);
}

std::string ExportReport::GetText() const {
    return m_pJson->dump(1) + "\n";
}

}  // namespace korvane
