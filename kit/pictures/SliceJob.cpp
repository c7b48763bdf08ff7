#include "SliceJob.h"

#include "../core/Paths.h"
#include "../study/SeriesWarnings.h"
#include "ContactSheet.h"
#include "PngWriter.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace korvane {

namespace {

constexpr double kBeyondAnyValue = 1e12;
constexpr std::uint16_t kSignedOffset = 32768;

constexpr DcmObliqueSlice::Interpolation kInterpolations[] = {DcmObliqueSlice::IP_NEAREST, DcmObliqueSlice::IP_LINEAR,
                                                              DcmObliqueSlice::IP_SHAPED};
constexpr DcmObliqueSlice::SlabMode kSlabModes[] = {DcmObliqueSlice::SM_MEAN, DcmObliqueSlice::SM_MAXIMUM,
                                                    DcmObliqueSlice::SM_MINIMUM};

using Vector = DcmObliqueSlice::Vector;

std::string LabelOf(const Vector& direction, int sign) {
    return DirectionLabel(sign * direction[0], sign * direction[1], sign * direction[2]);
}

/// Of directions in letters.
std::string Opposite(std::string letters) {
    constexpr std::string_view kLetters = "LRAPHF";  // in pairs
    for (char& letter : letters) letter = kLetters[kLetters.find(letter) ^ 1U];
    return letters;
}

/// At least four digits, so that names sort by number.
std::string Number(int number) {
    const std::string digits = std::to_string(number);
    return std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

}  // namespace

const char* WordOf(View view) {
    switch (view) {
    case View::Coronal: return "coronal";
    case View::Sagittal: return "sagittal";
    case View::Axial: break;
    }
    return "axial";
}

void CheckSlicing(const SeriesVolume& series, const SliceOptions& options) {
    const PixelForm& form = series.GetHeader().form;
    const std::string bits = std::to_string(form.allocated) + "-bit pixels";
    std::string what;
    if (!series.IsGrey()) {
        what = series.DescribeColours() + " make no grey picture";
    } else if (form.kind != PixelForm::Kind::Integer) {
        what = "floating-point pixels cannot be sliced";
    } else if ((form.allocated != 8 && form.allocated != 16 && form.allocated != 32) ||
               (form.allocated == 8 && form.isSigned)) {
        what = (form.isSigned ? "signed " : "") + bits + " cannot be sliced";
    } else if (options.raw16 && form.allocated > 16) {
        what = bits + " do not fit into 16 bits";
    }
    const std::string& path = series.GetHeader().path;
    if (!what.empty()) throw Error(ErrorKind::Unsupported, path + ": " + what).InFile(path);
}

SliceJob::SliceJob(SeriesVolume& series, const SliceOptions& options, const std::string& output)
    : m_Options(options), m_Output(output), m_Watch(options.watcher), m_Series(series), m_Slice(&series.GetVolume()),
      m_Files(Destination{}, m_Watch) {
    m_Slice.SetInterpolation(kInterpolations[static_cast<int>(options.interpolation)]);
    const DcmObliqueSlice::SlabMode mode =
        options.slab > 0 ? kSlabModes[static_cast<int>(options.slabMode)] : DcmObliqueSlice::SM_NONE;
    if (!m_Slice.SetSlab(mode, options.slab)) throw Error(ErrorKind::WrongArgument, m_Slice.GetError());
    if (options.view) m_View = FindView(series.GetVolume(), *options.view);
    if (!options.raw16) m_Window = FindWindow(series, options.window);
    // What is outside is black.
    m_Slice.SetBackground(m_Window.inverted ? kBeyondAnyValue : -kBeyondAnyValue);
}

SliceReport SliceJob::Run() {
    switch (m_Options.pictures) {
    case SliceOptions::Pictures::Sheet: {
        const Picture sheet = DrawSheet();
        WritePicture(m_Output, sheet, m_Report.pixelSize);
        break;
    }
    case SliceOptions::Pictures::All: WriteFolder(); break;
    case SliceOptions::Pictures::One:
        PlaceOne();
        WriteSlice(m_Output);
        break;
    }
    m_Watch.StopIfAsked();
    m_Files.Commit();
    m_Report.files = m_Files.GetOutputs();
    return std::move(m_Report);
}

SlicePicture SliceJob::Draw() {
    if (m_Options.pictures == SliceOptions::Pictures::All || m_Options.raw16) {
        throw Error(ErrorKind::WrongArgument, "several pictures, and pictures of 16 bits, are written as files");
    }
    const bool isSheet = m_Options.pictures == SliceOptions::Pictures::Sheet;
    if (!isSheet) PlaceOne();
    Picture picture = isSheet ? DrawSheet() : DrawSlice();
    m_Watch.StopIfAsked();
    return {std::move(picture), std::move(m_Report)};
}

int SliceJob::ChooseIndex() const {
    const int index = m_Options.index.value_or(m_View.count / 2);
    if (index < 0 || index >= m_View.count) {
        throw Error(ErrorKind::WrongArgument, "there is no plane " + std::to_string(index) + ": the " +
                                                  std::string(GetViewName()) + " view has 0 to " +
                                                  std::to_string(m_View.count - 1));
    }
    return index;
}

void SliceJob::PlaceOne() {
    std::string what = "oblique plane";
    if (m_Options.view) {
        const int index = ChooseIndex();
        PlaceView(m_Slice, m_View, index, m_Options.pixelSize);
        what = std::string(GetViewName()) + " plane " + std::to_string(index) + " of 0 to " +
               std::to_string(m_View.count - 1);
    } else {
        PlacePlane(m_Slice, m_Options.plane, m_Options.pixelSize);
    }
    Describe(what);
}

void SliceJob::WriteFolder() {
    MakeDirectory(m_Output);
    {
        TaskProgress progress(m_Watch, "slicing", m_View.count);
        for (int index = 0; index < m_View.count; ++index) {
            PlaceView(m_Slice, m_View, index, m_Options.pixelSize);
            WriteSlice(m_Output + "/" + std::string(GetViewName()) + "-" + Number(index) + ".png");
            progress.Step();
        }
    }
    Describe("all " + std::to_string(m_View.count) + " " + std::string(GetViewName()) + " planes");
}

Picture SliceJob::DrawSheet() {
    PlaceView(m_Slice, m_View, 0, m_Options.pixelSize);
    ContactSheet sheet(m_View.count, m_Slice.GetWidth(), m_Slice.GetHeight());
    const double pixelSize = m_Slice.GetPixelSize()[0] * sheet.GetFactor();
    {
        TaskProgress progress(m_Watch, "slicing", m_View.count);
        for (int index = 0; index < m_View.count; ++index) {
            PlaceView(m_Slice, m_View, index, m_Options.pixelSize);
            Picture tile = MakePicture().Shrink(sheet.GetFactor());
            if (m_Options.annotate) {
                // Letters on the first one hold for all.
                Annotation annotation = index == 0 ? MakeAnnotation(pixelSize) : Annotation{};
                annotation.corner = std::to_string(index);
                Annotate(tile, annotation);
            }
            sheet.Add(tile);
            progress.Step();
        }
    }
    Describe("all " + std::to_string(m_View.count) + " " + std::string(GetViewName()) + " planes in rows of " +
                 std::to_string(sheet.GetColumns()),
             sheet.GetFactor());
    return sheet.GetPicture();
}

void SliceJob::WriteSlice(const std::string& path) {
    if (m_Options.raw16) {
        WriteRaw(path);
        return;
    }
    WritePicture(path, DrawSlice(), m_Slice.GetPixelSize()[0]);
}

Picture SliceJob::DrawSlice() {
    Picture picture = MakePicture();
    if (m_Options.annotate) Annotate(picture, MakeAnnotation(m_Slice.GetPixelSize()[0]));
    return picture;
}

void SliceJob::WritePicture(const std::string& path, const Picture& picture, double pixelSize) {
    PngWriter png(BeginFile(path), m_Watch);
    png.SetPixelSize(KnownSize(pixelSize));
    png.Write(picture.GetPixels(), picture.GetWidth(), picture.GetHeight());
}

void SliceJob::WriteRaw(const std::string& path) {
    std::vector<std::uint16_t> values(m_Slice.GetPixelCount());
    const CVolume::PixelType type = m_Series.GetVolume().GetType();
    bool sampled;
    if (type == CVolume::PT_BYTE) {
        std::vector<std::uint8_t> bytes(values.size());
        sampled = m_Slice.GetPixels(bytes.data(), bytes.size());
        std::copy(bytes.begin(), bytes.end(), values.begin());
    } else {
        sampled = m_Slice.GetPixels(values.data(), values.size() * sizeof values[0]);
        if (type == CVolume::PT_SHORT) {
            for (std::uint16_t& value : values) value = static_cast<std::uint16_t>(value ^ kSignedOffset);
        }
    }
    if (!sampled) throw SliceFailure();
    PngWriter png(BeginFile(path), m_Watch);
    png.SetPixelSize(KnownSize(m_Slice.GetPixelSize()[0]));
    png.Write(values.data(), m_Slice.GetWidth(), m_Slice.GetHeight());
}

Picture SliceJob::MakePicture() {
    Picture picture(m_Slice.GetWidth(), m_Slice.GetHeight());
    const Window& window = m_Window.stored;
    if (!m_Slice.GetPicture(picture.GetPixels(), picture.GetSize(), window.centre, window.width)) {
        throw SliceFailure();
    }
    if (m_Window.inverted) picture.Invert();
    return picture;
}

Annotation SliceJob::MakeAnnotation(double pixelSize) const {
    Annotation annotation;
    const auto [right, below] = FindEdges();
    annotation.left = Opposite(right);
    annotation.right = right;
    annotation.top = Opposite(below);
    annotation.bottom = below;
    annotation.pixelSize = KnownSize(pixelSize);
    return annotation;
}

double SliceJob::KnownSize(double pixelSize) const {
    return m_Series.GetPlace().hasSpacing ? pixelSize : 0;
}

/// What the right and the lower edge are. Images without direction cosines may name it (PS3.3 C.7.6.1.1.1); they are seen as
/// they are, as axial ones.
std::pair<std::string, std::string> SliceJob::FindEdges() const {
    if (m_Series.GetPlace().hasOrientation) {
        return {LabelOf(m_Slice.DirectionToDicom(m_Slice.GetRow()), 1),
                LabelOf(m_Slice.DirectionToDicom(m_Slice.GetColumn()), 1)};
    }
    const std::string& stated = m_Series.GetHeader().patientOrientation;
    const std::size_t middle = stated.find('\\');
    const bool isPlain = stated.find_first_not_of("LRAPHF\\") == stated.npos && stated.size() <= 7;
    if (m_Options.view != View::Axial || middle == stated.npos || !isPlain) return {};
    return {stated.substr(0, middle), stated.substr(middle + 1)};
}

std::string SliceJob::BeginFile(const std::string& path) {
    std::string target = m_Files.Begin(path);
    if (target.empty()) m_Files.ThrowFailure();
    return target;
}

void SliceJob::Describe(const std::string& what, int factor) {
    const int round = factor - 1;
    m_Report.what = what;
    m_Report.width = (m_Slice.GetWidth() + round) / factor;
    m_Report.height = (m_Slice.GetHeight() + round) / factor;
    m_Report.pixelSize = KnownSize(m_Slice.GetPixelSize()[0] * factor);
    std::tie(m_Report.right, m_Report.below) = FindEdges();
    const bool isSigned = m_Series.GetVolume().GetType() == CVolume::PT_SHORT;
    m_Report.values = !m_Options.raw16 ? m_Window.origin : isSigned ? "stored values + 32768" : "stored values";
}

std::vector<std::string> Describe(const SliceReport& report) {
    std::vector<std::string> lines;
    const std::string& first = report.files.front().name;
    const std::string last = TextFromPath(PathFromText(report.files.back().name).filename());
    lines.push_back("wrote " + first + (report.files.size() > 1 ? " to " + last : ""));
    lines.push_back(report.what + ", " + std::to_string(report.width) + " x " + std::to_string(report.height) +
                    " pixels of " +
                    (report.pixelSize > 0 ? ShortNumber(report.pixelSize) + " mm" : std::string("unknown size")));
    if (!report.right.empty()) {
        lines.push_back("right of the picture is " + report.right + ", its lower edge " + report.below);
    }
    lines.push_back(report.values);
    return lines;
}

}  // namespace korvane
