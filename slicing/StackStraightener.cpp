#include "StackStraightener.h"

#include "PatientFrame.h"
#include "PlaneOffsets.h"
#include "SliceKernels.h"
#include "SlicePixels.h"
#include "base/Bytes.h"
#include "base/Integer.h"
#include "volume/BufferSize.h"
#include "volume/VoxelRange.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace korvane_detail {

namespace {

double GetOffset(const ZSample& sample, int axis) {
    return axis == 0 ? sample.m_X : sample.m_Y;
}

template <typename Pixel, typename Number>
void Add(const unsigned char* row, double weight, int count, Number* sums) {
    for (int i = 0; i < count; ++i) {
        sums[i] += static_cast<Number>(weight) *
                   static_cast<Number>(platform::LoadAt<Pixel>(row, static_cast<std::size_t>(i)));
    }
}

}  // namespace

PlaneRun RunOnThisThread() {
    return [](int planes, const PlaneWork& work) { work(0, planes); };
}

double FindLowestVoxel(CVolume& volume, const std::function<bool()>& stop, const PlaneRun& run) {
    int dim[4];
    volume.GetDimensions(dim);
    const std::size_t voxels = BufferSize({dim[0], dim[1]});
    std::vector<double> lowest(static_cast<std::size_t>(dim[2]), std::numeric_limits<double>::infinity());
    std::atomic<bool> stopped = false;
    run(dim[2], [&](int first, int end) {
        for (int k = first; k < end && !stopped; ++k) {
            if (stop && stop()) stopped = true;
            const VoxelRange range = FindVoxelRange(volume.GetPlane(k)->m_pData, voxels, volume.GetType());
            if (range.m_Low <= range.m_High) lowest[static_cast<std::size_t>(k)] = range.m_Low;
        }
    });
    const auto least = std::min_element(lowest.begin(), lowest.end());
    return !stopped && least != lowest.end() && std::isfinite(*least) ? *least : 0;
}

StackStraightener::StackStraightener(CVolume& source, const ZSampler& sampler)
    : m_Source(source), m_Samples(sampler.GetSamples()) {
    int dim[4];
    float space[4];
    source.GetDimensions(dim);
    source.GetSpacing(space);
    for (int axis = 0; axis < 2; ++axis) {
        const auto lower = [axis](const ZSample& a, const ZSample& b) {
            return GetOffset(a, axis) < GetOffset(b, axis);
        };
        const auto [low, high] = std::minmax_element(m_Samples.begin(), m_Samples.end(), lower);
        const StraightExtent extent = FindStraightExtent(GetOffset(m_Samples.front(), axis), GetOffset(*low, axis),
                                                         GetOffset(*high, axis), space[axis]);
        m_Count[axis] = dim[axis];
        m_Space[axis] = space[axis];
        m_Canvas.m_First[axis] = extent.m_First;
        m_Canvas.m_Extent[axis] = GetOffset(*high, axis) - GetOffset(*low, axis);
        m_Canvas.m_Count[axis] = std::max(platform::WrapAdd(dim[axis], extent.m_More), 0);
    }
}

VolumePointer StackStraightener::Make(double fill, const StraightenOptions& options, const PlaneRun& run) {
    const CVolume::PixelType type = m_Source.GetType();
    VolumePointer result(CVolume::New());
    const int planes = static_cast<int>(m_Samples.size());
    m_pOptions = &options;
    result->Init(type, m_Canvas.m_Count[0], m_Canvas.m_Count[1], planes, 1);
    result->Alloc(options.m_bContig);
    PlaceResult(*result);
    StoreValue(fill, type, m_FillPixel);
    const VoxelRange stored = FindVoxelRange(m_FillPixel, 1, type);
    m_Fill = stored.m_Low <= stored.m_High ? stored.m_Low : fill;
    m_Filled = 0;
    m_bPaddingFilled = false;
    m_bStopped = false;
    run(planes, [&](int first, int end) { FillPlanes(*result, first, end); });
    if (m_bStopped) return nullptr;
    if (m_Filled > 0 || m_bPaddingFilled) {
        result->SetMin(std::min<long long>(m_Source.GetMin(), platform::TruncateToInt64(m_Fill)));
        result->SetMax(std::max<long long>(m_Source.GetMax(), platform::TruncateToInt64(m_Fill)));
    }
    return result;
}

