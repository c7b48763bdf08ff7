// Planes.
#pragma once

#include "FPoint.h"

class FLine;

/// The plane a x + b y + c z + d = 0: a vector of its four coefficients, which are not normalised.
class KORVANE_API FPlane : public FVector {
public:
    /// Coefficients 0, which is no plane yet.
    FPlane();
    FPlane(float a, float b, float c, float d);
    /// The four elements; those that a shorter vector does not have are 0.
    FPlane(const FVector& coefficients);
    /// Through a point, with a normal, which is taken as it is.
    FPlane(const FVector& p, const FVector& normal);
    /// Through three points; the normal is (p2 - p1) ^ (p3 - p1), 0 where they lie on a line.
    FPlane(const FVector& p1, const FVector& p2, const FVector& p3);
    /// Through the line's base point, perpendicular to the line.
    explicit FPlane(const FLine& l);
    FPlane(const FPlane& other);
    ~FPlane() override;

    FPlane& operator=(const FPlane& other);

    void Init(float a, float b, float c, float d);
    void Init(const FVector& p, const FVector& normal);

    FVector GetCoeff() const;
    /// (a, b, c) as it is held.
    FVector GetNormal() const;
    /// d / k on the axis of coefficient k, 0 on the others, where k is the first of a, b, c that is not equal to 1e-8;
    /// the origin where there is none. This need not be a point of the plane: the sign of d is not turned over, which
    /// gives the mirror image of one, and a coefficient of 0 is taken as well, which makes the coordinate infinite or
    /// NaN. It is deliberate: `Dist` of parallel planes is worked out from it.
    FPoint GetPoint() const;

    /// |a x + b y + c z + d| < 1e-6, with the coefficients as they are: a tolerance in millimetres for a normal of
    /// length 1 only.
    virtual bool IsPointOn(const FPoint& p) const;
};
