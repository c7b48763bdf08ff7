// From a series that was found to data sets that the library can assemble.
#pragma once

#include "../dataset/Toolkit.h"
#include "SeriesFinder.h"

#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// The series that `--series` names: a number of the listing (from 1), or a Series Instance UID. With an empty choice the
/// only one that has pixels. Throws `UsageError` when that is not one; the text then lists all.
const FoundSeries& ChooseSeries(const FoundFiles& found, const std::string& choice);

/// Throws `HostError`, which names the file and the reason, when the library could not assemble the slices as they are:
/// no native integer pixels, data cut short, a position missing.
void CheckAssembly(const FoundFiles& found, const FoundSeries& series);

/// The data sets of slices, in list order, with their pixels. Frames of a multi-frame object are data sets of their own
/// that share its bytes.
class LoadedSlices {
public:
    /// Throws `HostError`, `Interrupted`.
    LoadedSlices(const FoundFiles& found, const std::vector<SliceRef>& slices);

    /// Owned by this object.
    std::vector<DICOMDataObject*>& GetDataSets() { return m_List; }

private:
    void Decode(const ImageHeader& header, DataSetFile& file);
    void LoadFile(const ImageHeader& header, const std::vector<int>& frames);
    void PlaceInOrder(const FoundFiles& found, const SliceRef& first);

    CodecManager m_Codecs;
    std::vector<std::unique_ptr<DICOMDataObject>> m_Files;
    std::vector<std::unique_ptr<DICOMDataObject>> m_Frames;  // gone before the files whose bytes they share
    std::vector<DICOMDataObject*> m_List;
};

}  // namespace korvane
