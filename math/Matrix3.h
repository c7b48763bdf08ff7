// Matrices of 3 x 3 doubles, and their decomposition.
#pragma once

#include "Double3.h"

namespace korvane_detail {

/// A 3 x 3 matrix in double precision.
struct Matrix3 {
    double m[3][3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};

    Double3 Column(int j) const { return {m[0][j], m[1][j], m[2][j]}; }
    void SetColumn(int j, const Double3& a) { m[0][j] = a.x, m[1][j] = a.y, m[2][j] = a.z; }
    Double3 Row(int i) const { return {m[i][0], m[i][1], m[i][2]}; }
};

inline Double3 operator*(const Matrix3& a, const Double3& v) {
    return {Dot(a.Row(0), v), Dot(a.Row(1), v), Dot(a.Row(2), v)};
}

Matrix3 operator*(const Matrix3& a, const Matrix3& b);
Matrix3 Transpose(const Matrix3& a);
double Determinant(const Matrix3& a);

/// a = U * diag(values) * V' by one-sided Jacobi rotations, to the precision of doubles whatever the values' ratios
/// are.
struct Decomposition3 {
    explicit Decomposition3(const Matrix3& a);

    /// The rotation R, never a mirroring, for which the sum of the elements of R times those of `a` is largest. It is
    /// unique where the second value is not 0, unless `a` mirrors and its last two values are equal.
    Matrix3 GetRotation() const;

    double m_Values[3];  ///< descending, none negative
    Double3 m_U[2];      ///< belonging to the first two values; undefined where the value is 0
    Matrix3 m_V;         ///< as columns
};

}  // namespace korvane_detail
