// From a series that was found to data sets that the library can assemble.
#pragma once

#include "../core/Watch.h"
#include "../dataset/Toolkit.h"
#include "FoundFiles.h"

#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// Throws `Error`, which names the file and the reason, when the library could not assemble the slices as they are:
/// no native integer pixels, data cut short, a position missing.
void CheckAssembly(const FoundFiles& found, const FoundSeries& series);

/// Throws `Error` where no codec is there for compressed pixel data, and where it has too few bytes for the frames and the size that the header claims.
void CheckClaims(const ImageHeader& header);

/// The data sets of slices, in list order, with their pixels. Frames of a multi-frame object are data sets of their own
/// that share its bytes.
class LoadedSlices {
public:
    /// Throws `Error`.
    LoadedSlices(const FoundFiles& found, const std::vector<SliceRef>& slices, const Watch& watch);

    /// Owned by this object.
    std::vector<DICOMDataObject*>& GetDataSets() { return m_List; }
    /// Where each lies; without a position of its own, one behind the other along the normal.
    const std::vector<FramePlace>& GetPlaces() const { return m_Places; }

private:
    void Decode(const ImageHeader& header, DataSetFile& file);
    void LoadFile(const ImageHeader& header, const std::vector<int>& frames);
    void PlaceInOrder(const ImageHeader& header);

    void UnifyStoredBits(const ImageHeader& header, DICOMDataObject& dataSet);

    Watch m_Watch;
    bool m_bStoredDiffer = false;
    CodecManager m_Codecs;
    std::vector<std::unique_ptr<DICOMDataObject>> m_Files;
    std::vector<std::unique_ptr<DICOMDataObject>> m_Frames;  // gone before the files whose bytes they share
    std::vector<DICOMDataObject*> m_List;
    std::vector<FramePlace> m_Places;
};

}  // namespace korvane
