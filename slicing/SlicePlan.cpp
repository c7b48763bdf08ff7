#include "SlicePlan.h"

#include "base/Integer.h"

#include <algorithm>
#include <cmath>

namespace korvane_detail {

namespace {

// Samples of a run. Steps are rounded to the last bit of the fraction, which adds up: short runs stay within a
// four-millionth of a voxel.
constexpr int kRun = kLongestRun;

// Part of a voxel by which a sample may miss the border and still be on it.
constexpr double kBorder = 1e-4;

// Part of a voxel that rounding may account for.
constexpr double kRounding = 1e-9;

std::int64_t ToFixed(double position, double top) {
    return platform::TruncateToInt64(std::clamp(position, 0.0, top) * static_cast<double>(kOne) + 0.5);
}

}  // namespace

void SlicePlan::SetGrid(const SliceGrid& grid) {
    m_Grid = grid;
    double low[3];
    double high[3];
    m_Grid.m_Origin[2] -= m_Tables.GetFirstZ();
    for (int axis = 0; axis < 3; ++axis) {
        const double scale = m_Tables.GetScale()[axis];
        m_Grid.m_Origin[axis] *= scale;
        m_Grid.m_PerPixel[axis] *= scale;
        m_Grid.m_PerRow[axis] *= scale;
        m_Grid.m_PerLayer[axis] *= scale;
        const double voxel = m_Tables.GetVoxel()[axis];
        low[axis] = -kBorder * voxel;
        high[axis] = m_Tables.GetTop()[axis] + kBorder * voxel;
    }
    m_Box.SetBox(low, high);
}

void SlicePlan::SetKernel(bool nearest, bool shaped, bool wide) {
    const SliceView& view = m_Tables.GetView();
    m_bNearest = nearest;
    m_bShaped = shaped;
    m_bWide = wide;
    m_Kernel = nullptr;
    if (wide) {
        m_Kernel = nearest ? GetWideNearestKernel(view) : GetWideLinearKernel(view, shaped);
    }
    if (m_Kernel == nullptr) {
        m_Kernel = nearest ? GetNearestKernel(view) : GetLinearKernel(view, shaped);
    }
}

void SlicePlan::SetBackground(double value) {
    StoreValue(value, m_Tables.GetView().m_Type, m_Background);
}

void SlicePlan::FindStart(int row, int layer, double (&start)[3]) const {
    for (int axis = 0; axis < 3; ++axis) {
        start[axis] = m_Grid.m_Origin[axis] + row * m_Grid.m_PerRow[axis] + layer * m_Grid.m_PerLayer[axis];
    }
}

SlicePlan::Span SlicePlan::Clip(const double (&start)[3]) const {
    int first = 0;
    int last = -1;
    m_Box.ClipSamples(start, m_Grid.m_PerPixel, m_Grid.m_Width, first, last);
    return {first, last + 1};
}

// Whether sample `end` lies on the border by the tolerance alone, and sample `other` does not on the same side: a run
// between the two would not be straight.
bool SlicePlan::IsBent(const double (&start)[3], int end, int other) const {
    for (int axis = 0; axis < 3; ++axis) {
        const double top = m_Tables.GetTop()[axis];
        const double slack = kRounding * m_Tables.GetVoxel()[axis];
        const double step = m_Grid.m_PerPixel[axis];
        const double at = start[axis] + end * step;
        const double from = start[axis] + other * step;
        if ((at < -slack && from >= -slack) || (at > top + slack && from <= top + slack)) return true;
    }
    return false;
}

void SlicePlan::Sample(const double (&start)[3], int first, int count, void* out) const {
    auto* const to = static_cast<unsigned char*>(out);
    const int size = m_Tables.GetView().m_Size;
    const int bytes = m_bNearest ? size : IsSampledInFloat(size) ? 4 : 8;
    int from = first;
    int last = first + count - 1;
    for (; from < last && IsBent(start, from, last); ++from) SampleRun(start, from, 1, to + (from - first) * bytes);
    for (; from < last && IsBent(start, last, from); --last) SampleRun(start, last, 1, to + (last - first) * bytes);
    SampleRun(start, from, last - from + 1, to + (from - first) * bytes);
}

// Both ends are held within the volume, and the step is rounded toward zero: no sample between them is outside.
void SlicePlan::SampleRun(const double (&start)[3], int first, int count, void* out) const {
    SliceRun run;
    run.m_Count = count;
    for (int axis = 0; axis < 3; ++axis) {
        const double top = m_Tables.GetTop()[axis];
        const double step = m_Grid.m_PerPixel[axis];
        const std::int64_t begin = ToFixed(start[axis] + first * step, top);
        const std::int64_t end = ToFixed(start[axis] + (first + count - 1) * step, top);
        run.m_Start[axis] = begin;
        run.m_Step[axis] = count > 1 ? (end - begin) / (count - 1) : 0;
    }
    const SliceView& view = m_Tables.GetView();
    if (!IsAlongRow(run)) {
        m_Kernel(view, run, out);
    } else if (m_bNearest) {
        SampleNearestAlongRow(view, run, out);
    } else {
        SampleLinearAlongRow(view, run, m_bShaped, m_bWide, out);
    }
}

void SlicePlan::SamplePixels(const double (&start)[3], int first, int count, unsigned char* pixels) {
    if (m_bNearest) {
        Sample(start, first, count, pixels);
    } else {
        Sample(start, first, count, m_Samples);
        StoreSamples(m_Samples, count, m_Tables.GetView().m_Type, pixels);
    }
}

void SlicePlan::SampleSlab(int row, unsigned char* pixels) {
    const SliceView& view = m_Tables.GetView();
    m_Slab->Clear();
    for (int layer = 0; layer < m_Grid.m_Layers; ++layer) {
        double start[3];
        FindStart(row, layer, start);
        const Span inside = Clip(start);
        for (int i = inside.m_First; i < inside.m_End; i += kRun) {
            const int count = std::min(kRun, inside.m_End - i);
            Sample(start, i, count, m_Samples);
            if (m_bNearest) {
                m_Slab->AddPixels(i, count, m_Samples, view.m_Type);
            } else {
                m_Slab->AddSamples(i, count, m_Samples, IsSampledInFloat(view.m_Size));
            }
        }
    }
    m_Slab->Store(view.m_Type, m_Background, pixels);
}

void SlicePlan::SampleRows(int first, int count, unsigned char* pixels) {
    const std::size_t size = static_cast<std::size_t>(m_Tables.GetView().m_Size);
    const std::size_t rowBytes = static_cast<std::size_t>(m_Grid.m_Width) * size;
    const auto at = [&](int row, int column) {
        return pixels + static_cast<std::size_t>(row) * rowBytes + static_cast<std::size_t>(column) * size;
    };
    if (m_Slab) {
        for (int j = 0; j < count; ++j) SampleSlab(first + j, at(j, 0));
        return;
    }
    for (int j = 0; j < count; ++j) {
        double start[3];
        FindStart(first + j, 0, start);
        const Span inside = Clip(start);
        const auto fill = [&](int from, int to) {
            FillPixels(m_Background, static_cast<int>(size), static_cast<std::size_t>(to - from), at(j, from));
        };
        fill(0, inside.m_First);
        for (int i = inside.m_First; i < inside.m_End; i += kRun) {
            SamplePixels(start, i, std::min(kRun, inside.m_End - i), at(j, i));
        }
        fill(inside.m_End, m_Grid.m_Width);
    }
}

}  // namespace korvane_detail
