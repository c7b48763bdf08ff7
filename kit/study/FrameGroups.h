// Where the frames of an image lie: functional groups of enhanced objects (PS3.3 C.7.6.16), frame offsets of older ones.
#pragma once

#include "ImageHeader.h"

#include <memory>
#include <vector>

namespace korvane {

/// A place for each frame, or a single one where they have none of their own. For a frame of an enhanced object the
/// per-frame group counts, then the shared one, then the data set itself. Older objects place their first frame only: the
/// others follow along the normal by Grid Frame Offset Vector (3004,000C), else by the distance of slices.
/// Of `header`, the fields up to `frames` must have been read.
FramePlaces ReadFramePlaces(const DICOMDataObject& dataSet, const ImageHeader& header);

/// Whether the frames of an older object follow each other in time, at one place.
bool AreTimes(const DICOMDataObject& dataSet, const ImageHeader& header);

/// Whether there are frame offsets, and they place no frames.
bool HasWrongOffsets(const DICOMDataObject& dataSet, const ImageHeader& header);

/// What tells the frames apart: one entry for each place of a per-frame functional group, and for each
/// time, else a single one.
FrameKeyList ReadKeysOfFrames(const DICOMDataObject& dataSet, const ImageHeader& header);

/// The data set that holds an element for a frame, by the same rule: an item of the group, or the data set itself; null
/// when nothing does. `frame`: from 0.
const DICOMObject* FindHolder(const DICOMDataObject& dataSet, int frame, Tag group, Tag element);

/// The same of the values of interest: window, function, table and explanations, which go together.
const DICOMObject* FindHolderOfWindow(const DICOMDataObject& dataSet, int frame);

/// Whether the data set has functional groups.
bool HasFrameGroups(const DICOMDataObject& dataSet);

/// The frames of a multi-frame object as data sets of their own, with the elements that the library reads of a slice.
/// They share the bytes of `source`, which must outlive them, and have no pixels where it has none. `frames`: their numbers, from 0, each within the pixel data.
/// Throws `std::bad_alloc`.
std::vector<std::unique_ptr<DICOMDataObject>> SplitFrames(const DICOMDataObject& source, const ImageHeader& header,
                                                          const std::vector<int>& frames);

}  // namespace korvane
