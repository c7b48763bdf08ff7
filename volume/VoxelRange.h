// Smallest and largest voxel of a run.
#pragma once

#include "CVolume.h"

#include <cstddef>

namespace korvane_detail {

/// Exact for every voxel type. Empty (nothing but NaN, no voxels, no known type) when m_Low > m_High.
struct VoxelRange {
    double m_Low;
    double m_High;
};

VoxelRange FindVoxelRange(const void* data, std::size_t voxels, CVolume::PixelType type);

}  // namespace korvane_detail
