// A vector that begins with three elements.
#pragma once

#include "FVector.h"

/// Three elements (x, y, z) unless it is copied from a vector of another dimension, which it then takes over.
class KORVANE_API FVector3D : public FVector {
public:
    FVector3D();
    FVector3D(double x, double y, double z) : FVector{x, y, z} {}
    FVector3D(const FVector3D& other);
    FVector3D(const FVector& other);
    ~FVector3D() override;

    FVector3D& operator=(const FVector3D& other);
    FVector3D& operator=(const FVector& other);
    using FVector::operator=;
};
