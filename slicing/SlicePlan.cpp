#include "SlicePlan.h"

#include "base/Integer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

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
    m_Grid.m_Origin[2] -= m_Tables.GetFirstZ();
    for (int axis = 0; axis < 3; ++axis) {
        const double scale = m_Tables.GetScale()[axis];
        m_Grid.m_Origin[axis] *= scale;
        m_Grid.m_PerPixel[axis] *= scale;
        m_Grid.m_PerRow[axis] *= scale;
        m_Grid.m_PerLayer[axis] *= scale;
        const double voxel = m_Tables.GetVoxel()[axis];
        m_Low[axis] = -kBorder * voxel;
        m_High[axis] = m_Tables.GetTop()[axis] + kBorder * voxel;
    }
    m_Box.SetBox(m_Low, m_High);
    MakeShears();
}

// An even shear leaves lines straight and their steps even: the grid itself is taken to the voxels, and rows are sampled
// as those of an upright stack are.
void SlicePlan::MakeShears() {
    const PlaneOffsets& offsets = m_Tables.GetOffsets();
    const auto& knots = offsets.GetKnots();
    const double(&scale)[3] = m_Tables.GetScale();
    m_Shears.clear();
    for (std::size_t k = 0; k + 1 < knots.size(); ++k) {
        const auto& low = knots[k];
        const auto& high = knots[k + 1];
        Shear shear{(low.m_Z - m_Tables.GetFirstZ()) * scale[2], {}, {}};
        const double gap = (high.m_Z - low.m_Z) * scale[2];
        shear.m_Slope[0] = (high.m_Offset.m_X - low.m_Offset.m_X) * scale[0] / gap;
        shear.m_Slope[1] = (high.m_Offset.m_Y - low.m_Offset.m_Y) * scale[1] / gap;
        shear.m_Zero[0] = low.m_Offset.m_X * scale[0] - shear.m_LowZ * shear.m_Slope[0];
        shear.m_Zero[1] = low.m_Offset.m_Y * scale[1] - shear.m_LowZ * shear.m_Slope[1];
        m_Shears.push_back(shear);
    }
    if (!offsets.IsUpright() && offsets.IsEven()) {
        const Shear shear = m_Shears.front();
        for (int axis = 0; axis < 2; ++axis) {
            m_Grid.m_Origin[axis] -= shear.m_Zero[axis] + m_Grid.m_Origin[2] * shear.m_Slope[axis];
            m_Grid.m_PerPixel[axis] -= m_Grid.m_PerPixel[2] * shear.m_Slope[axis];
            m_Grid.m_PerRow[axis] -= m_Grid.m_PerRow[2] * shear.m_Slope[axis];
            m_Grid.m_PerLayer[axis] -= m_Grid.m_PerLayer[2] * shear.m_Slope[axis];
        }
        m_Shears.clear();
    }
}

int SlicePlan::CountParts(const double (&step)[3]) const {
    double voxels = 0;
    for (int axis = 0; axis < 3; ++axis) {
        voxels = std::max(voxels, std::fabs(step[axis]) * m_Tables.GetScale()[axis] / m_Tables.GetVoxel()[axis]);
    }
    return std::clamp(platform::TruncateToInt32(std::ceil(voxels - kBorder)), 1, kMostParts);
}

void SlicePlan::SetKernel(Sampling sampling, bool wide) {
    m_Sampling = sampling;
    m_Sampler.SetKernel(m_Tables.GetView(), sampling, wide);
    double along[3];
    double across[3];
    for (int axis = 0; axis < 3; ++axis) {
        along[axis] = m_Grid.m_PerPixel[axis] / m_Tables.GetVoxel()[axis];
        across[axis] = m_Grid.m_PerRow[axis] / m_Tables.GetVoxel()[axis];
    }
    m_Sampler.SetSteps(along, across);
}

void SlicePlan::SetBackground(double value) {
    StoreValue(value, m_Tables.GetView().m_Type, m_Background);
}

