#include "PatientFrame.h"

#include <cmath>

namespace korvane_detail {

namespace {

// Shorter products are no directions: cosines are told to some six digits.
constexpr double kShortest = 1e-6;

// False for what has no direction, NaN and infinity included.
bool Normalise(Triple& v) {
    const double length = std::sqrt(Dot(v, v));
    if (!(length > kShortest) || !std::isfinite(length)) {
        return false;
    }
    v = Times(v, 1 / length);
    return true;
}

}  // namespace

bool PatientFrame::Read(CVolume& volume) {
    float orientation[2][3];
    float origin[4];
    volume.GetOrientation(orientation);
    volume.GetOrigin(origin);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        m_Row[axis] = orientation[0][axis];
        m_Column[axis] = orientation[1][axis];
        m_Origin[axis] = origin[axis];
    }
    const int planes = volume.GetPlaneCount();
    m_bDescending = planes > 1 && volume.GetPlane(planes - 1)->m_Org[2] < volume.GetPlane(0)->m_Org[2];
    if (!Normalise(m_Row) || !Normalise(m_Column)) {
        return false;
    }
    m_Normal = Cross(m_Row, m_Column);
    return Normalise(m_Normal);
}

Triple PatientFrame::GetAxis(int axis) const {
    return axis == 0 ? m_Row : axis == 1 ? m_Column : m_bDescending ? m_Normal : Times(m_Normal, -1);
}

// Cramer's rule.
Triple PatientFrame::ToAxes(const Triple& direction) const {
    const Triple across = Times(m_Normal, -1);
    const double determinant = Dot(m_Row, Cross(m_Column, across));
    return {Dot(direction, Cross(m_Column, across)) / determinant, Dot(direction, Cross(across, m_Row)) / determinant,
            Dot(direction, Cross(m_Row, m_Column)) / determinant};
}

Triple PatientFrame::GetPoint(double x, double y, double z) const {
    const Triple inPlane = Plus(Times(m_Row, x), Times(m_Column, y));
    return Plus(Plus(m_Origin, inPlane), Times(m_Normal, -z - m_Origin[2]));
}

}  // namespace korvane_detail
