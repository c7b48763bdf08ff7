// What a preview is made of, of planes that pass by.
#pragma once

#include "../study/SeriesVolume.h"

#include <cstddef>
#include <span>
#include <vector>

namespace korvane {

/// Keeps of each plane of a volume that is streamed the few rows and columns that the middle planes of three views are
/// sampled from, and shows them to the slicer as a volume. A plane of that volume needs addresses for all its voxels, but
/// memory for few of them: planes overlap. Each begins a few rows, or columns, behind the one before it, so that the wanted ones
/// of all planes lie side by side, where each plane looks for its own.
class PreviewPlanes {
public:
    /// Whether the planes of a series that was placed can be taken when they pass by: those of slices with rescales of their
    /// own are to be brought to one first (`SeriesVolume::ScalePlanes`).
    static bool CanTake(const SeriesVolume& series);

    /// `series`: placed.
    explicit PreviewPlanes(SeriesVolume& series);

    /// Each plane once, as it is stored.
    void Take(int plane, std::span<const std::byte> stored);
    /// The range of all of them.
    void SetRange(const MeasuredRange& range) { m_Range = range; }
    const MeasuredRange& GetRange() const { return m_Range; }

    /// After this the series' volume has the right voxels in its middle layer across `axis` (0: columns, 1: rows, 2: planes)
    /// and in those beside it; others have values of other planes. Throws `Error`.
    void Show(SeriesVolume& series, int axis);

private:
    /// The layers that are kept along one axis.
    struct Band {
        std::vector<int> first{};  ///< of each plane: a row, or a column
        int most = 0;              ///< of those
        int count = 0;             ///< that are kept
        std::vector<std::vector<std::byte>> blocks{};
        std::size_t inBlock = 1;  ///< planes
    };

    void MakeBand(SeriesVolume& series, int axis);
    std::byte* PlaneIn(Band& band, int axis, std::size_t plane) const;
    void TakeRows(Band& band, std::size_t plane, std::span<const std::byte> voxels) const;
    void TakeColumns(Band& band, std::size_t plane, std::span<const std::byte> voxels) const;

    VoxelType m_Stored;
    VoxelType m_Type;  // that is sliced
    std::size_t m_Columns;
    std::size_t m_Rows;
    std::size_t m_Planes;
    std::size_t m_VoxelBytes;
    std::vector<std::byte> m_Converted;
    Band m_Bands[3];
    MeasuredRange m_Range{0, 0};
};

}  // namespace korvane
