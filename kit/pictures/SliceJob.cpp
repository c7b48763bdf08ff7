#include "SliceJob.h"

#include "../core/Paths.h"
#include "../core/Threads.h"
#include "../study/SeriesFindings.h"
#include "ContactSheet.h"
#include "ImagePainter.h"
#include "PictureFile.h"
#include "PictureSize.h"

#include <algorithm>
#include <cmath>
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

/// Whether both show the same values, or are none.
bool AreSame(const std::optional<ValuesOfInterest>& a, const std::optional<ValuesOfInterest>& b) {
    if (!a || !b) return !a && !b;
    return a->function == b->function && a->low == b->low && a->high == b->high &&
           a->window.centre == b->window.centre && a->window.width == b->window.width && a->table == b->table;
}

}  // namespace

void CheckSlicing(const SeriesVolume& series, const SliceOptions& options) {
    const PixelForm& form = series.GetHeader().form;
    const std::string bits = std::to_string(form.allocated) + "-bit pixels";
    std::string what;
    if (!series.IsGrey()) {
        what = series.DescribeColours() +
               " make no volume of grey values; without a view or a plane they are drawn as they are";
    } else if (form.kind != PixelForm::Kind::Integer) {
        if (options.raw16) what = "floating-point pixels do not fit into 16 bits";
    } else if (form.allocated != 8 && form.allocated != 16 && form.allocated != 32) {
        what = bits + " cannot be sliced; without a view or a plane they are drawn as they are";
    } else if (options.raw16 && form.allocated > 16) {
        what = bits + " do not fit into 16 bits";
    }
    const std::string& path = series.GetHeader().path;
    if (!what.empty()) throw Error(ErrorKind::Unsupported, path + ": " + what).InFile(path);
}

SliceJob::SliceJob(SeriesVolume& series, const SliceOptions& options, const std::string& output,
                   const KeptForSlices& kept)
    : m_Options(options), m_Output(output), m_Watch(options.watcher), m_Series(series),
      m_Slice(kept.volume != nullptr ? kept.volume : &m_Borrowed.emplace(series.GetVolume())), m_Kept(kept),
      m_Files(Destination{}, m_Watch) {
    m_Slice.SetInterpolation(kInterpolations[static_cast<int>(options.interpolation)]);
    const DcmObliqueSlice::SlabMode mode =
        options.slab > 0 ? kSlabModes[static_cast<int>(options.slabMode)] : DcmObliqueSlice::SM_NONE;
    if (!m_Slice.SetSlab(mode, options.slab)) throw Error(ErrorKind::WrongArgument, m_Slice.GetError());
    if (options.view && options.count != 1) {
        throw Error(ErrorKind::WrongArgument, "a view has its own planes: a stack is of planes with a normal");
    }
    if (options.view && options.shift != 0) {
        throw Error(ErrorKind::WrongArgument, "a view has its own planes: a plane with a normal is moved along it");
    }
    if (options.frame && options.pictures == SliceOptions::Pictures::Sheet) {
        throw Error(ErrorKind::WrongArgument, "a sheet has no frame");
    }
    if (options.view) {
        m_View = FindView(series.GetVolume(), *options.view);
    } else {
        m_Step = PlacePlanes(m_Slice, options);
    }
    const bool isCrossed = m_View.axis != 2 || !options.view || options.slab > 0;
    if (options.raw16 && isCrossed && series.RescalesDiffer()) {
        throw Error(ErrorKind::Unsupported, "stored values of slices with rescales of their own are no values of one "
                                            "picture; --values takes real ones");
    }
    if (!options.raw16 && !options.values) {
        m_Window = kept.window != nullptr ? *kept.window : FindWindow(series, options);
    }
    // What is outside is black.
    m_Slice.SetBackground(m_Window.inverted ? kBeyondAnyValue : -kBeyondAnyValue);
    // Data sets are read by one thread.
    if (options.values) m_Modality.emplace(ModalityOf(series));
    SetPadding();
    TellNotApplied();
    m_First = m_Slice;
}

