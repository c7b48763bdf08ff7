// Reference results by Eigen. They are functions of one source file, because Eigen's decompositions take long to
// compile.
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

namespace reference {

using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::VectorXd;

double Determinant(const MatrixXd& m);
MatrixXd Inverse(const MatrixXd& m);
MatrixXd PseudoInverse(const MatrixXd& m);
VectorXd SingularValues(const MatrixXd& m);
Eigen::VectorXcd Eigenvalues(const MatrixXd& m);

/// The orthogonal factor of a square matrix.
MatrixXd Orthogonal(const MatrixXd& m);

/// The rigid transform that takes the columns of one set nearest to the other's.
Matrix4d Pose(const Matrix3Xd& from, const Matrix3Xd& to);

}  // namespace reference
