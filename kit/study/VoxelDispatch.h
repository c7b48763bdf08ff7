// Work that depends on the type of voxels.
#pragma once

#include "Volume.h"

#include <cstdint>

namespace korvane {

/// Calls `work` with a zero of the type that the voxels have. Colours are no numbers: nothing is called.
template <class Work>
void WithVoxelType(VoxelType type, Work work) {
    switch (type) {
    case VoxelType::Int8: return work(std::int8_t{});
    case VoxelType::UInt8: return work(std::uint8_t{});
    case VoxelType::Int16: return work(std::int16_t{});
    case VoxelType::UInt16: return work(std::uint16_t{});
    case VoxelType::Int32: return work(std::int32_t{});
    case VoxelType::UInt32: return work(std::uint32_t{});
    case VoxelType::Float32: return work(float{});
    case VoxelType::Float64: return work(double{});
    case VoxelType::Rgb24: return;
    }
}

}  // namespace korvane
