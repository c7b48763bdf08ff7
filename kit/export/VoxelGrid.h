// Voxels on their way into a file of one grid.
#pragma once

#include "../study/Volume.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// What the header of a volume file says. The centre of voxel (i, j, k) lies at origin + i * steps[0] + j * steps[1] +
/// k * steps[2], millimetres in patient axes (LPS); where the planes are tilted the third step is not at right angles to
/// the others.
struct VoxelGrid {
    VoxelType type = VoxelType::Int16;
    std::array<std::size_t, 4> size{};  ///< columns, rows, planes, times
    Volume::Vector origin{};
    std::array<Volume::Vector, 3> steps{};
    bool isPlaced = false;     ///< else origin and directions are a guess
    bool isResampled = false;  ///< not the planes that were scanned
    bool isTilted = false;
    double timeStep = 0;               ///< seconds from a time to the next; 0: not known
    int phaseAxis = -1;                ///< 0 or 1: along which axis phase was encoded; -1: not told
    std::vector<double> sliceTimes{};  ///< seconds of each plane, from the earliest; none where nothing tells
    Rescale rescale{};                 ///< from the file's values to real ones
};

std::string MakeNiftiHeader(const VoxelGrid& grid);
/// `gzip`: the voxels behind it are compressed.
std::string MakeNrrdHeader(const VoxelGrid& grid, bool gzip);
std::string MakeMetaImageHeader(const VoxelGrid& grid);

}  // namespace korvane
