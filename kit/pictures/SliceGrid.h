// Where the pictures of `korvane slice` lie in the volume: planes, directions, pixels.
#pragma once

#include "../../slicing/DcmObliqueSlice.h"
#include "../../slicing/RadiologicalView.h"

#include "Slice.h"

namespace korvane {

/// One of the three radiological views of a volume.
struct VolumeView {
    RawView raw;
    int axis = 2;   ///< across the pictures: 0 columns, 1 rows, 2 planes
    int count = 0;  ///< of pictures
};

VolumeView FindView(CVolume& volume, View view);

/// Picture `index` of a view, from the first voxel centre to the last, with square pixels: as large as the smaller of
/// the picture's two spacings, unless `pixelSize` is above 0, or with as many as the frame of `options`. Throws `Error`.
void PlaceView(DcmObliqueSlice& slice, const VolumeView& view, int index, const SliceOptions& options);

/// A picture of a plane, its point in the middle, large enough for the whole cut through the volume, and for those of the
/// other planes of a stack. Pixels as large as those of the volume's planes, unless `pixelSize` is above 0. Returns how far
/// `slice` moves from plane to plane.
/// Throws `Error` for directions that define no plane, and when none of the planes meets the volume.
double PlacePlanes(DcmObliqueSlice& slice, const SliceOptions& options);

}  // namespace korvane
