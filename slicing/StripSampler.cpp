#include "StripSampler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace korvane_detail {

namespace {

// How far ahead voxels are asked for: long enough for memory to answer, short enough for the first-level cache to keep them.
constexpr int kRowsAhead = 2;
constexpr int kSamplesAhead = 4;

/// Bytes from one plane to the next, on average: planes that were allocated one by one may lie anywhere, and a guess that
/// is wrong costs little.
double GetPlaneStep(const SliceView& view) {
    const auto address = [&](int plane) { return reinterpret_cast<std::uintptr_t>(view.m_pPlanes[plane]); };
    const int last = view.m_Planes - 1;
    return last > 0 ? static_cast<double>(static_cast<std::intptr_t>(address(last) - address(0))) / last : 0;
}

/// From a voxel to the first one on its way that `count` steps lead to.
std::ptrdiff_t BytesAhead(const SliceView& view, const double (&step)[3], int count) {
    constexpr double kSlow = 0.3;  // a slower step seldom comes to the next row or plane
    const auto lead = [&](int axis) { return std::round(count * step[axis]) + (step[axis] > kSlow ? 1 : 0); };
    const double planeBytes = static_cast<double>(view.m_RowBytes) * view.m_Rows;
    const double bytes = lead(2) * GetPlaneStep(view) + lead(1) * static_cast<double>(view.m_RowBytes);
    const double most = std::min(planeBytes * view.m_Planes, 1e9);
    return static_cast<std::ptrdiff_t>(std::clamp(bytes, -most, most));
}

template <typename Value>
void Pick(const unsigned char* lanes, int lane, int count, void* out) {
    const auto* const in = reinterpret_cast<const Value*>(lanes) + lane;
    for (int i = 0; i < count; ++i) static_cast<Value*>(out)[i] = in[i * kAbreast];
}

}  // namespace

void StripSampler::SetKernel(const SliceView& view, Sampling sampling, bool wide) {
    const bool shaped = sampling == Sampling::kShaped;
    const bool nearest = sampling == Sampling::kNearest;
    m_pView = &view;
    m_Sampling = sampling;
    m_bWide = wide;
    WideKernels kernels;
    if (sampling == Sampling::kCubic) {
        kernels.m_Along = GetCubicKernel(view);
    } else if (wide) {
        kernels = nearest ? GetWideNearestKernels(view) : GetWideLinearKernels(view, shaped);
    }
    if (kernels.m_Along == nullptr) {
        kernels.m_Along = nearest ? GetNearestKernel(view) : GetLinearKernel(view, shaped);
    }
    m_Kernel = kernels.m_Along;
    m_Abreast = kernels.m_Abreast;
}

void StripSampler::SetSteps(const double (&along)[3], const double (&across)[3]) {
    m_bAbreast = std::fabs(along[2]) > std::fabs(across[2]);
    m_AheadAlong = BytesAhead(*m_pView, along, kSamplesAhead);
    m_AheadAcross = BytesAhead(*m_pView, across, kRowsAhead);
}

void StripSampler::Sample(const std::vector<SliceStrip>& strips, const Sink& sink) {
    m_Crossing.clear();
    for (const SliceStrip& strip : strips) {
        if (m_Sampling == Sampling::kCubic || !IsAlongRow(strip.m_Run)) {
            m_Crossing.push_back(strip);
            continue;
        }
        void* const room = GetRoom(strip, sink);
        if (m_Sampling == Sampling::kNearest) {
            SampleNearestAlongRow(*m_pView, strip.m_Run, room);
        } else {
            SampleLinearAlongRow(*m_pView, strip.m_Run, m_Sampling == Sampling::kShaped, m_bWide, room);
        }
        sink.m_Take(strip, room);
    }
    if (m_bAbreast && m_Abreast != nullptr) {
        SampleSideBySide(sink);
    } else if (!m_Crossing.empty()) {
        SampleInTiles(sink);
    }
}

void StripSampler::SampleStrip(const SliceStrip& strip, int begin, int end, const Sink& sink) {
    if (begin >= end) return;
    SliceStrip part = strip.GetPart(begin, end);
    part.m_Run.m_Ahead = m_AheadAcross;
    void* const room = GetRoom(part, sink);
    m_Kernel(*m_pView, part.m_Run, room);
    sink.m_Take(part, room);
}

void StripSampler::SampleInTiles(const Sink& sink) {
    int end = 0;
    for (const SliceStrip& strip : m_Crossing) end = std::max(end, strip.GetEnd());
    for (int from = 0; from < end; from += kTile) {
        for (const SliceStrip& strip : m_Crossing) {
            SampleStrip(strip, std::max(from, strip.m_Column), std::min(from + kTile, strip.GetEnd()), sink);
        }
    }
}

void StripSampler::SampleSideBySide(const Sink& sink) {
    std::size_t k = 0;
    for (; k + kAbreast <= m_Crossing.size(); k += kAbreast) SampleGroup(m_Crossing.data() + k, sink);
    for (; k < m_Crossing.size(); ++k) {
        SampleStrip(m_Crossing[k], m_Crossing[k].m_Column, m_Crossing[k].GetEnd(), sink);
    }
}

/// The columns that all strips have side by side, what is left of each on its own.
void StripSampler::SampleGroup(const SliceStrip* group, const Sink& sink) {
    int begin = 0;
    int end = group->GetEnd();
    for (int lane = 0; lane < kAbreast; ++lane) {
        begin = std::max(begin, group[lane].m_Column);
        end = std::min(end, group[lane].GetEnd());
    }
    end = std::max(begin, end);
    for (int lane = 0; lane < kAbreast; ++lane) {
        const SliceStrip& strip = group[lane];
        SampleStrip(strip, strip.m_Column, std::min(begin, strip.GetEnd()), sink);
        SampleStrip(strip, std::max(end, strip.m_Column), strip.GetEnd(), sink);
    }
    for (int from = begin; from < end; from += kTile) SampleAbreast(group, from, std::min(end, from + kTile), sink);
}

void StripSampler::SampleAbreast(const SliceStrip* group, int begin, int end, const Sink& sink) {
    SliceStrip parts[kAbreast];
    SliceRun runs[kAbreast];
    for (int lane = 0; lane < kAbreast; ++lane) {
        parts[lane] = group[lane].GetPart(begin, end);
        runs[lane] = parts[lane].m_Run;
        runs[lane].m_Ahead = m_AheadAlong;
    }
    m_Abreast(*m_pView, runs, m_Lanes);
    for (int lane = 0; lane < kAbreast; ++lane) {
        void* const room = GetRoom(parts[lane], sink);
        PickLane(lane, end - begin, room);
        sink.m_Take(parts[lane], room);
    }
}

void StripSampler::PickLane(int lane, int count, void* out) const {
    switch (GetSampleBytes(m_Sampling, m_pView->m_Size)) {
    case 1: return Pick<std::uint8_t>(m_Lanes, lane, count, out);
    case 2: return Pick<std::uint16_t>(m_Lanes, lane, count, out);
    case 4: return Pick<std::uint32_t>(m_Lanes, lane, count, out);
    default: return Pick<std::uint64_t>(m_Lanes, lane, count, out);
    }
}

}  // namespace korvane_detail
