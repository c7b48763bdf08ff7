// A stack whose planes lie sideways of each other, made straight.
#pragma once

#include "../base/Export.h"
#include "../volume/CVolume.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

struct StraightenOptions {
    std::optional<double>
        m_Fill;             ///< for voxels without data (Pixel Padding Value, say); the lowest voxel if not given
    bool m_bEvenZ = true;   ///< resample along z where the planes are not even, as `CVolumeReformatter` does
    bool m_bContig = true;  ///< one block of voxels, or one for each plane
    std::function<bool()> m_Stop = {};  ///< asked every few milliseconds; true ends the work, with the error "stopped"
    /// Voxels from the first value to the second stand for no measurement: what one of them would be mixed into has the
    /// fill value.
    std::optional<std::pair<double, double>> m_Padding = {};
};

/// What `StraightenStack` did, or why it did not.
struct StraightenReport {
    double m_Fill = 0;  ///< what the voxels without data have: held within the range of the type, rounded
    unsigned long long m_nFilled = 0;  ///< how many they are
    double m_Shift[2] = {0, 0};        ///< largest distance of two planes along rows and columns, millimetres
    std::string m_Error;               ///< empty where there is a volume
};

/// A tilted stack (gantry tilt; PS3.3 C.7.6.2.1.1 gives each slice its own position), or one whose planes are shifted,
/// as a volume that is straight: every plane above the one below, each voxel where it was in the patient. Formats that
/// hold one origin and one direction for all planes can keep that without shear.
///
/// Rows and columns are moved within their planes by linear interpolation, integers rounded to the nearest, onto a canvas
/// that is large enough for all planes; its spacing is the source's, and plane 0 stays as it is. Voxels that no plane has data for have the fill value.
/// Where planes are uneven, new ones come between them along the tilt, weighed by the smoothed curve S(t). What needs
/// no moving is the same bit for bit.
///
/// Returns a new volume with a count of 1, of the source's type, for the caller to end with `Delete`. Null, with a text in
/// the report, for what `CVolumeReformatter` refuses, for too little memory, and where it was stopped. The source keeps its voxels; its
/// z-interpolation table is brought up to date where planes are uneven.
KORVANE_API CVolume* StraightenStack(CVolume& source, const StraightenOptions& options, StraightenReport& report);

/// The same by threads of the caller's. `run` calls `work` for ranges of planes, from the first to before the end, that are all of
/// 0 to `planes` and each of them once, from any threads at the same time, and returns when all are done; it is called for each step of
/// the work. `m_Stop` is asked by these threads. What `work` or `run` throws goes on to the caller. The result is that of one thread, to the bit.
using StraightenWork = std::function<void(int first, int end)>;
using StraightenRun = std::function<void(int planes, const StraightenWork& work)>;
KORVANE_API CVolume* StraightenStackInBlocks(CVolume& source, const StraightenOptions& options,
                                             StraightenReport& report, const StraightenRun& run);