/// What is put together of several samples leaves padding out, which is black then, or the value that it has.
void SliceJob::SetPadding() {
    const std::optional<Padding> padding = m_Series.GetPadding();
    if (!padding) return;
    const bool isPicture = !m_Options.raw16 && !m_Options.values;
    m_Slice.SetPadding(padding->first, padding->second, isPicture ? m_Slice.GetBackground() : padding->first);
    if (m_Options.slab > 0 || m_Options.values) TellPadding();
}

void SliceJob::TellPadding() {
    if (!m_Kept.tells || m_Watch.GetWatcher() == nullptr) return;
    const std::uint64_t count = m_Series.GetMeasuredRange().padding;
    if (count == 0) return;
    m_Watch.Tell({.kind = FindingKind::PaddingLeftOut,
                  .count = static_cast<std::size_t>(count),
                  .text = std::to_string(count) +
                          (m_Options.slab > 0 ? " voxels of padding are left out of what is taken together"
                                              : " voxels are padding: values between them and others are a mixture")});
}

/// One table, one shape and one window are for all planes.
void SliceJob::TellOtherTables() {
    if (m_Options.raw16 || m_Watch.GetWatcher() == nullptr) return;
    const PixelForm& form = m_Series.GetHeader().form;
    const DICOMDataObject& first = m_Series.GetFirstDataSet();
    const std::optional<LookupTable> table = ReadModality(first, 0, form).table;
    const bool isInverse = IsInverse(first, form);
    const bool isOwnWindow =
        !m_Options.values && !m_Options.window && m_Options.windowName.empty() && !m_Options.uptake;
    const auto interestOf = [&](const DICOMDataObject& dataSet) {
        return isOwnWindow ? ReadValuesOfInterest(dataSet, 0, form.isSigned, "series") : std::nullopt;
    };
    const std::optional<ValuesOfInterest> interest = interestOf(first);
    PictureNotes notes;
    for (const auto& [path, dataSet] : m_Series.ListDataSets()) {
        const auto tell = [&notes, &file = path](const char* sentence) {
            notes.Add(FindingKind::NotApplied, sentence, file);
        };
        if (!AreSame(interestOf(*dataSet), interest)) {
            tell(interest ? "has another window than the first slice, whose counts for all"
                          : "has a window, and the first slice none: one for the values of all counts");
        }
        if (ReadModality(*dataSet, 0, form).table != table)
            tell("has another Modality LUT than the first slice, whose counts for all");
        if (!m_Options.values && IsInverse(*dataSet, form) != isInverse)
            tell("has another Presentation LUT Shape than the first slice, whose counts for all");
    }
    notes.Tell(m_Watch);
}

void SliceJob::TellNotApplied() {
    if (!m_Kept.tells) return;
    TellOtherTables();
    if (m_Options.raw16 || m_Options.values || m_Watch.GetWatcher() == nullptr) return;
    PictureNotes notes;
    for (const auto& [path, dataSet] : m_Series.GetFiles()) NoteWhatIsLeftOut(*dataSet, path, notes);
    notes.Tell(m_Watch);
}

/// Makes the picture as large as it is asked for; the means over the area where it becomes smaller than the voxels.
void SliceJob::SetSize() {
    if (m_Options.frame) return;
    const int width = m_Slice.GetWidth();
    const int height = m_Slice.GetHeight();
    const double zoom = FindZoom(width, height, m_Options);
    if (zoom == 1) return;
    // From the first voxel centre to the last, at both sizes.
    const auto side = [&](int pixels) { return std::max(1, static_cast<int>(std::lround(pixels * zoom))); };
    const double longest = std::max(width, height);
    const double ratio =
        longest > 1 && longest * zoom > 1 ? (longest - 1) / (std::round(longest * zoom) - 1) : 1 / zoom;
    const double pixel = m_Slice.GetPixelSize()[0] * ratio;
    m_Slice.SetPixelSize(pixel, pixel);
    m_Slice.SetSize(side(width), side(height));
    m_Slice.SetAreaAverage(zoom < 1 && !m_Options.raw16 && m_Options.interpolation != Interpolation::Nearest);
}

