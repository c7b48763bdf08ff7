// Infinite lines.
#pragma once

#include "FMatrix.h"
#include "FPoint.h"

class FPlane;

/// A line through a base point along a direction, held as the two rows of a 2 x 3 matrix: row 0 the base point, row 1
/// the direction, which need not have length 1.
class KORVANE_API FLine {
public:
    /// Through the origin, without a direction.
    FLine();
    FLine(const FPoint& p0, const FVector& direction);
    /// From `a` to `b`: the direction is b - a. Where an argument is no `FPoint`, it is taken for a direction.
    FLine(const FPoint& a, const FPoint& b);
    /// The line in which two planes meet. Where they are parallel there is none: the line is as `FLine()` makes it.
    FLine(const FPlane& a, const FPlane& b);
    FLine(const FLine& other);
    virtual ~FLine();

    FLine& operator=(const FLine& other);

    /// As the constructors; of parallel planes the line stays as it was.
    void Init(const FPoint& p0, const FVector& direction);
    void Init(const FPoint& a, const FPoint& b);
    void Init(const FPlane& a, const FPlane& b);
    void Init(const FLine& other);

    FPoint GetP0() const;
    /// The base point plus the direction.
    FPoint GetP1() const;
    /// The direction as it is held.
    FVector GetDirection() const;
    /// The direction with length 1; one not longer than 1e-10 is returned as it is.
    FVector GetVersor() const;

    /// Whether the point, seen from the base point and divided by the versor element by element, is near 0 in its first
    /// element: 3 q^2 < 0.001. The test looks at x alone, which is deliberate: hosts depend on its answers as they are.
    /// For the distance of a point see `Distance`. A versor with an element of 0 is a `ZeroException`.
    virtual bool IsPointOn(const FPoint& p) const;

protected:
    FMatrix m_Rows;
};
