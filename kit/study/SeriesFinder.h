// Finds the DICOM files under paths and groups them into series.
#pragma once

#include "ImageHeader.h"
#include "SeriesGeometry.h"

#include <cstddef>
#include <string>
#include <vector>

namespace korvane {

/// One slice: a whole file, or a frame of one.
struct SliceRef {
    std::size_t file;  ///< index in `FoundFiles::files`
    int frame;         ///< from 0; -1: the whole file, which may have several frames without places
};

/// Images with one Series Instance UID, one orientation, one matrix and one pixel format. A multi-frame object without
/// geometry is a series of its own. Objects without pixels are series too.
struct FoundSeries {
    std::vector<SliceRef> slices;  ///< by instance number, acquisition number, UID, frame
    SeriesGeometry geometry;
    std::size_t orientations = 1;  ///< series with the same UID, told apart by orientation
    std::size_t forms = 1;         ///< and by matrix or pixel format
    std::vector<std::string> warnings;
};

struct FoundFiles {
    /// A file that is in no series, and why.
    struct LeftOut {
        std::string path;
        std::string why;
    };

    std::vector<ImageHeader> files;
    std::vector<FoundSeries> series;
    std::vector<LeftOut> leftOut;         ///< those that the two numbers below count
    std::size_t ignored = 0;              ///< files that are not DICOM
    std::size_t copies = 0;               ///< files that repeat another file's image, left out
    std::vector<std::string> unreadable;  ///< one line each

    const ImageHeader& FirstFile(const FoundSeries& of) const { return files[of.slices.front().file]; }
    const FramePlace& PlaceOf(const SliceRef& slice) const;
    /// The file, and the frame of it.
    std::string NameOf(const SliceRef& slice) const;
};

/// Reads the headers of all regular files under the paths. Throws `HostError` when a path does not exist, `Interrupted`.
FoundFiles FindSeries(const std::vector<std::string>& paths);

}  // namespace korvane
