// A volume sampled on the grid of another.
#pragma once

#include "../base/Export.h"
#include "../math/FTransform.h"
#include "../volume/CVolume.h"
#include "DcmObliqueSlice.h"

#include <optional>
#include <string>

struct ResampleOptions {
    DcmObliqueSlice::Interpolation m_Interpolation = DcmObliqueSlice::IP_LINEAR;
    std::optional<double> m_Background;  ///< of voxels outside the source; its lowest voxel if not given
    bool m_bAreaAverage = false;         ///< as `DcmObliqueSlice::SetAreaAverage`, over columns and rows of the grid
    bool m_bContig = true;               ///< one block of voxels, or one for each plane
};

/// Makes a volume that has the grid's dimensions and geometry (spacing, origin, orientation, plane positions with their
/// sideways offsets) and the source's type, every voxel sampled where it lies in the source:
///
///     // what a registration found: patient millimetres of the CT to those of the MR
///     CVolume* onCt = ResampleVolume(mr, ctToMr, ct, ResampleOptions(), error);
///
/// `toSource` takes patient millimetres of the grid to those of the source; the identity for two volumes of one frame of
/// reference (PS3.3 C.7.4.1). It need not be rigid. Of the grid only the geometry is read: it needs no pixels. Samples
/// follow the rules of `DcmObliqueSlice`: planes of the source count where they lie, borders included.
///
/// Returns a new volume with a count of 1 and its minimum and maximum widened to hold the source's and the background, for
/// the caller to end with `Delete`. Null, with a text in `error`, for volumes that cannot be sliced, a grid without planes,
/// positive spacings, directions or finite positions, a transform with elements that are not finite, an unknown
/// interpolation, and for too little memory.
KORVANE_API CVolume* ResampleVolume(CVolume& source, const FTransform& toSource, CVolume& grid,
                                    const ResampleOptions& options, std::string& error);
