#include "IrregularPolicy.h"

#include "../core/Error.h"
#include "../core/Threads.h"
#include "../study/SeriesFindings.h"
#include "../study/SeriesGeometry.h"
#include "../study/SeriesVolume.h"
#include "VolumeGroups.h"

#include "base/Bytes.h"
#include "slicing/CVolumeReformatter.h"
#include "slicing/StraightStack.h"
#include "volume/CImagePlane.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace korvane {

namespace {

constexpr double kOnLine = 0.05;  // millimetres; rounded positions stay below

std::string DescribeGap(const FoundFiles& found, const std::vector<SliceRef>& slices, const SeriesGeometry& geometry,
                        const SeriesGeometry::Gap& gap) {
    const auto name = [&](std::size_t stack) { return found.NameOf(slices[geometry.stacks[stack].front()]); };
    return "gap of " + ShortNumber(gap.length) + " mm instead of " + ShortNumber(geometry.usualGap) + " mm between " +
           name(gap.index) + " and " + name(gap.index + 1);
}

class Planner {
public:
    Planner(const SeriesVolume& series, const ExportFormat& format)
        : m_Series(series), m_Format(format), m_Sets(series.GetSets().volumes) {
        m_bSeveral = m_Sets.size() > 1 && !series.IsVolumeChosen();
        if (m_bSeveral) {
            m_Plan.found.push_back("repeated positions: " + std::to_string(m_Sets.size()) + " volumes, told apart by " +
                                   series.GetSets().order);
        }
    }

    ExportPlan Keep() {
        AddFirst();
        if (m_bSeveral && m_Format.HoldsTimes()) KeepTimes();
        if (m_bSeveral) Do("took volume 1; choose with --volume, or take all with --irregular split");
        KeepPlanes();
        return std::move(m_Plan);
    }

    ExportPlan Reject() {
        AddFirst();
        ThrowIfIrregular();
        return std::move(m_Plan);
    }

    /// Several volumes are no fault then: all of them are written.
    ExportPlan Every(Irregular policy) {
        m_Plan.found.clear();
        m_Plan.parts = GroupVolumes(m_Series, m_Format.HoldsTimes());
        for (const ExportPart& part : m_Plan.parts) {
            Judge(part.slices);
            TellMoved(part);
        }
        if (policy == Irregular::Reject) ThrowIfIrregular();
        if (policy == Irregular::Resample) {
            StraightenPlanes();
        } else {
            KeepPlanes();
        }
        return std::move(m_Plan);
    }

    ExportPlan Resample() {
        AddFirst();
        if (m_bSeveral) Do("took volume 1; choose with --volume");
        StraightenPlanes();
        return std::move(m_Plan);
    }

    ExportPlan Split() {
        const std::size_t only = static_cast<std::size_t>(m_Series.GetVolumeNumber()) - 1;
        for (std::size_t i = 0; i < m_Sets.size(); ++i) {
            if (m_bSeveral || i == only) SplitSet(i);
        }
        KeepPlanes();
        if (m_Plan.parts.size() < 2) return std::move(m_Plan);
        for (std::size_t i = 0; i < m_Plan.parts.size(); ++i) m_Plan.parts[i].suffix = "-" + std::to_string(i + 1);
        Do("split into " + std::to_string(m_Plan.parts.size()) + " outputs");
        return std::move(m_Plan);
    }

private:
    void ThrowIfIrregular() const {
        if (m_Plan.found.empty()) return;
        std::string text = m_Series.GetHeader().path + ": irregular series rejected";
        for (const std::string& found : m_Plan.found) text += "; " + found;
        throw Error(ErrorKind::Irregular, text).InFile(m_Series.GetHeader().path);
    }

    void Do(const std::string& what) { m_Plan.done += (m_Plan.done.empty() ? "" : "; ") + what; }

    std::string NameOfSet(std::size_t set) const {
        return m_Sets.size() > 1 ? "volume " + std::to_string(set + 1) + " of " + std::to_string(m_Sets.size()) : "";
    }

