#include "FPoint.h"

#include "Double3.h"

using korvane_detail::GetElement;

FPoint::FPoint() {
    init(0.0F, 0.0F, 0.0F);
}

FPoint::FPoint(float x, float y, float z) {
    init(x, y, z);
}

FPoint::FPoint(const FVector& v) {
    init(GetElement(v, 0), GetElement(v, 1), GetElement(v, 2));
}

FPoint::FPoint(const FPoint& other) : FPoint(static_cast<const FVector&>(other)) {}

FPoint::~FPoint() = default;

FPoint& FPoint::operator=(const FPoint& other) {
    init(GetElement(other, 0), GetElement(other, 1), GetElement(other, 2));
    return *this;
}

void FPoint::init(float x, float y, float z) {
    size(3);
    float* const elements = GetPointer();
    elements[0] = x;
    elements[1] = y;
    elements[2] = z;
}

FPoint FPoint::operator+(const FVector& v) const {
    return ::operator+(*this, v);
}

FPoint FPoint::operator-(const FVector& v) const {
    return ::operator-(*this, v);
}

FPoint FPoint::operator+(const FPoint& other) const {
    return ::operator+(*this, other);
}

FVector FPoint::operator-(const FPoint& other) const {
    return ::operator-(*this, other);
}
