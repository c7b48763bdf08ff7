#include "SeriesWarnings.h"

#include "SeriesFinder.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

namespace korvane {

namespace {

constexpr std::size_t kNamed = 3;         // files named in one warning
constexpr double kTilt = 0.1;             // degrees; rounded positions stay below
constexpr double kPixelTolerance = 1e-4;  // of a pixel

std::string Count(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

class Inspector {
public:
    Inspector(const FoundFiles& found, const FoundSeries& series) : m_Found(found), m_Series(series) {}

    std::vector<std::string> Run() {
        Splits();
        Data();
        if (m_Found.FirstFile(m_Series).form.kind == PixelForm::Kind::None) return m_Warnings;
        Frames();
        Positions();
        Volumes();
        Gaps();
        Tilt();
        Rescale();
        return m_Warnings;
    }

private:
    void Add(std::string text) { m_Warnings.push_back(std::move(text)); }

    void Splits() {
        if (m_Series.orientations > 1) {
            Add("mixed orientation: this UID has " + Count(m_Series.orientations, "orientation") +
                ", each listed alone");
        }
        if (m_Series.forms > 1) {
            Add("mixed formats: this UID has " + Count(m_Series.forms, "matrix or pixel format") +
                ", each listed alone");
        }
    }

    /// "what in 3 of 20 files: a, b, c" for the files that have it.
    void AddFiles(const std::string& what, const std::function<bool(const ImageHeader&)>& has) {
        std::set<std::size_t> all;
        std::vector<std::string> names;
        for (const SliceRef& slice : m_Series.slices) {
            const bool isNew = all.insert(slice.file).second;
            if (isNew && has(m_Found.files[slice.file])) names.push_back(m_Found.files[slice.file].path);
        }
        if (!names.empty()) {
            Add(what + " in " + std::to_string(names.size()) + " of " + Count(all.size(), "file") + ": " + List(names));
        }
    }

    static std::string List(const std::vector<std::string>& names) {
        std::string text;
        for (std::size_t i = 0; i < std::min(names.size(), kNamed); ++i) text += (i == 0 ? "" : ", ") + names[i];
        return names.size() > kNamed ? text + " and " + std::to_string(names.size() - kNamed) + " more" : text;
    }

    void Data() {
        AddFiles("compressed pixel data without a codec", [](const ImageHeader& header) {
            return header.encapsulated && !CodecManager::CanDecode(header.transferSyntax);
        });
        AddFiles("data that ends early", [](const ImageHeader& header) { return header.truncated; });
    }

    void Frames() {
        AddFiles("more frames claimed than the pixel data holds", [](const ImageHeader& header) {
            return !header.encapsulated && header.frames > 1 &&
                   header.FramesPresent() < static_cast<std::uint64_t>(header.frames);
        });
        AddFiles("frames without positions, taken in stored order", [](const ImageHeader& header) {
            return header.frames > 1 && !(header.framesPlaced && header.places.front().hasPosition);
        });
    }

    void Positions() {
        const SeriesGeometry& geometry = m_Series.geometry;
        if (geometry.stacks.empty()) {
            if (m_Series.slices.size() > 1) Add("no positions: slices in the order of their instance numbers");
            return;
        }
        if (!geometry.unplaced.empty()) {
            std::vector<std::string> names;
            for (const std::size_t index : geometry.unplaced) names.push_back(m_Found.NameOf(m_Series.slices[index]));
            Add("position missing in " + std::to_string(names.size()) + " of " +
                Count(m_Series.slices.size(), "slice") + ": " + List(names));
        }
        if (!m_Found.PlaceOf(m_Series.slices.front()).hasOrientation) Add("no orientation: taken as axial");
    }

    void Volumes() {
        const SeriesGeometry& geometry = m_Series.geometry;
        if (geometry.volumes < 2) return;
        const std::string positions = Count(geometry.stacks.size(), "position");
        if (geometry.complete) {
            Add("duplicate positions: " + std::to_string(geometry.volumes) + " slices at each of " + positions +
                ", which makes " + std::to_string(geometry.volumes) + " volumes");
            return;
        }
        std::vector<std::string> names;
        for (const auto& stack : geometry.stacks) {
            if (stack.size() < geometry.volumes) names.push_back(m_Found.NameOf(m_Series.slices[stack.front()]));
        }
        Add("duplicate positions: up to " + std::to_string(geometry.volumes) + " slices at each of " + positions +
            ", which makes " + std::to_string(geometry.volumes) + " volumes; fewer at " + List(names));
    }

    void Gaps() {
        const SeriesGeometry& geometry = m_Series.geometry;
        if (geometry.uneven.empty()) return;
        std::vector<std::string> faults;
        for (const SeriesGeometry::Gap& gap : geometry.uneven) {
            const auto name = [&](std::size_t stack) {
                return m_Found.NameOf(m_Series.slices[geometry.stacks[stack].front()]);
            };
            std::string fault =
                ShortNumber(gap.length) + " mm between " + name(gap.index) + " and " + name(gap.index + 1);
            if (gap.missing > 0) fault += " (" + Count(static_cast<std::size_t>(gap.missing), "slice") + " missing?)";
            faults.push_back(std::move(fault));
        }
        Add("uneven gaps: usually " + ShortNumber(geometry.usualGap) + " mm, but " + List(faults));
    }

    void Tilt() {
        if (m_Series.geometry.tilt <= kTilt) return;
        Add("tilt: the positions run " + ShortNumber(m_Series.geometry.tilt) + " degrees off the normal of the slices");
    }

    void Rescale() {
        const FramePlace& first = m_Found.PlaceOf(m_Series.slices.front());
        const bool differs = std::any_of(m_Series.slices.begin(), m_Series.slices.end(), [&](const SliceRef& slice) {
            const FramePlace& place = m_Found.PlaceOf(slice);
            return place.slope != first.slope || place.intercept != first.intercept;
        });
        if (differs) Add("rescale slope or intercept differ from slice to slice");
        if (first.hasSpacing && std::fabs(first.spacing[0] - first.spacing[1]) > kPixelTolerance * first.spacing[0]) {
            Add("pixels are not square: " + ShortNumber(first.spacing[0]) + " mm between rows, " +
                ShortNumber(first.spacing[1]) + " mm between columns");
        }
    }

    const FoundFiles& m_Found;
    const FoundSeries& m_Series;
    std::vector<std::string> m_Warnings;
};

}  // namespace

std::vector<std::string> WarnAbout(const FoundFiles& found, const FoundSeries& series) {
    return Inspector(found, series).Run();
}

std::string ShortNumber(double value) {
    if (!(std::fabs(value) < 1e9)) return platform::FormatReal(value);
    return platform::FormatReal(std::round(value * 1e4) / 1e4 + 0.0);
}

}  // namespace korvane
