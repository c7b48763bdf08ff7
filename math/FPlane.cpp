#include "FPlane.h"

#include "Double3.h"
#include "FLine.h"

#include <cmath>

using korvane_detail::Dot;
using korvane_detail::GetElement;
using korvane_detail::ToDouble3;

FPlane::FPlane() {
    Init(0.0F, 0.0F, 0.0F, 0.0F);
}

FPlane::FPlane(float a, float b, float c, float d) {
    Init(a, b, c, d);
}

FPlane::FPlane(const FVector& coefficients) {
    Init(GetElement(coefficients, 0), GetElement(coefficients, 1), GetElement(coefficients, 2),
         GetElement(coefficients, 3));
}

FPlane::FPlane(const FVector& p, const FVector& normal) {
    Init(p, normal);
}

FPlane::FPlane(const FVector& p1, const FVector& p2, const FVector& p3) {
    const FPoint p(p1);
    Init(p, (FPoint(p2) - p) ^ (FPoint(p3) - p));
}

FPlane::FPlane(const FLine& l) {
    Init(l.GetP0(), l.GetVersor());
}

FPlane::FPlane(const FPlane& other) : FPlane(static_cast<const FVector&>(other)) {}

FPlane::~FPlane() = default;

FPlane& FPlane::operator=(const FPlane& other) {
    Init(GetElement(other, 0), GetElement(other, 1), GetElement(other, 2), GetElement(other, 3));
    return *this;
}

void FPlane::Init(float a, float b, float c, float d) {
    size(4);
    float* const elements = GetPointer();
    elements[0] = a;
    elements[1] = b;
    elements[2] = c;
    elements[3] = d;
}

void FPlane::Init(const FVector& p, const FVector& normal) {
    const FPoint n(normal);
    Init(n[0], n[1], n[2], static_cast<float>(-Dot(ToDouble3(n), ToDouble3(p))));
}

FVector FPlane::GetCoeff() const {
    return *this;
}

FVector FPlane::GetNormal() const {
    return FPoint(*this);
}

FPoint FPlane::GetPoint() const {
    constexpr float kNoCoefficient = 1e-8F;
    FPoint point;
    for (int i = 0; i < 3; ++i) {
        const float coefficient = GetElement(*this, i);
        if (coefficient == kNoCoefficient) continue;
        point[i] = GetElement(*this, 3) / coefficient;
        break;
    }
    return point;
}

bool FPlane::IsPointOn(const FPoint& p) const {
    return std::fabs(Dot(ToDouble3(*this), ToDouble3(p)) + GetElement(*this, 3)) < 1e-6;
}
