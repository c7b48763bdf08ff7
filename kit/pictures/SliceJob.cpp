#include "SliceJob.h"

#include "../core/HostError.h"
#include "../core/Paths.h"
#include "../core/Progress.h"
#include "../core/TextEncoding.h"
#include "../study/SeriesWarnings.h"
#include "ContactSheet.h"
#include "PngWriter.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace korvane {

namespace {

constexpr double kBeyondAnyValue = 1e12;
constexpr std::uint16_t kSignedOffset = 32768;

using Vector = DcmObliqueSlice::Vector;

std::string LabelOf(const Vector& direction, int sign) {
    return DirectionLabel(sign * direction[0], sign * direction[1], sign * direction[2]);
}

/// At least four digits, so that names sort by number.
std::string Number(int number) {
    const std::string digits = std::to_string(number);
    return std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

/// The library knows one spacing for x, the first value of Pixel Spacing, which is the distance of rows.
void SetTrueSpacing(CVolume& volume, const FramePlace& place) {
    if (!place.hasSpacing || place.spacing[0] == place.spacing[1]) return;
    float space[4];
    volume.GetSpacing(space);
    space[0] = static_cast<float>(place.spacing[1]);
    space[1] = static_cast<float>(place.spacing[0]);
    volume.SetSpacing(space);
    volume.UpdateZInterpArray();
}

}  // namespace

SliceJob::SliceJob(const SliceRequest& request, SeriesVolume& series)
    : m_Request(request), m_Series(series), m_Slice(&series.GetVolume()), m_Files(Destination{}) {
    SetTrueSpacing(series.GetVolume(), series.GetPlace());
    m_Slice.SetInterpolation(request.interpolation);
    if (!m_Slice.SetSlab(request.slabMode, request.slab)) throw UsageError(m_Slice.GetError());
    if (request.view) m_View = FindView(series.GetVolume(), *request.view);
    if (!request.raw16) m_Window = FindWindow(series, request.window);
    // What is outside is black.
    m_Slice.SetBackground(m_Window.inverted ? kBeyondAnyValue : -kBeyondAnyValue);
}

void SliceJob::Run() {
    if (m_Request.sheet) {
        WriteSheet();
    } else if (m_Request.all) {
        WriteFolder();
    } else {
        WriteOne();
    }
}

int SliceJob::ChooseIndex() const {
    const int index = m_Request.index.value_or(m_View.count / 2);
    if (index < 0 || index >= m_View.count) {
        throw UsageError("there is no plane " + std::to_string(index) + ": the " + m_Request.viewName +
                         " view has 0 to " + std::to_string(m_View.count - 1));
    }
    return index;
}

void SliceJob::WriteOne() {
    std::string what = "oblique plane";
    if (m_Request.view) {
        const int index = ChooseIndex();
        PlaceView(m_Slice, m_View, index, m_Request.pixelSize);
        what = m_Request.viewName + " plane " + std::to_string(index) + " of 0 to " + std::to_string(m_View.count - 1);
    } else {
        PlacePlane(m_Slice, m_Request.plane, m_Request.pixelSize);
    }
    WriteSlice(m_Request.output);
    StopIfInterrupted();
    m_Files.Commit();
    std::printf("wrote %s\n", Visible(m_Files.GetNames().front()).c_str());
    Report(what);
}

void SliceJob::WriteFolder() {
    MakeDirectory(m_Request.output);
    {
        ProgressBar progress("slicing", m_View.count);
        for (int index = 0; index < m_View.count; ++index) {
            PlaceView(m_Slice, m_View, index, m_Request.pixelSize);
            WriteSlice(m_Request.output + "/" + m_Request.viewName + "-" + Number(index) + ".png");
            progress.Step();
        }
    }
    m_Files.Commit();
    std::printf("wrote %s to %s\n", Visible(m_Files.GetNames().front()).c_str(),
                Visible(TextFromPath(PathFromText(m_Files.GetNames().back()).filename())).c_str());
    Report("all " + std::to_string(m_View.count) + " " + m_Request.viewName + " planes");
}

void SliceJob::WriteSheet() {
    PlaceView(m_Slice, m_View, 0, m_Request.pixelSize);
    ContactSheet sheet(m_View.count, m_Slice.GetWidth(), m_Slice.GetHeight());
    const double pixelSize = m_Slice.GetPixelSize()[0] * sheet.GetFactor();
    {
        ProgressBar progress("slicing", m_View.count);
        for (int index = 0; index < m_View.count; ++index) {
            PlaceView(m_Slice, m_View, index, m_Request.pixelSize);
            Picture tile = MakePicture().Shrink(sheet.GetFactor());
            if (m_Request.annotate) {
                // Letters on the first one hold for all.
                Annotation annotation = index == 0 ? MakeAnnotation(pixelSize) : Annotation{};
                annotation.corner = std::to_string(index);
                Annotate(tile, annotation);
            }
            sheet.Add(tile);
            progress.Step();
        }
    }
    WritePicture(m_Request.output, sheet.GetPicture(), pixelSize);
    StopIfInterrupted();
    m_Files.Commit();
    std::printf("wrote %s\n", Visible(m_Files.GetNames().front()).c_str());
    Report("all " + std::to_string(m_View.count) + " " + m_Request.viewName + " planes in rows of " +
               std::to_string(sheet.GetColumns()),
           sheet.GetFactor());
}

void SliceJob::WriteSlice(const std::string& path) {
    if (m_Request.raw16) {
        WriteRaw(path);
        return;
    }
    Picture picture = MakePicture();
    const double pixelSize = m_Slice.GetPixelSize()[0];
    if (m_Request.annotate) Annotate(picture, MakeAnnotation(pixelSize));
    WritePicture(path, picture, pixelSize);
}

void SliceJob::WritePicture(const std::string& path, const Picture& picture, double pixelSize) {
    PngWriter png(m_Files.Begin(path));
    png.SetPixelSize(pixelSize);
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
    if (!sampled) throw HostError(m_Slice.GetError());
    PngWriter png(m_Files.Begin(path));
    png.SetPixelSize(m_Slice.GetPixelSize()[0]);
    png.Write(values.data(), m_Slice.GetWidth(), m_Slice.GetHeight());
}

Picture SliceJob::MakePicture() {
    Picture picture(m_Slice.GetWidth(), m_Slice.GetHeight());
    const Window& window = m_Window.stored;
    if (!m_Slice.GetPicture(picture.GetPixels(), picture.GetSize(), window.centre, window.width)) {
        throw HostError(m_Slice.GetError());
    }
    if (m_Window.inverted) picture.Invert();
    return picture;
}

Annotation SliceJob::MakeAnnotation(double pixelSize) const {
    Annotation annotation;
    const FramePlace& place = m_Series.GetPlace();
    if (place.hasOrientation) {
        const Vector right = m_Slice.DirectionToDicom(m_Slice.GetRow());
        const Vector down = m_Slice.DirectionToDicom(m_Slice.GetColumn());
        annotation.left = LabelOf(right, -1);
        annotation.right = LabelOf(right, 1);
        annotation.top = LabelOf(down, -1);
        annotation.bottom = LabelOf(down, 1);
    }
    if (place.hasSpacing) annotation.pixelSize = pixelSize;
    return annotation;
}

void SliceJob::Report(const std::string& what, int factor) const {
    const int round = factor - 1;
    std::printf("%s, %d x %d pixels of %s mm\n", what.c_str(), (m_Slice.GetWidth() + round) / factor,
                (m_Slice.GetHeight() + round) / factor, ShortNumber(m_Slice.GetPixelSize()[0] * factor).c_str());
    const Vector right = m_Slice.DirectionToDicom(m_Slice.GetRow());
    const Vector down = m_Slice.DirectionToDicom(m_Slice.GetColumn());
    if (m_Series.GetPlace().hasOrientation) {
        std::printf("right of the picture is %s, its lower edge %s\n", LabelOf(right, 1).c_str(),
                    LabelOf(down, 1).c_str());
    }
    if (m_Request.raw16) {
        const bool isSigned = m_Series.GetVolume().GetType() == CVolume::PT_SHORT;
        std::printf("stored values%s\n", isSigned ? " + 32768" : "");
    } else {
        std::printf("%s\n", m_Window.origin.c_str());
    }
}

}  // namespace korvane
