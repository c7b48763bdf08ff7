// How voxels become the pixels of images.
#pragma once

#include "../study/Volume.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace korvane {

/// What may be stored.
struct StoredLimits {
    bool exact = false;          ///< each type as it is, 32 bits and floating point too: for files that stay with us
    bool holdsBytes = true;      ///< 8 bits, else such values get 16
    bool holdsIntercept = true;  ///< else a scale begins at 0
    std::optional<double> replaceNonFinite{};
};

/// The form of all planes of a series, and what changes on the way.
class StoredForm {
public:
    using PlaneOf = std::function<std::span<const std::byte>(std::size_t)>;

    /// `rescales`: of each plane. Looks at all voxels where they may not fit. Throws `Error` of kind `Unsupported`.
    StoredForm(VoxelType type, const PlaneOf& planeOf, std::size_t planes, const StoredLimits& limits);

    VoxelType GetType() const { return m_Stored; }
    /// The most that rounding changes a voxel.
    double GetError() const { return m_Error; }
    std::size_t CountReplaced() const { return m_Replaced; }
    /// From stored values to real ones, where `rescale` was from voxels.
    Rescale Combine(const Rescale& rescale) const;
    /// The pixels of a plane; they are there until the next call.
    std::span<const std::byte> Convert(std::span<const std::byte> voxels);

private:
    struct Range;

    template <class Voxel>
    void Choose(const PlaneOf& planeOf, std::size_t planes, const StoredLimits& limits);
    void Scale(const Range& range, const StoredLimits& limits);

    VoxelType m_Type;
    VoxelType m_Stored;
    bool m_bScaled = false;
    Rescale m_Scale;  // voxel = stored * slope + intercept
    double m_Error = 0;
    std::size_t m_Replaced = 0;
    std::optional<double> m_Replacement;
    std::vector<std::byte> m_Pixels;
};

/// A number as a decimal string (DS, PS3.5 6.2) holds it, in 16 characters.
double AsDecimal(double value);

}  // namespace korvane
