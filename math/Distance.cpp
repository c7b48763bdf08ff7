#include "Distance.h"

#include "Double3.h"

#include <algorithm>
#include <cmath>

using korvane_detail::Cross;
using korvane_detail::Dot;
using korvane_detail::Double3;
using korvane_detail::GetElement;
using korvane_detail::Length;
using korvane_detail::ToDouble3;

namespace {

constexpr double kParallel = 1e-6;

struct Ray {
    Double3 m_Base;
    Double3 m_Direction;
};

Ray ToRay(const FLine& line) {
    return {ToDouble3(line.GetP0()), ToDouble3(line.GetDirection())};
}

Ray ToRay(const FSegment& segment) {
    const Double3 base = ToDouble3(segment.GetP0());
    return {base, ToDouble3(segment.GetP1()) - base};
}

Double3 PointAt(const Ray& ray, double t) {
    return ray.m_Base + ray.m_Direction * t;
}

// Where along the ray, in units of its direction, the foot of a point is.
double Project(const Ray& ray, const Double3& point) {
    const double square = Dot(ray.m_Direction, ray.m_Direction);
    return square > 0.0 ? Dot(point - ray.m_Base, ray.m_Direction) / square : 0.0;
}

double FromLine(const Ray& ray, const Double3& point) {
    return Length(point - PointAt(ray, Project(ray, point)));
}

double FromSegment(const Ray& segment, const Double3& point) {
    return Length(point - PointAt(segment, std::clamp(Project(segment, point), 0.0, 1.0)));
}

// The common perpendicular of two lines; false where they are parallel, or one is a point.
struct Perpendicular {
    Perpendicular(const Ray& a, const Ray& b) {
        const Double3 c = Cross(a.m_Direction, b.m_Direction);
        const double square = Dot(c, c);
        if (!(std::sqrt(square) > kParallel * Length(a.m_Direction) * Length(b.m_Direction))) return;
        const Double3 w = b.m_Base - a.m_Base;
        m_bExists = true;
        m_First = Dot(w, Cross(b.m_Direction, c)) / square;
        m_Second = Dot(w, Cross(a.m_Direction, c)) / square;
        m_Length = std::fabs(Dot(w, c)) / std::sqrt(square);
    }
    bool m_bExists = false;
    double m_First = 0.0;   ///< its foot on the first line, in units of the direction
    double m_Second = 0.0;  ///< and on the second
    double m_Length = 0.0;
};

bool IsInside(double t) {
    return t >= 0.0 && t <= 1.0;
}

// A plane as a function of the point: the distance, positive on the side of the normal.
class SignedDistance {
public:
    explicit SignedDistance(const FPlane& plane) : m_Normal(ToDouble3(plane)), m_Offset(GetElement(plane, 3)) {
        const double length = Length(m_Normal);
        const double scale = length > 0.0 ? 1.0 / length : 0.0;
        m_Normal = m_Normal * scale;
        m_Offset *= scale;
    }
    double operator()(const Double3& point) const { return Dot(m_Normal, point) + m_Offset; }
    const Double3& GetNormal() const { return m_Normal; }
    // The point of the plane that is nearest to the origin.
    Double3 GetPoint() const { return m_Normal * -m_Offset; }

private:
    Double3 m_Normal;  ///< of length 1, or 0
    double m_Offset;
};

float Round(double distance) {
    return static_cast<float>(distance);
}

}  // namespace

float Distance(const FVector& a, const FVector& b) {
    return Round(Length(ToDouble3(a) - ToDouble3(b)));
}

float Distance(const FLine& a, const FVector& b) {
    return Round(FromLine(ToRay(a), ToDouble3(b)));
}

float Distance(const FPlane& a, const FVector& b) {
    return Round(std::fabs(SignedDistance(a)(ToDouble3(b))));
}

float Distance(const FSegment& a, const FVector& b) {
    return Round(FromSegment(ToRay(a), ToDouble3(b)));
}

float Distance(const FLine& a, const FPlane& b) {
    const Ray line = ToRay(a);
    const SignedDistance plane(b);
    const bool meets = std::fabs(Dot(line.m_Direction, plane.GetNormal())) > kParallel * Length(line.m_Direction);
    return meets ? 0.0F : Round(std::fabs(plane(line.m_Base)));
}

