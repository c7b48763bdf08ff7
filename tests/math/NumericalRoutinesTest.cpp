#include "math/EigenMatrices.h"

#include <gtest/gtest.h>
#include <numbers>

namespace {

// Backward error of the decomposition: sums run in double, so that an element of L U is off by the rounding of an
// element of L (twice), of U and of a scaled pivot; row by row |L| |U| is at most n * growth times the largest element,
// and partial pivoting of such matrices grows by less than n^(2/3).
double BackwardError(int n) {
    return 4 * kU * n * std::cbrt(double(n) * n);
}

void CheckInverse(const FMatrix& a) {
    const MatrixXd e = ToEigen(a);
    const int n = a.nrows();
    const double truth = reference::Determinant(e), found = determinant(a);
    const Eigen::VectorXd w = reference::SingularValues(e);
    const double allowed = BackwardError(n) * w(0) / w(n - 1);
    // d det / det is the trace of inv(A) dA: n elements of that size.
    EXPECT_LE(std::fabs(found - truth), std::fabs(truth) * (n * allowed + kU)) << n;
    EXPECT_LE(RelativeError(ToEigen(inv(a)), reference::Inverse(e)), allowed) << n;
    EXPECT_EQ(ToEigen(a.transpose() / a), ToEigen(a.transpose() * inv(a))) << n;
}

}  // namespace

TEST(LU, BesideEigen) {
    Matrices matrices;
    for (const int n : Matrices::kSizes) {
        for (int round = 0; round < 8; ++round) CheckInverse(FromEigen(matrices.Random(n, n)));
        for (const double condition : {1.0, 1e2, 1e4}) {
            // Scaled so that the determinant is about 1.
            CheckInverse(FromEigen(std::sqrt(condition) * matrices.Graded(n, n, condition)));
        }
        // Rows of very different sizes: the implicit scaling is for these.
        MatrixXd rows = matrices.Orthogonal(n);
        for (int i = 0; i < n; ++i) rows.row(i) *= std::pow(10.0, (i % 2 ? -3 : 3));
        const FMatrix a = FromEigen(rows);
        EXPECT_LE(RelativeError(ToEigen(inv(a) * a), MatrixXd::Identity(n, n)), BackwardError(n) * 10) << n;
        const MatrixXd singular = ToEigen(matrices.OfRank(n + 1, n + 1, n)).rowwise().normalized();
        EXPECT_LE(std::fabs(determinant(FromEigen(singular))), (n + 1) * BackwardError(n + 1)) << n;
    }
    EXPECT_EQ(determinant(FMatrix(2, 2).set(1)), -1e-7F)
        << "a pivot of 0 counts as 1e-7; of equal pivots the later row comes first";
    FMatrix m = FMatrix(3, 3).unity();
    m[1][1] = 0;
    EXPECT_EQ(Show(determinant(m), rank(m)), "0;0;") << "a row of zeros: the diagonal as it stands";
    EXPECT_THROW(inv(m), ZeroException);
}

TEST(LU, RefusesWhatRoundingAloneInverts) {
    Matrices matrices;
    const FMatrix unit = FMatrix(3, 3).unity();
    FMatrix counted(3, 3);
    for (int i = 0; i < 9; ++i) counted[i / 3][i % 3] = static_cast<float>(i + 1);
    EXPECT_GT(std::fabs(determinant(counted)), 1e-7F) << "by its determinant alone it would pass";
    // With a determinant that does not tell.
    std::vector<FMatrix> singular = {counted, counted * 1e6, FMatrix(3, 3).set(1e5)};
    for (const int n : {4, 7, 12, 33}) singular.push_back(matrices.OfRank(n, n, n - 1) * 1e3);
    for (const FMatrix& m : singular) {
        EXPECT_THROW(inv(m), ZeroException) << m;
        EXPECT_THROW(FMatrix(m) / m, ZeroException) << m;
    }
    // Small rows and small pivots are no harm while floats can tell them from rounding.
    FMatrix steep = unit * 1e4;
    steep[1][1] = 1e-5F;
    EXPECT_EQ(inv(steep)[1][1], 1e5F);
    steep[1][0] = 1;
    EXPECT_FLOAT_EQ(inv(steep)[1][1], 1e5F);
    counted[2][2] = 9.001F;
    EXPECT_LE(RelativeError(ToEigen(inv(counted)), reference::Inverse(ToEigen(counted))), 0.01);
}