/// Millimetres of a pixel; 0 where the series does not tell.
double SliceJob::GetPixelSize(const Cut& cut) const {
    return m_Series.GetPlace().hasSpacing ? cut.GetPixelSize()[0] : 0;
}

SliceReport SliceJob::Run() {
    switch (m_Options.pictures) {
    case SliceOptions::Pictures::Sheet: {
        const Picture sheet = DrawSheet();
        PictureFile(m_Files, m_Output, m_Report.pixelSize, m_Watch).Write(sheet);
        break;
    }
    case SliceOptions::Pictures::All: WriteFolder(); break;
    case SliceOptions::Pictures::One: {
        if (!m_Options.view && m_Options.count > 1) {
            WriteFolder();
            break;
        }
        PlaceOne();
        PictureFile file(m_Files, m_Output, GetPixelSize(m_Slice), m_Watch);
        file.Begin();
        WriteSlice(m_Slice, file);
        break;
    }
    }
    m_Watch.StopIfAsked();
    m_Files.Commit();
    m_Report.files = m_Files.GetOutputs();
    return std::move(m_Report);
}

SlicePicture SliceJob::Draw() {
    if (m_Options.pictures == SliceOptions::Pictures::All || m_Options.raw16 || m_Options.values) {
        throw Error(ErrorKind::WrongArgument, "several pictures, and pictures of values, are written as files");
    }
    const bool isSheet = m_Options.pictures == SliceOptions::Pictures::Sheet;
    if (!isSheet && !m_Options.view && m_Options.count > 1) {
        throw Error(ErrorKind::WrongArgument, "a stack is several pictures: SliceStack draws them");
    }
    if (!isSheet) PlaceOne();
    Picture picture = isSheet ? DrawSheet() : DrawSlice(m_Slice);
    m_Watch.StopIfAsked();
    return {std::move(picture), std::move(m_Report)};
}

SliceValues SliceJob::TakeValues() {
    PlaceOne();
    SliceValues taken{m_Slice.GetWidth(), m_Slice.GetHeight(), TakeValues(m_Slice), {}};
    m_Watch.StopIfAsked();
    taken.report = std::move(m_Report);
    return taken;
}

std::vector<SlicePicture> SliceJob::DrawAll() {
    if (m_Options.raw16 || m_Options.values) {
        throw Error(ErrorKind::WrongArgument, "pictures of values are written as files");
    }
    std::vector<SlicePicture> pictures;
    std::vector<Cut> cuts;
    for (int index = 0; index < CountPlanes(); ++index) {
        Place(index);
        SetSize();
        Describe(WhatIs(index));
        pictures.push_back({Picture(0, 0), m_Report});
        cuts.push_back(m_Slice);
    }
    ForCuts(
        cuts, [&](std::size_t i) { pictures[i].picture = DrawSlice(cuts[i]); }, [](std::size_t) {});
    return pictures;
}

void SliceJob::Place(int index) {
    if (m_Options.view) {
        PlaceView(m_Slice, m_View, index, m_Options);
        return;
    }
    m_Slice = m_First;
    m_Slice.Move(index * m_Step);
}

std::string SliceJob::WhatIs(int index) const {
    if (CountPlanes() == 1 && !m_Options.view) return "oblique plane";
    const std::string range = " plane " + std::to_string(index) + " of 0 to " + std::to_string(CountPlanes() - 1);
    return GetViewName() + range +
           (m_Options.view ? "" : ", " + ShortNumber(index * m_Options.step) + " mm from the first");
}

