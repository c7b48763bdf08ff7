// Volumes in every orientation, and the patient points of their voxels.
#pragma once

#include <Korvane/volume/CVolume.h>

#include <array>
#include <cmath>
#include <vector>

using Point = std::array<double, 3>;

inline Point Cross(const Point& a, const Point& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

struct Orientation {
    Point row;
    Point column;
};

/// Sets the geometry of a volume that has its dimensions already, as assembly would set it. `planeZ` are the places of
/// the planes, in any order, measured from the origin in the direction opposite to row x column.
inline void Orient(CVolume& volume, const Orientation& orientation, const std::vector<float>& planeZ) {
    float cosines[2][3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        cosines[0][axis] = static_cast<float>(orientation.row[axis]);
        cosines[1][axis] = static_cast<float>(orientation.column[axis]);
    }
    float origin[4] = {-11, 23, 5, 0};
    volume.SetOrientation(cosines);
    volume.SetOrigin(origin);
    for (std::size_t k = 0; k < planeZ.size(); ++k) {
        float* const org = volume.GetPlane(static_cast<int>(k))->m_Org;
        org[0] = origin[0];
        org[1] = origin[1];
        org[2] = planeZ[k] - origin[2];
    }
    volume.UpdateZInterpArray();
}

/// Where the voxel at a column, row and plane lies in the patient.
inline Point PatientPoint(CVolume& volume, int column, int row, int plane) {
    float cosines[2][3], origin[4], space[4];
    volume.GetOrientation(cosines);
    volume.GetOrigin(origin);
    volume.GetSpacing(space);
    const float* const org = volume.GetPlane(plane)->m_Org;
    const Point right{cosines[0][0], cosines[0][1], cosines[0][2]};
    const Point down{cosines[1][0], cosines[1][1], cosines[1][2]};
    const Point normal = Cross(right, down);
    const double x = double{space[0]} * column + org[0] - origin[0];
    const double y = double{space[1]} * row + org[1] - origin[1];
    const double z = -double{org[2]} - origin[2];
    Point point;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        point[axis] = origin[axis] + x * right[axis] + y * down[axis] + z * normal[axis];
    }
    return point;
}
