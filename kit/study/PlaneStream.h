// The planes of a volume, one after the other.
#pragma once

#include "../core/Watch.h"
#include "FoundFiles.h"
#include "Padding.h"
#include "Volume.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// Slices that are files of their own, in one form that the module has (`SeriesVolume::CanStream`). What it refers to must
/// outlive it.
class PlaneStream {
public:
    using Take = std::function<void(int plane, std::span<const std::byte> voxels)>;

    /// `order`: of each plane the index of its slice.
    PlaneStream(const FoundFiles& found, const std::vector<SliceRef>& slices, const std::vector<int>& order,
                const std::optional<Padding>& padding, const Watch& watch);

    /// Reads ahead on `jobs` threads (see `CountJobs`); `take` runs on the calling one, in the order of planes. Once only.
    /// Throws `Error`.
    void Read(unsigned jobs, const Take& take);

    // Afterwards:
    /// As `SeriesVolume::GetMeasuredRange`.
    MeasuredRange GetRange() const;
    /// Whether a slice names other padding than the one that counts.
    bool HasOtherPadding() const;
    /// Whether a slice has a Modality LUT.
    bool HasTables() const;
    /// Files with bits above the stored ones, in the order of slices.
    std::vector<std::string> ListBitsAbove() const;

private:
    struct Batch;

    const ImageHeader& HeaderOf(std::size_t plane) const;
    void ReadBatch(Batch& batch, std::size_t first, std::size_t count);
    void Measure(Batch& batch, std::span<const std::byte> voxels) const;

    const FoundFiles& m_Found;
    const std::vector<SliceRef>& m_Slices;
    const std::vector<int>& m_Order;
    std::optional<Padding> m_Padding;
    Watch m_Watch;
    VoxelType m_Type;
    std::size_t m_PlaneBytes;
    MeasuredRange m_Outside;        // of all voxels but padding
    MeasuredRange m_Inside;         // of planes with nothing but padding
    std::vector<char> m_BitsAbove;  // of each plane; not bits, for threads write them side by side
    std::vector<char> m_OtherPadding;
    std::vector<char> m_Tables;
};

}  // namespace korvane
