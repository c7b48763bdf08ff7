// What the finder found, as the rooms of the Kit work with it.
#pragma once

#include "../core/Finding.h"
#include "../core/TemporaryFolder.h"
#include "Find.h"
#include "ImageHeader.h"
#include "SeriesGeometry.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace korvane {

/// One slice: a whole file, or a frame of one.
struct SliceRef {
    std::size_t file;  ///< index in `FoundFiles::files`
    int frame;         ///< from 0; -1: the whole file, which may have several frames without places
};

/// Where positions repeat: time series, echoes, repeated acquisitions.
struct VolumeSets {
    std::vector<std::vector<SliceRef>> volumes;  ///< each in list order; one with all slices where no position repeats
    std::vector<std::vector<std::size_t>> members;  ///< the same as indices in the series
    std::vector<std::string> keys;                  ///< what tells each: "echo number 2"; "" for a single one
    std::string order;                              ///< what the volumes were told apart by; "" for a single one
    bool guessed = false;                           ///< by their order at each position alone
    bool ordered = false;                           ///< by the order of times at each position, which vary with it
    std::vector<std::string>
        rejected;                    ///< what differs at a position, and makes no volumes: "trigger time (128 values)"
    std::vector<std::string> mixed;  ///< what differs within a volume all the same: "echo number (2 values)"
};

/// Images with one Series Instance UID, one orientation, one matrix and one pixel format. A multi-frame object without
/// geometry is a series of its own. Objects without pixels are series too.
struct FoundSeries {
    std::vector<SliceRef> slices;  ///< by instance number, acquisition number, UID, file, frame
    SeriesGeometry geometry{};
    std::size_t orientations = 1;  ///< series with the same UID, told apart by orientation
    std::size_t numbers = 1;       ///< by Series Number
    std::size_t forms = 1;         ///< and by matrix or pixel format
    VolumeSets sets{};
    std::vector<Finding> findings{};
};

struct FoundFiles {
    std::vector<std::string> paths;                     ///< that were searched
    std::shared_ptr<const TemporaryFolder> unpacked{};  ///< where files of archives lie; null without
    std::vector<ImageHeader> files;
    std::vector<FoundSeries> series;
    std::vector<LeftOutFile> leftOut;  ///< those that the two numbers below count
    std::size_t ignored = 0;           ///< files that are not DICOM
    std::size_t copies = 0;            ///< files that repeat another file's image, left out
    std::vector<Finding> unreadable;   ///< files and folders, one each

    const ImageHeader& FirstFile(const FoundSeries& of) const { return files[of.slices.front().file]; }
    /// Whether the slices are times of one plane, of which nothing tells where it lies.
    bool AreTimesAlone(const FoundSeries& of) const;
    FramePlace PlaceOf(const SliceRef& slice) const;
    /// The same but for its position, which is that of no slice: without a copy.
    const FramePlace& PlaneOf(const SliceRef& slice) const;
    const std::array<double, 3>& PositionOf(const SliceRef& slice) const;
    /// The first of them whose pixels have a known size, else the first: what is used where slices differ.
    FramePlace SizedPlaceOf(const std::vector<SliceRef>& slices) const;
    /// How they lie, by their positions and the first one's orientation.
    SeriesGeometry GeometryOf(const std::vector<SliceRef>& slices) const;
    FrameKeys KeysOf(const SliceRef& slice) const;
    /// The file, and the frame of it.
    std::string NameOf(const SliceRef& slice) const;
};

}  // namespace korvane
