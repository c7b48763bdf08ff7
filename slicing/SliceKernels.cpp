#include "SliceKernels.h"

#include "SlicePlaces.h"

#include <algorithm>

namespace korvane_detail {

namespace {

// Samples are worked through some at a time: first their voxels are fetched, one by one, then they are mixed in loops
// that the compiler makes vectors of.
constexpr int kBlock = 64;

template <typename Pixel, typename Number>
struct Block {
    Pixel m_Voxels[8][kBlock];  // bit 0: the next column, bit 1: the next row, bit 2: the next plane
    Number m_Column[kBlock];
    Number m_Row[kBlock];
    Number m_Plane[kBlock];
};

template <bool kEven, typename Pixel, typename Number>
void Fetch(const SliceView& view, const SliceRun& run, int count, Block<Pixel, Number>& block) {
    const std::int32_t lastColumn = std::max(view.m_Columns - 2, 0);
    const std::int32_t lastRow = std::max(view.m_Rows - 2, 0);
    const std::size_t nextColumn = view.m_Columns > 1 ? sizeof(Pixel) : 0;
    const std::size_t nextRow = view.m_Rows > 1 ? view.m_RowBytes : 0;
    std::int64_t x = run.m_Start[0], y = run.m_Start[1], z = run.m_Start[2];
    for (int i = 0; i < count; ++i) {
        const Place<Number> column = Locate<Number>(x, lastColumn);
        const Place<Number> row = Locate<Number>(y, lastRow);
        const Place<Number> plane = LocatePlane<kEven, Number>(view, z);
        const std::size_t offset = static_cast<std::size_t>(row.m_Low) * view.m_RowBytes +
                                   static_cast<std::size_t>(column.m_Low) * sizeof(Pixel);
        const unsigned char* const voxel = view.m_pPlanes[static_cast<std::size_t>(plane.m_Low)] + offset;
        FetchAhead(voxel, run.m_Ahead);
        FetchAhead(voxel, run.m_Ahead + static_cast<std::ptrdiff_t>(nextColumn));
        for (std::size_t deep = 0; deep < 2; ++deep) {
            const unsigned char* const from = view.m_pPlanes[static_cast<std::size_t>(plane.m_Low) + deep] + offset;
            block.m_Voxels[4 * deep][i] = LoadVoxel<Pixel>(from);
            block.m_Voxels[4 * deep + 1][i] = LoadVoxel<Pixel>(from + nextColumn);
            block.m_Voxels[4 * deep + 2][i] = LoadVoxel<Pixel>(from + nextRow);
            block.m_Voxels[4 * deep + 3][i] = LoadVoxel<Pixel>(from + nextRow + nextColumn);
        }
        block.m_Column[i] = column.m_Weight;
        block.m_Row[i] = row.m_Weight;
        block.m_Plane[i] = plane.m_Weight;
        x += run.m_Step[0];
        y += run.m_Step[1];
        z += run.m_Step[2];
    }
}

template <bool kShaped, typename Pixel, typename Number>
void MixBlock(const Block<Pixel, Number>& block, int count, Number* out) {
    for (int i = 0; i < count; ++i) {
        const auto alongX = [&](int corner) {
            return Mix(static_cast<Number>(block.m_Voxels[corner][i]),
                       static_cast<Number>(block.m_Voxels[corner + 1][i]), block.m_Column[i]);
        };
        const Number low = Mix(alongX(0), alongX(2), block.m_Row[i]);
        const Number high = Mix(alongX(4), alongX(6), block.m_Row[i]);
        out[i] = Mix(low, high, kShaped ? Shape(block.m_Plane[i]) : block.m_Plane[i]);
    }
}

template <typename Pixel, typename Number, bool kEven, bool kShaped>
void SampleLinear(const SliceView& view, const SliceRun& run, void* out) {
    Block<Pixel, Number> block;
    SliceRun rest = run;
    for (auto* to = static_cast<Number*>(out); rest.m_Count > 0; to += kBlock) {
        const int count = std::min(rest.m_Count, kBlock);
        Fetch<kEven>(view, rest, count, block);
        MixBlock<kShaped>(block, count, to);
        rest.Skip(count);
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
        FetchAhead(address, run.m_Ahead);
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
