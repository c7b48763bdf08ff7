#include "slicing/SliceKernels.h"
#include "slicing/SlicePlaces.h"

#include <cstdlib>

namespace korvane_detail {

namespace {

// Columns that a run may cover.
constexpr int kMostColumns = 2 * kLongestRun + 2;

struct Columns {
    std::int32_t m_First;
    std::int32_t m_Count;
};

// The columns that the run's samples lie between.
Columns GetColumns(const SliceView& view, const SliceRun& run) {
    const std::int64_t end = run.m_Start[0] + (run.m_Count - 1) * run.m_Step[0];
    const auto first = static_cast<std::int32_t>(std::min(run.m_Start[0], end) >> kFractionBits);
    const auto last = static_cast<std::int32_t>(std::max(run.m_Start[0], end) >> kFractionBits) + 1;
    const std::int32_t from = std::min(first, std::max(view.m_Columns - 2, 0));
    return {from, std::min(last, view.m_Columns - 1) - from + 1};
}

template <typename Number>
void MixInto(Number* a, const Number* b, int count, Number weight) {
    for (int i = 0; i < count; ++i) a[i] = Mix(a[i], b[i], weight);
}

/// `count` voxels of one row, mixed with those of the next.
template <typename Pixel, typename Number>
void MixRows(const unsigned char* row, std::size_t nextRow, int count, Number weight, Number* out) {
    const auto at = [](const unsigned char* from, int i) {
        return static_cast<Number>(LoadVoxel<Pixel>(from + static_cast<std::size_t>(i) * sizeof(Pixel)));
    };
    if (weight == 0) {
        for (int i = 0; i < count; ++i) out[i] = at(row, i);
    } else {
        for (int i = 0; i < count; ++i) out[i] = Mix(at(row, i), at(row + nextRow, i), weight);
    }
}

template <typename Number>
void SampleMixed(const Number* mixed, const Columns& columns, std::int32_t lastColumn, const SliceRun& run,
                 Number* out) {
    std::int64_t x = run.m_Start[0];
    const Place<Number> first = Locate<Number>(x, lastColumn);
    const Number* const from = mixed + (first.m_Low - columns.m_First);
    if (run.m_Step[0] == kOne && first.m_Weight == 0) {
        std::copy_n(from, run.m_Count, out);
    } else if (run.m_Step[0] == kOne && first.m_Weight < 1) {
        for (int i = 0; i < run.m_Count; ++i) out[i] = Mix(from[i], from[i + 1], first.m_Weight);
    } else {
        for (int i = 0; i < run.m_Count; ++i) {
            const Place<Number> column = Locate<Number>(x, lastColumn);
            const std::int32_t low = column.m_Low - columns.m_First;
            const std::int32_t high = std::min(low + 1, columns.m_Count - 1);
            out[i] = Mix(mixed[low], mixed[high], column.m_Weight);
            x += run.m_Step[0];
        }
    }
}

template <typename Pixel, typename Number, bool kShaped>
void SampleLinear(const SliceView& view, const SliceRun& run, void* out) {
    const Columns columns = GetColumns(view, run);
    const Place<Number> row = Locate<Number>(run.m_Start[1], std::max(view.m_Rows - 2, 0));
    const Place<Number> plane = view.m_bEven ? LocatePlane<true, Number>(view, run.m_Start[2])
                                             : LocatePlane<false, Number>(view, run.m_Start[2]);
    const std::size_t offset = static_cast<std::size_t>(row.m_Low) * view.m_RowBytes +
                               static_cast<std::size_t>(columns.m_First) * sizeof(Pixel);
    const unsigned char* const* const data = view.m_pPlanes + plane.m_Low;
    Number mixed[kMostColumns];
    MixRows<Pixel>(data[0] + offset, view.m_RowBytes, columns.m_Count, row.m_Weight, mixed);
    if (plane.m_Weight != 0) {
        Number next[kMostColumns];
        MixRows<Pixel>(data[1] + offset, view.m_RowBytes, columns.m_Count, row.m_Weight, next);
        MixInto(mixed, next, columns.m_Count, kShaped ? Shape(plane.m_Weight) : plane.m_Weight);
    }
    SampleMixed(mixed, columns, std::max(view.m_Columns - 2, 0), run, static_cast<Number*>(out));
}

void CopyNearest(const SliceView& view, const SliceRun& run, void* out) {
    const auto column = static_cast<std::size_t>((run.m_Start[0] + kOne / 2) >> kFractionBits);
    const auto row = static_cast<std::size_t>((run.m_Start[1] + kOne / 2) >> kFractionBits);
    const auto size = static_cast<std::size_t>(view.m_Size);
    const unsigned char* const plane = view.m_pPlanes[NearestPlane(view, run.m_Start[2])];
    std::memcpy(out, plane + row * view.m_RowBytes + column * size, static_cast<std::size_t>(run.m_Count) * size);
}

template <typename Pixel, typename Number>
SliceKernel Choose(bool shaped) {
    return shaped ? SampleLinear<Pixel, Number, true> : SampleLinear<Pixel, Number, false>;
}

}  // namespace

SliceKernel GetAlongRowKernel(const SliceView& view, const SliceRun& run, bool nearest, bool shaped) {
    if (run.m_Step[1] != 0 || run.m_Step[2] != 0) {
        return nullptr;
    }
    if (nearest) {
        return run.m_Step[0] == kOne ? CopyNearest : nullptr;
    }
    if (std::abs(run.m_Step[0]) > 2 * kOne) {
        return nullptr;
    }
    switch (view.m_Type) {
    case CVolume::PT_BYTE: return Choose<std::uint8_t, float>(shaped);
    case CVolume::PT_SHORT: return Choose<std::int16_t, float>(shaped);
    case CVolume::PT_USHORT: return Choose<std::uint16_t, float>(shaped);
    case CVolume::PT_FLOAT: return Choose<float, double>(shaped);
    case CVolume::PT_LONG: return Choose<std::int32_t, double>(shaped);
    case CVolume::PT_ULONG: break;
    }
    return Choose<std::uint32_t, double>(shaped);
}

}  // namespace korvane_detail
