#include "CVolumeReformatter.h"

#include "PatientFrame.h"
#include "ReformatSource.h"
#include "StackStraightener.h"
#include "VolumePermuter.h"
#include "ZSampler.h"
#include "volume/CPercent.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <optional>
#include <stdexcept>

namespace {

using namespace korvane_detail;

// What is known of the work before any voxel is moved.
class Plan {
public:
    // Null, or why there is none. Throws `std::length_error`.
    const char* Make(CVolume& source, VolumePlane plane, CVolumeReformatter::ZSampling sampling);
    void Flip(bool flip1, bool flip2);

    int GetPlaneCount() const { return m_Dim[2]; }
    VolumePointer MakeResult(CVolume& source, bool contig) const;
    /// The volume whose voxels are to be moved: the source, or a straight one made of it, which `straight` then holds.
    CVolume& Straighten(CVolume& source, VolumePointer& straight);
    VolumePermuter MakePermuter(CVolume& source, CVolume& result, bool wide) const;

private:
    void Place(CVolume& source, CVolume& result) const;
    Triple GetFirstPoint(int plane) const;

    PatientFrame m_Frame;
    ZSampler m_Sampler;
    std::optional<StackStraightener> m_Straightener;  // of a tilted stack, where planes are not to stay planes
    ZSampler m_StraightSampler;
    ViewTurn m_Turn;
    double m_RawSpace[3] = {1, 1, 1};
    int m_RawDim[3] = {0, 0, 0};
    int m_Dim[3] = {0, 0, 0};  // of the result
    Triple m_Row = {1, 0, 0};  // of the result
    Triple m_Column = {0, 1, 0};
};

const char* Plan::Make(CVolume& source, VolumePlane plane, CVolumeReformatter::ZSampling sampling) {
    if (!FindViewAxes(plane, m_Turn.m_Axes)) {
        return "no view plane";
    }
    if (const char* failure = ReadReformatSource(source, m_Sampler, m_Frame)) {
        return failure;
    }
    using R = CVolumeReformatter;
    if (sampling == R::ZS_ALWAYS || (sampling != R::ZS_NEVER && !m_Sampler.IsEven())) {
        m_Sampler.UseTable(source);
    }
    int dim[4];
    float space[4];
    source.GetDimensions(dim);
    source.GetSpacing(space);
    for (int axis = 0; axis < 2; ++axis) {
        m_RawDim[axis] = dim[axis];
        m_RawSpace[axis] = space[axis];
    }
    if (m_Turn.m_Axes.m_Slice != 2 && !m_Sampler.IsUpright()) {
        m_Straightener.emplace(source, m_Sampler);
        std::copy_n(m_Straightener->GetCanvas().m_Count, 2, m_RawDim);
    }
    m_RawDim[2] = static_cast<int>(m_Sampler.GetSamples().size());
    m_RawSpace[2] = m_Sampler.GetSpacing();
    ReorderForView(plane, m_RawDim, m_Dim);
    return nullptr;
}

// Chooses the order of the planes by which row x column of the result points as it must: against the planes where z
// ascends.
void Plan::Flip(bool flip1, bool flip2) {
    m_Row = Times(m_Frame.GetAxis(m_Turn.m_Axes.m_Horizontal), flip1 ? -1 : 1);
    m_Column = Times(m_Frame.GetAxis(m_Turn.m_Axes.m_Vertical), flip2 ? -1 : 1);
    const bool alongNormal = Dot(Cross(m_Row, m_Column), m_Frame.GetAxis(m_Turn.m_Axes.m_Slice)) > 0;
    m_Turn.m_Flips[0] = flip1;
    m_Turn.m_Flips[1] = flip2;
    m_Turn.m_Flips[2] = alongNormal != m_Frame.m_bDescending;
}

VolumePointer Plan::MakeResult(CVolume& source, bool contig) const {
    VolumePointer result(CVolume::New());
    result->Init(source.GetType(), m_Dim[0], m_Dim[1], m_Dim[2], 1);
    result->Alloc(contig);
    result->SetMin(source.GetMin());
    result->SetMax(source.GetMax());
    Place(source, *result);
    result->UpdateZInterpArray();
    return result;
}

void Plan::Place(CVolume& source, CVolume& result) const {
    float space[4];
    float origin[4];
    source.GetSpacing(space);
    source.GetOrigin(origin);
    const Triple normal = Cross(m_Row, m_Column);
    const Triple first = GetFirstPoint(0);
    double rawSpace[3];
    const ViewAxes& axes = m_Turn.m_Axes;
    rawSpace[0] = m_RawSpace[axes.m_Horizontal];
    rawSpace[1] = m_RawSpace[axes.m_Vertical];
    rawSpace[2] = m_RawSpace[axes.m_Slice];
    float orientation[2][3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        space[axis] = static_cast<float>(rawSpace[axis]);
        origin[axis] = static_cast<float>(first[axis]);
        orientation[0][axis] = static_cast<float>(m_Row[axis]);
        orientation[1][axis] = static_cast<float>(m_Column[axis]);
    }
    result.SetSpacing(space);
    result.SetOrigin(origin);
    result.SetOrientation(orientation);
    for (int k = 0; k < m_Dim[2]; ++k) {
        const Triple offset = Plus(GetFirstPoint(k), Times(first, -1));
        float* const org = result.GetPlane(k)->m_Org;
        org[0] = static_cast<float>(Dot(offset, m_Row) + first[0]);
        org[1] = static_cast<float>(Dot(offset, m_Column) + first[1]);
        org[2] = static_cast<float>(-(Dot(offset, normal) + first[2]));
    }
}

// Where in the patient the first voxel of a plane of the result lies.
Triple Plan::GetFirstPoint(int plane) const {
    const int axes[3] = {m_Turn.m_Axes.m_Horizontal, m_Turn.m_Axes.m_Vertical, m_Turn.m_Axes.m_Slice};
    const int along[3] = {0, 0, plane};
    int index[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i) {
        index[axes[i]] = m_Turn.m_Flips[i] ? m_RawDim[axes[i]] - 1 - along[i] : along[i];
    }
    const ZSample& sample = m_Sampler.GetSamples()[static_cast<std::size_t>(index[2])];
    const double x = m_Straightener ? m_Straightener->GetCanvas().m_First[0] : sample.m_X;
    const double y = m_Straightener ? m_Straightener->GetCanvas().m_First[1] : sample.m_Y;
    return m_Frame.GetPoint(x + index[0] * m_RawSpace[0], y + index[1] * m_RawSpace[1], sample.m_Z);
}

CVolume& Plan::Straighten(CVolume& source, VolumePointer& straight) {
    if (!m_Straightener) {
        return source;
    }
    straight = m_Straightener->Make(FindLowestVoxel(source), {});
    m_StraightSampler.Read(*straight);
    return *straight;
}

VolumePermuter Plan::MakePermuter(CVolume& source, CVolume& result, bool wide) const {
    return VolumePermuter(source, result, m_Straightener ? m_StraightSampler : m_Sampler, m_Turn, wide);
}

// False when the callback asks to stop.
bool MoveVoxels(VolumePermuter& permuter, int planes, CPercent* callback) {
    const int steps = permuter.GetSteps();
    int told = 0;
    for (int step = 0; step < steps; ++step) {
        permuter.DoStep(step);
        const std::int64_t done = std::int64_t{planes} * (step + 1) / steps;
        for (; callback != nullptr && told < done; ++told) {
            if (callback->FireProgress(1)) {
                return false;
            }
        }
    }
    VolumePermuter::Finish();
    return true;
}

constexpr char kTooLarge[] = "out of memory";
constexpr char kTooLong[] = "volume too long for its voxel size";

}  // namespace

