// Stored values that stand for no measurement (PS3.3 C.7.5.1.1.2).
#pragma once

#include "../dataset/Toolkit.h"
#include "PixelForm.h"
#include "Volume.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <utility>

namespace korvane {

/// From Pixel Padding Value (0028,0120) to Pixel Padding Range Limit (0028,0121), the lower one first; without a limit the
/// value alone. Floating-point pixels have elements of their own, (0028,0122) to (0028,0125).
using Padding = std::pair<double, double>;

inline constexpr Padding kNoPadding{1, 0};  ///< holds no value

/// Both none where the data set names none.
std::optional<double> ReadPaddingValue(const DICOMObject& dataSet, const PixelForm& form);
std::optional<Padding> ReadPadding(const DICOMObject& dataSet, const PixelForm& form);

/// Of stored values; integers around them where they are real.
struct MeasuredRange {
    long long smallest = std::numeric_limits<long long>::max();
    long long largest = std::numeric_limits<long long>::min();
    std::uint64_t padding = 0;  ///< voxels that count for neither

    /// Whether there was no voxel that counts.
    bool IsEmpty() const { return smallest > largest; }
    void Add(const MeasuredRange& other) {
        smallest = std::min(smallest, other.smallest);
        largest = std::max(largest, other.largest);
        padding += other.padding;
    }
};

/// Without padding; empty where there is nothing else. Nothing is counted of colours.
MeasuredRange RangeOutside(VoxelType type, std::span<const std::byte> voxels, const Padding& padding);

}  // namespace korvane
