// Eigen's decompositions, which keep a compiler busy for long: made once, in one source.
#pragma once

#include <Eigen/Core>

namespace reference {

using Eigen::Matrix3Xd;
using Eigen::Matrix4d;
using Eigen::MatrixXd;
using Eigen::VectorXd;

double Determinant(const MatrixXd& m);
MatrixXd Inverse(const MatrixXd& m);
MatrixXd PseudoInverse(const MatrixXd& m);
VectorXd SingularValues(const MatrixXd& m);
Eigen::VectorXcd Eigenvalues(const MatrixXd& m);

/// The orthogonal factor of a square matrix.
MatrixXd Orthogonal(const MatrixXd& m);

/// The least solution of m x = y in the sense of least squares.
VectorXd Solve(const MatrixXd& m, const VectorXd& y);

/// The rigid transform that takes the columns of one set nearest to the other's.
Matrix4d Pose(const Matrix3Xd& from, const Matrix3Xd& to);

}  // namespace reference
