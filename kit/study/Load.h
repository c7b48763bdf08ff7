// From a series that was found to its voxels.
#pragma once

#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "Volume.h"

namespace korvane {

struct LoadOptions {
    static constexpr int kOnly = 0;  ///< the only volume
    /// All of them, one behind the other, as times of one volume. Refused (`Irregular`) where they do not lie alike.
    static constexpr int kEvery = -1;

    /// Which volume of a series whose positions repeat: a number from 1 in the order of `Series::GetVolumes`, or one of
    /// the two above.
    int volume = kOnly;
    /// Uneven gaps and tilts are refused (`Irregular`). Otherwise the planes are kept as they are, and the volume's
    /// findings tell.
    bool refuseIrregular = false;
    /// Where slices have rescales of their own (PET), their values come to one: the integers that they are, at the largest
    /// slope, where no value changes by that, else real values in 32-bit floats.
    bool oneScale = false;
    /// Real values are standardized uptake values (SUV) by body weight, in g/ml, in place of activity: refused
    /// (`Unsupported`) by the name of the element that is missing, or not as it must be.
    bool uptake = false;
    unsigned jobs = 0;  ///< threads; 0: one for each core
    Watcher* watcher = nullptr;
};

/// Reads a volume. Throws `Error`: `Irregular` with the volumes as choices where the series makes several and none is
/// chosen, `WrongArgument` for a volume that is not there, `Unsupported`, `Damaged`, `Disk`, `Stopped`.
KORVANE_KIT Volume Load(const Series& series, const LoadOptions& options = {});

}  // namespace korvane
