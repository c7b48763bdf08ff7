#include "SliceView.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace korvane_detail {

namespace {

// Planes that are off an even grid by no more than this part of the gap are taken as on it.
constexpr double kEven = 1e-6;

bool IsLength(double value) {
    return value > 0 && std::isfinite(value);
}

}  // namespace

const char* SliceTables::Read(CVolume& volume) {
    if (const char* failure = ReadShape(volume)) {
        return failure;
    }
    MakeOffsets();
    m_View.m_bEven = IsEven();
    m_View.m_PlaneStep = m_View.m_bEven ? FindPlaneStep() : 0;
    const double extent = m_Sorted.back().m_Z - m_Sorted.front().m_Z;
    const int gaps = m_View.m_Planes - 1;
    if (gaps > 0) {
        m_Voxel[2] = m_View.m_bEven ? 1.0 : static_cast<double>(kTicks) / gaps;
        m_Top[2] = m_View.m_bEven ? gaps : kTicks;
        m_Scale[2] = m_Top[2] / extent;
    }
    if (!m_View.m_bEven) {
        MakeTicks();
    }
    return nullptr;
}

const char* SliceTables::ReadShape(CVolume& volume) {
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    const int size = volume.GetTypeSize();
    if (dim[0] < 1 || dim[1] < 1 || dim[2] < 1 || dim[3] < 1 || volume.GetPlaneCount() < dim[2]) {
        return "volume without planes";
    }
    if (size < 1) {
        return "volume of an unknown pixel type";
    }
    if (!IsLength(space[0]) || !IsLength(space[1])) {
        return "volume with a spacing that is not positive";
    }
    m_View.m_Type = volume.GetType();
    m_View.m_Size = size;
    m_View.m_Columns = dim[0];
    m_View.m_Rows = dim[1];
    m_View.m_RowBytes = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(size);
    for (int axis = 0; axis < 2; ++axis) {
        m_Scale[axis] = 1.0 / space[axis];
        m_Top[axis] = dim[axis] - 1;
    }
    m_SmallestSpacing = std::min(space[0], space[1]);
    if (!m_Offsets.Read(volume)) {
        return "volume with a plane position that is not finite";
    }
    return ReadPlanes(volume, dim[2]);
}

const char* SliceTables::ReadPlanes(CVolume& volume, int count) {
    const double first = volume.GetPlane(0)->m_Org[2];
    m_Sorted.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        const CImagePlane& plane = *volume.GetPlane(k);
        if (plane.m_pData == nullptr) {
            return "volume without pixels";
        }
        if (!std::isfinite(plane.m_Org[2])) {
            return "volume with a plane position that is not finite";
        }
        m_Sorted.push_back({plane.m_Org[2] - first, static_cast<const unsigned char*>(plane.m_pData)});
    }
    const auto lower = [](const Plane& a, const Plane& b) { return a.m_Z < b.m_Z; };
    const auto coincide = [](const Plane& a, const Plane& b) { return b.m_Z - a.m_Z <= kSamePlane; };
    if (!std::is_sorted(m_Sorted.begin(), m_Sorted.end(), lower)) {
        std::stable_sort(m_Sorted.begin(), m_Sorted.end(), lower);
    }
    m_Sorted.erase(std::unique(m_Sorted.begin(), m_Sorted.end(), coincide), m_Sorted.end());
    m_View.m_Planes = static_cast<int>(m_Sorted.size());
    m_FirstZ = m_Sorted.front().m_Z;
    m_Data.reserve(m_Sorted.size() + 1);
    for (std::size_t k = 0; k < m_Sorted.size(); ++k) {
        m_Data.push_back(m_Sorted[k].m_pData);
        if (k > 0) m_SmallestSpacing = std::min(m_SmallestSpacing, m_Sorted[k].m_Z - m_Sorted[k - 1].m_Z);
    }
    m_Data.push_back(m_Data.back());
    m_View.m_pPlanes = m_Data.data();
    return nullptr;
}

