#include "InfoJson.h"

#include "JsonWriter.h"
#include "SeriesFinder.h"
#include "SeriesText.h"
#include "TextEncoding.h"

#include <set>

namespace {

constexpr int kVersion = 1;

class InfoDump {
public:
    InfoDump(const Findings& findings, std::FILE* out) : m_Findings(findings), m_Json(out) {}

    void Run() {
        m_Json.BeginObject();
        m_Json.Key("schema").String("korvane.info");
        m_Json.Key("version").Integer(kVersion);
        Count("files", m_Findings.files.size());
        Count("ignored", m_Findings.ignored);
        Count("copies", m_Findings.copies);
        Texts("unreadable", m_Findings.unreadable);
        m_Json.Key("series").BeginArray(true);
        for (std::size_t i = 0; i < m_Findings.series.size(); ++i) OneSeries(i);
        m_Json.EndArray();
        m_Json.EndObject();
    }

private:
    void Count(const char* key, std::size_t count) { m_Json.Key(key).Integer(static_cast<long long>(count)); }

    /// Any bytes: what is not UTF-8 is escaped.
    void Text(const char* key, const std::string& text) { m_Json.Key(key).String(m_Utf8.ToUtf8(text)); }

    template <class Range>
    void Texts(const char* key, const Range& texts) {
        m_Json.Key(key).BeginArray(texts.size() > 1);
        for (const std::string& text : texts) m_Json.String(m_Utf8.ToUtf8(text));
        m_Json.EndArray();
    }

    template <class Range>
    void Reals(const char* key, const Range& values) {
        m_Json.Key(key).BeginArray();
        for (const double value : values) m_Json.Real(value);
        m_Json.EndArray();
    }

    void OneSeries(std::size_t index) {
        const Series& series = m_Findings.series[index];
        const ImageHeader& first = m_Findings.FirstFile(series);
        m_Json.BeginObject();
        Count("number", index + 1);
        Text("uid", first.seriesUid);
        Text("modality", first.modality);
        Text("description", first.description);
        Text("sopClass", first.sopClass);
        Count("slices", CountImages(m_Findings, series));
        if (first.form.kind != PixelForm::Kind::None) {
            Pixels(first.form);
            Geometry(series);
        }
        std::set<std::string> syntaxes;
        std::set<std::string> files;
        for (const Slice& slice : series.slices) {
            syntaxes.insert(m_Findings.files[slice.file].transferSyntax);
            files.insert(m_Findings.files[slice.file].path);
        }
        Texts("transferSyntaxes", syntaxes);
        Texts("warnings", series.warnings);
        Texts("files", files);
        m_Json.EndObject();
    }

    void Pixels(const PixelForm& form) {
        m_Json.Key("columns").Integer(form.columns);
        m_Json.Key("rows").Integer(form.rows);
        m_Json.Key("pixels").BeginObject();
        m_Json.Key("signed").Bool(form.isSigned);
        m_Json.Key("float").Bool(form.kind != PixelForm::Kind::Integer);
        m_Json.Key("bitsAllocated").Integer(form.allocated);
        m_Json.Key("bitsStored").Integer(form.stored);
        m_Json.Key("samples").Integer(form.samples);
        Text("photometric", form.photometric);
        m_Json.EndObject();
    }

    void Geometry(const Series& series) {
        const SeriesGeometry& geometry = series.geometry;
        const bool placed = !geometry.stacks.empty();
        const FramePlace& place = m_Findings.PlaceOf(series.slices[placed ? geometry.stacks.front().front() : 0]);
        if (place.hasSpacing) Reals("pixelSpacing", place.spacing);  // between rows, between columns
        if (place.hasOrientation) {
            Reals("orientation", place.orientation);
            const auto& o = place.orientation;
            m_Json.Key("directions").BeginObject();
            Text("rows", DirectionLabel(o[0], o[1], o[2]));
            Text("columns", DirectionLabel(o[3], o[4], o[5]));
            Text("slices", DirectionLabel(geometry.normal[0], geometry.normal[1], geometry.normal[2]));
            m_Json.EndObject();
        }
        if (!placed) return;
        Reals("origin", place.position);
        Count("positions", geometry.stacks.size());
        Count("volumes", geometry.volumes);
        if (geometry.stacks.size() < 2) return;
        m_Json.Key("gaps").BeginObject();
        m_Json.Key("smallest").Real(geometry.smallestGap);
        m_Json.Key("usual").Real(geometry.usualGap);
        m_Json.Key("largest").Real(geometry.largestGap);
        m_Json.EndObject();
        m_Json.Key("tiltDegrees").Real(geometry.tilt);
    }

    const Findings& m_Findings;
    JsonWriter m_Json;
    TextDecoder m_Utf8{"ISO_IR 192"};
};

}  // namespace

void WriteInfoJson(const Findings& findings, std::FILE* out) {
    InfoDump(findings, out).Run();
}
