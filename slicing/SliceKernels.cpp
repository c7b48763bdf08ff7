#include "slicing/SliceKernels.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace korvane_detail {

namespace {

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
Pixel Load(const unsigned char* address) {
    Pixel pixel;
    std::memcpy(&pixel, address, sizeof pixel);  // adopted planes may lie at any address
    return pixel;
}

template <typename Pixel, typename Number, bool kEven, bool kShaped>
void SampleLinear(const SliceView& view, const SliceRun& run, void* out) {
    const std::int32_t lastColumn = std::max(view.m_Columns - 2, 0);
    const std::int32_t lastRow = std::max(view.m_Rows - 2, 0);
    const std::size_t nextColumn = view.m_Columns > 1 ? sizeof(Pixel) : 0;
    const std::size_t nextRow = view.m_Rows > 1 ? view.m_RowBytes : 0;
    std::int64_t x = run.m_Start[0], y = run.m_Start[1], z = run.m_Start[2];
    for (int i = 0; i < run.m_Count; ++i) {
        const Place<Number> column = Locate<Number>(x, lastColumn);
        const Place<Number> row = Locate<Number>(y, lastRow);
        const Place<Number> plane = LocatePlane<kEven, Number>(view, z);
        const std::size_t offset = static_cast<std::size_t>(row.m_Low) * view.m_RowBytes +
                                   static_cast<std::size_t>(column.m_Low) * sizeof(Pixel);
        const auto alongX = [&](const unsigned char* address) {
            return Mix(static_cast<Number>(Load<Pixel>(address)),
                       static_cast<Number>(Load<Pixel>(address + nextColumn)), column.m_Weight);
        };
        const auto alongXY = [&](const unsigned char* data) {
            return Mix(alongX(data + offset), alongX(data + offset + nextRow), row.m_Weight);
        };
        const Number weight = kShaped ? Shape(plane.m_Weight) : plane.m_Weight;
        const unsigned char* const* const data = view.m_pPlanes + plane.m_Low;
        static_cast<Number*>(out)[i] = Mix(alongXY(data[0]), alongXY(data[1]), weight);
        x += run.m_Step[0];
        y += run.m_Step[1];
        z += run.m_Step[2];
    }
}

template <typename Pixel, bool kEven>
void SampleNearest(const SliceView& view, const SliceRun& run, void* out) {
    constexpr std::int64_t kHalf = kOne / 2;
    std::int64_t x = run.m_Start[0] + kHalf, y = run.m_Start[1] + kHalf, z = run.m_Start[2];
    for (int i = 0; i < run.m_Count; ++i) {
        std::int32_t plane;
        if constexpr (kEven) {
            plane = static_cast<std::int32_t>((z + kHalf) >> kFractionBits);
        } else {
            const Place<float> place = LocateByTicks<float>(view, z);
            plane = place.m_Low + (place.m_Weight >= 0.5F ? 1 : 0);
        }
        const unsigned char* const address = view.m_pPlanes[plane] +
                                             static_cast<std::size_t>(y >> kFractionBits) * view.m_RowBytes +
                                             static_cast<std::size_t>(x >> kFractionBits) * sizeof(Pixel);
        static_cast<Pixel*>(out)[i] = Load<Pixel>(address);
        x += run.m_Step[0];
        y += run.m_Step[1];
        z += run.m_Step[2];
    }
}

template <typename Pixel, typename Number>
SliceKernel ChooseLinear(bool even, bool shaped) {
    if (even) {
        return shaped ? SampleLinear<Pixel, Number, true, true> : SampleLinear<Pixel, Number, true, false>;
    }
    return shaped ? SampleLinear<Pixel, Number, false, true> : SampleLinear<Pixel, Number, false, false>;
}

}  // namespace

SliceKernel GetNearestKernel(const SliceView& view) {
    switch (view.m_Size) {
    case 1: return view.m_bEven ? SampleNearest<std::uint8_t, true> : SampleNearest<std::uint8_t, false>;
    case 2: return view.m_bEven ? SampleNearest<std::uint16_t, true> : SampleNearest<std::uint16_t, false>;
    default: return view.m_bEven ? SampleNearest<std::uint32_t, true> : SampleNearest<std::uint32_t, false>;
    }
}

SliceKernel GetLinearKernel(const SliceView& view, bool shaped) {
    switch (view.m_Type) {
    case CVolume::PT_BYTE: return ChooseLinear<std::uint8_t, float>(view.m_bEven, shaped);
    case CVolume::PT_SHORT: return ChooseLinear<std::int16_t, float>(view.m_bEven, shaped);
    case CVolume::PT_USHORT: return ChooseLinear<std::uint16_t, float>(view.m_bEven, shaped);
    case CVolume::PT_FLOAT: return ChooseLinear<float, double>(view.m_bEven, shaped);
    case CVolume::PT_LONG: return ChooseLinear<std::int32_t, double>(view.m_bEven, shaped);
    case CVolume::PT_ULONG: break;
    }
    return ChooseLinear<std::uint32_t, double>(view.m_bEven, shaped);
}

}  // namespace korvane_detail
