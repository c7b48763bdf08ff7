// Distances of points, lines, planes and segments.
#pragma once

#include "Intersect.h"

/// The smallest distance of two objects, 0 where they meet or overlap; computed in double, rounded once. A segment
/// reaches from `GetP0()` to `GetP1()`. A line or segment without direction is its base point. Directions and normals
/// whose angle differs from parallel by less than 1e-6 radians, which is what single precision can tell, are parallel.
/// A plane without a normal is everywhere: distance 0.
KORVANE_API float Distance(const FVector& a, const FVector& b);
KORVANE_API float Distance(const FLine& a, const FVector& b);
KORVANE_API float Distance(const FVector& a, const FLine& b);
KORVANE_API float Distance(const FPlane& a, const FVector& b);
KORVANE_API float Distance(const FVector& a, const FPlane& b);
KORVANE_API float Distance(const FSegment& a, const FVector& b);
KORVANE_API float Distance(const FVector& a, const FSegment& b);
KORVANE_API float Distance(const FLine& a, const FPlane& b);
KORVANE_API float Distance(const FPlane& a, const FLine& b);
KORVANE_API float Distance(const FSegment& a, const FLine& b);
KORVANE_API float Distance(const FLine& a, const FSegment& b);
KORVANE_API float Distance(const FSegment& a, const FPlane& b);
KORVANE_API float Distance(const FPlane& a, const FSegment& b);
KORVANE_API float Distance(const FLine& a, const FLine& b);
KORVANE_API float Distance(const FPlane& a, const FPlane& b);
KORVANE_API float Distance(const FSegment& a, const FSegment& b);

/// `mod()` of the segment that `Intersect` returns. Hosts depend on these values as they are; new code takes
/// `Distance`. Where row 1 of that segment leads from the first point to the second, `mod()` reads it as a point and
/// the value is no distance: so for a line and a point, for two skew lines, and for most results with segments.
///
/// It is the distance for two points, a plane and a point, parallel lines (seen from the first one's base point), and a
/// line and a plane (0 where they meet). Two planes that meet have 0; parallel ones what `FPlane::GetPoint` leads to.
///
/// A `ZeroException` where `Intersect` throws it.
KORVANE_API float Dist(const FVector& a, const FVector& b);
KORVANE_API float Dist(const FLine& a, const FVector& b);
KORVANE_API float Dist(const FVector& a, const FLine& b);
KORVANE_API float Dist(const FPlane& a, const FVector& b);
KORVANE_API float Dist(const FVector& a, const FPlane& b);
KORVANE_API float Dist(const FSegment& a, const FVector& b);
KORVANE_API float Dist(const FVector& a, const FSegment& b);
KORVANE_API float Dist(const FLine& a, const FPlane& b);
KORVANE_API float Dist(const FPlane& a, const FLine& b);
KORVANE_API float Dist(const FSegment& a, const FLine& b);
KORVANE_API float Dist(const FLine& a, const FSegment& b);
KORVANE_API float Dist(const FSegment& a, const FPlane& b);
KORVANE_API float Dist(const FPlane& a, const FSegment& b);
KORVANE_API float Dist(const FLine& a, const FLine& b);
KORVANE_API float Dist(const FPlane& a, const FPlane& b);
KORVANE_API float Dist(const FSegment& a, const FSegment& b);