// Threads of the caller's each have their own ranges.
void StackStraightener::FillPlanes(CVolume& result, int first, int end) {
    Bench bench;
    bench.m_Memory.resize(static_cast<std::size_t>(m_Count[0]) * 2 * sizeof(double));
    bench.m_Padded.resize(static_cast<std::size_t>(m_Count[0]));
    for (int k = first; k < end && !m_bStopped; ++k) {
        auto* const out = static_cast<unsigned char*>(result.GetPlane(k)->m_pData);
        if (!FillPlane(m_Samples[static_cast<std::size_t>(k)], out, bench)) m_bStopped = true;
    }
    m_Filled += bench.m_Filled;
    if (bench.m_bPaddingFilled) m_bPaddingFilled = true;
}

// The origin moves to the canvas' first voxel, and the planes' z, which count from it, with it.
void StackStraightener::PlaceResult(CVolume& result) const {
    float space[4];
    float origin[4];
    float orientation[2][3];
    m_Source.GetSpacing(space);
    m_Source.GetOrigin(origin);
    m_Source.GetOrientation(orientation);
    const double oldZ = origin[2];
    PatientFrame frame;
    if (!frame.Read(m_Source)) frame = PatientFrame();
    const Triple along = Plus(Times(frame.m_Row, m_Canvas.m_First[0]), Times(frame.m_Column, m_Canvas.m_First[1]));
    for (std::size_t axis = 0; axis < 3; ++axis) origin[axis] = static_cast<float>(origin[axis] + along[axis]);
    const double extent = std::fabs(m_Samples.back().m_Z - m_Samples.front().m_Z);
    if (extent > 0) space[2] = static_cast<float>(extent / static_cast<double>(m_Samples.size() - 1));
    result.SetSpacing(space);
    result.SetOrigin(origin);
    result.SetOrientation(orientation);
    result.SetMin(m_Source.GetMin());
    result.SetMax(m_Source.GetMax());
    for (int k = 0; k < static_cast<int>(m_Samples.size()); ++k) {
        float* const org = result.GetPlane(k)->m_Org;
        org[0] = origin[0];
        org[1] = origin[1];
        org[2] = static_cast<float>(m_Samples[static_cast<std::size_t>(k)].m_Z + oldZ - origin[2]);
    }
    result.UpdateZInterpArray();
}

StackStraightener::Shift StackStraightener::FindShift(int axis, double offset) const {
    const double shift = (m_Canvas.m_First[axis] - offset) / m_Space[axis];
    const double whole = std::floor(shift + kStraight);
    const double part = shift - whole;
    Shift found{platform::TruncateToInt32(whole), part > kStraight ? part : 0, 0, 0};
    found.m_Begin = std::max(-found.m_Whole, 0);
    found.m_End = std::min(m_Count[axis] - found.m_Whole - (found.m_Part > 0 ? 1 : 0), m_Canvas.m_Count[axis]);
    found.m_End = std::max(found.m_End, found.m_Begin);  // one voxel that lies between two
    return found;
}

bool StackStraightener::IsStopped(std::size_t voxels, Bench& bench) const {
    constexpr std::size_t kEvery = 1 << 18;  // voxels, of a millisecond or so
    bench.m_nUnasked += voxels;
    if (bench.m_nUnasked < kEvery) return false;
    bench.m_nUnasked = 0;
    return m_pOptions->m_Stop && m_pOptions->m_Stop();
}

// False where it was stopped.
bool StackStraightener::FillPlane(const ZSample& sample, unsigned char* out, Bench& bench) const {
    switch (m_Source.GetType()) {
    case CVolume::PT_BYTE: return FillPlaneAs<std::uint8_t, float>(sample, out, bench);
    case CVolume::PT_SHORT: return FillPlaneAs<std::int16_t, float>(sample, out, bench);
    case CVolume::PT_USHORT: return FillPlaneAs<std::uint16_t, float>(sample, out, bench);
    case CVolume::PT_FLOAT: return FillPlaneAs<float, double>(sample, out, bench);
    case CVolume::PT_LONG: return FillPlaneAs<std::int32_t, double>(sample, out, bench);
    case CVolume::PT_ULONG: return FillPlaneAs<std::uint32_t, double>(sample, out, bench);
    }
    return true;
}

