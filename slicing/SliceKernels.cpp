#include "slicing/SliceKernels.h"

#include "slicing/SlicePlaces.h"

#include <algorithm>

namespace korvane_detail {

namespace {

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
            return Mix(static_cast<Number>(LoadVoxel<Pixel>(address)),
                       static_cast<Number>(LoadVoxel<Pixel>(address + nextColumn)), column.m_Weight);
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

template <typename Pixel>
void SampleNearest(const SliceView& view, const SliceRun& run, void* out) {
    constexpr std::int64_t kHalf = kOne / 2;
    std::int64_t x = run.m_Start[0] + kHalf, y = run.m_Start[1] + kHalf, z = run.m_Start[2];
    for (int i = 0; i < run.m_Count; ++i) {
        const std::int32_t plane = NearestPlane(view, z);
        const unsigned char* const address = view.m_pPlanes[plane] +
                                             static_cast<std::size_t>(y >> kFractionBits) * view.m_RowBytes +
                                             static_cast<std::size_t>(x >> kFractionBits) * sizeof(Pixel);
        static_cast<Pixel*>(out)[i] = LoadVoxel<Pixel>(address);
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
    case 1: return SampleNearest<std::uint8_t>;
    case 2: return SampleNearest<std::uint16_t>;
    default: return SampleNearest<std::uint32_t>;
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