int SliceJob::ChooseIndex() const {
    if (!m_Options.view) return 0;

    const int index = m_Options.index.value_or(m_View.count / 2);
    if (index < 0 || index >= m_View.count) {
        throw Error(ErrorKind::WrongArgument, "there is no plane " + std::to_string(index) + ": the " +
                                                  std::string(GetViewName()) + " view has 0 to " +
                                                  std::to_string(m_View.count - 1));
    }
    return index;
}

void SliceJob::PlaceOne() {
    const int index = ChooseIndex();
    Place(index);
    SetSize();
    Describe(WhatIs(index));
}

void SliceJob::ForCuts(std::vector<Cut>& cuts, const std::function<void(std::size_t)>& make,
                       const std::function<void(std::size_t)>& take) const {
    TaskProgress progress(m_Watch, "slicing", static_cast<std::int64_t>(cuts.size()));
    constexpr std::size_t kAheadOfThread = 2;  // pictures
    ForEachInOrder(m_Options.jobs, cuts.size(), kAheadOfThread * CountJobs(m_Options.jobs), m_Watch, make,
                   [&](std::size_t i) {
                       take(i);
                       progress.Step();
                   });
}

void SliceJob::WriteFolder() {
    MakeDirectory(m_Output);
    std::vector<Cut> cuts;
    std::vector<PictureFile> files;
    for (int index = 0; index < CountPlanes(); ++index) {
        m_Watch.StopIfAsked();
        Place(index);
        SetSize();
        cuts.push_back(m_Slice);
        files.emplace_back(m_Files,
                           m_Output + "/" + std::string(GetViewName()) + "-" + NumberForName(index) +
                               (m_Options.values ? ".tif" : ".png"),
                           GetPixelSize(m_Slice), m_Watch);
        files.back().Begin();
    }
    ForCuts(
        cuts, [&](std::size_t i) { WriteSlice(cuts[i], files[i]); }, [](std::size_t) {});
    Describe("all " + std::to_string(CountPlanes()) + " " + GetViewName() + " planes");
    m_Report.middle.reset();
}

Picture SliceJob::DrawSheet() {
    Place(0);
    ContactSheet sheet(CountPlanes(), m_Slice.GetWidth(), m_Slice.GetHeight());
    const double pixelSize = GetPixelSize(m_Slice) * sheet.GetFactor();
    std::vector<Cut> cuts;
    for (int index = 0; index < CountPlanes(); ++index) {
        Place(index);
        cuts.push_back(m_Slice);
    }
    std::vector<Picture> tiles(cuts.size(), Picture(0, 0));
    const auto draw = [&](std::size_t i) {
        tiles[i] = MakePicture(cuts[i]).Shrink(sheet.GetFactor());
        if (!m_Options.annotate) return;
        // The edges of all tiles face the same way: letters and a scale bar stand on the first one alone.
        Annotation annotation = i == 0 ? MakeAnnotation(cuts[i], pixelSize) : Annotation{};
        annotation.corner = std::to_string(i);
        Annotate(tiles[i], annotation);
    };
    ForCuts(cuts, draw, [&](std::size_t i) { sheet.Add(std::exchange(tiles[i], Picture(0, 0))); });
    Describe("all " + std::to_string(CountPlanes()) + " " + GetViewName() + " planes in rows of " +
                 std::to_string(sheet.GetColumns()),
             sheet.GetFactor());
    m_Report.middle.reset();
    return sheet.GetPicture();
}

void SliceJob::WriteSlice(Cut& cut, PictureFile& file) const {
    if (m_Options.values) {
        file.Write(TakeValues(cut), cut.GetWidth(), cut.GetHeight());
    } else if (m_Options.raw16) {
        file.Write(TakeStored(cut), cut.GetWidth(), cut.GetHeight());
    } else {
        file.Write(DrawSlice(cut));
    }
}

