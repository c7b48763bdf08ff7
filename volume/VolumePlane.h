// The view planes of a volume.
#pragma once

/// Which axes of the raw volume lie along a picture's horizontal axis, its vertical axis, and across the pictures:
/// the two letters name the first two, the missing one is the slice axis. The last three are the transposes of the
/// first three, in reverse order.
///
/// `CVolume::GetPlaneDimensions` and `GetPlaneIncrements` know only the first three, and answer (y, x, z) for `VP_XZ`
/// although its axes are (x, z, y): hosts depend on these results as they are. The slicer and the reformatter follow
/// this table.
enum VolumePlane : int {
    VP_XY = 0,
    VP_YZ = 1,
    VP_XZ = 2,
    VP_ZX = 3,
    VP_ZY = 4,
    VP_YX = 5,
};
