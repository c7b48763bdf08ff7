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

/// What planes are brought to, one by one. Several threads may convert.
class ScaleTarget {
public:
    virtual ~ScaleTarget() = default;

    virtual VoxelType GetType() const = 0;
    const Rescale& GetRescale() const { return m_Rescale; }
    /// As in `CommonScale`; nothing where there is none.
    const std::optional<double>& GetPadding() const { return m_Padding; }
    /// Puts as many values of the type. Returns the largest difference of a real value from what it was.
    virtual double Convert(const ScaledPlane& plane, std::span<std::byte> to) const = 0;

protected:
    Rescale m_Rescale{};
    std::optional<double> m_Padding{};
};

/// For files that hold integers alone: signed 16 bits at the smallest slope at which all values fit.
class IntegerScale final : public ScaleTarget {
public:
    explicit IntegerScale(const MeasuredReals& measured);

    VoxelType GetType() const override { return VoxelType::Int16; }
    /// Of what was measured, where all is finite, which is `measured`; without padding.
    MeasuredRange RangeOf(const MeasuredReals& measured) const;
    double Convert(const ScaledPlane& plane, std::span<std::byte> to) const override;

private:
    std::int16_t ValueOf(double real) const;

    double m_Lowest;
};

/// The integers that they are, at the largest of the slopes, where no value changes by that; else real values in 32-bit
/// floats.
class ExactScale final : public ScaleTarget {
public:
    ExactScale(VoxelType stored, const std::vector<Rescale>& rescales);

    /// Whether no measured value of a plane changes where they stay integers.
    bool IsExact(const ScaledPlane& plane) const;
    /// `exact`: of all planes. Before anything is converted.
    void Choose(const MeasuredReals& measured, bool exact);

    VoxelType GetType() const override { return m_Type; }
    double Convert(const ScaledPlane& plane, std::span<std::byte> to) const override;

private:
    VoxelType m_Type;
    double m_Most;  // that a whole number may seem to be none by
    float m_RealPadding = 0;
};

CommonScale ToCommonIntegers(const ScaledPlanes& planes);  ///< by an `IntegerScale`
CommonScale ToCommonScale(const ScaledPlanes& planes);     ///< by an `ExactScale`

}  // namespace korvane
