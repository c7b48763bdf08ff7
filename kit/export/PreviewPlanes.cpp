#include "PreviewPlanes.h"

#include "volume/CImagePlane.h"
#include "volume/CVolume.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace korvane {

namespace {

constexpr int kBeside =
    1;  // layers on either side of the middle one: rounding may put samples between it and one of them

VoxelType SliceableTypeOf(VoxelType type) {
    return type == VoxelType::Float64 ? VoxelType::Float32 : type == VoxelType::Int8 ? VoxelType::Int16 : type;
}

template <class From, class To>
void Convert(std::span<const std::byte> stored, std::vector<std::byte>& to) {
    const std::size_t count = stored.size() / sizeof(From);
    to.resize(count * sizeof(To));
    for (std::size_t i = 0; i < count; ++i) {
        From from;
        std::memcpy(&from, stored.data() + i * sizeof from, sizeof from);
        const auto value = static_cast<To>(static_cast<double>(from));
        std::memcpy(to.data() + i * sizeof value, &value, sizeof value);
    }
}

}  // namespace

bool PreviewPlanes::CanTake(const SeriesVolume& series) {
    return series.IsGrey() && !series.RescalesDiffer();
}

PreviewPlanes::PreviewPlanes(SeriesVolume& series)
    : m_Stored(series.GetType()), m_Type(SliceableTypeOf(m_Stored)), m_VoxelBytes(SizeOf(m_Type)) {
    int dim[4];
    series.GetVolume().GetDimensions(dim);
    m_Columns = static_cast<std::size_t>(dim[0]);
    m_Rows = static_cast<std::size_t>(dim[1]);
    m_Planes = static_cast<std::size_t>(dim[2]);
    for (int axis = 0; axis < 3; ++axis) MakeBand(series, axis);
}

void PreviewPlanes::MakeBand(SeriesVolume& series, int axis) {
    Band& band = m_Bands[axis];
    CVolume& volume = series.GetVolume();
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    const int middle = dim[axis] / 2;
    band.count = std::min(2 * kBeside + 1, dim[axis]);
    for (int plane = 0; plane < dim[2]; ++plane) {
        // Planes that lie sideways of the first have the middle elsewhere.
        const double aside = static_cast<double>(volume.GetPlane(plane)->m_Org[axis]) - volume.GetPlane(0)->m_Org[axis];
        const int moved = axis == 2 ? 0 : static_cast<int>(std::lround(std::clamp(aside / space[axis], -1e6, 1e6)));
        band.first.push_back(std::clamp(middle - moved - kBeside, 0, dim[axis] - band.count));
    }
    band.most = *std::max_element(band.first.begin(), band.first.end());
    const auto count = static_cast<std::size_t>(band.count);
    band.inBlock = axis == 0 ? m_Columns / count : axis == 1 ? m_Planes : 1;
    const std::size_t inPlane = m_Columns * m_Rows;
    const std::size_t layer = axis == 0 ? 1 : m_Columns;  // voxels that the next begins behind
    const std::size_t voxels =
        inPlane + (axis == 2 ? 0 : (band.inBlock * count + static_cast<std::size_t>(band.most)) * layer);
    const std::size_t blocks = axis == 2 ? count : (m_Planes + band.inBlock - 1) / band.inBlock;
    band.blocks.assign(blocks, std::vector<std::byte>(voxels * m_VoxelBytes));
}

/// Where a plane begins.
std::byte* PreviewPlanes::PlaneIn(Band& band, int axis, std::size_t plane) const {
    if (axis == 2) {
        const std::size_t first = static_cast<std::size_t>(band.first[plane]);
        return band.blocks[plane >= first && plane - first < band.blocks.size() ? plane - first : 0].data();
    }
    const std::size_t layer = axis == 0 ? 1 : m_Columns;
    const std::size_t behind = (plane % band.inBlock) * static_cast<std::size_t>(band.count) +
                               static_cast<std::size_t>(band.most - band.first[plane]);
    return band.blocks[plane / band.inBlock].data() + behind * layer * m_VoxelBytes;
}

void PreviewPlanes::TakeRows(Band& band, std::size_t plane, std::span<const std::byte> voxels) const {
    const std::size_t row = m_Columns * m_VoxelBytes;
    const std::size_t from = static_cast<std::size_t>(band.first[plane]) * row;
    std::memcpy(PlaneIn(band, 1, plane) + from, voxels.data() + from, static_cast<std::size_t>(band.count) * row);
}

void PreviewPlanes::TakeColumns(Band& band, std::size_t plane, std::span<const std::byte> voxels) const {
    std::byte* const to = PlaneIn(band, 0, plane);
    const std::size_t bytes = static_cast<std::size_t>(band.count) * m_VoxelBytes;
    std::size_t at = static_cast<std::size_t>(band.first[plane]) * m_VoxelBytes;
    for (std::size_t row = 0; row < m_Rows; ++row, at += m_Columns * m_VoxelBytes) {
        std::memcpy(to + at, voxels.data() + at, bytes);
    }
}

void PreviewPlanes::Take(int plane, std::span<const std::byte> stored) {
    std::span<const std::byte> voxels = stored;
    if (m_Type != m_Stored) {
        m_Stored == VoxelType::Float64 ? Convert<double, float>(stored, m_Converted)
                                       : Convert<std::int8_t, std::int16_t>(stored, m_Converted);
        voxels = m_Converted;
    }
    const auto number = static_cast<std::size_t>(plane);
    TakeColumns(m_Bands[0], number, voxels);
    TakeRows(m_Bands[1], number, voxels);
    const int layer = plane - m_Bands[2].first[number];
    if (layer >= 0 && layer < m_Bands[2].count) {
        std::memcpy(PlaneIn(m_Bands[2], 2, number), voxels.data(), voxels.size());
    }
}

void PreviewPlanes::Show(SeriesVolume& series, int axis) {
    std::vector<std::byte*> planes;
    for (std::size_t plane = 0; plane < m_Planes; ++plane) planes.push_back(PlaneIn(m_Bands[axis], axis, plane));
    series.ShowPlanes(m_Type, planes, m_Range);
}

}  // namespace korvane
