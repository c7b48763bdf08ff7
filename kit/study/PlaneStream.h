// The planes of volumes, one after the other.
#pragma once

#include "../core/Threads.h"
#include "../core/Watch.h"
#include "CommonScale.h"
#include "FoundFiles.h"
#include "FramePixels.h"
#include "Padding.h"
#include "Volume.h"

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// What becomes of stored values that have a rescale of their own in each slice.
struct PlaneScaling {
    std::vector<Rescale> rescales;  ///< of slices, by their index
    std::shared_ptr<const ScaleTarget>
        target{};                       ///< values are brought to it; null: they stay, and real ones are measured
    std::optional<ExactScale> exact{};  ///< that is tried meanwhile
    MeasuredReals measured{};           ///< which the target is made for
};

/// What is read of a volume.
struct StreamedVolume {
    std::vector<SliceRef> slices;    ///< each one image
    std::vector<int> order;          ///< of each plane, one after the other, the index of its slice
    std::optional<Padding> padding;  ///< of the values that are handed over
};

/// Slices that are files of their own, or frames that can be read alone, in one form (`SeriesVolume::CanStream`). What it
/// refers to must outlive it.
class PlaneStream {
public:
    /// Volumes of as many planes each, one behind the other. Reads ahead on `jobs` threads (see `CountJobs`), beyond the end of a
    /// volume too. `scaling`: null without, and where there are several volumes.
    PlaneStream(const FoundFiles& found, std::vector<StreamedVolume> volumes, const PlaneScaling* scaling,
                unsigned jobs, const Watch& watch);
    ~PlaneStream();
    PlaneStream(const PlaneStream&) = delete;
    PlaneStream& operator=(const PlaneStream&) = delete;

    /// The voxels of the next plane, until the next call. Throws `Error`; not to be called once more afterwards.
    std::span<const std::byte> ReadNext();

    // After the last plane of a volume, of that one:
    /// As `SeriesVolume::GetMeasuredRange`.
    MeasuredRange GetRange() const { return m_Met.outside.IsEmpty() ? m_Met.inside : m_Met.outside; }
    /// With padding.
    MeasuredRange GetWholeRange() const { return m_Met.all; }
    /// Of real values, with a scaling that only measures them.
    const MeasuredReals& GetReals() const { return m_Met.reals; }
    /// And whether the scale that was tried keeps all of them.
    bool IsExact() const { return m_Met.exact; }
    /// The largest difference of a real value from what it was, with a scaling.
    double GetScaleError() const { return m_Met.scaleError; }
    /// Whether a slice names other padding than the one that counts.
    bool HasOtherPadding() const { return m_Met.otherPadding; }
    /// Whether a slice has a Modality LUT.
    bool HasTables() const { return m_Met.tables; }
    /// Files with bits above the stored ones, in the order of slices, each once.
    std::vector<std::string> ListBitsAbove() const;
    const std::optional<Padding>& GetPadding() const { return LastVolume().padding; }
    std::size_t CountFiles() const;
    /// The text of Slice Thickness of each slice, by its index; nothing where it has none. Empty where all slices are frames,
    /// whose thickness their headers have told, and where there are several volumes.
    const std::vector<std::optional<std::string>>& GetThicknesses() const { return m_Thicknesses; }

private:
    struct Batch;

    struct OpenFrames {
        std::shared_ptr<const FramePixels> frames;
        std::size_t lastUse = 0;
    };

    /// What planes that were read have.
    struct Met {
        MeasuredRange outside;  // of all voxels but padding
        MeasuredRange inside;   // of planes with nothing but padding
        MeasuredRange all;
        MeasuredReals reals;
        double scaleError = 0;
        bool exact = true;
        bool otherPadding = false;
        bool tables = false;
        std::vector<int> bitsAbove;  // indices of slices

        void Add(const Met& other);
    };

    /// A plane that is read, of the volume `of`.
    struct Plane {
        const StreamedVolume& of;
        int slice;  // its index

        const SliceRef& GetRef() const { return of.slices[static_cast<std::size_t>(slice)]; }
    };

    const ImageHeader& HeaderOf(const SliceRef& slice) const { return m_Found.files[slice.file]; }
    const ImageHeader& FirstHeader() const { return HeaderOf(m_Volumes.front().slices.front()); }
    const StreamedVolume& LastVolume() const { return m_Volumes[(m_Next - 1) / m_nPlanes]; }
    std::shared_ptr<const FramePixels> FramesOf(const SliceRef& slice);
    void CloseLeastUsed();
    ScaledPlane ScaledPlaneOf(const Batch& batch, const Plane& plane, std::span<const std::byte> stored) const;
    void Measure(Batch& batch, const Plane& plane, std::span<const std::byte> stored) const;
    void Convert(Batch& batch, const Plane& plane, std::span<const std::byte> stored, std::span<std::byte> to) const;
    void ReadBatch(Batch& batch, std::size_t number);
    void NoteWhatIsMet(Batch& batch, const Plane& plane, std::span<const std::byte> voxels);

    const FoundFiles& m_Found;
    std::vector<StreamedVolume> m_Volumes;
    std::size_t m_nPlanes;  // of each
    const PlaneScaling* m_pScaling;
    Watch m_Watch;
    VoxelType m_Stored;
    VoxelType m_Type;  // of what is handed over
    std::size_t m_PlaneBytes;
    std::size_t m_InBatch;   // planes, of one volume
    std::size_t m_nBatches;  // of each volume
    std::size_t m_Next = 0;  // plane of all
    Met m_Met;
    std::vector<std::optional<std::string>> m_Thicknesses;
    std::mutex m_Mutex;                          // of the map
    std::map<std::size_t, OpenFrames> m_Frames;  // of files with several
    std::size_t m_nUses = 0;                     // of them
    std::vector<std::unique_ptr<Batch>> m_Ring;  // as many as are under way
    std::optional<InOrder> m_Batches;            // ends before what it reads into
};

}  // namespace korvane
