// From a series that was found to data sets that the library can assemble.
#pragma once

#include "../core/Finding.h"
#include "../core/Watch.h"
#include "../dataset/Toolkit.h"
#include "DelayedSlice.h"
#include "FoundFiles.h"
#include "Volume.h"
#include "VoxelBlock.h"

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

/// Throws `Error`, which names the file and the reason, when the library could not assemble the slices as they are:
/// pixels of a form that no voxels have, data cut short, a position missing.
void CheckAssembly(const FoundFiles& found, const FoundSeries& series);

/// Throws `Error` where no codec is there for compressed pixel data, and where it has too few bytes for the frames and the
/// size that the header claims.
void CheckClaims(const ImageHeader& header);

/// What is told of files whose words have bits above the stored ones; `files`: how many were read.
Finding DescribeBitsAbove(const std::vector<std::string>& dirty, std::size_t files);

/// The data sets of slices, in list order, with their pixels. Frames of a multi-frame object are data sets of their own
/// that share its bytes. Where the module has no form for the voxels they lie here, and the data sets say of the pixels what
/// lets it work out the geometry alone: 8 bits, all zero.
class LoadedSlices {
public:
    enum class Pixels {
        Now,
        InPlace,  ///< those of the data sets are zeros until `ReadPlanes` has read them to their place
        Frames,   ///< the same of frames of larger objects; `PutPixels` tells their places
        Later,    ///< no slice has a data set but the first; other files of one image are not read
    };

    /// `jobs`: threads, see `CountJobs`, where files are read one by one. Throws `Error`.
    LoadedSlices(const FoundFiles& found, const std::vector<SliceRef>& slices, Pixels pixels, unsigned jobs,
                 const Watch& watch);

    /// Whether the pixels may be read to their place: each slice is a file of its own, in one form that the module has, with
    /// values at the low end of their words. Throws `Error`.
    static bool CanReadInPlace(const FoundFiles& found, const std::vector<SliceRef>& slices, const Watch& watch);

    /// Whether the values of a form that the module has stand at the low end of their words, which nothing else is in.
    static bool FillsWords(const PixelForm& form);

    /// With `Frames`: where the pixels of a slice are now.
    void PutPixels(std::size_t dataSet, std::span<std::byte> voxels);
    /// With `InPlace`, once: reads the pixels of each slice to the plane that `placeOf` gives for its place in the list. The
    /// data sets point to them from then on, until `DropPixels`. Returns their range. Throws `Error`.
    MeasuredRange ReadPlanes(const std::function<std::span<std::byte>(std::size_t slice)>& placeOf);
    /// Before the memory goes that pixels were read to: the data sets are without any then.
    void DropPixels();

    /// With `Later`: a data set for each slice that has its Slice Thickness, and nothing else; `texts` has those of slices
    /// that are files, frames have theirs. Owned by this object.
    std::vector<DICOMDataObject*> MakeThicknesses(const std::vector<std::optional<std::string>>& texts);
    /// With `Later`: positions as the module would read them.
    std::vector<std::array<float, 3>> ListPositions() const;
    /// The header of a slice as loading it would leave it but for its pixels, which it has none of. Owned by this object.
    /// Throws `Error`.
    DICOMDataObject& ReadHeader(const FoundFiles& found, std::size_t dataSet);
    /// With `Later`: reads the header of each file; `take` gets one after the other. Throws `Error`.
    void ReadFileHeaders(const FoundFiles& found,
                         const std::function<void(const std::string& path, const DICOMDataObject& header)>& take) const;
    /// With `Frames` and `Later`: what each data set is of, a file of one image, or a frame.
    const std::vector<SliceRef>& GetImages() const { return m_Images; }

    /// Nothing where the pixels of the data sets are the voxels; always something with `Later`.
    const std::optional<VoxelType>& GetOwnType() const { return m_OwnType; }
    /// The voxels of all slices, one plane behind the other in list order.
    VoxelBlock TakeVoxels() { return std::move(m_Voxels); }
    /// What was met while pixels were read.
    const std::vector<Finding>& GetFindings() const { return m_Findings; }

    /// Owned by this object. With `Later` one for all.
    std::vector<DICOMDataObject*>& GetDataSets() { return m_List; }
    const std::vector<DICOMDataObject*>& GetDataSets() const { return m_List; }
    /// Whole files, as they were read but for their pixels, with their paths.
    const std::vector<std::pair<std::string, const DICOMDataObject*>>& GetFiles() const { return m_Read; }
    /// The path of the file that a data set, by its index, is of; not with `Later`.
    const std::string& PathOf(std::size_t dataSet) const { return m_Read[m_FileOf[dataSet]].first; }
    /// Where each lies; without a position of its own, one behind the other along the normal.
    FramePlaces& GetPlaces() { return m_Places; }
    const FramePlaces& GetPlaces() const { return m_Places; }

private:
    void LoadFiles(const FoundFiles& found, const std::vector<SliceRef>& slices);
    void ReadHeaders(const FoundFiles& found, const std::vector<SliceRef>& slices);
    void ReadFrameHeaders(const FoundFiles& found, const std::vector<SliceRef>& slices);
    std::vector<std::size_t> ListFiles() const;
    void AddPlaces(const FoundFiles& found, const std::vector<SliceRef>& slices);
    void AddFrameThickness(const std::optional<std::string>& text);
    void AddFirst(const ImageHeader& header, const SliceRef& image, const DICOMDataObject* whole);
    std::unique_ptr<DICOMDataObject> MakeHeader(const ImageHeader& header, const SliceRef& image,
                                                const DICOMDataObject* whole) const;
    void LoadFile(const ImageHeader& header, const std::vector<int>& frames);
    void PlaceInOrder(const ImageHeader& header);

    void UnifyStoredBits(const ImageHeader& header, DICOMDataObject& dataSet);
    void TakeOwnVoxels(const ImageHeader& header, DICOMDataObject& dataSet, const std::vector<int>& frames);
    void ReadVoxels(const ImageHeader& header, const DICOMDataObject& dataSet, const std::vector<int>& frames);
    void StandIn(const ImageHeader& header, DICOMDataObject& dataSet);

    Watch m_Watch;
    unsigned m_nJobs;
    std::optional<VoxelType> m_OwnType;
    VoxelBlock m_Voxels;
    std::size_t m_nVoxelBytes = 0;         // read so far
    std::vector<unsigned char> m_StandIn;  // one plane of zeros
    std::vector<std::unique_ptr<DelayedSlice>> m_Delayed;
    bool m_bInPlace = false;
    std::vector<std::string> m_BitsAbove;  // files
    std::vector<Finding> m_Findings;
    bool m_bStoredDiffer = false;
    CodecManager m_Codecs;
    std::vector<std::unique_ptr<DICOMDataObject>> m_Files;
    std::vector<std::pair<std::string, const DICOMDataObject*>> m_Read;
    std::vector<std::unique_ptr<DICOMDataObject>> m_Frames;  // gone before the files whose bytes they share
    std::vector<DICOMDataObject*> m_List;
    std::vector<std::size_t> m_FileOf;  // of each of them, which of those read
    FramePlaces m_Places;
    std::vector<SliceRef> m_Images;
    std::vector<std::shared_ptr<const std::string>> m_FrameThicknesses;  // of images that are frames; empty without any
};

}  // namespace korvane
