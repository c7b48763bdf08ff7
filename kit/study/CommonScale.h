// Values of slices that have rescales of their own, brought to one scale.
#pragma once

#include "Padding.h"
#include "Volume.h"
#include "VoxelBlock.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace korvane {

/// Voxels of one type and one rescale, plane after plane.
struct CommonScale {
    VoxelType type = VoxelType::Int16;
    Rescale rescale{};
    double error = 0;  ///< largest difference of a real value from what it was
    VoxelBlock voxels{};
    std::optional<double> padding{};  ///< the value that all voxels of padding have now, and no other has
    std::uint64_t paddingVoxels = 0;
};

/// Planes of stored values. No colours.
struct ScaledPlanes {
    VoxelType type;
    std::span<const std::byte> voxels;
    const std::vector<Rescale>& rescales;  ///< one for each plane
    /// One for each plane, or none at all. The same stored value is another real one in each plane, and may be one that
    /// is measured in others.
    const std::vector<Padding>& paddings;
};

/// For files that hold integers alone: signed 16 bits at the smallest slope at which all values fit.
CommonScale ToCommonIntegers(const ScaledPlanes& planes);

/// The integers that they are, at the largest of the slopes, where no value changes by that; else real values in 32-bit
/// floats.
CommonScale ToCommonScale(const ScaledPlanes& planes);

}  // namespace korvane