    SeriesGeometry Judge(const std::vector<SliceRef>& slices) {
        SeriesGeometry geometry = m_Series.GetFound().GeometryOf(slices);
        for (const SeriesGeometry::Gap& gap : geometry.uneven) {
            m_Plan.found.push_back(DescribeGap(m_Series.GetFound(), slices, geometry, gap));
        }
        if (geometry.uneven.empty() && IsUneven(geometry)) {
            m_Plan.found.push_back("planes up to " + ShortNumber(geometry.offEven) + " mm beside evenly spaced ones");
        }
        m_bGaps = m_bGaps || IsUneven(geometry);
        const std::array<double, 2>& pixel = m_Series.GetFound().SizedPlaceOf(slices).spacing;
        if (IsSheared(geometry, std::min(pixel[0], pixel[1]))) {
            m_Plan.found.push_back("planes up to " + ShortNumber(geometry.sideways) + " mm sideways of each other, " +
                                   ShortNumber(geometry.tilt) + " degrees off their normal");
            m_bSheared = true;
        }
        m_OffEven = std::max(m_OffEven, geometry.offEven);
        m_Sideways = std::max(m_Sideways, geometry.sideways);
        m_OffLine = std::max(m_OffLine, geometry.shift);
        return geometry;
    }

    void StraightenPlanes() {
        if (m_bGaps) Do("resampled along z to evenly spaced planes");
        if (m_bSheared) Do("moved the rows within the planes, so that the volume is straight");
        m_Plan.resample = {m_bGaps, m_bSheared};
    }

    /// What a file of the planes as they are gets wrong.
    void KeepPlanes() {
        if (m_Format.HoldsPlanes()) {
            if (m_bSheared || (m_bGaps && !m_bCut)) Do("kept the planes as they are, each in its place");
            return;
        }
        if (m_bGaps && !m_bCut) {
            Err(FindingKind::PlanesMoved, {m_OffEven},
                "kept the planes as they are; the header has one distance for all, their mean: they lie up to " +
                    ShortNumber(m_OffEven) + " mm beside their places");
        }
        if (!m_bSheared) return;
        const std::string sheared =
            "kept the planes as they are: the file is sheared by " + ShortNumber(m_Sideways) + " mm";
        if (!m_Format.HoldsTilt()) {
            Err(FindingKind::FileSheared, {m_Sideways, m_Sideways}, sheared);
        } else if (m_OffLine > kOnLine) {
            Err(FindingKind::FileSheared, {m_Sideways, m_OffLine},
                sheared + ", and planes lie up to " + ShortNumber(m_OffLine) + " mm beside where its header says");
        } else {
            Err(FindingKind::FileSheared, {m_Sideways, 0}, sheared + ", as its header says");
        }
    }

    void Err(FindingKind kind, std::vector<double> lengths, const std::string& text) {
        m_Plan.errors.push_back({.kind = kind, .lengths = std::move(lengths), .text = text});
        Do(text);
    }

    /// Echoes are no times: their images mean different things.
    void KeepTimes() {
        const bool complete = std::all_of(m_Sets.begin(), m_Sets.end(), [this](const std::vector<SliceRef>& set) {
            return set.size() == m_Sets.front().size();
        });
        if (!complete || m_Series.GetSets().order.find("echo") != std::string::npos) return;
        m_Plan.parts.front().what =
            std::to_string(m_Sets.size()) + " volumes, told apart by " + m_Series.GetSets().order;
        m_Plan.parts.front().later.assign(m_Sets.begin() + 1, m_Sets.end());
        m_Plan.found.erase(m_Plan.found.begin());  // the line on positions that repeat: as times they are no fault
        m_bSeveral = false;
        TellMoved(m_Plan.parts.front());
    }

