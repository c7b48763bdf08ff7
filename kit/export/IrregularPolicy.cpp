#include "IrregularPolicy.h"

#include "../core/Error.h"
#include "../study/SeriesGeometry.h"
#include "../study/SeriesVolume.h"
#include "../study/SeriesWarnings.h"

#include "slicing/CVolumeReformatter.h"
#include "volume/CImagePlane.h"

#include <algorithm>

namespace korvane {

namespace {

SeriesGeometry StudySlices(const FoundFiles& found, const std::vector<SliceRef>& slices) {
    std::vector<FramePlace> places;
    places.reserve(slices.size());
    for (const SliceRef& slice : slices) places.push_back(found.PlaceOf(slice));
    return StudyGeometry(places);
}

std::string DescribeGap(const FoundFiles& found, const std::vector<SliceRef>& slices, const SeriesGeometry& geometry,
                        const SeriesGeometry::Gap& gap) {
    const auto name = [&](std::size_t stack) { return found.NameOf(slices[geometry.stacks[stack].front()]); };
    return "gap of " + ShortNumber(gap.length) + " mm instead of " + ShortNumber(geometry.usualGap) + " mm between " +
           name(gap.index) + " and " + name(gap.index + 1);
}

class Planner {
public:
    explicit Planner(const SeriesVolume& series) : m_Series(series), m_Sets(series.GetSets().volumes) {
        m_bSeveral = m_Sets.size() > 1 && !series.IsVolumeChosen();
        if (m_bSeveral) {
            m_Plan.found.push_back("repeated positions: " + std::to_string(m_Sets.size()) + " volumes, told apart by " +
                                   series.GetSets().order);
        }
    }

    ExportPlan Keep(bool times) {
        AddFirst();
        if (m_bSeveral && times) KeepTimes();
        if (m_bSeveral) Do("took volume 1; choose with --volume, or take all with --irregular split");
        if (m_bGaps) Do("kept the planes as they are; the header has one distance for all, their mean");
        return std::move(m_Plan);
    }

    ExportPlan Reject() {
        AddFirst();
        if (m_Plan.found.empty()) return std::move(m_Plan);
        std::string text = m_Series.GetHeader().path + ": irregular series rejected";
        for (const std::string& found : m_Plan.found) text += "; " + found;
        throw Error(ErrorKind::Irregular, text).InFile(m_Series.GetHeader().path);
    }

    ExportPlan Resample() {
        AddFirst();
        if (m_bSeveral) Do("took volume 1; choose with --volume");
        if (m_bGaps) Do("resampled along z to evenly spaced planes");
        m_Plan.resample = m_bGaps;
        return std::move(m_Plan);
    }

    ExportPlan Split() {
        const std::size_t only = static_cast<std::size_t>(m_Series.GetVolumeNumber()) - 1;
        for (std::size_t i = 0; i < m_Sets.size(); ++i) {
            if (m_bSeveral || i == only) SplitSet(i);
        }
        if (m_Plan.parts.size() < 2) return std::move(m_Plan);
        for (std::size_t i = 0; i < m_Plan.parts.size(); ++i) m_Plan.parts[i].suffix = "-" + std::to_string(i + 1);
        Do("split into " + std::to_string(m_Plan.parts.size()) + " outputs");
        return std::move(m_Plan);
    }

private:
    void Do(const std::string& what) { m_Plan.done += (m_Plan.done.empty() ? "" : "; ") + what; }

    std::string NameOfSet(std::size_t set) const {
        return m_Sets.size() > 1 ? "volume " + std::to_string(set + 1) + " of " + std::to_string(m_Sets.size()) : "";
    }

    SeriesGeometry Judge(std::size_t set) {
        SeriesGeometry geometry = StudySlices(m_Series.GetFound(), m_Sets[set]);
        for (const SeriesGeometry::Gap& gap : geometry.uneven) {
            m_Plan.found.push_back(DescribeGap(m_Series.GetFound(), m_Sets[set], geometry, gap));
        }
        m_bGaps = m_bGaps || !geometry.uneven.empty();
        return geometry;
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
        m_Plan.found.clear();
        m_bSeveral = false;
    }

    void AddFirst() {
        const std::size_t set = static_cast<std::size_t>(m_Series.GetVolumeNumber()) - 1;
        Judge(set);
        m_Plan.parts.push_back({"", NameOfSet(set), m_Sets[set]});
    }

    void SplitSet(std::size_t set) {
        const SeriesGeometry geometry = Judge(set);
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
    const std::vector<std::vector<SliceRef>>& m_Sets;
    bool m_bSeveral = false;
    bool m_bGaps = false;
    ExportPlan m_Plan;
};

}  // namespace

ExportPlan MakePlan(const SeriesVolume& series, Irregular policy, bool times) {
    Planner planner(series);
    switch (policy) {
    case Irregular::Reject: return planner.Reject();
    case Irregular::Resample: return planner.Resample();
    case Irregular::Split: return planner.Split();
    case Irregular::Keep: break;
    }
    return planner.Keep(times);
}

EvenPlanes::~EvenPlanes() {
    if (m_pEven != nullptr) m_pEven->Delete();
}

void EvenPlanes::PutInto(CDicomVolume& assembled, const Watch& watch) {
    CVolume& volume = *assembled.GetVolume();
    CVolumeReformatter reformatter;
    {
        TaskProgress progress(watch, "resampling", reformatter.GetPlaneCount(volume, VP_XY));
        reformatter.SetCallback(&progress);
        m_pEven = reformatter.Reformat(volume, VP_XY, false, false);
    }
    watch.StopIfAsked();
    if (m_pEven == nullptr) {
        throw Error(ErrorKind::Unsupported, "cannot resample the volume: " + reformatter.GetError());
    }
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
