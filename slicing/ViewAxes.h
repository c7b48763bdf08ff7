// Which axis of a volume lies where in a view plane.
#pragma once

#include "../volume/VolumePlane.h"

/// Axes of the raw volume in a picture: 0 = x (columns), 1 = y (rows), 2 = z (planes).
struct ViewAxes {
    int m_Horizontal = 0;  ///< along the picture's rows
    int m_Vertical = 1;    ///< down its columns
    int m_Slice = 2;       ///< across the pictures

    bool operator==(const ViewAxes& other) const = default;
};

/// The axes of a view plane, as its name tells them. False, and `axes` stays, for a value outside 0 to 5.
constexpr bool FindViewAxes(VolumePlane plane, ViewAxes& axes) {
    constexpr ViewAxes kAxes[6] = {{0, 1, 2}, {1, 2, 0}, {0, 2, 1}, {2, 0, 1}, {2, 1, 0}, {1, 0, 2}};
    if (plane < VP_XY || plane > VP_YX) {
        return false;
    }
    axes = kAxes[plane];
    return true;
}

/// The view plane with these two axes. False, and `plane` stays, unless they are two different ones of 0 to 2.
constexpr bool FindViewPlane(int horizontal, int vertical, VolumePlane& plane) {
    for (int candidate = VP_XY; candidate <= VP_YX; ++candidate) {
        ViewAxes axes;
        FindViewAxes(static_cast<VolumePlane>(candidate), axes);
        if (axes.m_Horizontal == horizontal && axes.m_Vertical == vertical) {
            plane = static_cast<VolumePlane>(candidate);
            return true;
        }
    }
    return false;
}

/// Three values of the raw volume (dimensions, spacing) in the order of a view plane: horizontal, vertical, across. The
/// counterpart of `CVolume::GetPlaneDimensions` for all six planes. False, and `view` stays, for a value outside 0 to 5.
template <typename T>
constexpr bool ReorderForView(VolumePlane plane, const T* raw, T* view) {
    ViewAxes axes;
    if (!FindViewAxes(plane, axes)) {
        return false;
    }
    view[0] = raw[axes.m_Horizontal];
    view[1] = raw[axes.m_Vertical];
    view[2] = raw[axes.m_Slice];
    return true;
}