template <typename Pixel, typename Number>
bool StackStraightener::FillPlaneAs(const ZSample& sample, unsigned char* out, Bench& bench) const {
    constexpr int kSize = sizeof(Pixel);
    const Shift x = FindShift(0, sample.m_X);
    const Shift y = FindShift(1, sample.m_Y);
    const auto width = static_cast<std::size_t>(m_Canvas.m_Count[0]);
    const auto first = static_cast<std::size_t>(x.m_Begin);
    const auto count = static_cast<std::size_t>(x.m_End - x.m_Begin);
    const auto* const low = static_cast<const unsigned char*>(m_Source.GetPlane(sample.m_Low)->m_pData);
    const auto from = static_cast<std::size_t>(std::int64_t{x.m_Begin} + x.m_Whole);
    auto* const mixed = reinterpret_cast<Number*>(bench.m_Memory.data());
    auto* const moved = mixed + m_Count[0];
    for (int r = 0; r < m_Canvas.m_Count[1]; ++r, out += width * kSize) {
        if (IsStopped(width, bench)) return false;
        if (r < y.m_Begin || r >= y.m_End) {
            FillPixels(m_FillPixel, kSize, width, out);
            bench.m_Filled += width;
            continue;
        }
        FillPixels(m_FillPixel, kSize, first, out);
        FillPixels(m_FillPixel, kSize, width - first - count, out + (first + count) * kSize);
        bench.m_Filled += width - count;
        const int row = r + y.m_Whole;
        if (x.m_Part == 0 && y.m_Part == 0 && !(sample.m_Weight > 0)) {
            std::memcpy(out + first * kSize, low + (static_cast<std::size_t>(row) * m_Count[0] + from) * kSize,
                        count * kSize);
            continue;
        }
        MixRow<Pixel, Number>(sample, row, y.m_Part, bench);
        const Number* samples = mixed + from;
        if (x.m_Part > 0) {
            const auto part = static_cast<Number>(x.m_Part);
            for (std::size_t i = 0; i < count; ++i) moved[i] = samples[i] + part * (samples[i + 1] - samples[i]);
            samples = moved;
        }
        StoreSamples(samples, static_cast<int>(count), m_Source.GetType(), out + first * kSize);
        if (m_pOptions->m_Padding)
            FillPadded<Pixel>(sample, row, y.m_Part > 0, x.m_Part > 0, from, count, out + first * kSize, bench);
    }
    return true;
}

// What padding has a weight in becomes the fill value.
template <typename Pixel>
void StackStraightener::FillPadded(const ZSample& sample, int row, bool isBetweenRows, bool isBetweenColumns,
                                   std::size_t from, std::size_t count, unsigned char* out, Bench& bench) const {
    const auto range = *m_pOptions->m_Padding;
    const std::size_t columns = bench.m_Padded.size();
    std::fill(bench.m_Padded.begin(), bench.m_Padded.end(), 0);
    const auto mark = [&](int plane, int at) {
        const auto* const data = static_cast<const unsigned char*>(m_Source.GetPlane(plane)->m_pData);
        const unsigned char* const voxels = data + static_cast<std::size_t>(at) * columns * sizeof(Pixel);
        for (std::size_t i = 0; i < columns; ++i) {
            const auto value = static_cast<double>(platform::LoadAt<Pixel>(voxels, i));
            if (value >= range.first && value <= range.second) bench.m_Padded[i] = 1;
        }
    };
    const auto markRows = [&](int plane) {
        mark(plane, row);
        if (isBetweenRows) mark(plane, row + 1);
    };
    markRows(sample.m_Low);
    if (sample.m_Weight > 0) markRows(sample.m_High);
    for (std::size_t i = 0; i < count; ++i) {
        if (bench.m_Padded[from + i] == 0 && (!isBetweenColumns || bench.m_Padded[from + i + 1] == 0)) continue;
        std::memcpy(out + i * sizeof(Pixel), m_FillPixel, sizeof(Pixel));
        bench.m_bPaddingFilled = true;
    }
}

// A row between two rows of the source, `part` of the way, mixed across the sample's two planes.
template <typename Pixel, typename Number>
void StackStraightener::MixRow(const ZSample& sample, int row, double part, Bench& bench) const {
    auto* const mixed = reinterpret_cast<Number*>(bench.m_Memory.data());
    std::fill_n(mixed, m_Count[0], Number{0});
    const std::size_t rowBytes = static_cast<std::size_t>(m_Count[0]) * sizeof(Pixel);
    const auto add = [&](int plane, double weight) {
        const auto* const data = static_cast<const unsigned char*>(m_Source.GetPlane(plane)->m_pData);
        const unsigned char* const at = data + static_cast<std::size_t>(row) * rowBytes;
        Add<Pixel>(at, weight * (1 - part), m_Count[0], mixed);
        if (part > 0) Add<Pixel>(at + rowBytes, weight * part, m_Count[0], mixed);
    };
    add(sample.m_Low, 1 - sample.m_Weight);
    if (sample.m_Weight > 0) add(sample.m_High, sample.m_Weight);
}

}  // namespace korvane_detail