float Distance(const FSegment& a, const FLine& b) {
    const Ray segment = ToRay(a);
    const Ray line = ToRay(b);
    const Perpendicular perpendicular(segment, line);
    // The distance from the line is convex along the segment.
    return Round(FromLine(line, PointAt(segment, std::clamp(perpendicular.m_First, 0.0, 1.0))));
}

float Distance(const FSegment& a, const FPlane& b) {
    const SignedDistance plane(b);
    const double first = plane(ToDouble3(a.GetP0()));
    const double second = plane(ToDouble3(a.GetP1()));
    const bool meets = first <= 0.0 ? second >= 0.0 : second <= 0.0;
    return meets ? 0.0F : Round(std::min(std::fabs(first), std::fabs(second)));
}

float Distance(const FLine& a, const FLine& b) {
    const Ray first = ToRay(a);
    const Ray second = ToRay(b);
    const Perpendicular perpendicular(first, second);
    if (perpendicular.m_bExists) return Round(perpendicular.m_Length);
    const bool secondIsPoint = !(Length(second.m_Direction) > 0.0);
    return Round(secondIsPoint ? FromLine(first, second.m_Base) : FromLine(second, first.m_Base));
}

float Distance(const FPlane& a, const FPlane& b) {
    const SignedDistance first(a);
    const SignedDistance second(b);
    const bool meet = Length(Cross(first.GetNormal(), second.GetNormal())) > kParallel;
    const bool noPlane = !(Length(first.GetNormal()) > 0.0);
    return meet || noPlane ? 0.0F : Round(std::fabs(second(first.GetPoint())));
}

// The nearest points are an end and its foot, or the feet of the common perpendicular.
float Distance(const FSegment& a, const FSegment& b) {
    const Ray first = ToRay(a);
    const Ray second = ToRay(b);
    const double ends = std::min({FromSegment(second, first.m_Base), FromSegment(second, PointAt(first, 1.0)),
                                  FromSegment(first, second.m_Base), FromSegment(first, PointAt(second, 1.0))});
    const Perpendicular inner(first, second);
    const bool isInside = inner.m_bExists && IsInside(inner.m_First) && IsInside(inner.m_Second);
    return Round(isInside ? std::min(ends, inner.m_Length) : ends);
}

// ---- Dist: the length of what `Intersect` returns

namespace {

template <typename First, typename Second>
float LengthOfJoint(const First& a, const Second& b) {
    bool parallel = false;
    return Intersect(a, b, parallel).mod();
}

}  // namespace

float Dist(const FVector& a, const FVector& b) {
    return (a - b).mod();
}

float Dist(const FLine& a, const FVector& b) {
    return LengthOfJoint(a, b);
}

float Dist(const FPlane& a, const FVector& b) {
    return LengthOfJoint(a, b);
}

float Dist(const FSegment& a, const FVector& b) {
    return LengthOfJoint(a, b);
}

float Dist(const FLine& a, const FPlane& b) {
    bool parallel = false;
    Intersect(a, b, parallel);
    return parallel ? Dist(b, a.GetP0()) : 0.0F;
}

float Dist(const FSegment& a, const FLine& b) {
    return LengthOfJoint(a, b);
}

float Dist(const FSegment& a, const FPlane& b) {
    return LengthOfJoint(a, b);
}

float Dist(const FLine& a, const FLine& b) {
    bool parallel = false;
    const FSegment joint = Intersect(a, b, parallel);
    return parallel ? joint.GetDirection().mod() : joint.mod();
}

float Dist(const FPlane& a, const FPlane& b) {
    bool parallel = false;
    const FSegment joint = Intersect(a, b, parallel);
    return parallel ? joint.mod() : 0.0F;
}

float Dist(const FSegment& a, const FSegment& b) {
    return LengthOfJoint(a, b);
}

// ---- Both, with the objects the other way round

#define KORVANE_SWAPPED(First, Second)                                                                                 \
    float Distance(const First& a, const Second& b) {                                                                  \
        return Distance(b, a);                                                                                         \
    }                                                                                                                  \
    float Dist(const First& a, const Second& b) {                                                                      \
        return Dist(b, a);                                                                                             \
    }

KORVANE_SWAPPED(FVector, FLine)
KORVANE_SWAPPED(FVector, FPlane)
KORVANE_SWAPPED(FVector, FSegment)
KORVANE_SWAPPED(FPlane, FLine)
KORVANE_SWAPPED(FLine, FSegment)
KORVANE_SWAPPED(FPlane, FSegment)

#undef KORVANE_SWAPPED
