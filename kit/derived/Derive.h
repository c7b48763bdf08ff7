// A derived series: voxels that were computed, as DICOM files and as a volume.
//
//     korvane::VoxelArray array{.type = korvane::VoxelType::Float32, .size = volume.GetSize(), .voxels = bytes};
//     array.PlaceAs(volume);
//     korvane::WriteSeries(array, "smoothed", {.source = volume.GetSeries(), .description = "smoothed"});
#pragma once

#include "../core/ExportOutput.h"
#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "../study/Series.h"
#include "VoxelArray.h"

#include <optional>
#include <string>
#include <vector>

namespace korvane {

struct DeriveOptions {
    /// What the voxels were computed from: its patient, study and frame of reference are theirs, and each image refers to
    /// the images of it that lie in its place, or to all of them where none does. Without one the series stands alone.
    std::optional<Series> source{};
    std::string description{};  ///< Series Description; "": that of the source, with "derived" behind it
    std::string derivation{};   ///< Derivation Description: what was done
    int number = 0;             ///< Series Number; 0: 100 times that of the source, and 1
    /// The class of secondary captures, whatever the source is: for masks and maps that are no image of its modality.
    bool secondaryCapture = false;
    /// The most that rounding may change a real value; what needs more is refused. Nothing: half a step of 16 bits.
    std::optional<double> mostError{};
    /// In place of values that are no finite numbers, which are refused otherwise.
    std::optional<double> replaceNonFinite{};
    bool replace = false;  ///< files of the same names, which is a failure otherwise
    Watcher* watcher = nullptr;
};

/// A series that was written.
struct DerivedReport {
    std::string seriesUid{};
    std::string sopClass{};    ///< UID
    double error = 0;          ///< the most that rounding changed a real value
    std::size_t replaced = 0;  ///< values that were no finite numbers
    std::vector<ExportOutput> files{};
    std::vector<Finding> findings{};  ///< what the files hold otherwise than the array did
};

/// Writes a series of single-frame images, FOLDER/0001.dcm and so on, plane after plane and time after time: all of them
/// or none. The folder is made where it is missing. Values become 16-bit integers (8-bit ones and colours where the class
/// takes them): as they are where they fit, else by a slope and an intercept over their range.
///
/// The class (PS3.4 B.5) is the CT, MR or PET Image Storage of the source where that can hold them, else Secondary
/// Capture Image Storage, with the attributes of the image plane. PET takes no intercept, and wants for each image the one
/// of the source that lies in its place, whose time and decay it has.
///
/// Throws `Error`: `WrongArgument` for an array whose size, bytes or places do not go together, and for options that are no
/// numbers; `Unsupported` for values
/// that are no numbers, or that would be rounded by more than `mostError`; `Disk`, `Stopped`.
KORVANE_KIT DerivedReport WriteSeries(const VoxelArray& array, const std::string& folder,
                                      const DeriveOptions& options = {});

/// The same of a volume: of one that was read, as a series derived of its own; of one that was made of an array, with what
/// was told then. What `options` leaves empty counts so; its `source` is not used.
KORVANE_KIT DerivedReport WriteSeries(const Volume& volume, const std::string& folder,
                                      const DeriveOptions& options = {});

/// A volume of the array's voxels, of any type and exactly as they are, for all that volumes are good for. The voxels lie
/// in a temporary folder as well as in memory, as long as the volume or its series is there. Its planes may be in the
/// opposite order: `Volume::GetPositions` tells. Throws `Error` as `WriteSeries`, but for values that are no numbers.
KORVANE_KIT Volume MakeVolume(const VoxelArray& array, const DeriveOptions& options = {});

/// What a volume comes from: its series; of one that was made of an array, that of the options then, if any.
KORVANE_KIT std::optional<Series> SourceOf(const Volume& volume);

}  // namespace korvane