void SlicePlan::SetPadding(const PaddingRange& padding, double value) {
    m_PaddingRange = padding;
    StoreValue(value, m_Tables.GetView().m_Type, m_Padding);
}

SlicePlan::Line SlicePlan::FindLine(int row) const {
    Line line;
    for (int axis = 0; axis < 3; ++axis) {
        line.m_Start[axis] = m_Grid.m_Origin[axis] + row * m_Grid.m_PerRow[axis];
        line.m_Step[axis] = m_Grid.m_PerPixel[axis];
    }
    return line;
}

SlicePlan::Line SlicePlan::Shift(const Line& line, double across, double down, int layer) const {
    Line shifted = line;
    for (int axis = 0; axis < 3; ++axis) {
        shifted.m_Start[axis] += layer * m_Grid.m_PerLayer[axis];
        shifted.m_Start[axis] += across * m_Grid.m_PerPixel[axis] + down * m_Grid.m_PerRow[axis];
    }
    return shifted;
}

/// Calls `work` with a line and the first and the end of its samples, all inside the volume, for each straight piece of
/// a row, from left to right.
template <typename Work>
void SlicePlan::ForEachPiece(const Line& line, Work work) const {
    int first = 0;
    int last = -1;
    if (m_Shears.empty()) {
        if (m_Box.ClipSamples(line.m_Start, line.m_Step, m_Grid.m_Width, first, last)) work(line, first, last + 1);
        return;
    }
    const auto shearAt = [&](double z) {
        const auto above = std::upper_bound(m_Shears.begin(), m_Shears.end(), z,
                                            [](double value, const Shear& shear) { return value < shear.m_LowZ; });
        return std::max<std::ptrdiff_t>(above - m_Shears.begin() - 1, 0);
    };
    const auto endShear = shearAt(line.m_Start[2] + (m_Grid.m_Width - 1) * line.m_Step[2]);
    const std::ptrdiff_t step = line.m_Step[2] < 0 ? -1 : 1;
    int done = 0;
    for (auto k = shearAt(line.m_Start[2]);; k += step) {
        const Shear& shear = m_Shears[static_cast<std::size_t>(k)];
        Line piece = line;
        for (int axis = 0; axis < 2; ++axis) {
            piece.m_Start[axis] -= shear.m_Zero[axis] + line.m_Start[2] * shear.m_Slope[axis];
            piece.m_Step[axis] -= line.m_Step[2] * shear.m_Slope[axis];
        }
        const bool lowest = k == 0;
        const bool highest = k + 1 == static_cast<std::ptrdiff_t>(m_Shears.size());
        const double low[3] = {m_Low[0], m_Low[1], lowest ? m_Low[2] : shear.m_LowZ};
        const double high[3] = {m_High[0], m_High[1],
                                highest ? m_High[2] : m_Shears[static_cast<std::size_t>(k) + 1].m_LowZ};
        // A sample on a plane is in the pieces on both sides of it, and is taken once.
        if (CClipLine(low, high).ClipSamples(piece.m_Start, piece.m_Step, m_Grid.m_Width, first, last) &&
            last >= done) {
            work(piece, std::max(first, done), last + 1);
            done = last + 1;
        }
        if (k == endShear) return;
    }
}

// Whether sample `end` lies on the border by the tolerance alone, and sample `other` does not on the same side: a run
// between the two would not be straight.
bool SlicePlan::IsBent(const Line& line, int end, int other) const {
    for (int axis = 0; axis < 3; ++axis) {
        const double top = m_Tables.GetTop()[axis];
        const double slack = kRounding * m_Tables.GetVoxel()[axis];
        const double at = line.m_Start[axis] + end * line.m_Step[axis];
        const double from = line.m_Start[axis] + other * line.m_Step[axis];
        if ((at < -slack && from >= -slack) || (at > top + slack && from <= top + slack)) return true;
    }
    return false;
}