TEST(FMatrix, NumbersOutOfRangeDoNoHarm) {
    for (const float value : {kNaN, kInf, -kInf, 3e38F, 1e-45F, 0.0F}) {
        FMatrix one = Matrices().OfRank(6, 6, 6), all = FMatrix(3, 3).set(value);
        one[3][0] = value;
        for (FMatrix* bad : {&one, &all}) {
            try {
                inv(*bad);
            } catch (const ZeroException&) {  // as it may be
            }
            FMatrix(*bad).balanc().elmhes();
            if (std::isfinite(value)) continue;
            EXPECT_THROW(d_PseudoInv(*bad), MemException);
        }
    }
}

namespace {

// What d_SVD returned.
struct Svd {
    explicit Svd(const FMatrix& a, bool sort = true) {
        double *values = nullptr, **right = nullptr;
        double** const left = d_SVD(a, values, right, sort);
        if (left == nullptr) throw std::runtime_error("a singular value does not converge");
        u = MatrixXd::NullaryExpr(a.nrows(), a.ncols(), [&](auto i, auto j) { return left[i][j]; });
        v = MatrixXd::NullaryExpr(a.ncols(), a.ncols(), [&](auto i, auto j) { return right[i][j]; });
        w = Eigen::VectorXd::Map(values, a.ncols());
        d_FreeSVD(left, a.nrows(), values, right, a.ncols());
    }
    MatrixXd u, v;
    Eigen::VectorXd w;
};

// Each hypotenuse is rounded to float, so that a rotation stretches by up to kU. A column takes part in two rotations of
// each step on its block, and the steps are less than three for each singular value: 6 n rotations on both sides.
double Allowed(const FMatrix& a) {
    return (12.0 * std::max(a.nrows(), a.ncols()) + 10) * kU;
}

void CheckSvd(const FMatrix& a) {
    SCOPED_TRACE(std::to_string(a.nrows()) + " x " + std::to_string(a.ncols()));
    const MatrixXd e = ToEigen(a), identity = MatrixXd::Identity(a.ncols(), a.ncols());
    const Svd svd(a);
    Eigen::VectorXd truth = Eigen::VectorXd::Zero(a.ncols());
    truth.head(std::min(a.nrows(), a.ncols())) = reference::SingularValues(e);
    EXPECT_LE(RelativeError(svd.w, truth), Allowed(a));
    EXPECT_LE(RelativeError(svd.u * svd.w.asDiagonal() * svd.v.transpose(), e), Allowed(a));
    EXPECT_LE(RelativeError(svd.v.transpose() * svd.v, identity), Allowed(a));
    EXPECT_TRUE(std::is_sorted(svd.w.begin(), svd.w.end(), std::greater<>()) && svd.w.minCoeff() >= 0);
}

}  // namespace

TEST(SVD, BesideEigen) {
    Matrices matrices;
    for (const int n : Matrices::kSizes) {
        for (const int m : {n, n + 1, 2 * n, (n + 1) / 2}) {
            for (const double size : {1.0, 1e-10, 1e-40, 1e37}) CheckSvd(FromEigen(matrices.Random(m, n) * size));
            CheckSvd(matrices.OfRank(m, n, std::max(1, std::min(m, n) / 2)));
            for (const double condition : {1.0, 1e3, 1e6, 1e12}) {  // 1: values that are equal but for roundoff
                const FMatrix a = FromEigen(matrices.Graded(m, n, condition));
                CheckSvd(a);
                if (m < n || condition > 1e5) continue;
                // The error of the decomposition, at most twice magnified by the condition.
                const MatrixXd truth = reference::PseudoInverse(ToEigen(a));
                EXPECT_LE(RelativeError(ToEigen(d_PseudoInv(a)), truth), 2 * condition * Allowed(a)) << m << " " << n;
            }
        }
    }
    const FMatrix a = FromEigen(matrices.Random(20, 20));
    EXPECT_GT(RelativeError(Svd(a).w, reference::SingularValues(ToEigen(a))), 1e-12) << "hypotenuses are floats";
}

