#include "Intersect.h"

#include "Double3.h"
#include "Exception.h"

#include <cmath>
#include <initializer_list>

using korvane_detail::Cross;
using korvane_detail::Dot;
using korvane_detail::GetElement;
using korvane_detail::ToDouble3;

namespace {

struct Feet {
    FPoint m_First;
    FPoint m_Second;
    bool m_bParallel;
};

FVector GetUnit(const FLine& line) {
    FVector unit = line.GetVersor();
    unit.normalize();
    return unit;
}

FPoint Move(const FPoint& from, const FVector& unit, double way) {
    FPoint to(from);
    to.add(unit, way);
    return to;
}

FPoint GetFoot(const FLine& line, const FPoint& point) {
    const FVector unit = GetUnit(line);
    const FPoint p0 = line.GetP0();
    return Move(p0, unit, unit * (point - p0));
}

double Determinant(const FVector& a, const FVector& b, const FVector& c) {
    return Dot(ToDouble3(a), Cross(ToDouble3(b), ToDouble3(c)));
}

// A line without direction is refused before anything is said about being parallel, which it would be to every line.
Feet GetFeet(const FLine& l1, const FLine& l2) {
    FVector u1 = l1.GetVersor();
    FVector u2 = l2.GetVersor();
    const double s1 = u1.normalize();
    const double s2 = u2.normalize();
    if (s1 <= 1e-6 || s2 <= 1e-6) throw ZeroException("Intersect(Line,Line): Retta non definita");
    const FPoint p1 = l1.GetP0();
    const FPoint p2 = l2.GetP0();
    const FVector c = u1 ^ u2;
    const double q = static_cast<double>(c[0]) * c[0] + static_cast<double>(c[1]) * c[1];  // without z: see the header
    if (q < 1e-6) return {p1, GetFoot(l2, p1), true};
    const FVector w = p2 - p1;
    return {Move(p1, u1, Determinant(w, u2, c) / q), Move(p2, u2, Determinant(w, u1, c) / q), false};
}

// False where the direction is parallel to the plane.
bool Pierce(const FPoint& p0, const FVector& unit, const FPlane& plane, FPoint& point) {
    const FVector normal = plane.GetNormal();
    const double slope = unit * normal;
    if (std::fabs(slope) <= 0.001) return false;
    const double value = Dot(ToDouble3(normal), ToDouble3(p0)) + GetElement(plane, 3);
    point = Move(p0, unit, -value / slope);
    return true;
}

// False where the plane has no normal to speak of; the foot is then the point itself.
bool PierceAlongNormal(const FPoint& point, const FPlane& plane, FPoint& foot) {
    foot = point;
    return Pierce(point, GetUnit(FLine(point, plane.GetNormal())), plane, foot);
}

FPoint GetCommonPoint(const FPlane& p1, const FPlane& p2, const FVector& e) {
    int k = 0;
    for (const int i : {1, 2}) {
        if (std::fabs(e[i]) > std::fabs(e[k])) k = i;
    }
    const int i = (k + 1) % 3;
    const int j = (k + 2) % 3;
    const auto minor = [&p1, &p2](int m, int n) {
        return static_cast<double>(GetElement(p1, m)) * GetElement(p2, n) -
               static_cast<double>(GetElement(p1, n)) * GetElement(p2, m);
    };
    FPoint point;
    point[i] = static_cast<float>(minor(j, 3) / minor(i, j));
    point[j] = static_cast<float>(minor(3, i) / minor(i, j));
    return point;
}

FSegment Shortest(std::initializer_list<FSegment> candidates) {
    const FSegment* best = candidates.begin();
    for (const FSegment& candidate : candidates) {
        if (candidate.mod() < best->mod()) best = &candidate;
    }
    return *best;
}

FSegment JoinNearerEnd(const FSegment& segment, const FPoint& point) {
    const FPoint a = segment.GetP0();
    const FPoint b = segment.GetP1();
    return FSegment(point, (b - point).mod() < (a - point).mod() ? b : a);
}

}  // namespace