Picture SliceJob::DrawSlice(Cut& cut) const {
    Picture picture = MakePicture(cut);
    if (m_Options.annotate) Annotate(picture, MakeAnnotation(cut, GetPixelSize(cut)));
    return picture;
}

/// How many rows of a picture a thread takes at a time. Starting a thread costs more than small pictures do, waking one that
/// stays is cheaper; large pieces are such that a stop is soon seen.
int SliceJob::CountRowsOfPiece(const Cut& cut) const {
    const double smallest = m_Kept.threads != nullptr ? 1 << 15 : 1 << 16;  // samples of a piece
    constexpr double kLargest = 1 << 22;
    constexpr double kSlab = 16;         // about as many samples for each pixel
    constexpr double kOfEachThread = 4;  // the last ones to end leave the others idle for a part of one
    const double samples = static_cast<double>(cut.GetWidth()) * (m_Options.slab > 0 ? kSlab : 1);  // of a row
    const unsigned threads = IsInPool() ? 1 : CountJobs(m_Options.jobs);
    const double shared = threads > 1 ? cut.GetHeight() / (kOfEachThread * threads) : cut.GetHeight();
    const double rows = std::min(std::max(shared, smallest / samples), kLargest / samples);
    return std::clamp(static_cast<int>(std::ceil(rows)), 1, cut.GetHeight());
}

void SliceJob::ForRows(Cut& cut, const std::function<bool(Cut& part, int first, int count)>& sample) const {
    const int rows = CountRowsOfPiece(cut);
    const std::size_t pieces = static_cast<std::size_t>(cut.GetHeight() - 1) / static_cast<std::size_t>(rows) + 1;
    if (m_Kept.layers != nullptr && !cut.PrepareLayers(*m_Kept.layers)) {
        throw Error(ErrorKind::Unsupported, cut.GetError());
    }
    // The volume's count is not atomic: copies are made by the thread that called the job, and by no other.
    std::vector<Cut> parts(IsInPool() ? std::size_t{0} : pieces, cut);
    const auto work = [&](std::size_t i) {
        Cut& part = parts.empty() ? cut : parts[i];
        const int first = static_cast<int>(i) * rows;
        if (sample(part, first, std::min(rows, cut.GetHeight() - first))) return;
        throw Error(ErrorKind::Unsupported, part.GetError());
    };
    if (m_Kept.threads != nullptr) {
        ForEach(*m_Kept.threads, m_Options.jobs, pieces, m_Watch, work);
    } else {
        ForEach(m_Options.jobs, pieces, m_Watch, work);
    }
}

std::vector<std::uint16_t> SliceJob::TakeStored(Cut& cut) const {
    std::vector<std::uint16_t> values(cut.GetPixelCount());
    const bool isSigned = m_Series.GetVolume().GetType() == CVolume::PT_SHORT;
    ForSamples(cut, [&](std::size_t i, auto stored) {
        values[i] = static_cast<std::uint16_t>(static_cast<std::uint16_t>(stored) ^ (isSigned ? kSignedOffset : 0));
    });
    return values;
}

bool SliceJob::SampleRows(Cut& part, int first, int count, void* values, std::size_t bytes) const {
    return m_Kept.layers == nullptr ? part.GetPixelRows(first, count, values, bytes)
                                    : part.GetPixelRows(first, count, values, bytes, *m_Kept.layers);
}

/// The picture's values in the volume's type, each handed on with its place, on several threads.
template <class Take>
void SliceJob::ForSamples(Cut& cut, Take take) const {
    const auto width = static_cast<std::size_t>(cut.GetWidth());
    const auto sample = [&]<class T>(T) {
        ForRows(cut, [&](Cut& part, int first, int count) {
            std::vector<T> values(width * static_cast<std::size_t>(count));
            if (!SampleRows(part, first, count, values.data(), values.size() * sizeof(T))) return false;
            std::size_t place = width * static_cast<std::size_t>(first);
            for (const T value : values) take(place++, value);
            return true;
        });
    };
    switch (m_Series.GetVolume().GetType()) {
    case CVolume::PT_BYTE: return sample(std::uint8_t());
    case CVolume::PT_SHORT: return sample(std::int16_t());
    case CVolume::PT_USHORT: return sample(std::uint16_t());
    case CVolume::PT_LONG: return sample(std::int32_t());
    case CVolume::PT_ULONG: return sample(std::uint32_t());
    case CVolume::PT_FLOAT: return sample(float());
    }
}

