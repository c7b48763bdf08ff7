#include "math/EigenMatrices.h"

#include <gtest/gtest.h>

namespace {

// What d_SVD returned.
struct Svd {
    explicit Svd(const FMatrix& a, bool sort = true) {
        const int m = a.nrows(), n = a.ncols();
        double* values = nullptr;
        double** right = nullptr;
        double** const left = d_SVD(a, values, right, sort);
        isNull = left == nullptr;
        EXPECT_TRUE((values == nullptr) == isNull && (right == nullptr) == isNull);
        if (isNull) return;
        u = MatrixXd::NullaryExpr(m, n, [&](Eigen::Index i, Eigen::Index j) { return left[i][j]; });
        v = MatrixXd::NullaryExpr(n, n, [&](Eigen::Index i, Eigen::Index j) { return right[i][j]; });
        w = Eigen::VectorXd::NullaryExpr(n, [&](Eigen::Index i) { return values[i]; });
        d_FreeSVD(left, m, values, right, n);
    }
    bool isNull = false;
    MatrixXd u, v;
    Eigen::VectorXd w;
};

// Each hypotenuse is rounded to float, so that a rotation stretches by up to kU. A column takes part in two rotations of
// each step on its block, and the steps are less than three for each singular value: 6 n rotations on both sides.
double Allowed(const FMatrix& a) {
    return (12.0 * std::max(a.nrows(), a.ncols()) + 10) * kU;
}

struct Errors {
    double values = 0;  // the largest, in units of what is allowed
    double product = 0;
    double orthogonality = 0;
    double inverse = 0;

    void CheckSvd(const FMatrix& a, const std::string& what) {
        const MatrixXd e = ToEigen(a);
        const Svd svd(a);
        ASSERT_FALSE(svd.isNull) << what;
        Eigen::VectorXd truth = Eigen::VectorXd::Zero(a.ncols());
        truth.head(std::min(a.nrows(), a.ncols())) = e.jacobiSvd().singularValues();
        const double unit = Allowed(a);
        values = std::max(values, (svd.w - truth).cwiseAbs().maxCoeff() / truth(0) / unit);
        product = std::max(product, RelativeError(svd.u * svd.w.asDiagonal() * svd.v.transpose(), e) / unit);
        const MatrixXd identity = MatrixXd::Identity(a.ncols(), a.ncols());
        orthogonality = std::max(orthogonality, RelativeError(svd.v.transpose() * svd.v, identity) / unit);
        if (a.nrows() >= a.ncols() && truth(a.ncols() - 1) > 1e-10 * truth(0)) {
            orthogonality = std::max(orthogonality, RelativeError(svd.u.transpose() * svd.u, identity) / unit);
        }
        EXPECT_LE(std::max({values, product, orthogonality}), 1) << what;
        EXPECT_TRUE(std::is_sorted(svd.w.data(), svd.w.data() + svd.w.size(), std::greater<>())) << what;
        EXPECT_GE(svd.w.minCoeff(), 0) << what;
    }

    // The pseudo-inverse of a matrix whose columns are independent: the error is that of the decomposition, at most
    // twice magnified by the condition.
    void CheckInverse(const FMatrix& a, double condition, const std::string& what) {
        const MatrixXd truth = ToEigen(a).completeOrthogonalDecomposition().pseudoInverse();
        inverse = std::max(inverse, RelativeError(ToEigen(d_PseudoInv(a)), truth) / (2 * condition * Allowed(a)));
        EXPECT_LE(inverse, 1) << what;
    }
};

}  // namespace

TEST(SVD, BesideEigen) {
    Matrices matrices;
    Errors errors;
    for (const int n : Matrices::kSizes) {
        for (const int m : {n, n + 1, 2 * n, (n + 1) / 2}) {
            const std::string size = " " + std::to_string(m) + " x " + std::to_string(n);
            for (int round = 0; round < 3; ++round) {
                errors.CheckSvd(FromEigen(matrices.Random(m, n)), "random" + size);
                errors.CheckSvd(matrices.OfRank(m, n, std::max(1, std::min(m, n) / 2)), "rank" + size);
                errors.CheckSvd(FromEigen(matrices.Random(m, n) * 1e-10), "small" + size);
                errors.CheckSvd(FromEigen(matrices.Random(m, n) * 1e35), "large" + size);
            }
            for (const double condition :
                 {1.0, 1e3, 1e6, 1e12}) {  // 1: singular values that are equal but for roundoff
                const FMatrix a = matrices.Graded(m, n, condition);
                errors.CheckSvd(a, "graded" + size);
                if (m >= n && condition < 1e5) errors.CheckInverse(a, condition, "graded" + size);
            }
        }
    }
    RecordProperty("values", std::to_string(errors.values));
    RecordProperty("product", std::to_string(errors.product));
    RecordProperty("orthogonality", std::to_string(errors.orthogonality));
    RecordProperty("inverse", std::to_string(errors.inverse));
}

TEST(SVD, HypotenusesAreSinglePrecision) {
    Matrices matrices;
    const FMatrix a = FromEigen(matrices.Random(20, 20));
    const double error = RelativeError(Svd(a).w, ToEigen(a).jacobiSvd().singularValues());
    EXPECT_GT(error, 1e-12) << "double precision all through would be 1e-15";
}

TEST(SVD, WholeRangeOfFloats) {
    for (const float element : {3e38F, 1e-38F, 1.4e-45F}) {
        EXPECT_NEAR(Svd(FMatrix(3, 3).set(element)).w(0) / element, 3.0, 3 * Allowed(FMatrix(3, 3)));
    }
}

TEST(SVD, SmallValuesAreDroppedWithoutSort) {
    FMatrix a(4, 3);
    a.zero();
    a[0][2] = 5;
    a[1][0] = 0.9e-7F;
    a[2][1] = -1.1e-7F;
    const Svd kept(a), dropped(a, false);
    EXPECT_EQ(kept.w, Eigen::Vector3d(5, 1.1e-7F, 0.9e-7F));
    Eigen::VectorXd sorted = dropped.w;
    std::sort(sorted.data(), sorted.data() + 3, std::greater<>());
    EXPECT_EQ(sorted, Eigen::Vector3d(5, 1.1e-7F, 0));
    for (int j = 0; j < 3; ++j) EXPECT_EQ(dropped.u.col(j).isZero(0), dropped.w(j) == 0) << j;
}

TEST(SVD, NullWhereItDoesNotConverge) {
    for (const float value : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        for (const int n : {1, 2, 8}) {
            FMatrix a(n, n);
            a.unity();
            a[n - 1][0] = value;
            EXPECT_TRUE(Svd(a).isNull);
            EXPECT_THROW(d_PseudoInv(a), MemException);
        }
    }
}

TEST(PseudoInverse, ExactZerosAreLeftOut) {
    EXPECT_EQ(ToEigen(d_PseudoInv(FMatrix(2, 3).zero())), MatrixXd::Zero(3, 2));
    FMatrix a(3, 2);
    a.zero();
    a[1][0] = 4;
    EXPECT_EQ(ToEigen(d_PseudoInv(a)), (MatrixXd(2, 3) << 0, 0.25, 0, 0, 0, 0).finished());
}
