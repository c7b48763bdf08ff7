#include "VolumeResampler.h"

#include "PatientFrame.h"
#include "PlaneOffsets.h"
#include "SlicePlan.h"
#include "StackStraightener.h"
#include "base/Integer.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <stdexcept>

namespace {

using namespace korvane_detail;

/// A map of points that keeps lines: where zero goes, and where the axes go from there.
struct AffineMap {
    Triple m_Zero;
    Triple m_Axes[3];

    Triple Turn(const Triple& v) const {
        return Plus(Plus(Times(m_Axes[0], v[0]), Times(m_Axes[1], v[1])), Times(m_Axes[2], v[2]));
    }
    Triple Move(const Triple& p) const { return Plus(m_Zero, Turn(p)); }
};

AffineMap ReadTransform(const FTransform& t) {
    AffineMap map;
    for (std::size_t i = 0; i < 3; ++i) {
        const int row = static_cast<int>(i);
        map.m_Zero[i] = t(row, 3);
        for (int column = 0; column < 3; ++column) map.m_Axes[column][i] = t(row, column);
    }
    return map;
}

/// Where the voxels of a grid lie in the patient.
class Grid {
public:
    /// Null, or why there is no grid.
    const char* Read(CVolume& volume) {
        volume.GetDimensions(m_Dim);
        volume.GetSpacing(m_Space);
        float origin[4];
        volume.GetOrigin(origin);
        if (*std::min_element(m_Dim, m_Dim + 3) < 1 || volume.GetPlaneCount() < m_Dim[2]) {
            return "grid without planes";
        }
        if (!(m_Space[0] > 0 && m_Space[1] > 0 && std::isfinite(m_Space[0] + m_Space[1]))) {
            return "grid with a spacing that is not positive";
        }
        if (!m_Frame.Read(volume)) {
            return "grid without directions";
        }
        const bool finite = m_Offsets.Read(volume) && std::isfinite(origin[0] + origin[1] + origin[2]) &&
                            std::isfinite(volume.GetPlane(0)->m_Org[2]);
        return finite ? nullptr : "grid with a position that is not finite";
    }

    int GetDimension(int axis) const { return m_Dim[axis]; }
    Triple GetStep(int axis) const { return Times(m_Frame.GetAxis(axis), m_Space[axis]); }
    Triple GetFirstPoint(CVolume& volume, int plane) const {
        const double z = volume.GetPlane(plane)->m_Org[2];
        const PlaneOffset offset = m_Offsets.At(z - volume.GetPlane(0)->m_Org[2]);
        return m_Frame.GetPoint(offset.m_X, offset.m_Y, z);
    }

private:
    int m_Dim[4] = {0, 0, 0, 0};
    float m_Space[4] = {1, 1, 1, 0};
    PatientFrame m_Frame;
    PlaneOffsets m_Offsets;
};

class Resampler {
public:
    /// Null, or why nothing can be sampled.
    const char* Read(CVolume& source, const FTransform& toSource, CVolume& grid) {
        m_Transform = ReadTransform(toSource);
        double sum = 0;
        for (const Triple& column :
             {m_Transform.m_Zero, m_Transform.m_Axes[0], m_Transform.m_Axes[1], m_Transform.m_Axes[2]})
            sum += column[0] + column[1] + column[2];
        if (!std::isfinite(sum)) {
            return "transform with elements that are not finite";
        }
        if (const char* failure = m_Grid.Read(grid)) {
            return failure;
        }
        if (!m_Frame.Read(source)) {
            return "volume without directions";
        }
        if (const char* failure = m_Tables.Read(source)) {
            return failure;
        }
        m_Corner = m_Frame.GetPoint(0, 0, source.GetPlane(0)->m_Org[2]);
        return nullptr;
    }