// Offsets count from the middle, so that blocks up to 4 GB apart can be reached, and wrap around in a 32-bit program.
// A gather takes four bytes: a plane must have as many, and two columns for neighbours along x.
void SliceTables::MakeOffsets() {
    constexpr std::uint64_t kReach = std::numeric_limits<std::int32_t>::max();
    const std::uint64_t planeBytes = static_cast<std::uint64_t>(m_View.m_RowBytes) * m_View.m_Rows;
    if (m_View.m_Columns < 2 || planeBytes < 4 || planeBytes > kReach) {
        return;
    }
    const auto address = [](const unsigned char* p) { return std::uint64_t{reinterpret_cast<std::uintptr_t>(p)}; };
    const auto [low, high] = std::minmax_element(m_Data.begin(), m_Data.end());
    const std::uint64_t span = address(*high) + planeBytes - address(*low);
    if (span > 2 * kReach) {
        return;
    }
    const std::uint64_t base = address(*low) + span / 2;
    m_Bytes.reserve(m_Data.size());
    for (const unsigned char* data : m_Data) {
        m_Bytes.push_back(static_cast<std::int32_t>(address(data) - base));
    }
    m_View.m_pBase = reinterpret_cast<const unsigned char*>(static_cast<std::uintptr_t>(base));
    m_View.m_pOffsets = m_Bytes.data();
}

bool SliceTables::IsEven() const {
    const double first = m_Sorted.front().m_Z;
    const double gap = (m_Sorted.back().m_Z - first) / std::max(m_View.m_Planes - 1, 1);
    for (std::size_t k = 0; k < m_Sorted.size(); ++k) {
        if (std::fabs(m_Sorted[k].m_Z - (first + static_cast<double>(k) * gap)) > kEven * gap) return false;
    }
    return true;
}

std::int32_t SliceTables::FindPlaneStep() const {
    if (m_View.m_Planes < 2 || m_Bytes.empty()) {
        return 0;
    }
    const auto step = static_cast<std::int32_t>(std::int64_t{m_Bytes[1]} - m_Bytes[0]);
    for (int k = 0; k < m_View.m_Planes; ++k) {
        if (m_Bytes[static_cast<std::size_t>(k)] != m_Bytes[0] + std::int64_t{k} * step) return 0;
    }
    return step;
}

void SliceTables::MakeTicks() {
    std::int32_t smallestGap = kTicks;
    for (const Plane& plane : m_Sorted) {
        const auto tick = static_cast<std::int32_t>(std::floor((plane.m_Z - m_FirstZ) * m_Scale[2] + 0.5));
        if (!m_Ticks.empty()) smallestGap = std::min(smallestGap, tick - m_Ticks.back());
        m_Ticks.push_back(tick);
    }
    m_View.m_pTicks = m_Ticks.data();
    MakeCells(smallestGap);
}

// Cells as long as the smallest gap, but no more of them than some for each plane.
void SliceTables::MakeCells(std::int32_t smallestGap) {
    const std::int32_t most = 16 * std::min(m_View.m_Planes, kTicks / 64) + 64;
    int shift = 0;
    while ((2 << shift) <= smallestGap) ++shift;
    m_View.m_bOneStep = smallestGap > 0;
    while ((kTicks >> shift) > most) {
        ++shift;
        m_View.m_bOneStep = false;
    }
    m_View.m_CellShift = shift;
    std::int32_t plane = 0;
    for (std::int32_t cell = 0; cell <= kTicks >> shift; ++cell) {
        const std::int32_t begin = cell << shift;
        while (plane < m_View.m_Planes - 2 && m_Ticks[static_cast<std::size_t>(plane) + 1] <= begin) ++plane;
        m_Cells.push_back(plane);
    }
    m_View.m_pCells = m_Cells.data();
}

}  // namespace korvane_detail