    void TellMoved(const ExportPart& part) {
        const double apart = FindLargestMove(part);
        if (apart <= kOnLine) return;
        m_Plan.found.push_back("volumes that lie beside each other");
        Err(FindingKind::PlanesMoved, {apart},
            "the file has the positions of its first volume; the others lie up to " + ShortNumber(apart) +
                " mm beside it");
    }

    /// Of the planes of later volumes against those of the first.
    double FindLargestMove(const ExportPart& part) const {
        double largest = 0;
        const std::vector<std::array<double, 3>> first = PositionsOf(part.slices);
        for (const auto& set : part.later) {
            const std::vector<std::array<double, 3>> other = PositionsOf(set);
            for (std::size_t k = 0; k < std::min(first.size(), other.size()); ++k) {
                largest = std::max(largest, std::hypot(other[k][0] - first[k][0], other[k][1] - first[k][1],
                                                       other[k][2] - first[k][2]));
            }
        }
        return largest;
    }

    std::vector<std::array<double, 3>> PositionsOf(const std::vector<SliceRef>& set) const {
        std::vector<std::array<double, 3>> positions;
        for (const auto& stack : m_Series.GetFound().GeometryOf(set).stacks) {
            positions.push_back(m_Series.GetFound().PlaceOf(set[stack.front()]).position);
        }
        return positions;
    }

    void AddFirst() {
        const std::size_t set = static_cast<std::size_t>(m_Series.GetVolumeNumber()) - 1;
        Judge(m_Sets[set]);
        m_Plan.parts.push_back({"", NameOfSet(set), m_Sets[set]});
    }

    void SplitSet(std::size_t set) {
        const SeriesGeometry geometry = Judge(m_Sets[set]);
        m_bCut = true;
        if (geometry.uneven.empty()) {
            m_Plan.parts.push_back({"", NameOfSet(set), m_Sets[set]});
            return;
        }
        const std::string name = NameOfSet(set);
        for (const auto& [first, last] : EvenRuns(geometry.along)) {
            std::vector<std::size_t> members;
            for (std::size_t stack = first; stack <= last; ++stack) {
                members.insert(members.end(), geometry.stacks[stack].begin(), geometry.stacks[stack].end());
            }
            std::sort(members.begin(), members.end());
            ExportPart part{"", name.empty() ? "" : name + ", ", {}};
            part.what += (first == last ? "plane " : "planes " + std::to_string(first + 1) + " to ") +
                         std::to_string(last + 1) + " of " + std::to_string(geometry.stacks.size());
            for (const std::size_t index : members) part.slices.push_back(m_Sets[set][index]);
            m_Plan.parts.push_back(std::move(part));
        }
    }

    const SeriesVolume& m_Series;
    const ExportFormat& m_Format;
    const std::vector<std::vector<SliceRef>>& m_Sets;
    bool m_bSeveral = false;
    bool m_bGaps = false;
    bool m_bCut = false;  // into even runs
    bool m_bSheared = false;
    double m_OffEven = 0;
    double m_Sideways = 0;
    double m_OffLine = 0;
    ExportPlan m_Plan;
};

}  // namespace

ExportPlan MakePlan(const SeriesVolume& series, Irregular policy, const ExportFormat& format, bool every) {
    Planner planner(series, format);
    if (every && policy != Irregular::Split && !series.IsVolumeChosen()) return planner.Every(policy);
    switch (policy) {
    case Irregular::Reject: return planner.Reject();
    case Irregular::Resample: return planner.Resample();
    case Irregular::Split: return planner.Split();
    case Irregular::Keep: break;
    }
    return planner.Keep();
}

EvenPlanes::~EvenPlanes() {
    if (m_pEven != nullptr) m_pEven->Delete();
}

void EvenPlanes::PutInto(SeriesVolume& series, Resampling how, std::optional<double> fill, const Watch& watch) {
    if (how.sideways || series.GetPadding()) {  // which the reformatter does not know
        Straighten(series, how.along, fill, watch);
    } else {
        Resample(series, watch);
    }
    watch.StopIfAsked();
    series.DropPixels();
    Replace(series.GetAssembled());
}

