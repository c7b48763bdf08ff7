#include "ScanFacts.h"

#include "../dataset/DataSetFile.h"
#include "../study/FrameGroups.h"

#include "base/Number.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace korvane {

namespace {

// Entries of `FrameKeys`.
constexpr std::size_t kBValue = 12;
constexpr std::size_t kGradient = 13;
constexpr std::size_t kTriggerTime = 18;      // milliseconds
constexpr std::size_t kAcquisitionTime = 19;  // seconds
constexpr double kHalfDay = 43200;

const DICOMObject* FirstGroups(const DICOMDataObject& dataSet) {
    const VR* const groups = FindElement(dataSet, tags::PerFrameFunctionalGroupsSequence);
    return groups != nullptr && groups->GetItemCount() > 0 ? groups->GetItem(0) : nullptr;
}

double NumberOf(const std::string& text) {
    double value = 0;
    return platform::ScanReals(text, &value, 1) == 1 && std::isfinite(value) ? value : 0;
}

double Dot(const Vector3& a, const Vector3& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Vector3 Cross(const Vector3& a, const Vector3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// The slice behind each plane; none where planes are not one for one with slices.
std::vector<SliceRef> SlicesOfPlanes(SeriesVolume& series) {
    std::vector<SliceRef> planes;
    const std::vector<SliceRef>& slices = series.GetSlices();
    if (static_cast<std::size_t>(series.GetVolume().GetPlaneCount()) != slices.size()) return planes;
    for (const int index : series.GetAssembled().m_SliceToIndex)
        planes.push_back(slices.at(static_cast<std::size_t>(index)));
    return planes.size() == slices.size() ? planes : std::vector<SliceRef>();
}

/// From the earliest; none where one is missing, where all are the same, or where they span more than a volume takes.
std::vector<double> FromEarliest(std::vector<double> times, double repetitionTime) {
    if (times.size() < 2) return {};
    for (const double time : times) {
        if (!std::isfinite(time)) return {};
    }
    const double latest = *std::max_element(times.begin(), times.end());
    for (double& time : times) {
        if (latest - time > kHalfDay) time += 2 * kHalfDay;  // past midnight
    }
    const double first = *std::min_element(times.begin(), times.end());
    for (double& time : times) time = std::round((time - first) * 1e6) / 1e6;
    const double span = *std::max_element(times.begin(), times.end());
    const bool fits = repetitionTime <= 0 || span < repetitionTime * 1.001;
    return span > 0 && fits ? times : std::vector<double>();
}

class Reader {
public:
    Reader(SeriesVolume& series, const ExportPart& part, const Vector3& step, const Watch& watch)
        : m_Series(series), m_Part(part), m_Step(step), m_Watch(watch), m_Planes(SlicesOfPlanes(series)) {}

    ScanFacts Read() {
        const SliceRef first = m_Planes.empty() ? m_Part.slices.front() : m_Planes.front();
        m_Facts.header = ReadHeader(first);
        m_Facts.acquisition = ReadPrivateAcquisition(*m_Facts.header, FirstGroups(*m_Facts.header));
        m_Facts.repetitionTime =
            NumberOf(TextOfScan(m_Facts, tags::MRTimingAndRelatedParametersSequence, tags::RepetitionTime)) / 1000;
        ReadPhase();
        m_Facts.measuredInterval = MeasureInterval();
        m_Facts.sliceTimes = FromEarliest(ReadTimes(), m_Facts.repetitionTime);
        ReadWeightings();
        return std::move(m_Facts);
    }

private:
    FrameKeys KeysOf(const SliceRef& slice) const { return m_Series.GetFound().KeysOf(slice); }

    /// Of functional groups it has those of the slice alone, as if it were the first frame.
    std::unique_ptr<DICOMDataObject> ReadHeader(const SliceRef& slice) const {
        const KeptGroups groups = KeptGroups::OfFrame(std::max(slice.frame, 0));
        DataSetFile file = ReadDataSetFile(m_Series.GetFound().files[slice.file].GetFile(), kStopBeforePixelData,
                                           m_Watch, {}, 0, groups);
        if (file.dataSet == nullptr) file.dataSet = std::make_unique<DICOMDataObject>();  // it has gone meanwhile
        return std::move(file.dataSet);
    }

    void ReadPhase() {
        const std::string direction =
            TextOfScan(m_Facts, tags::MRFOVGeometrySequence, tags::InPlanePhaseEncodingDirection);
        if (direction.starts_with("COL")) m_Facts.phaseAxis = 1;
        if (direction.starts_with("ROW")) m_Facts.phaseAxis = 0;
        if (m_Facts.phaseAxis < 0) return;
        const PixelForm& form = m_Series.GetHeader().form;
        m_Facts.phaseSize = m_Facts.phaseAxis == 1 ? form.rows : form.columns;
        m_Facts.phasePositive = m_Facts.acquisition.phasePositive;
    }

    /// The clock of a volume's earliest slice; NaN where one has none.
    double StartOf(const std::vector<SliceRef>& slices) const {
        double start = KeysOf(slices.front()).values[kAcquisitionTime];
        for (const SliceRef& slice : slices) start = std::min(start, KeysOf(slice).values[kAcquisitionTime]);
        return start;
    }

    double MeasureInterval() const {
        if (m_Part.later.empty()) return 0;
        const double span = StartOf(m_Part.later.back()) - StartOf(m_Part.slices);
        return span > 0 ? span / static_cast<double>(m_Part.later.size()) : 0;
    }

    std::vector<double> ReadTimes() const {
        if (m_Planes.empty() || m_Series.GetHeader().common->modality != "MR") return {};
        std::vector<double> times;
        const ImageHeader& header = m_Series.GetHeader();
        if (header.IsTiled()) {
            const std::vector<double>& ofTiles = m_Facts.acquisition.sliceTimes;
            for (const SliceRef& plane : m_Planes) {
                const auto tile = static_cast<std::size_t>(std::max(plane.frame, 0));
                times.push_back(tile < ofTiles.size() ? ofTiles[tile] : FrameKeys::kNone);
            }
            return times;
        }
        // Of 3-D acquisitions and of spin echoes the clocks of slices say nothing about each volume.
        if (!TextOfScan(m_Facts, tags::MRTimingAndRelatedParametersSequence, tags::SequenceVariant).empty() &&
            !IsEchoPlanar())
            return {};
        return IsEchoPlanar() ? ReadClocks() : times;
    }

    bool IsEchoPlanar() const {
        return FindText(*m_Facts.header, tags::ScanningSequence).starts_with("EP") ||
               FindText(*m_Facts.header, tags::EchoPlanarPulseSequence) == "YES";
    }

    /// Of slices with clocks of their own; GE's are in Trigger Time, where the first volume is no steady one.
    std::vector<double> ReadClocks() const {
        const std::vector<SliceRef>& ofSecond = m_Part.later.empty() ? m_Part.slices : m_Part.later.front();
        const bool triggered = !std::isnan(KeysOf(m_Planes.front()).values[kTriggerTime]);
        std::vector<double> times;
        for (const SliceRef& plane : m_Planes) {
            const SliceRef* slice = &plane;
            if (triggered) {
                const Vector3& position = m_Series.GetFound().PlaceOf(plane).position;
                for (const SliceRef& other : ofSecond) {
                    if (m_Series.GetFound().PlaceOf(other).position == position) slice = &other;
                }
            }
            const double time = KeysOf(*slice).values[triggered ? kTriggerTime : kAcquisitionTime];
            times.push_back(triggered ? time / 1000 : time);
        }
        return times;
    }

    /// From the axes in which a maker gives directions to those of the file.
    Vector3 AlongFile(const Vector3& v, DiffusionFacts::Axes axes) const {
        const auto& o = m_Series.GetPlace().orientation;
        const Vector3 row = {o[0], o[1], o[2]};
        const Vector3 column = {o[3], o[4], o[5]};
        const Vector3 normal = Cross(row, column);
        const double towards = Dot(normal, m_Step) < 0 ? -1 : 1;
        switch (axes) {
        case DiffusionFacts::Axes::Patient: return {Dot(v, row), Dot(v, column), towards * Dot(v, normal)};
        case DiffusionFacts::Axes::Image: return {v[0], v[1], towards * v[2]};
        case DiffusionFacts::Axes::Gradients: break;
        }
        // Frequency, phase, slice. The gradients' own axes run against those of the image but for the slice's; in coronal
        // images the slice's does too, which is the same as turning the other two.
        const bool isCoronal = std::fabs(normal[1]) > std::max(std::fabs(normal[0]), std::fabs(normal[2]));
        const double down = isCoronal ? 1 : -1;
        if (m_Facts.phaseAxis != 0) return {-v[0], down * v[1], towards * v[2]};
        return {-v[1], -down * v[0], towards * v[2]};
    }

    void AddWeighting(const SliceRef& slice, DiffusionFacts::Axes axes) {
        const auto& values = KeysOf(slice).values;
        Weighting weighting;
        if (!std::isnan(values[kBValue])) weighting.bValue = values[kBValue];
        const Vector3 direction = {values[kGradient], values[kGradient + 1], values[kGradient + 2]};
        const double length = std::hypot(direction[0], direction[1], direction[2]);
        if (weighting.bValue > 0 && length > 0.5) {  // else NaN, or zeros for none
            weighting.direction = AlongFile(direction, axes);
            for (double& value : weighting.direction) value /= length;
        }
        m_Facts.weightings.push_back(weighting);
    }

    /// Of the first direction that there is: images without weighting say nothing of it.
    DiffusionFacts::Axes ReadAxes() const {
        const auto isDirected = [this](const std::vector<SliceRef>& slices) {
            const auto& values = KeysOf(slices.front()).values;
            return values[kBValue] > 0 && !std::isnan(values[kGradient]);
        };
        const std::vector<SliceRef>* slices = &m_Part.slices;
        if (!isDirected(*slices)) {
            const auto later = std::find_if(m_Part.later.begin(), m_Part.later.end(), isDirected);
            if (later == m_Part.later.end()) return DiffusionFacts::Axes::Patient;
            slices = &*later;
        }
        const auto header = ReadHeader(slices->front());
        const bool isStandard = FindElement(*header, tags::DiffusionGradientOrientation) != nullptr;
        return isStandard || HasFrameGroups(*header) ? DiffusionFacts::Axes::Patient
                                                     : ReadPrivateDiffusion(*header).axes;
    }

    void ReadWeightings() {
        const DiffusionFacts::Axes axes = ReadAxes();
        AddWeighting(m_Part.slices.front(), axes);
        for (const std::vector<SliceRef>& time : m_Part.later) AddWeighting(time.front(), axes);
        const bool any = std::any_of(m_Facts.weightings.begin(), m_Facts.weightings.end(),
                                     [](const Weighting& one) { return one.bValue > 0; });
        if (!any) m_Facts.weightings.clear();
    }

    SeriesVolume& m_Series;
    const ExportPart& m_Part;
    Vector3 m_Step;
    Watch m_Watch;
    std::vector<SliceRef> m_Planes;
    ScanFacts m_Facts;
};

}  // namespace

ScanFacts ReadScanFacts(SeriesVolume& series, const ExportPart& part, const Vector3& step, const Watch& watch) {
    return Reader(series, part, step, watch).Read();
}

std::string TextOfScan(const ScanFacts& facts, Tag group, Tag element) {
    const DICOMObject* const holder = FindHolder(*facts.header, 0, group, element);
    return holder != nullptr ? FindText(*holder, element) : std::string();
}

}  // namespace korvane
