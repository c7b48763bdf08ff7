#include "SlicePadding.h"

#include "SlicePlaces.h"

#include <algorithm>
#include <cstdint>

namespace korvane_detail {

namespace {

// Positions are rounded: a smaller weight is that of a sample that lies on the other voxel.
constexpr double kNoWeight = 3e-5;

/// The voxels of one axis that have a weight.
struct Span {
    std::int32_t m_First;
    std::int32_t m_Last;
};

// Cubic curves reach one voxel further on both sides; at a border, two further on the inner side.
Span SpanOf(const Place<double>& place, std::int32_t count, Sampling sampling) {
    if (count < 2 || place.m_Weight < kNoWeight) return {place.m_Low, place.m_Low};
    if (place.m_Weight > 1 - kNoWeight) return {place.m_Low + 1, place.m_Low + 1};
    if (sampling != Sampling::kCubic) return {place.m_Low, place.m_Low + 1};
    const std::int32_t first = std::max(place.m_Low - 1, 0);
    return {std::max(std::min(first, count - 4), 0), std::min(std::max(first + 3, place.m_Low + 2), count - 1)};
}

Span SpanAlong(std::int64_t position, std::int32_t count, Sampling sampling) {
    if (sampling == Sampling::kNearest) {
        const auto nearest = static_cast<std::int32_t>((position + kOne / 2) >> kFractionBits);
        return {nearest, nearest};
    }
    return SpanOf(Locate<double>(position, std::max(count - 2, 0)), count, sampling);
}

Span SpanOfPlanes(const SliceView& view, std::int64_t position, Sampling sampling) {
    if (sampling == Sampling::kNearest) {
        const std::int32_t nearest = NearestPlane(view, position);
        return {nearest, nearest};
    }
    if (view.m_bEven) return SpanAlong(position, view.m_Planes, sampling);
    return SpanOf(LocateByTicks<double>(view, position), view.m_Planes, sampling);
}

template <typename Pixel>
bool HasPadding(const SliceView& view, const Span (&spans)[3], const PaddingRange& padding) {
    for (std::int32_t plane = spans[2].m_First; plane <= spans[2].m_Last; ++plane) {
        for (std::int32_t row = spans[1].m_First; row <= spans[1].m_Last; ++row) {
            const unsigned char* const from = view.m_pPlanes[plane] + static_cast<std::size_t>(row) * view.m_RowBytes;
            for (std::int32_t column = spans[0].m_First; column <= spans[0].m_Last; ++column) {
                const auto value = LoadVoxel<Pixel>(from + static_cast<std::size_t>(column) * sizeof(Pixel));
                if (padding.Holds(static_cast<double>(value))) return true;
            }
        }
    }
    return false;
}

template <typename Pixel>
void FindMeasuredAs(const SliceView& view, const SliceRun& run, Sampling sampling, const PaddingRange& padding,
                    unsigned char* measured) {
    std::int64_t x = run.m_Start[0], y = run.m_Start[1], z = run.m_Start[2];
    for (int i = 0; i < run.m_Count; ++i) {
        const Span spans[] = {SpanAlong(x, view.m_Columns, sampling), SpanAlong(y, view.m_Rows, sampling),
                              SpanOfPlanes(view, z, sampling)};
        measured[i] = HasPadding<Pixel>(view, spans, padding) ? 0 : 1;
        x += run.m_Step[0];
        y += run.m_Step[1];
        z += run.m_Step[2];
    }
}

}  // namespace

void FindMeasured(const SliceView& view, const SliceRun& run, Sampling sampling, const PaddingRange& padding,
                  unsigned char* measured) {
    switch (view.m_Type) {
    case CVolume::PT_SHORT: return FindMeasuredAs<std::int16_t>(view, run, sampling, padding, measured);
    case CVolume::PT_USHORT: return FindMeasuredAs<std::uint16_t>(view, run, sampling, padding, measured);
    case CVolume::PT_BYTE: return FindMeasuredAs<std::uint8_t>(view, run, sampling, padding, measured);
    case CVolume::PT_FLOAT: return FindMeasuredAs<float>(view, run, sampling, padding, measured);
    case CVolume::PT_LONG: return FindMeasuredAs<std::int32_t>(view, run, sampling, padding, measured);
    case CVolume::PT_ULONG: return FindMeasuredAs<std::uint32_t>(view, run, sampling, padding, measured);
    }
}

}  // namespace korvane_detail
