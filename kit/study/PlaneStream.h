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
    MeasuredRange GetRange() const { return m_Met.outside.IsEmpty() ? m_Met.inside : m_Met.outside; }
    /// Whether a slice names other padding than the one that counts.
    bool HasOtherPadding() const { return m_Met.otherPadding; }
    /// Whether a slice has a Modality LUT.
    bool HasTables() const { return m_Met.tables; }
    /// Files with bits above the stored ones, in the order of slices.
    std::vector<std::string> ListBitsAbove() const;

private:
    struct Batch;

    /// What planes that were read have.
    struct Met {
        MeasuredRange outside;  // of all voxels but padding
        MeasuredRange inside;   // of planes with nothing but padding
        bool otherPadding = false;
        bool tables = false;
        std::vector<int> bitsAbove;  // indices of slices

        void Add(const Met& other);
    };

    const ImageHeader& HeaderOf(std::size_t plane) const;
    void ReadBatch(Batch& batch, std::size_t first, std::size_t count);
    void NoteWhatIsMet(Batch& batch, std::size_t plane, std::span<const std::byte> voxels) const;

    const FoundFiles& m_Found;
    const std::vector<SliceRef>& m_Slices;
    const std::vector<int>& m_Order;
    std::optional<Padding> m_Padding;
    Watch m_Watch;
    VoxelType m_Type;
    std::size_t m_PlaneBytes;
    Met m_Met;
};

}  // namespace korvane
