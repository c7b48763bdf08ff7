// The part of CVolume that samples the stack along z.

#include "CVolume.h"

#include "base/Integer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>

namespace {

constexpr int kLargestTable = 1048576;

// Planes closer than this coincide; millimetres.
constexpr double kSamePlane = 1e-7;

// 2.7, 1.8 and 0.1 rounded to single precision: weights are the same to the last bit only with these.
constexpr double kSquare = 2.6999999955296516;
constexpr double kCube = 1.7999999970197678;
constexpr double kLinear = 0.10000000149011612;

// The weight S(x) of `CVolume::UpdateZInterpArray`: S(0) = 0, S(0.5) = 0.5, S(1) = 1, S(x) + S(1 - x) = 1.
double Shape(double x) {
    return x * ((kSquare - kCube * x) * x + kLinear);
}

}  // namespace

void CVolume::UpdateZInterpArray() {
    m_VoxelSize = (m_Space[0] + m_Space[1]) * 0.5F;
    m_ZInterp.clear();
    if (m_Planes.empty()) {
        return;
    }
    const double extent = static_cast<double>(m_Planes.back().m_Org[2]) - m_Planes.front().m_Org[2];
    // An infinite size makes no step either, and NaN is not above 0.
    const double steps = m_VoxelSize > 0 ? std::fabs(extent) / m_VoxelSize : 0.0;
    if (steps >= kLargestTable) {
        throw std::length_error("CVolume: too many z samples");
    }
    const int last = platform::TruncateToInt32(steps);
    if (last == 0) {
        m_ZInterp.push_back({0, 0, m_Planes.data(), m_Planes.data(), 1, 0, 0, 0, 0, 0});
        return;
    }
    m_ZInterp.reserve(static_cast<std::size_t>(last) + 1);
    const int count = static_cast<int>(m_Planes.size());
    int low = 0;
    int high = 1;  // plane 1 exists: a single plane has no extent, and was dealt with above
    for (int i = 0; i <= last; ++i) {
        const float z = static_cast<float>(extent * i / last);
        const float nextZ = PlaneZ(high);
        if (extent > 0 ? z > nextZ : z < nextZ) {
            low = std::min(low + 1, count - 1);
            high = std::min(low + 1, count - 1);
        }
        m_ZInterp.push_back(InterpolateAt(z, low, high));
    }
}

ZInterpVector CVolume::InterpolateAt(float z, int low, int high) {
    const double lowZ = PlaneZ(low);
    const double highZ = PlaneZ(high);
    const double gap = highZ - lowZ;
    const float lowVox = static_cast<float>(std::fabs(lowZ) / m_VoxelSize);
    if (std::fabs(gap) <= kSamePlane) {
        return {low, low, GetPlane(low), GetPlane(low), 1, 0, 0, z, lowVox, lowVox};
    }
    const double t = (z - lowZ) / gap;
    const double s = (highZ - z) / gap;
    return {low,
            high,
            GetPlane(low),
            GetPlane(high),
            static_cast<float>(Shape(t)),
            static_cast<float>(Shape(s)),
            static_cast<float>(t),
            z,
            lowVox,
            static_cast<float>(std::fabs(highZ) / m_VoxelSize)};
}

float CVolume::PlaneZ(int k) const {
    return m_Planes[static_cast<std::size_t>(k)].m_Org[2] - m_Planes[0].m_Org[2];
}

float CVolume::GetVoxelSize() {
    return m_VoxelSize;
}

void CVolume::GetVoxelDims(int* const d) {
    d[0] = m_Dim[0];
    d[1] = m_Dim[1];
    d[2] = static_cast<int>(m_ZInterp.size());
}

const ZInterpVector* CVolume::MapVoxToZInterp(int i) const {
    if (i < 0 || static_cast<std::size_t>(i) >= m_ZInterp.size()) {
        return nullptr;
    }
    return &m_ZInterp[static_cast<std::size_t>(i)];
}

// The record for a distance from plane 0 in millimetres.
const ZInterpVector& CVolume::RecordAt(double distance) const {
    int k = platform::TruncateToInt32(distance / m_VoxelSize);
    if (k < 1) {
        k = k == std::numeric_limits<int>::min() ? 0 : -k;
    }
    return m_ZInterp[std::min(static_cast<std::size_t>(k), m_ZInterp.size() - 1)];
}

const ZInterpVector& CVolume::MapVolToZInterp(float z) const {
    return RecordAt(static_cast<double>(z) - m_Planes[0].m_Org[2]);
}

void CVolume::MapVolToPlane(float x, float y, float z, short* plane, float* u, float* v, float* w) const {
    const ZInterpVector& record = MapVolToZInterp(z);
    const int nearest = record.m_t <= 0.5F ? record.m_nLow : record.m_nHigh;
    *plane = static_cast<short>(nearest);
    *u = x / m_Space[0];
    *v = y / m_Space[1];
    *w = z - m_Planes[static_cast<std::size_t>(nearest)].m_Org[2];
}

void CVolume::MapPlaneToVol(short plane, float u, float v, float* x, float* y, float* z) const {
    *x = u * m_Space[0];
    *y = v * m_Space[1];
    *z = PlaneZ(plane);
}

void CVolume::MapMMToNormVoxels(float x, float y, float z, float* nx, float* ny, float* nz) const {
    const ZInterpVector& record = RecordAt(z);
    *nx = x / m_Space[0];
    *ny = y / m_Space[1];
    *nz = static_cast<float>(record.m_nLow) + record.m_t;
}

float CVolume::GetSliceThickness(short k, float* after, float* before) {
    const float here = PlaneZ(k);
    const float previous = k >= 1 ? PlaneZ(k - 1) : here;
    const float next = k < static_cast<int>(m_Planes.size()) - 1 ? PlaneZ(k + 1) : here;
    *after = std::fabs((next - here) * 0.5F);
    *before = std::fabs((previous - here) * 0.5F);
    return *after + *before;
}
