// Matrices to compare with Eigen, and the errors that single precision explains.
#pragma once

#include <Korvane/Korvane.h>

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>

using Eigen::MatrixXd;

/// Unit roundoff of a float.
constexpr double kU = std::numeric_limits<float>::epsilon() / 2;

inline MatrixXd ToEigen(const FMatrix& m) {
    MatrixXd e(m.nrows(), m.ncols());
    for (int i = 0; i < m.nrows(); ++i) {
        for (int j = 0; j < m.ncols(); ++j) e(i, j) = m[i][j];
    }
    return e;
}

inline FMatrix FromEigen(const MatrixXd& e) {
    FMatrix m(static_cast<int>(e.rows()), static_cast<int>(e.cols()));
    for (int i = 0; i < m.nrows(); ++i) {
        for (int j = 0; j < m.ncols(); ++j) m[i][j] = static_cast<float>(e(i, j));
    }
    return m;
}

/// Largest difference, relative to the largest element of the truth.
inline double RelativeError(const MatrixXd& value, const MatrixXd& truth) {
    return (value - truth).cwiseAbs().maxCoeff() / truth.cwiseAbs().maxCoeff();
}

class Matrices {
public:
    static constexpr int kSizes[] = {1, 2, 3, 4, 5, 7, 12, 20, 33, 50};

    MatrixXd Random(int rows, int cols) {
        return MatrixXd::NullaryExpr(rows, cols, [this] { return m_Normal(m_Generator); });
    }

    MatrixXd Orthogonal(int n) { return Random(n, n).householderQr().householderQ(); }

    /// Singular values from 1 down to 1 / condition, evenly in the logarithm.
    FMatrix Graded(int rows, int cols, double condition) {
        const int n = std::min(rows, cols);
        MatrixXd s = MatrixXd::Zero(rows, cols);
        for (int i = 0; i < n; ++i) s(i, i) = std::pow(condition, n > 1 ? -double(i) / (n - 1) : 0.0);
        return FromEigen(Orthogonal(rows) * s * Orthogonal(cols));
    }

    /// The sum of `rank` products of a column and a row.
    FMatrix OfRank(int rows, int cols, int rank) { return FromEigen(Random(rows, rank) * Random(rank, cols)); }

private:
    std::mt19937 m_Generator{20};
    std::normal_distribution<double> m_Normal;
};
