#include "SliceKernels.h"
#include "SlicePlaces.h"

#include <cstdlib>

namespace korvane_detail {

namespace {

// Columns that a run may cover.
constexpr int kMostColumns = 2 * kLongestRun + 3;

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

// Eight at a time where that is allowed; returns how many.
int SampleWide(const float* mixed, std::int32_t last, const SliceRun& run, bool wide, float* out) {
    return wide ? MixColumnsWide(mixed, last, run, out) : 0;
}

int SampleWide(const double* /*mixed*/, std::int32_t /*last*/, const SliceRun& /*run*/, bool /*wide*/,
               double* /*out*/) {
    return 0;
}

/// `run` counts from the first of the mixed columns; `last` is the last but one of them, or 0.
template <typename Number>
void SampleMixed(const Number* mixed, std::int32_t last, const SliceRun& run, bool wide, Number* out) {
    std::int64_t x = run.m_Start[0];
    const Place<Number> first = Locate<Number>(x, last);
    const Number* const from = mixed + first.m_Low;
    if (run.m_Step[0] == kOne && first.m_Weight == 0) {
        std::copy_n(from, run.m_Count, out);
    } else if (run.m_Step[0] == kOne && first.m_Weight < 1) {
        for (int i = 0; i < run.m_Count; ++i) out[i] = Mix(from[i], from[i + 1], first.m_Weight);
    } else {
        const int done = SampleWide(mixed, last, run, wide, out);
        x += done * run.m_Step[0];
        for (int i = done; i < run.m_Count; ++i) {
            const Place<Number> column = Locate<Number>(x, last);
            out[i] = Mix(mixed[column.m_Low], mixed[column.m_Low + 1], column.m_Weight);
            x += run.m_Step[0];
        }
    }
}

template <typename Pixel, typename Number>
void SampleLinear(const SliceView& view, const SliceRun& run, bool shaped, bool wide, void* out) {
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
        MixInto(mixed, next, columns.m_Count, shaped ? Shape(plane.m_Weight) : plane.m_Weight);
    }
    mixed[columns.m_Count] = 0;  // beside a single column, without weight
    SliceRun relative = run;
    relative.m_Start[0] -= columns.m_First * kOne;
    SampleMixed(mixed, std::max(columns.m_Count - 2, 0), relative, wide, static_cast<Number*>(out));
}

template <typename Pixel>
void SampleNearest(const SliceView& view, const SliceRun& run, void* out) {
    const auto row = static_cast<std::size_t>((run.m_Start[1] + kOne / 2) >> kFractionBits);
    const unsigned char* const from = view.m_pPlanes[NearestPlane(view, run.m_Start[2])] + row * view.m_RowBytes;
    std::int64_t x = run.m_Start[0] + kOne / 2;
    if (run.m_Step[0] == kOne) {
        std::memcpy(out, from + static_cast<std::size_t>(x >> kFractionBits) * sizeof(Pixel),
                    static_cast<std::size_t>(run.m_Count) * sizeof(Pixel));
        return;
    }
    for (int i = 0; i < run.m_Count; ++i) {
        static_cast<Pixel*>(out)[i] =
            LoadVoxel<Pixel>(from + static_cast<std::size_t>(x >> kFractionBits) * sizeof(Pixel));
        x += run.m_Step[0];
    }
}

}  // namespace

bool IsAlongRow(const SliceRun& run) {
    return run.m_Step[1] == 0 && run.m_Step[2] == 0 && std::abs(run.m_Step[0]) <= 2 * kOne;
}

void SampleNearestAlongRow(const SliceView& view, const SliceRun& run, void* out) {
    switch (view.m_Size) {
    case 1: return SampleNearest<std::uint8_t>(view, run, out);
    case 2: return SampleNearest<std::uint16_t>(view, run, out);
    default: return SampleNearest<std::uint32_t>(view, run, out);
    }
}

void SampleLinearAlongRow(const SliceView& view, const SliceRun& run, bool shaped, bool wide, void* out) {
    switch (view.m_Type) {
    case CVolume::PT_BYTE: return SampleLinear<std::uint8_t, float>(view, run, shaped, wide, out);
    case CVolume::PT_SHORT: return SampleLinear<std::int16_t, float>(view, run, shaped, wide, out);
    case CVolume::PT_USHORT: return SampleLinear<std::uint16_t, float>(view, run, shaped, wide, out);
    case CVolume::PT_FLOAT: return SampleLinear<float, double>(view, run, shaped, wide, out);
    case CVolume::PT_LONG: return SampleLinear<std::int32_t, double>(view, run, shaped, wide, out);
    case CVolume::PT_ULONG: break;
    }
    return SampleLinear<std::uint32_t, double>(view, run, shaped, wide, out);
}

}  // namespace korvane_detail
