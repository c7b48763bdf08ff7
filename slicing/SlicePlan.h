// All that a picture needs, worked out once: where the rows run through the volume, and which loop samples them.
#pragma once

#include "CClipLine.h"
#include "SliceKernels.h"
#include "SlicePixels.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace korvane_detail {

/// The points to be sampled, in the volume frame: m_Origin + i * m_PerPixel + j * m_PerRow + n * m_PerLayer.
struct SliceGrid {
    double m_Origin[3];
    double m_PerPixel[3];
    double m_PerRow[3];
    double m_PerLayer[3];
    int m_Width;
    int m_Height;
    int m_Layers;
};

class SlicePlan {
public:
    explicit SlicePlan(const SliceTables& tables) : m_Tables(tables) {}
    SlicePlan(const SlicePlan&) = delete;
    SlicePlan& operator=(const SlicePlan&) = delete;

    void SetGrid(const SliceGrid& grid);
    void SetKernel(bool nearest, bool shaped, bool wide);
    void SetSlab(SlabRow::Mode mode) { m_Slab.emplace(mode, m_Grid.m_Width); }
    void SetBackground(double value);

    /// Rows are sampled some at a time; the most that `SampleRows` takes.
    static constexpr int kBand = 64;

    /// Rows first to first + count - 1 in the volume's type.
    void SampleRows(int first, int count, unsigned char* pixels);

private:
    struct Span {
        int m_First;
        int m_End;
    };

    void FindStart(int row, int layer, double (&start)[3]) const;
    Span Clip(const double (&start)[3]) const;
    bool IsBent(const double (&start)[3], int end, int other) const;
    void Sample(const double (&start)[3], int first, int count, void* out) const;
    void SampleRun(const double (&start)[3], int first, int count, void* out) const;
    void SamplePixels(const double (&start)[3], int first, int count, unsigned char* pixels);
    void SampleSlab(int row, unsigned char* pixels);

    const SliceTables& m_Tables;
    SliceGrid m_Grid = {};  // in positions
    CClipLine m_Box;
    bool m_bNearest = false;
    bool m_bShaped = false;
    bool m_bWide = false;
    SliceKernel m_Kernel = nullptr;
    std::optional<SlabRow> m_Slab;
    unsigned char m_Background[4] = {};
    alignas(32) unsigned char m_Samples[kLongestRun * sizeof(double)];
};

}  // namespace korvane_detail
