// Where points, lines, planes and segments meet.
#pragma once

#include "FLine.h"
#include "FPlane.h"
#include "FSegment.h"

/// The segment that joins two objects, in either order of the arguments; `flag` becomes true where they are parallel.
///
/// What the rows of the result mean depends on the pair, and `FSegment::mod` and `GetP1` read them differently:
///
///     line, point         the point; the foot on the line minus the point. flag false
///     plane, point        the foot on the plane; the point. flag false
///     line, line          the foot on the first; the foot on the second minus the foot on the first. Parallel: as of the
///                         second line and the first one's base point
///     line, plane         where they meet; (0, 0, 0). Parallel: the foot of the line's base point; (0, 0, 0)
///     plane, plane        a point of the common line; its direction. Parallel: as of the second plane and the first one's
///                         `GetPoint()`
///     segment, point      as of the line, where that foot lies on the segment; else the point; the nearer end minus the
///                         point
///     segment, line       as of both lines, where the foot lies on the segment; else as of the line and one of the ends
///     segment, plane      as of line and plane, where that lies on the segment; else as of the plane and one of the ends
///     segment, segment    as of both lines, where each foot lies on its segment; else as of one of the four ends and the
///                         other segment
///
/// Of several ends the one whose result has the smallest `mod()` is taken, the first of equal ones. Whether a foot lies
/// on a segment is what `FSegment::IsPointOn` answers.
///
/// What counts as parallel is fixed, since the kind of the result depends on it. Planes are, where the cross product of
/// the normals is shorter than 0.001; a line and a plane, where versor * normal is at most 0.001; lines, where the
/// cross product of the versors has x^2 + y^2 < 1e-6. That its z is left out, there and in the computation of the feet,
/// is deliberate, and hosts depend on it. So lines whose directions both lie in the x-y plane count as parallel, and
/// the feet of other lines are exact only where that z is 0.
///
/// Two lines (or segments) of which one has no direction are a `ZeroException`. A plane whose normal is not longer than
/// 0.001 is no plane: the foot on it is the point itself, or the line's base point, and `flag` is true.
///
/// For the distance that a ruler would show see `Distance`.
KORVANE_API FSegment Intersect(const FLine& a, const FLine& b, bool& flag);
KORVANE_API FSegment Intersect(const FLine& a, const FVector& b, bool& flag);
KORVANE_API FSegment Intersect(const FVector& a, const FLine& b, bool& flag);
KORVANE_API FSegment Intersect(const FPlane& a, const FVector& b, bool& flag);
KORVANE_API FSegment Intersect(const FVector& a, const FPlane& b, bool& flag);
KORVANE_API FSegment Intersect(const FLine& a, const FPlane& b, bool& flag);
KORVANE_API FSegment Intersect(const FPlane& a, const FLine& b, bool& flag);
KORVANE_API FSegment Intersect(const FPlane& a, const FPlane& b, bool& flag);
KORVANE_API FSegment Intersect(const FSegment& a, const FVector& b, bool& flag);
KORVANE_API FSegment Intersect(const FVector& a, const FSegment& b, bool& flag);
KORVANE_API FSegment Intersect(const FSegment& a, const FLine& b, bool& flag);
KORVANE_API FSegment Intersect(const FLine& a, const FSegment& b, bool& flag);
KORVANE_API FSegment Intersect(const FSegment& a, const FPlane& b, bool& flag);
KORVANE_API FSegment Intersect(const FPlane& a, const FSegment& b, bool& flag);
KORVANE_API FSegment Intersect(const FSegment& a, const FSegment& b, bool& flag);
