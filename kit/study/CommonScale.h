// Values of slices that have rescales of their own, brought to one scale.
#pragma once

#include "Volume.h"

#include <cstddef>
#include <span>
#include <vector>

namespace korvane {

/// Voxels of one type and one rescale, plane after plane.
struct CommonScale {
    VoxelType type = VoxelType::Int16;
    Rescale rescale{};
    double error = 0;  ///< largest difference of a real value from what it was
    std::vector<std::byte> voxels{};
};

/// For pictures, and for files that hold integers alone: signed 16 bits at the smallest slope at which all values fit.
/// `rescales`: one for each plane. No colours.
CommonScale ToCommonIntegers(VoxelType type, std::span<const std::byte> voxels, const std::vector<Rescale>& rescales);

/// The integers that they are, at the largest of the slopes, where no value changes by that; else real values in 32-bit
/// floats.
CommonScale ToCommonScale(VoxelType type, std::span<const std::byte> voxels, const std::vector<Rescale>& rescales);

}  // namespace korvane