/// Calls `work` with each straight run of `count` samples, and where it begins among them.
template <typename Work>
void SlicePlan::ForEachRun(const Line& line, int first, int count, Work work) const {
    int from = first;
    int last = first + count - 1;
    for (; from < last && IsBent(line, from, last); ++from) work(RunOf(line, from, 1), from - first);
    for (; from < last && IsBent(line, last, from); --last) work(RunOf(line, last, 1), last - first);
    work(RunOf(line, from, last - from + 1), from - first);
}

// Both ends are held within the volume, and the step is rounded toward zero: no sample between them is outside.
SliceRun SlicePlan::RunOf(const Line& line, int first, int count) const {
    SliceRun run;
    run.m_Count = count;
    for (int axis = 0; axis < 3; ++axis) {
        const double top = m_Tables.GetTop()[axis];
        const std::int64_t begin = ToFixed(line.m_Start[axis] + first * line.m_Step[axis], top);
        const std::int64_t end = ToFixed(line.m_Start[axis] + (first + count - 1) * line.m_Step[axis], top);
        run.m_Start[axis] = begin;
        run.m_Step[axis] = count > 1 ? (end - begin) / (count - 1) : 0;
    }
    return run;
}

/// Adds samples `begin` to `end` of a line, in picture row `row`, to m_Strips.
void SlicePlan::FindStrips(const Line& line, int begin, int end, int row) {
    for (int i = begin; i < end; i += kRun) {
        ForEachRun(line, i, std::min(kRun, end - i), [&](const SliceRun& run, int from) {
            m_Strips.push_back({run, row, i + from});
        });
    }
}

void SlicePlan::SampleRows(int first, int count, unsigned char* pixels) {
    const auto size = static_cast<std::size_t>(m_Tables.GetView().m_Size);
    const std::size_t rowBytes = static_cast<std::size_t>(m_Grid.m_Width) * size;
    if (!m_Slab.empty()) {
        for (int done = 0; done < count; done += kSlabBand) {
            SampleSlab(first + done, std::min(kSlabBand, count - done),
                       pixels + static_cast<std::size_t>(done) * rowBytes);
        }
        return;
    }
    const auto at = [&](int row, int column) {
        return pixels + static_cast<std::size_t>(row) * rowBytes + static_cast<std::size_t>(column) * size;
    };
    m_Strips.clear();
    for (int j = 0; j < count; ++j) {
        const auto fill = [&](int from, int to) {
            FillPixels(m_Background, static_cast<int>(size), static_cast<std::size_t>(to - from), at(j, from));
        };
        int filled = 0;
        ForEachPiece(FindLine(first + j), [&](const Line& line, int begin, int end) {
            fill(filled, begin);
            FindStrips(line, begin, end, j);
            filled = end;
        });
        fill(filled, m_Grid.m_Width);
    }
    StripSampler::Sink sink;
    if (m_Sampling == Sampling::kNearest) {
        sink.m_Room = [&](const SliceStrip& part) { return at(part.m_Row, part.m_Column); };
        sink.m_Take = [](const SliceStrip& /*part*/, const void* /*samples*/) {};
    } else {
        sink.m_Take = [&](const SliceStrip& part, const void* samples) {
            StoreSamples(samples, part.m_Run.m_Count, m_Tables.GetView().m_Type, at(part.m_Row, part.m_Column));
        };
    }
    m_Sampler.Sample(m_Strips, sink);
}

