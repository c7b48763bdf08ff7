// Where a volume lies in the patient.
#pragma once

#include "../volume/CVolume.h"

#include <array>

namespace korvane_detail {

using Triple = std::array<double, 3>;

inline double Dot(const Triple& a, const Triple& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

inline Triple Cross(const Triple& a, const Triple& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

inline Triple Times(const Triple& a, double factor) {
    return {a[0] * factor, a[1] * factor, a[2] * factor};
}

inline Triple Plus(const Triple& a, const Triple& b) {
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}

/// The volume's axes in patient millimetres, as series assembly lays them: plane z runs against row x column.
struct PatientFrame {
    Triple m_Row = {1, 0, 0};
    Triple m_Column = {0, 1, 0};
    Triple m_Normal = {0, 0, 1};  ///< row x column
    Triple m_Origin = {0, 0, 0};
    bool m_bDescending = false;  ///< the planes run from high z to low: along the normal

    /// False when the cosines are no pair of independent, finite directions. The volume's planes, if any, tell the order.
    bool Read(CVolume& volume);

    /// Unit direction of growing index along x, y (0, 1) or from plane to plane (2).
    Triple GetAxis(int axis) const;

    /// Components of a direction along row, column and against the normal, as the volume frame counts. Row and column
    /// need not be perpendicular.
    Triple ToAxes(const Triple& direction) const;

    /// The point `x` and `y` millimetres along row and column from the first voxel of a plane at `z`, as planes count it.
    Triple GetPoint(double x, double y, double z) const;
};

}  // namespace korvane_detail
