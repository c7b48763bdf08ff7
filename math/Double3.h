// Three coordinates in double, for computations in which single precision would lose too much.
#pragma once

#include "FPoint.h"
#include "FVector.h"

#include <cmath>

namespace korvane_detail {

/// Element i, or 0 where the vector is shorter: a point or a plane can be given another dimension through its base
/// class.
inline float GetElement(const FVector& v, int i) {
    return i < v.dim() ? v.GetPointer()[i] : 0.0F;
}

/// A point or vector in double precision.
struct Double3 {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

inline Double3 ToDouble3(const FVector& v) {
    return {GetElement(v, 0), GetElement(v, 1), GetElement(v, 2)};
}

inline Double3 ToDouble3(const float* elements) {
    return {elements[0], elements[1], elements[2]};
}

inline FPoint ToPoint(const Double3& a) {
    return {static_cast<float>(a.x), static_cast<float>(a.y), static_cast<float>(a.z)};
}

inline Double3 operator+(const Double3& a, const Double3& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

inline Double3 operator-(const Double3& a, const Double3& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

inline Double3 operator*(const Double3& a, double s) {
    return {a.x * s, a.y * s, a.z * s};
}

inline double Dot(const Double3& a, const Double3& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

inline Double3 Cross(const Double3& a, const Double3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

inline double Length(const Double3& a) {
    return std::sqrt(Dot(a, a));
}

}  // namespace korvane_detail