    void SamplePlane(CVolume& grid, int plane, const ResampleOptions& options, double background, unsigned char* out) {
        SliceGrid wanted = {{}, {}, {}, {}, m_Grid.GetDimension(0), m_Grid.GetDimension(1), 1};
        const Triple first = m_Transform.Move(m_Grid.GetFirstPoint(grid, plane));
        const Triple parts[3] = {m_Frame.ToAxes(Plus(first, Times(m_Corner, -1))),
                                 m_Frame.ToAxes(m_Transform.Turn(m_Grid.GetStep(0))),
                                 m_Frame.ToAxes(m_Transform.Turn(m_Grid.GetStep(1)))};
        std::copy_n(parts[0].begin(), 3, wanted.m_Origin);
        std::copy_n(parts[1].begin(), 3, wanted.m_PerPixel);
        std::copy_n(parts[2].begin(), 3, wanted.m_PerRow);
        SlicePlan plan(m_Tables);
        if (options.m_bAreaAverage) {
            wanted.m_Across = plan.CountParts(wanted.m_PerPixel);
            wanted.m_Down = plan.CountParts(wanted.m_PerRow);
        }
        plan.SetGrid(wanted);
        plan.SetKernel(static_cast<Sampling>(options.m_Interpolation), true);
        plan.SetBackground(background);
        if (wanted.m_Across > 1 || wanted.m_Down > 1) plan.SetSlab(SlabRow::kMean);
        const std::size_t rowBytes =
            static_cast<std::size_t>(wanted.m_Width) * static_cast<std::size_t>(m_Tables.GetView().m_Size);
        for (int row = 0; row < wanted.m_Height; row += SlicePlan::kBand) {
            plan.SampleRows(row, std::min(SlicePlan::kBand, wanted.m_Height - row),
                            out + static_cast<std::size_t>(row) * rowBytes);
        }
    }

private:
    AffineMap m_Transform;
    Grid m_Grid;
    PatientFrame m_Frame;  // of the source
    Triple m_Corner = {0, 0, 0};
    SliceTables m_Tables;
};

VolumePointer MakeLike(CVolume& grid, CVolume& source, bool contig) {
    int dim[4];
    float four[4];
    float orientation[2][3];
    grid.GetDimensions(dim);
    VolumePointer result(CVolume::New());
    result->Init(source.GetType(), dim[0], dim[1], dim[2], 1);
    result->Alloc(contig);
    grid.GetSpacing(four);
    result->SetSpacing(four);
    grid.GetOrigin(four);
    result->SetOrigin(four);
    grid.GetOrientation(orientation);
    result->SetOrientation(orientation);
    for (int k = 0; k < dim[2]; ++k) std::copy_n(grid.GetPlane(k)->m_Org, 3, result->GetPlane(k)->m_Org);
    result->UpdateZInterpArray();
    return result;
}

VolumePointer Resample(CVolume& source, const FTransform& toSource, CVolume& grid, const ResampleOptions& options,
                       std::string& error) {
    Resampler resampler;
    const char* failure = resampler.Read(source, toSource, grid);
    const int interpolation = options.m_Interpolation;
    if (interpolation < DcmObliqueSlice::IP_NEAREST || interpolation > DcmObliqueSlice::IP_CUBIC) {
        failure = "unknown interpolation";
    }
    if (failure != nullptr) {
        error = failure;
        return nullptr;
    }
    const double background = options.m_Background ? *options.m_Background : FindLowestVoxel(source);
    VolumePointer result = MakeLike(grid, source, options.m_bContig);
    result->SetMin(std::min<long long>(source.GetMin(), platform::TruncateToInt64(background)));
    result->SetMax(std::max<long long>(source.GetMax(), platform::TruncateToInt64(background)));
    for (int k = 0; k < result->GetPlaneCount(); ++k) {
        auto* const out = static_cast<unsigned char*>(result->GetPlane(k)->m_pData);
        resampler.SamplePlane(grid, k, options, background, out);
    }
    return result;
}

}  // namespace

CVolume* ResampleVolume(CVolume& source, const FTransform& toSource, CVolume& grid, const ResampleOptions& options,
                        std::string& error) {
    error.clear();
    try {
        return Resample(source, toSource, grid, options, error).release();
    } catch (const std::bad_alloc&) {
        error = "out of memory";
    } catch (const std::length_error&) {
        error = "grid too long for its voxel size";
    }
    return nullptr;
}
