// Line segments.
#pragma once

#include "FLine.h"

/// A segment, held as a line is: row 0 its start, row 1 what leads from there to its end.
///
/// The queries do not agree about row 1: `GetP1` and `IsPointOn` read a direction, `mod` and `GetMid` the end point
/// itself. This is deliberate: `Intersect` and `Dist` are defined by it, and hosts depend on their results. So `mod` is
/// the length only of segments that were made from a point and a vector that is meant as the end point, as `Intersect`
/// makes some of its results; of other segments `GetDirection().mod()` is the length.
class KORVANE_API FSegment : public FLine {
public:
    /// Start and end at the origin.
    FSegment();
    /// Rows a, b - a.
    FSegment(const FPoint& a, const FPoint& b);
    /// Rows p, v as they are.
    FSegment(const FPoint& p, const FVector& v);
    /// A point of the line in which two planes meet and the line's direction; parallel planes: as `FSegment()`.
    FSegment(const FPlane& a, const FPlane& b);
    FSegment(const FSegment& other);
    ~FSegment() override;

    FSegment& operator=(const FSegment& other);

    /// |row 0 - row 1|.
    float mod() const;
    /// (row 0 + row 1) / 2.
    FPoint GetMid() const;

// Beside the line's test, not instead of it: through a reference to an FLine the line's test runs. Compilers warn of
// such a pair.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
    /// Whether each coordinate of the point lies between those of `GetP0()` and `GetP1()`, ends included: whether it
    /// lies in the box that the ends span. For the distance of a point see `Distance`.
    virtual bool IsPointOn(const FVector& p) const;
#pragma GCC diagnostic pop

private:
    static bool OnSegment1D(float a, float b, float x);
};
