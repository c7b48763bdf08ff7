#include "SeriesText.h"

#include "../core/TextEncoding.h"
#include "FoundFiles.h"
#include "SeriesFindings.h"

#include <algorithm>
#include <set>
#include <utility>

namespace korvane {

namespace {

std::string Matrix(const PixelForm& form) {
    return std::to_string(form.columns) + " x " + std::to_string(form.rows);
}

std::string Title(const FoundFiles& found, std::size_t index) {
    const FoundSeries& series = found.series[index];
    const ImageHeader& first = found.FirstFile(series);
    const std::size_t images = CountImages(found, series);
    std::string text =
        std::to_string(index + 1) + ": " + (first.common->modality.empty() ? "?" : first.common->modality);
    if (!first.common->description.empty()) text += " \"" + first.common->description + "\"";
    text += ", " + std::to_string(images);
    if (first.form.kind == PixelForm::Kind::None) {
        return text + (images == 1 ? " object" : " objects") + " without pixels";
    }
    return text + (images == 1 ? " slice of " : " slices of ") + Matrix(first.form);
}

std::string Millimetres(double a, double b) {
    const std::string first = ShortNumber(a);
    const std::string last = ShortNumber(b);
    return (first == last ? first : first + " to " + last) + " mm";
}

class Lines {
public:
    void Add(const char* name, const std::string& value) {
        std::string line = "  " + std::string(name);
        line.resize(18, ' ');
        m_Text += line + Visible(value) + "\n";
    }
    std::string Take() { return std::move(m_Text); }

private:
    std::string m_Text;
};

/// Units, and what was corrected: "BQML, corrected for DECY, ATTN, decay to START".
std::string DescribeValues(const FoundFiles& found, const FoundSeries& series) {
    const ImageHeader& header = found.FirstFile(series);
    std::string text = found.PlaceOf(series.slices.front()).unit;
    const auto add = [&](const char* words, std::string value) {
        if (value.empty()) return;
        for (std::size_t at = 0; (at = value.find('\\', at)) != value.npos; ++at) value.replace(at, 1, ", ");
        text += (text.empty() ? "" : ", ") + std::string(words) + value;
    };
    add("corrected for ", header.common->corrected);
    add("decay correction to ", header.common->decayCorrection);
    return text;
}

void AddGeometry(Lines& lines, const FoundFiles& found, const FoundSeries& series) {
    const SeriesGeometry& geometry = series.geometry;
    const std::size_t firstSlice = geometry.stacks.empty() ? 0 : geometry.stacks.front().front();
    const FramePlace& first = found.PlaceOf(series.slices[firstSlice]);
    const FramePlace& sized = found.SizedPlaceOf(series.slices);
    lines.Add("pixel spacing", sized.hasSpacing ? ShortNumber(sized.spacing[0]) + " mm between rows, " +
                                                      ShortNumber(sized.spacing[1]) + " mm between columns"
                                                : "unknown");
    if (geometry.stacks.empty()) return;
    if (geometry.stacks.size() > 1) {
        lines.Add("slice gaps", Millimetres(geometry.smallestGap, geometry.largestGap));
    }
    lines.Add("origin", ShortNumber(first.position[0]) + ", " + ShortNumber(first.position[1]) + ", " +
                            ShortNumber(first.position[2]) + " mm");
    if (first.hasOrientation) lines.Add("orientation", DescribeOrientation(found, series));
    if (geometry.volumes > 1) lines.Add("volumes", std::to_string(geometry.volumes));
}

/// "2", or "1 to 3".
std::string DescribeEchoes(const Series& series) {
    const std::vector<int> echoes = series.GetEchoNumbers();
    if (echoes.empty()) return {};
    return std::to_string(echoes.front()) + (echoes.size() > 1 ? " to " + std::to_string(echoes.back()) : "");
}

/// What people know a series by: "number 5, JONES^ANN, 20200131, head, t1_mpr, echo 1 to 3".
std::string KnownBy(const Series& series) {
    std::string text = "number " + std::to_string(series.GetNumber());
    for (const std::string* const word :
         {&series.GetPatientName(), &series.GetStudyDate(), &series.GetStudyDescription(), &series.GetProtocol()}) {
        if (!word->empty()) text += ", " + *word;
    }
    const std::string echoes = DescribeEchoes(series);
    return text + (echoes.empty() ? "" : ", echo " + echoes);
}

}  // namespace

std::string List(const Found& all) {
    const FoundFiles& found = all.GetFiles();
    std::string text;
    for (std::size_t i = 0; i < found.series.size(); ++i) {
        const ImageHeader& first = found.FirstFile(found.series[i]);
        text += "  " +
                Visible(Title(found, i) + ", " + KnownBy(all.GetSeries()[i]) + ", UID " + first.common->seriesUid) +
                "\n";
    }
    return text;
}

std::string Describe(const Series& of) {
    const FoundFiles& found = of.GetFiles();
    const FoundSeries& series = of.GetFound();
    const ImageHeader& first = found.FirstFile(series);
    Lines lines;
    lines.Add("UID", first.common->seriesUid);
    lines.Add("series number", std::to_string(of.GetNumber()));
    const std::string patient = of.GetPatientName() + (of.GetPatientId().empty() ? "" : ", ID " + of.GetPatientId());
    const std::string study =
        of.GetStudyDate() + (of.GetStudyDescription().empty() ? "" : " \"" + of.GetStudyDescription() + "\"");
    const std::pair<const char*, std::string> known[] = {
        {"patient", patient}, {"study", study}, {"protocol", of.GetProtocol()}, {"echo", DescribeEchoes(of)}};
    for (const auto& [name, value] : known) {
        if (!value.empty()) lines.Add(name, value);
    }
    if (first.form.kind != PixelForm::Kind::None) {
        lines.Add("pixels", DescribePixels(first.form));
        const std::string values = DescribeValues(found, series);
        if (!values.empty()) lines.Add("values", values);
        AddGeometry(lines, found, series);
    } else {
        lines.Add("class", first.common->sopClass);
    }
    std::set<std::string> syntaxes;
    for (const SliceRef& slice : series.slices) syntaxes.insert(found.files[slice.file].common->transferSyntax);
    for (const std::string& syntax : syntaxes) lines.Add("transfer syntax", DescribeSyntax(syntax));
    if (series.slices.size() == 1) lines.Add("file", first.path);
    for (const Finding& finding : series.findings) lines.Add("warning", finding.text);
    return "series " + Visible(Title(found, of.GetIndex())) + "\n" + lines.Take();
}

std::string DescribePixels(const PixelForm& form) {
    std::string text = form.isSigned ? "signed, " : "unsigned, ";
    if (form.kind == PixelForm::Kind::Float) text = "32-bit floating-point, ";
    if (form.kind == PixelForm::Kind::Double) text = "64-bit floating-point, ";
    if (form.kind == PixelForm::Kind::Integer) {
        text += std::to_string(form.stored) + " of " + std::to_string(form.allocated) + " bits, ";
    }
    if (form.samples != 1) text += std::to_string(form.samples) + " samples, ";
    return text + (form.photometric.empty() ? "no photometric interpretation" : form.photometric);
}

std::size_t CountImages(const FoundFiles& found, const FoundSeries& series) {
    std::size_t count = 0;
    for (const SliceRef& slice : series.slices) {
        const ImageHeader& header = found.files[slice.file];
        const auto claimed = static_cast<std::uint64_t>(slice.frame < 0 ? header.frames : 1);
        const std::uint64_t present = std::max<std::uint64_t>(header.FramesPresent(), 1);
        count += static_cast<std::size_t>(header.encapsulated ? claimed : std::min(claimed, present));
    }
    return count;
}

std::string DescribeOrientation(const FoundFiles& found, const FoundSeries& series) {
    const auto& o = found.PlaceOf(series.slices.front()).orientation;
    const auto& n = series.geometry.normal;
    return "rows to " + DirectionLabel(o[0], o[1], o[2]) + ", columns to " + DirectionLabel(o[3], o[4], o[5]) +
           ", slices to " + DirectionLabel(n[0], n[1], n[2]);
}

}  // namespace korvane
