// The view plane and flips that show a volume the way radiologists look at it.
#pragma once

#include "../base/Export.h"
#include "../volume/VolumePlane.h"
#include "DcmOrientation.h"

class CVolume;

/// A view plane and its flips: the arguments of `DcmObliqueSlice::SetOrthogonal` and `CVolumeReformatter::Reformat`.
struct RawView {
    VolumePlane m_Plane = VP_XY;
    bool m_bFlip1 = false;  ///< reverse the picture's horizontal axis
    bool m_bFlip2 = false;  ///< reverse its vertical axis
};

/// Chooses plane and flips from the volume's real axes: the cosines of its rows and columns, and the direction in which
/// its planes run (`CVolume::GetPlane(k)->m_Org[2]`, ascending or descending). The picture then lies as follows:
///
///     axial     patient's right on the left, anterior up
///     coronal   patient's right on the left, head up
///     sagittal  anterior on the left, head up
///
/// Oblique volumes are taken by the patient axes that theirs are nearest to; nothing is resampled. `index` 0 is the
/// volume's first column, row or plane along the axis across.
///
/// `DcmOrientation::TranslateToRawPlane` is another matter: a table that knows two letters of a series and not the order
/// of its planes.
///
/// False, and `view` becomes the raw plane without flips that an axial series would take (x, y; x, z; y, z), when the
/// volume's cosines are no pair of independent, finite directions, or `ortho` is none of the three.
KORVANE_API bool RadiologicalView(CVolume& volume, DcmOrientation::OrthoPlane ortho, RawView& view);
