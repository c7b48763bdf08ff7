// Where the pictures of `korvane slice` lie in the volume: planes, directions, pixels.
#pragma once

#include "../../slicing/DcmObliqueSlice.h"
#include "../../slicing/RadiologicalView.h"

#include <optional>
#include <string>

namespace korvane {

/// A plane through a point, or through the volume's middle, in patient millimetres (x to the left, y to the back, z to the head).
struct PatientPlane {
    std::optional<DcmObliqueSlice::Vector> point;
    DcmObliqueSlice::Vector normal;
    std::optional<DcmObliqueSlice::Vector> up;
};

/// One of the three radiological views of a volume.
struct VolumeView {
    RawView raw;
    int axis = 2;   ///< across the pictures: 0 columns, 1 rows, 2 planes
    int count = 0;  ///< of pictures
};

VolumeView FindView(CVolume& volume, DcmOrientation::OrthoPlane ortho);

/// Picture `index` of a view, from the first voxel centre to the last, with square pixels: as large as the smaller of
/// the picture's two spacings, unless `pixelSize` is above 0. Throws `HostError`.
void PlaceView(DcmObliqueSlice& slice, const VolumeView& view, int index, double pixelSize);

/// A picture of a plane, its point in the middle, large enough for the whole cut through the volume. Pixels as large as
/// those of the volume's planes, unless `pixelSize` is above 0.
///
/// The sign of the normal says nothing: by the patient plane that it is nearest to, a plane is seen from the feet
/// (axial), from the front (coronal) or from the patient's left (sagittal), as in the views. `up` only turns the picture;
/// without it the front is up in axial pictures, the head in others.
///
/// Throws `UsageError` for directions that define no plane, `HostError` when the plane does not meet the volume.
void PlacePlane(DcmObliqueSlice& slice, const PatientPlane& plane, double pixelSize);

}  // namespace korvane
