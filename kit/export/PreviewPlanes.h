// What a preview is made of, of planes that pass by.
#pragma once

#include "../study/SeriesVolume.h"

#include <cstddef>
#include <span>
#include <vector>

namespace korvane {

/// Keeps of each plane of a volume that is streamed the few rows and columns that the middle planes of three views are
/// sampled from, and shows them to the slicer as a volume: its planes lie in one another, each with what is wanted of it
/// in its place.
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

    /// What lies in the plane `index` of an axis of the volume is read of its voxels after this, of others something else.
    /// Throws `Error`.
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