CVolumeReformatter::CVolumeReformatter() = default;
CVolumeReformatter::CVolumeReformatter(const CVolumeReformatter& other) = default;
CVolumeReformatter& CVolumeReformatter::operator=(const CVolumeReformatter& other) = default;
CVolumeReformatter::~CVolumeReformatter() = default;

int CVolumeReformatter::GetPlaneCount(CVolume& source, VolumePlane plane) {
    m_Error.clear();
    try {
        Plan plan;
        if (const char* failure = plan.Make(source, plane, m_ZSampling)) {
            m_Error = failure;
            return 0;
        }
        return plan.GetPlaneCount();
    } catch (const std::bad_alloc&) {
        m_Error = kTooLarge;
    } catch (const std::length_error&) {
        m_Error = kTooLong;
    }
    return 0;
}

CVolume* CVolumeReformatter::Reformat(CVolume& source, VolumePlane plane, bool flip1, bool flip2) {
    return Make(source, plane, flip1, flip2, [this](const Plan& plan, CVolume& from, CVolume& result) {
        VolumePermuter permuter = plan.MakePermuter(from, result, m_bWide);
        return MoveVoxels(permuter, plan.GetPlaneCount(), m_pCallback);
    });
}

CVolume* CVolumeReformatter::ReformatInBlocks(CVolume& source, VolumePlane plane, bool flip1, bool flip2,
                                              const Run& run) {
    return Make(source, plane, flip1, flip2, [&](const Plan& plan, CVolume& from, CVolume& result) {
        const auto work = [&](int first, int end) {
            VolumePermuter permuter = plan.MakePermuter(from, result, m_bWide);
            for (int step = first; step < end; ++step) permuter.DoStep(step);
            VolumePermuter::Finish();
        };
        return run(plan.MakePermuter(from, result, m_bWide).GetSteps(), work);
    });
}

// `move` fills the result; false where it was stopped.
template <typename Move>
CVolume* CVolumeReformatter::Make(CVolume& source, VolumePlane plane, bool flip1, bool flip2, Move move) {
    m_Error.clear();
    try {
        Plan plan;
        if (const char* failure = plan.Make(source, plane, m_ZSampling)) {
            m_Error = failure;
            return nullptr;
        }
        plan.Flip(flip1, flip2);
        VolumePointer result = plan.MakeResult(source, m_bContig);
        VolumePointer straight;
        if (move(plan, plan.Straighten(source, straight), *result)) {
            return result.release();
        }
        m_Error = "stopped";
    } catch (const std::bad_alloc&) {
        m_Error = kTooLarge;
    } catch (const std::length_error&) {
        m_Error = kTooLong;
    }
    return nullptr;
}