std::vector<float> SliceJob::TakeValues(Cut& cut) const {
    const ModalityTransform& modality = *m_Modality;
    std::vector<float> values(cut.GetPixelCount());
    ForSamples(cut, [&](std::size_t i, auto stored) {
        values[i] = static_cast<float>(modality(static_cast<double>(stored)));
    });
    return values;
}

Picture SliceJob::MakePicture(Cut& cut) const {
    Picture picture(cut.GetWidth(), cut.GetHeight());
    std::uint8_t* const out = picture.GetPixels();
    if (m_Window.scale) {
        ForSamples(cut, [&](std::size_t i, auto stored) { out[i] = (*m_Window.scale)(static_cast<double>(stored)); });
        return picture;
    }
    const Window& window = m_Window.stored;
    const auto width = static_cast<std::size_t>(cut.GetWidth());
    ForRows(cut, [&](Cut& part, int first, int count) {
        std::uint8_t* const to = out + width * static_cast<std::size_t>(first);
        const std::size_t bytes = width * static_cast<std::size_t>(count);
        return m_Kept.layers == nullptr
                   ? part.GetPictureRows(first, count, to, bytes, window.centre, window.width)
                   : part.GetPictureRows(first, count, to, bytes, window.centre, window.width, *m_Kept.layers);
    });
    if (m_Window.inverted) picture.Invert();
    return picture;
}

Annotation SliceJob::MakeAnnotation(const Cut& cut, double pixelSize) const {
    Annotation annotation;
    const auto [right, below] = FindEdges(cut);
    annotation.left = Opposite(right);
    annotation.right = right;
    annotation.top = Opposite(below);
    annotation.bottom = below;
    annotation.pixelSize = pixelSize;
    return annotation;
}

/// What the right and the lower edge are. Images without direction cosines may name it (PS3.3 C.7.6.1.1.1); they are seen as
/// they are, as axial ones.
std::pair<std::string, std::string> SliceJob::FindEdges(const Cut& cut) const {
    if (m_Series.GetPlace().hasOrientation) {
        return {LabelOf(cut.DirectionToDicom(cut.GetRow()), 1), LabelOf(cut.DirectionToDicom(cut.GetColumn()), 1)};
    }
    const std::string& stated = m_Series.GetHeader().common->patientOrientation;
    const std::size_t middle = stated.find('\\');
    const bool isPlain = stated.find_first_not_of("LRAPHF\\") == stated.npos && stated.size() <= 7;
    if (m_Options.view != View::Axial || middle == stated.npos || !isPlain) return {};
    return {stated.substr(0, middle), stated.substr(middle + 1)};
}

void SliceJob::Describe(const std::string& what, int factor) {
    const int round = factor - 1;
    m_Report.what = what;
    m_Report.width = (m_Slice.GetWidth() + round) / factor;
    m_Report.height = (m_Slice.GetHeight() + round) / factor;
    m_Report.pixelSize = GetPixelSize(m_Slice) * factor;
    std::tie(m_Report.right, m_Report.below) = FindEdges(m_Slice);
    m_Report.middle = m_Slice.VolToDicom(m_Slice.GetCentre());
    const bool isSigned = m_Series.GetVolume().GetType() == CVolume::PT_SHORT;
    m_Report.values = m_Options.values   ? "real values, 32-bit floating point"
                      : !m_Options.raw16 ? m_Window.origin
                      : isSigned         ? "stored values + 32768"
                                         : "stored values";
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
