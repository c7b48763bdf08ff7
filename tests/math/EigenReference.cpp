#include "math/EigenReference.h"

#include <Eigen/Dense>

namespace reference {

double Determinant(const MatrixXd& m) {
    return m.determinant();
}

MatrixXd Inverse(const MatrixXd& m) {
    return m.inverse();
}

MatrixXd PseudoInverse(const MatrixXd& m) {
    return m.completeOrthogonalDecomposition().pseudoInverse();
}

VectorXd SingularValues(const MatrixXd& m) {
    return m.jacobiSvd().singularValues();
}

Eigen::VectorXcd Eigenvalues(const MatrixXd& m) {
    return m.eigenvalues();
}

MatrixXd Orthogonal(const MatrixXd& m) {
    return m.householderQr().householderQ();
}

Matrix4d Pose(const Matrix3Xd& from, const Matrix3Xd& to) {
    return Eigen::umeyama(from, to, false);
}

}  // namespace reference
