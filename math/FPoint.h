// Points in space.
#pragma once

#include "FVector.h"

/// A point (x, y, z): a vector of dimension 3.
///
/// Points and vectors differ in what may be done with them: a point plus or minus a vector is a point, the difference of
/// two points is a vector. Whatever else a vector can do a point can do too, and the result is a vector.
class KORVANE_API FPoint : public FVector {
public:
    /// The origin.
    FPoint();
    FPoint(float x, float y, float z);
    /// The first three elements; those that a shorter vector does not have are 0.
    FPoint(const FVector& v);
    FPoint(const FPoint& other);
    ~FPoint() override;

    FPoint& operator=(const FPoint& other);

    FPoint operator+(const FVector& v) const;
    FPoint operator-(const FVector& v) const;
    /// The sums of the coordinates: twice the midpoint.
    FPoint operator+(const FPoint& other) const;
    /// The vector from `other` to this point.
    FVector operator-(const FPoint& other) const;

private:
    void init(float x, float y, float z);
};