/// Blocks of the result on all threads; a part of them is small enough for a stop to be soon seen.
void EvenPlanes::Resample(SeriesVolume& series, const Watch& watch) {
    constexpr int kParts = 64;
    CVolumeReformatter reformatter;
    const int planes = reformatter.GetPlaneCount(series.GetVolume(), VP_XY);
    const auto run = [&](int blocks, const CVolumeReformatter::Work& work) {
        TaskProgress progress(watch, "resampling", planes);
        const int parts = std::min(blocks, kParts);
        const auto startOf = [parts](int part, int count) {
            return static_cast<int>(std::int64_t{count} * part / parts);
        };
        const auto make = [&](std::size_t i) {
            const int part = static_cast<int>(i);
            work(startOf(part, blocks), startOf(part + 1, blocks));
        };
        const auto take = [&](std::size_t i) {
            const int part = static_cast<int>(i);
            progress.Step(startOf(part + 1, planes) - startOf(part, planes));
        };
        ForEachInOrder(series.GetJobs(), static_cast<std::size_t>(parts), static_cast<std::size_t>(parts), watch, make,
                       take);
        return true;
    };
    m_pEven = reformatter.ReformatInBlocks(series.GetVolume(), VP_XY, false, false, run);
    watch.StopIfAsked();
    if (m_pEven == nullptr) {
        throw Error(ErrorKind::Unsupported, "cannot resample the volume: " + reformatter.GetError());
    }
}

void EvenPlanes::Straighten(SeriesVolume& series, bool along, std::optional<double> fill, const Watch& watch) {
    constexpr int kPlanes = 4;  // that a thread takes at a time
    const auto run = [&](int planes, const StraightenWork& work) {
        ForEach(series.GetJobs(), static_cast<std::size_t>((planes + kPlanes - 1) / kPlanes), watch,
                [&](std::size_t i) {
                    const int first = static_cast<int>(i) * kPlanes;
                    work(first, std::min(first + kPlanes, planes));
                });
    };
    StraightenReport report;
    m_pEven = StraightenStackInBlocks(
        series.GetVolume(),
        {.m_Fill = fill, .m_bEvenZ = along, .m_Stop = watch.GetStopQuestion(), .m_Padding = series.GetPadding()},
        report, run);
    watch.StopIfAsked();
    if (m_pEven == nullptr) {
        throw Error(ErrorKind::Unsupported, "cannot straighten the volume: " + report.m_Error);
    }
    m_Filled = report.m_nFilled;
    m_Fill = report.m_Fill;
}

void EvenPlanes::Replace(CDicomVolume& assembled) const {
    CVolume& volume = *assembled.GetVolume();
    int dim[4];
    float space[4];
    float origin[4];
    float orientation[2][3];
    m_pEven->GetDimensions(dim);
    m_pEven->GetSpacing(space);
    m_pEven->GetOrigin(origin);
    m_pEven->GetOrientation(orientation);
    volume.Init(m_pEven->GetType(), dim[0], dim[1], dim[2], dim[3]);
    for (int k = 0; k < dim[2]; ++k) {
        const CImagePlane& from = *m_pEven->GetPlane(k);
        CImagePlane& to = *volume.GetPlane(k);
        to.Alloc(from.m_pData);
        std::copy(std::begin(from.m_Org), std::end(from.m_Org), std::begin(to.m_Org));
    }
    volume.SetSpacing(space);
    volume.SetOrigin(origin);
    volume.SetOrientation(orientation);
    volume.SetMin(m_pEven->GetMin());
    volume.SetMax(m_pEven->GetMax());
    volume.UpdateZInterpArray();
    std::vector<DICOMDataObject*>& dataSets = assembled.GetDDOList();
    const double thickness = static_cast<double>(space[2]);
    PutReals(*dataSets.front(), tags::SliceThickness, &thickness, 1);
    dataSets.assign(static_cast<std::size_t>(dim[2]), dataSets.front());
}

}  // namespace korvane