FSegment Intersect(const FLine& a, const FLine& b, bool& flag) {
    const Feet feet = GetFeet(a, b);
    flag = feet.m_bParallel;
    return FSegment(feet.m_First, feet.m_Second);
}

FSegment Intersect(const FLine& a, const FVector& b, bool& flag) {
    flag = false;
    const FPoint point(b);
    return FSegment(point, GetFoot(a, point));
}

FSegment Intersect(const FVector& a, const FLine& b, bool& flag) {
    return Intersect(b, a, flag);
}

FSegment Intersect(const FPlane& a, const FVector& b, bool& flag) {
    const FPoint point(b);
    FPoint foot;
    flag = !PierceAlongNormal(point, a, foot);
    return FSegment(foot, static_cast<const FVector&>(point));
}

FSegment Intersect(const FVector& a, const FPlane& b, bool& flag) {
    return Intersect(b, a, flag);
}

FSegment Intersect(const FLine& a, const FPlane& b, bool& flag) {
    FPoint point;
    flag = !Pierce(a.GetP0(), GetUnit(a), b, point);
    if (flag) PierceAlongNormal(a.GetP0(), b, point);
    return FSegment(point, static_cast<const FVector&>(FPoint()));
}

FSegment Intersect(const FPlane& a, const FLine& b, bool& flag) {
    return Intersect(b, a, flag);
}

FSegment Intersect(const FPlane& a, const FPlane& b, bool& flag) {
    const FVector e = a.GetNormal() ^ b.GetNormal();
    if (e.mod() < 0.001) {
        const FSegment joint = Intersect(b, a.GetPoint(), flag);
        flag = true;
        return joint;
    }
    flag = false;
    return FSegment(GetCommonPoint(a, b, e), e);
}

FSegment Intersect(const FSegment& a, const FVector& b, bool& flag) {
    flag = false;
    const FPoint point(b);
    const FPoint foot = GetFoot(a, point);
    return a.IsPointOn(foot) ? FSegment(point, foot) : JoinNearerEnd(a, point);
}

FSegment Intersect(const FVector& a, const FSegment& b, bool& flag) {
    return Intersect(b, a, flag);
}

FSegment Intersect(const FSegment& a, const FLine& b, bool& flag) {
    const Feet feet = GetFeet(a, b);
    flag = feet.m_bParallel;
    if (a.IsPointOn(feet.m_First)) return FSegment(feet.m_First, feet.m_Second);
    bool ignored = false;
    return Shortest({Intersect(b, a.GetP0(), ignored), Intersect(b, a.GetP1(), ignored)});
}

FSegment Intersect(const FLine& a, const FSegment& b, bool& flag) {
    return Intersect(b, a, flag);
}

FSegment Intersect(const FSegment& a, const FPlane& b, bool& flag) {
    const FSegment meeting = Intersect(static_cast<const FLine&>(a), b, flag);
    if (a.IsPointOn(meeting.GetP0())) return meeting;
    bool ignored = false;
    return Shortest({Intersect(b, a.GetP0(), ignored), Intersect(b, a.GetP1(), ignored)});
}

FSegment Intersect(const FPlane& a, const FSegment& b, bool& flag) {
    return Intersect(b, a, flag);
}

FSegment Intersect(const FSegment& a, const FSegment& b, bool& flag) {
    const Feet feet = GetFeet(a, b);
    flag = feet.m_bParallel;
    if (a.IsPointOn(feet.m_First) && b.IsPointOn(feet.m_Second)) return FSegment(feet.m_First, feet.m_Second);
    bool ignored = false;
    return Shortest({Intersect(b, a.GetP0(), ignored), Intersect(b, a.GetP1(), ignored),
                     Intersect(a, b.GetP0(), ignored), Intersect(a, b.GetP1(), ignored)});
}
