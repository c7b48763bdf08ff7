#include "FVector3D.h"

FVector3D::FVector3D() : FVector(3) {}
FVector3D::FVector3D(const FVector3D& other) = default;
FVector3D::FVector3D(const FVector& other) : FVector(other) {}
FVector3D::~FVector3D() = default;

FVector3D& FVector3D::operator=(const FVector3D& other) = default;

FVector3D& FVector3D::operator=(const FVector& other) {
    FVector::operator=(other);
    return *this;
}
