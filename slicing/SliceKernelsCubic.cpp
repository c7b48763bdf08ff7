// Cubic interpolation: a curve through the voxels whose slope at each voxel is that of the parabola through it and its two
// neighbours. On an even grid that is the Catmull-Rom spline; it gives quadratics back exactly, uneven planes and borders
// included.
#include "SliceKernels.h"
#include "SlicePlaces.h"

#include <limits>
#include <type_traits>

namespace korvane_detail {

namespace {

/// Weights of the voxels low - 1 to low + 2 along one axis; 0 for those that are not there.
struct Taps {
    std::int32_t m_Low;
    double m_Weights[4];
};

/// Adds factor * (slope at the middle one of three voxels, `before` and `after` apart) to the weights of the three.
void AddSlope(double factor, double before, double after, double* weights) {
    const double both = before + after;
    weights[0] -= factor * after / (before * both);
    weights[1] += factor * (after - before) / (before * after);
    weights[2] += factor * before / (after * both);
}

/// The same for the slope at the outermost voxel of the volume, by the parabola through it and the next two: `near` is the
/// distance of the first two, `far` that of the last two, `weights` that of the outermost. With a step of -1 the others lie
/// before it; slopes then count against the axis, and the factor has the other sign.
void AddEndSlope(double factor, double near, double far, double* weights, int step) {
    const double both = near + far;
    weights[0] -= factor * (near + both) / (near * both);
    weights[step] += factor * both / (near * far);
    weights[2 * step] -= factor * near / (far * both);
}

/// `gaps`: from low - 1 to low, to low + 1, to low + 2; what is not there is not read.
Taps FindTaps(const Place<double>& place, std::int32_t count, const double (&gaps)[3]) {
    Taps taps{place.m_Low, {0, 1, 0, 0}};
    if (count < 2) {
        return taps;
    }
    const double t = place.m_Weight;
    const double gap = gaps[1];
    const bool hasBefore = place.m_Low > 0;
    const bool hasAfter = place.m_Low + 2 < count;
    const double s = t * t * (3 - 2 * t);
    const double fromLow = t * (1 - t) * (1 - t) * gap;
    const double fromHigh = t * t * (t - 1) * gap;
    double* const w = taps.m_Weights;
    w[1] = 1 - s;
    w[2] = s;
    if (hasBefore) {
        AddSlope(fromLow, gaps[0], gap, w);
    } else if (hasAfter) {
        AddEndSlope(fromLow, gap, gaps[2], w + 1, 1);
    }
    if (hasAfter) {
        AddSlope(fromHigh, gap, gaps[2], w + 1);
    } else if (hasBefore) {
        AddEndSlope(-fromHigh, gap, gaps[0], w + 2, -1);
    }
    if (!hasBefore && !hasAfter) {
        w[1] = 1 - t;
        w[2] = t;
    }
    return taps;
}

Taps FindEvenTaps(std::int64_t position, std::int32_t count) {
    return FindTaps(Locate<double>(position, std::max(count - 2, 0)), count, {1, 1, 1});
}

Taps FindPlaneTaps(const SliceView& view, std::int64_t position) {
    if (view.m_bEven) {
        return FindEvenTaps(position, view.m_Planes);
    }
    const Place<double> place = LocateByTicks<double>(view, position);
    double gaps[3] = {1, 1, 1};
    for (std::int32_t i = 0; i < 3; ++i) {
        const std::int32_t low = place.m_Low - 1 + i;
        if (low >= 0 && low + 1 < view.m_Planes) {
            gaps[i] = std::max(view.m_pTicks[low + 1] - view.m_pTicks[low], 1) / static_cast<double>(kTicks);
        }
    }
    return FindTaps(place, view.m_Planes, gaps);
}

template <typename Pixel>
double MixRow(const unsigned char* row, const Taps& column) {
    double sum = 0;
    for (std::int32_t i = 0; i < 4; ++i) {
        if (column.m_Weights[i] == 0) continue;
        const auto at = static_cast<std::size_t>(column.m_Low) + static_cast<std::size_t>(i) - 1;
        sum += column.m_Weights[i] * static_cast<double>(LoadVoxel<Pixel>(row + at * sizeof(Pixel)));
    }
    return sum;
}

template <typename Pixel>
double MixPlane(const SliceView& view, const unsigned char* plane, const Taps& row, const Taps& column) {
    double sum = 0;
    for (std::int32_t j = 0; j < 4; ++j) {
        if (row.m_Weights[j] == 0) continue;
        const auto at = static_cast<std::size_t>(row.m_Low) + static_cast<std::size_t>(j) - 1;
        sum += row.m_Weights[j] * MixRow<Pixel>(plane + at * view.m_RowBytes, column);
    }
    return sum;
}

template <typename Pixel, typename Number>
void SampleCubic(const SliceView& view, const SliceRun& run, void* out) {
    std::int64_t x = run.m_Start[0], y = run.m_Start[1], z = run.m_Start[2];
    for (int i = 0; i < run.m_Count; ++i) {
        const Taps column = FindEvenTaps(x, view.m_Columns);
        const Taps row = FindEvenTaps(y, view.m_Rows);
        const Taps plane = FindPlaneTaps(view, z);
        double sum = 0;
        for (std::int32_t k = 0; k < 4; ++k) {
            if (plane.m_Weights[k] == 0) continue;
            sum += plane.m_Weights[k] * MixPlane<Pixel>(view, view.m_pPlanes[plane.m_Low - 1 + k], row, column);
        }
        if constexpr (std::is_integral_v<Pixel>) {
            using Limits = std::numeric_limits<Pixel>;
            sum = std::clamp<double>(sum, Limits::min(), Limits::max());
        }
        static_cast<Number*>(out)[i] = static_cast<Number>(sum);
        x += run.m_Step[0];
        y += run.m_Step[1];
        z += run.m_Step[2];
    }
}

}  // namespace

SliceKernel GetCubicKernel(const SliceView& view) {
    switch (view.m_Type) {
    case CVolume::PT_BYTE: return SampleCubic<std::uint8_t, float>;
    case CVolume::PT_SHORT: return SampleCubic<std::int16_t, float>;
    case CVolume::PT_USHORT: return SampleCubic<std::uint16_t, float>;
    case CVolume::PT_FLOAT: return SampleCubic<float, double>;
    case CVolume::PT_LONG: return SampleCubic<std::int32_t, double>;
    case CVolume::PT_ULONG: break;
    }
    return SampleCubic<std::uint32_t, double>;
}

}  // namespace korvane_detail
