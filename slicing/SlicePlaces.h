// Where a position lies between voxels, and the mixing of voxels, for the loops that take one sample at a time.
#pragma once

#include "SliceKernels.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace korvane_detail {

/// The voxel or plane at or before a position and how far the position is on the way to the next, 0 to 1.
template <typename Number>
struct Place {
    std::int32_t m_Low;
    Number m_Weight;
};

template <typename Number>
Number Fraction(std::int64_t position) {
    return static_cast<Number>(static_cast<std::int32_t>(position & kFractionMask)) / static_cast<Number>(kOne);
}

// The last voxel of the axis is the neighbour of the one before it.
template <typename Number>
Place<Number> Locate(std::int64_t position, std::int32_t last) {
    const auto low = static_cast<std::int32_t>(position >> kFractionBits);
    return low > last ? Place<Number>{last, 1} : Place<Number>{low, Fraction<Number>(position)};
}

template <typename Number>
Place<Number> LocateByTicks(const SliceView& view, std::int64_t position) {
    const auto tick = static_cast<std::int32_t>((position + kOne / 2) >> kFractionBits);
    const std::int32_t cell = tick >> view.m_CellShift;
    std::int32_t low = view.m_pCells[cell];
    if (view.m_bOneStep) {
        low += tick >= view.m_pTicks[low + 1] ? 1 : 0;
    } else {
        const std::int32_t* const end = view.m_pTicks + view.m_Planes;
        low = static_cast<std::int32_t>(std::upper_bound(view.m_pTicks + low, end, tick) - view.m_pTicks) - 1;
    }
    low = std::min(low, view.m_Planes - 2);
    const std::int32_t gap = std::max(view.m_pTicks[low + 1] - view.m_pTicks[low], 1);
    return {low, static_cast<Number>(tick - view.m_pTicks[low]) / static_cast<Number>(gap)};
}

template <bool kEven, typename Number>
Place<Number> LocatePlane(const SliceView& view, std::int64_t position) {
    if constexpr (kEven) {
        return Locate<Number>(position, std::max(view.m_Planes - 2, 0));
    } else {
        return LocateByTicks<Number>(view, position);
    }
}

template <typename Number>
Number Shape(Number t) {
    using C = ShapeConstants<Number>;
    return t * ((C::kSquare - C::kCube * t) * t + C::kLinear);
}

/// Voxels that are exact in floats give their own value at both ends by the formula alone; for the others, infinite ones
/// among them, the ends are told apart.
template <typename Number>
Number Mix(Number a, Number b, Number weight) {
    const Number mixed = a + (b - a) * weight;
    if constexpr (std::is_same_v<Number, double>) {
        return weight == 0 ? a : weight == 1 ? b : mixed;
    } else {
        return mixed;
    }
}

template <typename Pixel>
Pixel LoadVoxel(const unsigned char* address) {
    Pixel pixel;
    std::memcpy(&pixel, address, sizeof pixel);  // adopted planes may lie at any address
    return pixel;
}

inline std::int32_t NearestPlane(const SliceView& view, std::int64_t position) {
    if (view.m_bEven) {
        return static_cast<std::int32_t>((position + kOne / 2) >> kFractionBits);
    }
    const Place<float> place = LocateByTicks<float>(view, position);
    return place.m_Low + (place.m_Weight >= 0.5F ? 1 : 0);
}

}  // namespace korvane_detail
