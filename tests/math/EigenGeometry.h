// Vectors and transforms to compare with Eigen.
#pragma once

#include <Korvane/Korvane.h>

#include <Eigen/Geometry>

using Eigen::Matrix4d;
using Eigen::Vector3d;

inline Vector3d D(const FVector& v) {
    return {v[0], v[1], v[2]};
}

inline Matrix4d ToEigen(const FTransform& t) {
    return Matrix4d::NullaryExpr([&](auto i, auto j) { return t(static_cast<int>(i), static_cast<int>(j)); });
}
