// Values of slices that have rescales of their own, brought to one scale.
#pragma once

#include "Padding.h"
#include "Volume.h"
#include "VoxelBlock.h"

#include <cmath>
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

/// Real values that stand for a measurement, and are numbers.
struct MeasuredReals {
    double lowest = HUGE_VAL;
    double highest = -HUGE_VAL;
    std::uint64_t padding = 0;
    bool finite = true;  ///< all of them

    void Add(const MeasuredReals& other);
};

/// One plane of stored values, with its own rescale. No colours.
struct ScaledPlane {
    VoxelType type;
    std::span<const std::byte> voxels;
    Rescale rescale{};
    Padding padding = kNoPadding;
};

MeasuredReals MeasureReals(const ScaledPlane& plane);

/// For files that hold integers alone: signed 16 bits at the smallest slope at which all values fit. Planes may be converted
/// by several threads.
class IntegerScale {
public:
    explicit IntegerScale(const MeasuredReals& measured);

    const Rescale& GetRescale() const { return m_Rescale; }
    /// As in `CommonScale`; nothing where there is none.
    const std::optional<double>& GetPadding() const { return m_Padding; }
    /// Of what was measured, where all is finite, which is `measured`; without padding.
    MeasuredRange RangeOf(const MeasuredReals& measured) const;
    /// Puts as many 16-bit values. Returns the largest difference of a real value from what it was.
    double Convert(const ScaledPlane& plane, std::span<std::byte> to) const;

private:
    std::int16_t ValueOf(double real) const;

    Rescale m_Rescale{};
    double m_Lowest;
    std::optional<double> m_Padding;
};

CommonScale ToCommonIntegers(const ScaledPlanes& planes);

/// The integers that they are, at the largest of the slopes, where no value changes by that; else real values in 32-bit
/// floats.
CommonScale ToCommonScale(const ScaledPlanes& planes);

}  // namespace korvane
