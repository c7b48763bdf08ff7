// Moves the voxels of a volume to where a view plane has them.
#pragma once

#include "../volume/CVolume.h"
#include "ViewAxes.h"
#include "ZSampler.h"

#include <cstddef>
#include <vector>

namespace korvane_detail {

/// How the result lies in the source: axes, and which of the result's three run from the source's end to its beginning.
struct ViewTurn {
    ViewAxes m_Axes;
    bool m_Flips[3] = {false, false, false};
};

/// The work comes in steps, each of which writes another part of the result, so that a caller can stop in between. All
/// memory is taken when the permuter is made.
class VolumePermuter {
public:
    /// Both volumes have pixels; the result's dimensions are those of the view with as many z positions as samples. The
    /// volumes and the sampler must outlive the object. `wide`: use the processor's wider vectors, if any.
    VolumePermuter(CVolume& source, CVolume& result, const ZSampler& sampler, const ViewTurn& turn, bool wide);

    int GetSteps() const { return (GetCount(m_Across) - 1) / m_Group + 1; }
    void DoStep(int step);
    /// After the last step, before the result is read.
    static void Finish();

private:
    int GetCount(int axis) const { return m_Counts[axis]; }
    bool IsBlended() const;
    std::size_t GetLineBytes() const;
    unsigned char* GetLine(int vertical, int slice) const;
    const unsigned char* GetRow(int y, int z, unsigned char* scratch) const;
    void AskForRow(int y, int z) const;
    void PlanLines();
    void PlanTiles();
    int GetTileColumns() const;
    void CopyLines(int begin, int end);
    void CopyLine(int y, int z);
    void GatherRows(int begin, int end);
    void WriteTiles(int begin, int end);
    void WriteTilesAcross(int begin, int end, int first, int width);
    void WriteTilesDown(int across, int first, int width);
    void Move(unsigned char* out, const unsigned char* in, std::size_t bytes) const;

    CVolume::PixelType m_Type;
    std::size_t m_Size;      // bytes of a voxel
    std::size_t m_RowBytes;  // of the source
    ViewTurn m_Turn;
    int m_Counts[3];  // along x, y and the samples of z
    bool m_bStream;   // the result is larger than caches
    bool m_bWide;
    const std::vector<ZSample>& m_Samples;
    std::vector<const unsigned char*> m_Source;  // planes
    std::vector<unsigned char*> m_Result;

    int m_Across = 1;  // the source axis that steps go along, never x
    int m_Group = 1;   // positions along it in one step
    std::vector<const unsigned char*> m_Rows;
    std::vector<unsigned char> m_Scratch;  // blended rows
    std::vector<unsigned char> m_Tile;
    std::size_t m_TileStride = 0;  // bytes from column to column
};

}  // namespace korvane_detail
