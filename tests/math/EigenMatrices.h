// Conversions to Eigen's matrices, random matrices, and bounds for the errors of single precision.
#pragma once

#include "math/EigenReference.h"
#include "math/Show.h"

#include <cmath>
#include <random>

using Eigen::MatrixXd;

/// Unit roundoff of a float.
constexpr double kU = std::numeric_limits<float>::epsilon() / 2;

inline MatrixXd ToEigen(const FMatrix& m) {
    return MatrixXd::NullaryExpr(m.nrows(), m.ncols(), [&](auto i, auto j) { return m.GetPointer()[i][j]; });
}

inline FMatrix FromEigen(const MatrixXd& e) {
    FMatrix m(static_cast<int>(e.rows()), static_cast<int>(e.cols()));
    for (int i = 0; i < m.nrows(); ++i) {
        for (int j = 0; j < m.ncols(); ++j) m[i][j] = static_cast<float>(e(i, j));
    }
    return m;
}

/// The largest difference of two elements, relative to the largest element of `truth`.
inline double RelativeError(const MatrixXd& value, const MatrixXd& truth) {
    return (value - truth).cwiseAbs().maxCoeff() / truth.cwiseAbs().maxCoeff();
}

class Matrices {
public:
    static constexpr int kSizes[] = {1, 2, 3, 4, 5, 7, 12, 20, 33, 50};

    MatrixXd Random(int rows, int cols) {
        return MatrixXd::NullaryExpr(rows, cols, [this] { return m_Normal(m_Generator); });
    }

    MatrixXd Orthogonal(int n) { return reference::Orthogonal(Random(n, n)); }

    /// Singular values from 1 down to 1 / condition, evenly in the logarithm.
    MatrixXd Graded(int rows, int cols, double condition) {
        const double last = std::max(std::min(rows, cols) - 1, 1);
        const auto value = [&](auto i, auto j) { return i == j ? std::pow(condition, -double(i) / last) : 0.0; };
        return Orthogonal(rows) * MatrixXd::NullaryExpr(rows, cols, value) * Orthogonal(cols);
    }

    /// The sum of `rank` products of a column and a row.
    FMatrix OfRank(int rows, int cols, int rank) { return FromEigen(Random(rows, rank) * Random(rank, cols)); }

private:
    std::mt19937 m_Generator{20};
    std::normal_distribution<double> m_Normal;
};