/// Layer by layer, so that each is sampled in an order that suits memory; a pixel gets its samples in the same order all the
/// same.
void SlicePlan::SampleSlab(int first, int count, unsigned char* pixels) {
    const auto part = [](int i, int parts) { return (i - (parts - 1) / 2.0) / parts; };
    const SliceView& view = m_Tables.GetView();
    const StripSampler::Sink sink = {{}, [this](const SliceStrip& strip, const void* samples) {
                                         AddToSlab(strip, samples, FindPadding(strip, m_Measured));
                                     }};
    for (SlabRow& row : m_Slab) row.Clear();
    for (int layer = 0; layer < m_Grid.m_Layers; ++layer) {
        for (int down = 0; down < m_Grid.m_Down; ++down) {
            for (int across = 0; across < m_Grid.m_Across; ++across) {
                m_Strips.clear();
                for (int j = 0; j < count; ++j) {
                    const Line line =
                        Shift(FindLine(first + j), part(across, m_Grid.m_Across), part(down, m_Grid.m_Down), layer);
                    ForEachPiece(line,
                                 [&](const Line& piece, int begin, int end) { FindStrips(piece, begin, end, j); });
                }
                if (m_pKept != nullptr) {
                    SampleKeptLayer(layer, first, count);
                } else {
                    m_Sampler.Sample(m_Strips, sink);
                }
            }
        }
    }
    const std::size_t rowBytes = static_cast<std::size_t>(m_Grid.m_Width) * static_cast<std::size_t>(view.m_Size);
    for (int j = 0; j < count; ++j) {
        m_Slab[static_cast<std::size_t>(j)].Store(view.m_Type, m_Background, m_Padding,
                                                  pixels + static_cast<std::size_t>(j) * rowBytes);
    }
}

/// The strips of rows `first` to `first + count - 1`: those of the rows that are kept with the same positions are taken, the
/// others sampled and kept.
void SlicePlan::SampleKeptLayer(int layer, int first, int count) {
    m_Fresh.clear();
    std::size_t begin = 0;
    for (int j = 0; j < count; ++j) {
        std::size_t end = begin;
        while (end < m_Strips.size() && m_Strips[end].m_Row == j) ++end;
        KeptLayers::Row& kept = m_pKept->GetRow(layer, first + j);
        kept.m_bKept = AreSame(m_Strips.data() + begin, end - begin, kept.m_Strips);
        if (!kept.m_bKept) {
            kept.m_Strips.clear();
            m_Fresh.insert(m_Fresh.end(), m_Strips.begin() + static_cast<std::ptrdiff_t>(begin),
                           m_Strips.begin() + static_cast<std::ptrdiff_t>(end));
        }
        begin = end;
    }
    const std::size_t bytes = m_pKept->GetForm().m_SampleBytes;
    const auto samplesOf = [&](const SliceStrip& strip) {
        return m_pKept->GetSamples(layer, first + strip.m_Row) + static_cast<std::size_t>(strip.m_Column) * bytes;
    };
    const auto measuredOf = [&](const SliceStrip& strip) {
        unsigned char* const row = m_pKept->GetMeasured(layer, first + strip.m_Row);
        return row != nullptr ? row + strip.m_Column : nullptr;
    };
    m_Sampler.Sample(m_Fresh, {samplesOf, [&](const SliceStrip& strip, const void* /*samples*/) {
                                   FindPadding(strip, measuredOf(strip));
                               }});
    for (const SliceStrip& strip : m_Fresh) m_pKept->GetRow(layer, first + strip.m_Row).m_Strips.push_back(strip);
    for (const SliceStrip& strip : m_Strips) AddToSlab(strip, samplesOf(strip), measuredOf(strip));
}

/// `measured`, with what `FindMeasured` finds; null without padding.
const unsigned char* SlicePlan::FindPadding(const SliceStrip& strip, unsigned char* measured) const {
    if (!m_PaddingRange) return nullptr;
    FindMeasured(m_Tables.GetView(), strip.m_Run, m_Sampling, *m_PaddingRange, measured);
    return measured;
}

void SlicePlan::AddToSlab(const SliceStrip& strip, const void* samples, const unsigned char* measured) {
    const SliceView& view = m_Tables.GetView();
    SlabRow& row = m_Slab[static_cast<std::size_t>(strip.m_Row)];
    if (m_Sampling == Sampling::kNearest) {
        row.AddPixels(strip.m_Column, strip.m_Run.m_Count, samples, view.m_Type, measured);
    } else {
        row.AddSamples(strip.m_Column, strip.m_Run.m_Count, samples, IsSampledInFloat(view.m_Size), measured);
    }
}

}  // namespace korvane_detail