TEST(SVD, SmallValues) {
    FMatrix a = FMatrix(4, 3).zero();
    EXPECT_EQ(d_PseudoInv(a).row(2), FVector(4).zero()) << "exact zeros are left out";
    a[0][2] = 5;
    a[1][0] = 0.9e-7F;
    a[2][1] = -1.1e-7F;
    Svd dropped(a, false);
    for (int j = 0; j < 3; ++j) EXPECT_EQ(dropped.u.col(j).isZero(0), dropped.w(j) == 0) << j;
    std::sort(dropped.w.begin(), dropped.w.end(), std::greater<>());
    EXPECT_EQ(dropped.w, Eigen::Vector3d(5, 1.1e-7F, 0));
    EXPECT_EQ(Svd(a).w, Eigen::Vector3d(5, 1.1e-7F, 0.9e-7F));
    EXPECT_EQ(Show(d_PseudoInv(a)), "0 1.11111e+07 0 0\n0 0 -9.09091e+06 0\n0.2 0 0 0\n;");
}

TEST(SVD, ToleranceDropsWhatIsRounding) {
    Matrices matrices;
    for (const int n : {2, 5, 12, 33}) {
        const MatrixXd left = matrices.Orthogonal(n + 3).leftCols(n / 2),
                       right = matrices.Orthogonal(n).leftCols(n / 2);
        const FMatrix a = FromEigen(100 * left * right.transpose());  // rank n / 2, singular values of 100
        const double tolerance = (n + 3) * 2 * kU;
        EXPECT_LE(RelativeError(ToEigen(d_PseudoInv(a, tolerance)), right * left.transpose() / 100), 4 * Allowed(a))
            << n;
        EXPECT_GT(RelativeError(ToEigen(d_PseudoInv(a)), right * left.transpose() / 100), 1e3) << n;
        EXPECT_EQ(Show(d_PseudoInv(a, -1), d_PseudoInv(a, kNaN)), Show(d_PseudoInv(a), d_PseudoInv(a)));
        EXPECT_EQ(ToEigen(d_PseudoInv(a, 1)), MatrixXd::Zero(n, n + 3)) << "not above the largest";
    }
}

TEST(Pythag, RoundsToFloat) {
    const float cases[][3] = {{3, -4, 5}, {3e38F, 1e38F, 3.1622777e38F}, {-1e-44F, 0, 1e-44F}, {0, -0.0F, 0}};
    for (const auto& [a, b, c] : cases) EXPECT_FLOAT_EQ(pythag(a, b), c);
    EXPECT_TRUE(pythag(1, 1) == std::numbers::sqrt2_v<float> && pythag(0, -1) == 1.0F && pythag(1, kInf) == kInf);
    EXPECT_TRUE(std::isnan(pythag(kNaN, 0)) && std::isnan(pythag(0, kNaN)));
}

namespace {

float Square(float x, int* context) {
    reinterpret_cast<std::vector<float>*>(context)->push_back(x);
    return x * x;
}

}  // namespace

TEST(FindZero, BracketsThenRefines) {
    std::vector<float> asked;
    int* const context = reinterpret_cast<int*>(&asked);
    constexpr double kTolerance = 2 * 2.384185791015625e-07;
    EXPECT_NEAR(findzero(Square, 1, context, 2), std::numbers::sqrt2, 2 * kTolerance);
    EXPECT_LT(asked.size(), 20U) << "interpolation, not bisection";
    asked.resize(4);
    EXPECT_EQ(asked, (std::vector<float>{0.95F, 1.05F, 0.9F, 1.1F}));
    const auto arc = [](float x, int*) { return static_cast<float>(std::atan(x - 1000.0)); };
    EXPECT_NEAR(findzero(arc, 1, nullptr, 0), 1000, kTolerance * 1000);
    EXPECT_NEAR(findzero(arc, -20, nullptr, -1.5F), 1000 + std::tan(-1.5), kTolerance * 1000);
    const auto step = [](float x, int*) { return x < 2.5F ? -1.0F : 1.0F; };
    EXPECT_NEAR(findzero(step, 1, nullptr, 0), 2.5, kTolerance * 2.5);
    const auto seven = [](float x, int*) { return x * x * x * x * x * x * x; };
    EXPECT_NEAR(findzero(seven, 3, nullptr, 0), 0, 0.05) << "seven roots in one";
    const auto cliff = [](float x, int*) { return x > 1e6F ? kNaN : 1.0F; };
    for (const float start : {1.0F, 1e-44F, 0.0F}) {
        EXPECT_EQ(findzero(cliff, start, nullptr, 0), start) << "no change of sign anywhere";
    }
    EXPECT_EQ(Show(findzero(Square, kInf, context, 2), findzero(Square, 1, context, kNaN)), "inf;1;");
    EXPECT_TRUE(std::isnan(findzero(Square, kNaN, context, 2)));
}
