// All that a picture needs, worked out once: where the rows run through the volume, and which loop samples them.
#pragma once

#include "CClipLine.h"
#include "KeptLayers.h"
#include "SlicePadding.h"
#include "SlicePixels.h"
#include "StripSampler.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace korvane_detail {

/// The points to be sampled, in millimetres along the volume's axes from its corner in plane 0: m_Origin + i * m_PerPixel + j * m_PerRow + n * m_PerLayer.
struct SliceGrid {
    double m_Origin[3];
    double m_PerPixel[3];
    double m_PerRow[3];
    double m_PerLayer[3];
    int m_Width;
    int m_Height;
    int m_Layers;
    /// Samples of a pixel along the row and down the column, spread over its area.
    int m_Across = 1;
    int m_Down = 1;
};

class SlicePlan {
public:
    explicit SlicePlan(const SliceTables& tables) : m_Tables(tables) {}
    SlicePlan(const SlicePlan&) = delete;
    SlicePlan& operator=(const SlicePlan&) = delete;

    void SetGrid(const SliceGrid& grid);
    /// After `SetGrid`.
    void SetKernel(Sampling sampling, bool wide);
    /// What becomes of the samples of a pixel where there are several: layers, or parts of its area.
    void SetSlab(SlabRow::Mode mode) { m_Slab.assign(kSlabBand, SlabRow(mode, m_Grid.m_Width)); }
    /// Takes layers from there where they are the same, and leaves them there. Null for none; not for parts of an area.
    void SetKept(KeptLayers* kept) { m_pKept = kept; }
    /// How many samples leave no voxel out along a step of the grid (`SetGrid` first), 1 to kMostParts.
    int CountParts(const double (&step)[3]) const;
    static constexpr int kMostParts = 256;
    void SetBackground(double value);
    /// Samples of padding are left out of slabs; pixels of nothing else are `value`.
    void SetPadding(const PaddingRange& padding, double value);

    /// Rows are sampled some at a time; the most that `SampleRows` takes.
    static constexpr int kBand = 64;

    /// Rows first to first + count - 1 in the volume's type.
    void SampleRows(int first, int count, unsigned char* pixels);

private:
    /// A row of the picture in positions: sample i is at m_Start + i * m_Step.
    struct Line {
        double m_Start[3];
        double m_Step[3];
    };
    /// The shear from one plane offset to the next, in positions: x and y of a voxel are a point's less
    /// m_Zero + z * m_Slope.
    struct Shear {
        double m_LowZ;  // from here on, to where the next one begins
        double m_Zero[2];
        double m_Slope[2];
    };

    void MakeShears();
    Line FindLine(int row) const;
    Line Shift(const Line& line, double across, double down, int layer) const;
    template <typename Work>
    void ForEachPiece(const Line& line, Work work) const;
    bool IsBent(const Line& line, int end, int other) const;
    SliceRun RunOf(const Line& line, int first, int count) const;
    template <typename Work>
    void ForEachRun(const Line& line, int first, int count, Work work) const;
    void FindStrips(const Line& line, int begin, int end, int row);
    void SampleSlab(int first, int count, unsigned char* pixels);
    void SampleKeptLayer(int layer, int first, int count);
    void AddToSlab(const SliceStrip& strip, const void* samples, const unsigned char* measured);
    const unsigned char* FindPadding(const SliceStrip& strip, unsigned char* measured) const;

    const SliceTables& m_Tables;
    SliceGrid m_Grid = {};  // in positions
    double m_Low[3] = {0, 0, 0};
    double m_High[3] = {0, 0, 0};
    CClipLine m_Box;
    std::vector<Shear> m_Shears;  // of a stack whose planes are not on one line
    Sampling m_Sampling = Sampling::kLinear;
    StripSampler m_Sampler;
    std::vector<SliceStrip> m_Strips;  // of the rows at work
    static constexpr int kSlabBand = 16;
    KeptLayers* m_pKept = nullptr;
    std::vector<SliceStrip> m_Fresh;  // strips that no kept row has
    std::vector<SlabRow> m_Slab;      // of so many rows; none where a pixel is one sample
    std::optional<PaddingRange> m_PaddingRange;
    unsigned char m_Background[4] = {};
    unsigned char m_Padding[4] = {};
    unsigned char m_Measured[kLongestRun] = {};
};

}  // namespace korvane_detail
