#include "SeriesFindings.h"

#include "FoundFiles.h"
#include "PlaceRescale.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

namespace korvane {

namespace {

constexpr std::size_t kNamed = 3;  // files named in one warning
constexpr double kTilt = 0.1;      // degrees; rounded positions stay below
constexpr double kShift = 0.1;     // mm; rounded positions stay below
constexpr double kShiftOfGap = 0.02;
constexpr double kDegrees = 180 / 3.14159265358979323846;
constexpr double kPixelTolerance = 1e-4;  // of a pixel

std::string Count(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

class Inspector {
public:
    Inspector(const FoundFiles& found, const FoundSeries& series) : m_Found(found), m_Series(series) {}

    std::vector<Finding> Run() {
        Splits();
        Data();
        if (m_Found.FirstFile(m_Series).form.kind == PixelForm::Kind::None) return m_Findings;
        Frames();
        Positions();
        Distance();
        Volumes();
        Keys();
        Gaps();
        Axes();
        Tilt();
        Rescale();
        Spacing();
        return m_Findings;
    }

private:
    /// The rest of its members is for the caller to fill.
    Finding& Add(FindingKind kind, std::string text) {
        m_Findings.push_back({.kind = kind, .text = std::move(text)});
        return m_Findings.back();
    }

    void Splits() {
        if (m_Series.orientations > 1) {
            Add(FindingKind::MixedOrientations, "mixed orientation: this UID has " +
                                                    Count(m_Series.orientations, "orientation") + ", each listed alone")
                .count = m_Series.orientations;
        }
        if (m_Series.numbers > 1) {
            Add(FindingKind::SeveralNumbers,
                "several numbers: this UID has " + Count(m_Series.numbers, "series number") + ", each listed alone")
                .count = m_Series.numbers;
        }
        if (m_Series.forms > 1) {
            Add(FindingKind::MixedFormats, "mixed formats: this UID has " +
                                               Count(m_Series.forms, "matrix or pixel format") + ", each listed alone")
                .count = m_Series.forms;
        }
    }

    /// "what in 3 of 20 files: a, b, c" for the files that have it.
    void AddFiles(FindingKind kind, const std::string& what, const std::function<bool(const ImageHeader&)>& has) {
        std::vector<std::string> names;
        std::size_t all = 0;
        const ImageHeader* last = nullptr;  // the slices of a file stand together
        for (const SliceRef& slice : m_Series.slices) {
            const ImageHeader& file = m_Found.files[slice.file];
            if (std::exchange(last, &file) == &file) continue;
            ++all;
            if (has(file)) names.push_back(file.path);
        }
        if (!names.empty()) {
            Finding& finding = Add(kind, what + " in " + std::to_string(names.size()) + " of " + Count(all, "file") +
                                             ": " + List(names));
            finding.count = names.size();
            finding.files = std::move(names);
        }
    }

    static std::string List(const std::vector<std::string>& names) {
        std::string text;
        for (std::size_t i = 0; i < std::min(names.size(), kNamed); ++i) text += (i == 0 ? "" : ", ") + names[i];
        return names.size() > kNamed ? text + " and " + std::to_string(names.size() - kNamed) + " more" : text;
    }

    void Data() {
        AddFiles(FindingKind::NoCodec, "compressed pixel data without a codec", [](const ImageHeader& header) {
            return header.encapsulated && !CodecManager::CanDecode(header.common->transferSyntax);
        });
        AddFiles(FindingKind::SameUid, "several images with different pixels under one SOP Instance UID, all kept",
                 [](const ImageHeader& header) { return header.sharesUid; });
        AddFiles(FindingKind::EndsEarly, "data that ends early",
                 [](const ImageHeader& header) { return header.truncated; });
    }

    void Frames() {
        AddFiles(FindingKind::FrameOffsetsWrong,
                 "frame offsets that are neither relative nor absolute, which place no frames",
                 [](const ImageHeader& header) { return header.offsetsWrong; });
        AddFiles(FindingKind::FramesMissing, "more frames claimed than the pixel data holds",
                 [](const ImageHeader& header) {
                     return !header.encapsulated && header.frames > 1 &&
                            header.FramesPresent() < static_cast<std::uint64_t>(header.frames);
                 });
        AddFiles(
            FindingKind::TilesUnread,
            "the image is a mosaic, and no element of its maker tells its tiles: taken as one slice, whose position "
            "is that of none of them",
            [](const ImageHeader& header) { return header.tilesUnread; });
        AddFiles(FindingKind::FramesUnplaced, "frames without positions, taken in stored order",
                 [](const ImageHeader& header) {
                     return header.frames > 1 && !header.framesAreTimes &&
                            !(header.framesPlaced && header.places.GetPlane(0).hasPosition);
                 });
    }

    std::string NameOf(std::size_t slice) const { return m_Found.NameOf(m_Series.slices[slice]); }

    void Positions() {
        const SeriesGeometry& geometry = m_Series.geometry;
        if (m_Found.AreTimesAlone(m_Series)) {
            Add(FindingKind::FramesAreTimes,
                std::string(m_Found.FirstFile(m_Series).common->modality == "NM"
                                ? "frames without positions are told apart by their vectors: "
                                : "frames without positions follow each other in time: ") +
                    Count(m_Series.slices.size(), "volume") + " of one slice")
                .count = m_Series.slices.size();
            return;
        }
        if (geometry.stacks.empty()) {
            if (m_Series.slices.size() > 1) {
                Add(FindingKind::NoPositions, "no positions: slices in the order of their instance numbers");
            }
            return;
        }
        if (!geometry.unplaced.empty()) {
            std::vector<std::string> names;
            for (const std::size_t index : geometry.unplaced) names.push_back(NameOf(index));
            Finding& finding =
                Add(FindingKind::PositionMissing, "position missing in " + std::to_string(names.size()) + " of " +
                                                      Count(m_Series.slices.size(), "slice") + ": " + List(names));
            finding.slices = geometry.unplaced;
            finding.count = names.size();
        }
        if (!m_Found.PlaceOf(m_Series.slices.front()).hasOrientation) {
            Add(FindingKind::NoOrientation, "no orientation: taken as axial");
        }
    }

    /// Of slices that have no positions, as `LoadedSlices` lays them out.
    void Distance() {
        const ImageHeader& header = m_Found.FirstFile(m_Series);
        const bool several = m_Series.slices.size() > 1 || header.frames > 1;
        const bool unplacedFrames = header.frames > 1 && !header.framesPlaced;
        if (!several) Thickness(header);
        if (!several || (!m_Series.geometry.stacks.empty() && !unplacedFrames)) return;
        const bool isStated = header.sliceSpacing != 0;
        const bool isThickness = !isStated && header.sliceThickness != 0;
        const double distance = isStated      ? header.sliceSpacing
                                : isThickness ? header.sliceThickness
                                              : m_Found.PlaceOf(m_Series.slices.front()).spacing[0];
        Add(FindingKind::DistanceGuessed, "the distance of slices without positions is taken as " +
                                              ShortNumber(distance) + " mm, " +
                                              (isStated      ? "Spacing Between Slices"
                                               : isThickness ? "their thickness"
                                                             : "as high as a pixel, since nothing says it"))
            .lengths = {distance};
    }

    /// Of a single slice.
    void Thickness(const ImageHeader& header) {
        if (header.sliceSpacing != 0 || header.sliceThickness != 0 || m_Series.geometry.stacks.empty()) return;
        const double taken = m_Found.PlaceOf(m_Series.slices.front()).spacing[0];
        Add(FindingKind::ThicknessUnknown,
            "nothing says how thick the single slice is: taken as " + ShortNumber(taken) + " mm, as high as a pixel")
            .lengths = {taken};
    }

    void Volumes() {
        const SeriesGeometry& geometry = m_Series.geometry;
        if (geometry.volumes < 2 || geometry.stacks.empty()) return;
        const std::string volumes = std::to_string(m_Series.sets.volumes.size());
        const std::string at = std::to_string(geometry.volumes) + " slices at each of " +
                               Count(geometry.stacks.size(), "position") + ", which makes " + volumes + " volumes";
        if (geometry.complete) {
            Add(FindingKind::RepeatedPositions, "duplicate positions: " + at).count = geometry.volumes;
            return;
        }
        std::vector<std::string> names;
        std::vector<std::size_t> slices;
        for (const auto& stack : geometry.stacks) {
            if (stack.size() == geometry.volumes) continue;
            names.push_back(NameOf(stack.front()));
            slices.push_back(stack.front());
        }
        Finding& finding = Add(FindingKind::IncompleteVolumes,
                               "duplicate positions: up to " + at + "; fewer at " + List(names) + Lacking());
        finding.slices = std::move(slices);
        finding.count = geometry.volumes;
    }

    /// "; volume 2 lacks 1 of 6 positions, volume 5 2".
    std::string Lacking() const {
        std::vector<std::string> lacking;
        const auto& members = m_Series.sets.members;
        const std::size_t positions = m_Series.geometry.stacks.size();
        for (std::size_t i = 0; i < members.size(); ++i) {
            const std::size_t missing = positions - std::min(positions, members[i].size());
            if (missing > 0) {
                lacking.push_back("volume " + std::to_string(i + 1) + " lacks " + std::to_string(missing) + " of " +
                                  Count(positions, "position"));
            }
        }
        return lacking.empty() ? "" : "; " + List(lacking);
    }

    static std::string Join(const std::vector<std::string>& parts) {
        std::string text;
        for (const std::string& part : parts) text += (text.empty() ? "" : ", ") + part;
        return text;
    }

    void Keys() {
        const VolumeSets& sets = m_Series.sets;
        if (!sets.rejected.empty()) {
            Add(FindingKind::KeyRejected, "volumes are not told apart by " + Join(sets.rejected) +
                                              ", which would leave most of their positions empty")
                .count = sets.rejected.size();
        }
        if (sets.ordered) {
            Add(FindingKind::OrderedByTime,
                "images at one position are told apart by the " + sets.order + ", which vary from position to position")
                .count = sets.volumes.size();
        }
        if (sets.guessed) {
            Add(FindingKind::VolumesGuessed,
                sets.ordered ? "a guess: images are missing, and times do not tell clearly which"
                             : "a guess: images at one position are told apart by their order alone");
        }
        if (!sets.mixed.empty()) {
            Add(FindingKind::KeysMixed, "slices of one volume differ in " + Join(sets.mixed)).count = sets.mixed.size();
        }
    }

    void Gaps() {
        const SeriesGeometry& geometry = m_Series.geometry;
        if (geometry.uneven.empty()) return;
        std::vector<std::string> faults;
        Finding finding{.kind = FindingKind::MissingSlices,
                        .lengths = {geometry.smallestGap, geometry.largestGap, geometry.usualGap}};
        for (const SeriesGeometry::Gap& gap : geometry.uneven) {
            const std::size_t before = geometry.stacks[gap.index].front();
            std::string fault = ShortNumber(gap.length) + " mm between " + NameOf(before) + " and " +
                                NameOf(geometry.stacks[gap.index + 1].front());
            if (gap.missing > 0) fault += " (" + Count(static_cast<std::size_t>(gap.missing), "slice") + " missing?)";
            faults.push_back(std::move(fault));
            finding.slices.push_back(before);
            finding.count += static_cast<std::size_t>(gap.missing);
            if (gap.missing == 0) finding.kind = FindingKind::UnevenGaps;
        }
        finding.text = "uneven gaps: usually " + ShortNumber(geometry.usualGap) + " mm, but " + List(faults);
        m_Findings.push_back(std::move(finding));
    }

    void Tilt() {
        const SeriesGeometry& geometry = m_Series.geometry;
        const std::array<double, 2>& pixel = m_Found.SizedPlaceOf(m_Series.slices).spacing;
        if (geometry.tilt <= kTilt && !IsSheared(geometry, std::min(pixel[0], pixel[1]))) return;
        Finding& finding =
            Add(FindingKind::Tilt, "tilt: the positions run " + ShortNumber(geometry.tilt) +
                                       " degrees off the normal of the slices, which makes " +
                                       ShortNumber(geometry.sideways) + " mm from the first to the last");
        finding.angles = {geometry.tilt};
        finding.lengths = {geometry.sideways};
    }

    /// A gantry tilt shears the stack: its positions still lie on one line. A slice beside that line was moved by itself.
    void Axes() {
        const SeriesGeometry& geometry = m_Series.geometry;
        if (geometry.shift > std::max(kShift, kShiftOfGap * geometry.usualGap)) {
            Finding& finding = Add(FindingKind::ShiftedSideways, "shifted sideways: " + NameOf(geometry.shifted) +
                                                                     " lies " + ShortNumber(geometry.shift) +
                                                                     " mm beside the line of the others");
            finding.slices = {geometry.shifted};
            finding.lengths = {geometry.shift};
        }
        const FramePlace& first = m_Found.PlaneOf(m_Series.slices.front());
        if (first.axesChanged) ChangedAxes(first);
    }

    void ChangedAxes(const FramePlace& place) {
        if (!place.hasOrientation) {
            Add(FindingKind::AxesNotSquare, "the direction cosines make no plane: taken as axial");
            return;
        }
        const auto& o = place.statedAxes;
        const double row = std::hypot(o[0], o[1], o[2]);
        const double column = std::hypot(o[3], o[4], o[5]);
        const double angle = std::acos((o[0] * o[3] + o[1] * o[4] + o[2] * o[5]) / (row * column)) * kDegrees;
        const PixelForm& form = m_Found.FirstFile(m_Series).form;
        const double along = (form.columns - 1) * place.spacing[1];
        const double across = (form.rows - 1) * place.spacing[0];
        double farthest = 0;
        for (const auto& [x, y] : {std::pair(along, 0.0), std::pair(0.0, across), std::pair(along, across)}) {
            std::array<double, 3> off{};
            for (std::size_t i = 0; i < 3; ++i) {
                off[i] = x * (o[i] - place.orientation[i]) + y * (o[i + 3] - place.orientation[i + 3]);
            }
            farthest = std::max(farthest, std::hypot(off[0], off[1], off[2]));
        }
        Finding& finding =
            Add(FindingKind::AxesNotSquare,
                "the direction cosines are no unit vectors at right angles: lengths " + ShortNumber(row) + " and " +
                    ShortNumber(column) + ", " + ShortNumber(angle) +
                    " degrees between them; made so, which moves voxels by up to " + ShortNumber(farthest) + " mm");
        finding.angles = {angle};
        finding.lengths = {farthest};
    }

    void Spacing() {
        const FramePlace& used = m_Found.SizedPlaceOf(m_Series.slices);
        std::vector<std::size_t> unknown;
        std::vector<std::size_t> different;
        for (std::size_t i = 0; i < m_Series.slices.size(); ++i) {
            const FramePlace& place = m_Found.PlaneOf(m_Series.slices[i]);
            if (!place.hasSpacing) {
                unknown.push_back(i);
            } else if (!IsSame(place.spacing[0], used.spacing[0]) || !IsSame(place.spacing[1], used.spacing[1])) {
                different.push_back(i);
            }
        }
        const std::string taken = BetweenRowsAndColumns(used.spacing);
        if (used.hasSpacing) {
            Calibration(used);
            if (!unknown.empty()) {
                Add(FindingKind::SpacingUnknown,
                    "the size of pixels is unknown" + OfSlices(unknown) + "; that of the others is used: " + taken)
                    .slices = std::move(unknown);
            }
        } else {
            UnknownSpacing(used);
        }
        if (different.empty()) return;
        Finding& finding = Add(FindingKind::SpacingDiffers,
                               "pixel spacing differs" + OfSlices(different) + "; that of the first is used: " + taken);
        finding.slices = std::move(different);
        finding.lengths = {used.spacing[0], used.spacing[1]};
    }

    static std::string BetweenRowsAndColumns(const std::array<double, 2>& spacing) {
        return ShortNumber(spacing[0]) + " mm between rows, " + ShortNumber(spacing[1]) + " mm between columns";
    }

    /// Where the size of pixels comes from, if it is not simply that in the patient.
    void Calibration(const FramePlace& used) {
        const ImageHeader& header = m_Found.FirstFile(m_Series);
        if (used.sizeOf == PixelSize::StatedAsDetector) {
            Add(FindingKind::SpacingAtDetector, "the size of pixels is that at the detector, and not calibrated: " +
                                                    BetweenRowsAndColumns(used.spacing))
                .lengths = {used.spacing[0], used.spacing[1]};
        } else if (used.sizeOf == PixelSize::Region) {
            Add(FindingKind::SpacingCalibrated,
                "the size of pixels is that of the ultrasound regions: " + BetweenRowsAndColumns(used.spacing))
                .lengths = {used.spacing[0], used.spacing[1]};
        } else if (!header.common->calibration.empty()) {
            Add(FindingKind::SpacingCalibrated, "the size of pixels is calibrated by " + header.common->calibration +
                                                    ": " + BetweenRowsAndColumns(used.spacing) +
                                                    "; it holds at that depth alone")
                .lengths = {used.spacing[0], used.spacing[1]};
        }
    }

    void UnknownSpacing(const FramePlace& used) {
        const std::string shape =
            used.spacing[0] == 1 ? ""
                                 : "; pixels are taken as " + ShortNumber(used.spacing[0]) + " times as high as wide";
        if (used.sizeOf == PixelSize::Detector) {
            const std::array<double, 2>& detector = m_Found.FirstFile(m_Series).detectorSpacing;
            Add(FindingKind::SpacingAtDetector,
                "the size of pixels is known at the detector alone: " + BetweenRowsAndColumns(detector) + shape)
                .lengths = {detector[0], detector[1]};
        } else {
            Finding& finding = Add(FindingKind::SpacingUnknown, "the size of pixels is unknown" + shape);
            for (std::size_t i = 0; i < m_Series.slices.size(); ++i) finding.slices.push_back(i);
        }
    }

    static bool IsSame(double a, double b) { return std::fabs(a - b) <= kPixelTolerance * std::fabs(a); }

    /// " in 3 of 20 slices: a, b, c"; nothing for all.
    std::string OfSlices(const std::vector<std::size_t>& slices) const {
        if (slices.size() == m_Series.slices.size()) return {};
        std::vector<std::string> names;
        for (const std::size_t slice : slices) names.push_back(NameOf(slice));
        return " in " + std::to_string(slices.size()) + " of " + Count(m_Series.slices.size(), "slice") + ": " +
               List(names);
    }

    void Rescale() {
        const FramePlace& first = m_Found.PlaneOf(m_Series.slices.front());
        const bool differs = std::any_of(m_Series.slices.begin(), m_Series.slices.end(), [&](const SliceRef& slice) {
            const FramePlace& place = m_Found.PlaneOf(slice);
            return place.slope != first.slope || place.intercept != first.intercept;
        });
        TellUnusable();
        if (differs) Add(FindingKind::RescaleDiffers, "rescale slope or intercept differ from slice to slice");
        if (first.hasRealWorld && !first.slope.empty()) {
            Add(FindingKind::RealWorldValues,
                "a real world value mapping, stored * " + platform::FormatReal(first.realSlope) + " + " +
                    platform::FormatReal(first.realIntercept) + ", is not applied: the rescale is");
        }
        if (first.hasOtherRealWorld && first.slope.empty()) {
            Add(FindingKind::RealWorldValues,
                first.hasRealWorld ? "of several real world value mappings the first one counts for all values"
                                   : "a table of real world values is not applied: values are as stored");
        }
        if (first.isRealWorldPart && !first.hasOtherRealWorld) {
            Add(FindingKind::RealWorldValues,
                "the real world value mapping is for some of the stored values, and counts for all");
        }
        const bool unitsDiffer =
            std::any_of(m_Series.slices.begin(), m_Series.slices.end(),
                        [&](const SliceRef& slice) { return m_Found.PlaneOf(slice).unit != first.unit; });
        if (unitsDiffer) Add(FindingKind::UnitsDiffer, "the units of real values differ from slice to slice");
        const FramePlace& sized = m_Found.SizedPlaceOf(m_Series.slices);
        if (sized.hasSpacing && !IsSame(sized.spacing[0], sized.spacing[1])) {
            Add(FindingKind::PixelsNotSquare, "pixels are not square: " + BetweenRowsAndColumns(sized.spacing))
                .lengths = {sized.spacing[0], sized.spacing[1]};
        }
    }

    void TellUnusable() {
        std::vector<std::size_t> slices;
        for (std::size_t i = 0; i < m_Series.slices.size(); ++i) {
            if (!IsRescaleUsable(m_Found.PlaneOf(m_Series.slices[i]))) slices.push_back(i);
        }
        if (slices.empty()) return;
        const FramePlace& place = m_Found.PlaneOf(m_Series.slices[slices.front()]);
        const auto quoted = [](const std::string& text) { return text.empty() ? "missing" : "\"" + text + "\""; };
        Add(FindingKind::RescaleUnusable, "Rescale Slope is " + quoted(place.slope) + " and Rescale Intercept " +
                                              quoted(place.intercept) + OfSlices(slices) +
                                              ", which rescale nothing: values are as stored")
            .slices = slices;
    }

    const FoundFiles& m_Found;
    const FoundSeries& m_Series;
    std::vector<Finding> m_Findings;
};

}  // namespace

std::vector<Finding> StudyFindings(const FoundFiles& found, const FoundSeries& series) {
    return Inspector(found, series).Run();
}

std::string ShortNumber(double value) {
    if (!(std::fabs(value) < 1e9)) return platform::FormatReal(value);
    return platform::FormatReal(std::round(value * 1e4) / 1e4 + 0.0);
}

}  // namespace korvane
