// Voxels of the caller's, and where they lie.
#pragma once

#include "../core/KitExport.h"
#include "../study/Volume.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// Lies in the caller's memory, contiguous: columns fastest, then rows, planes, times. Lengths are millimetres in patient
/// axes (LPS: x to the left, y to the back, z to the head).
struct KORVANE_KIT VoxelArray {
    VoxelType type = VoxelType::Int16;
    std::array<std::size_t, 4> size{0, 0, 0, 1};  ///< columns, rows, planes, times
    std::span<const std::byte> voxels;

    std::array<double, 6> orientation{1, 0, 0, 0, 1, 0};  ///< unit vectors along rows and along columns
    std::array<double, 2> spacing{1, 1};                  ///< between columns (along a row), between rows
    double thickness = 1;                                 ///< of planes
    std::vector<Volume::Vector> positions{};  ///< centre of each plane's first voxel; the same for all times

    Rescale rescale{};   ///< from the voxels to real values
    std::string unit{};  ///< of real values: "HU" ...; "" where they are something else

    /// Places the centre of voxel (i, j, k) at origin + i * steps[0] + j * steps[1] + k * steps[2]: the columns of an
    /// affine matrix. Set `size` before. Throws `Error` of kind `Irregular` where rows and columns are not at right
    /// angles, which no DICOM image can say, `WrongArgument` for steps of no length and for numbers that are none.
    void PlaceBy(const Volume::Vector& origin, const std::array<Volume::Vector, 3>& steps);
    /// Places the planes where those of a volume lie, uneven and tilted ones too. Throws `Error` of kind `WrongArgument`
    /// where `size` is not that of the volume, `Irregular` where nothing tells where that lies.
    void PlaceAs(const Volume& volume);
};

}  // namespace korvane
