#include "math/EigenMatrices.h"

#include <gtest/gtest.h>
#include <numbers>
#include <vector>

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// Backward error of the decomposition: sums run in double, so that an element of L U is off by the rounding of an
// element of L (twice), of U and of a scaled pivot; row by row |L| |U| is at most n * growth times the largest element,
// and partial pivoting of such matrices grows by less than n^(2/3).
double BackwardError(int n) {
    return 4 * kU * n * std::cbrt(double(n) * n);
}

double Condition(const MatrixXd& a) {
    const auto w = a.jacobiSvd().singularValues();
    return w(0) / w(w.size() - 1);
}

struct Errors {
    double determinant = 0;  // the largest, in units of what is allowed
    double inverse = 0;

    void Check(const FMatrix& a, const std::string& what) {
        const MatrixXd e = ToEigen(a);
        const int n = a.nrows();
        const double truth = e.determinant();
        const double condition = Condition(e);
        const double allowed = BackwardError(n) * condition;
        // d det / det is the trace of inv(A) dA: n elements of that size.
        determinant =
            std::max(determinant, std::fabs(::determinant(a) - truth) / std::fabs(truth) / (n * allowed + kU));
        EXPECT_LE(determinant, 1) << what;
        if (std::fabs(::determinant(a)) < 1e-7) {
            EXPECT_THROW(inv(a), ZeroException) << what;
            return;
        }
        const MatrixXd i = e.inverse();
        inverse = std::max(inverse, RelativeError(ToEigen(inv(a)), i) / allowed);
        EXPECT_LE(inverse, 1) << what;
        EXPECT_EQ(ToEigen(a / a), ToEigen(a * inv(a)));
    }
};

}  // namespace

TEST(LU, DeterminantAndInverseBesideEigen) {
    Matrices matrices;
    Errors errors;
    for (const int n : Matrices::kSizes) {
        const std::string size = " " + std::to_string(n);
        for (int round = 0; round < 8; ++round) errors.Check(FromEigen(matrices.Random(n, n)), "random" + size);
        for (const double condition : {1.0, 1e2, 1e4}) {
            // Scaled so that the determinant is about 1.
            const double scale = std::sqrt(condition);
            errors.Check(FromEigen(scale * ToEigen(matrices.Graded(n, n, condition))), "graded" + size);
        }
        // Rows of very different sizes: the implicit scaling is for these.
        MatrixXd rows = matrices.Orthogonal(n);
        for (int i = 0; i < n; ++i) rows.row(i) *= std::pow(10.0, (i % 2 ? -3 : 3));
        const FMatrix a = FromEigen(rows);
        EXPECT_LE(RelativeError(ToEigen(inv(a) * a), MatrixXd::Identity(n, n)), BackwardError(n) * 10) << n;
    }
    RecordProperty("determinant", std::to_string(errors.determinant));
    RecordProperty("inverse", std::to_string(errors.inverse));
}

TEST(LU, SingularMatrices) {
    Matrices matrices;
    for (const int n : {2, 3, 4, 9, 50}) {
        const MatrixXd rows = ToEigen(matrices.OfRank(n, n, n - 1)).rowwise().normalized();
        EXPECT_LE(std::fabs(determinant(FromEigen(rows))), n * BackwardError(n)) << n;
    }
    FMatrix ones(2, 2);
    EXPECT_EQ(determinant(ones.set(1)), -1e-7F)
        << "a pivot of 0 counts as 1e-7; of equal pivots the later row comes first";
    FMatrix m(3, 3);
    m.unity();
    m[1][1] = 0;
    EXPECT_EQ(determinant(m), 0.0F) << "a row of zeros: the diagonal as it stands";
    EXPECT_THROW(inv(m), ZeroException);
    for (const float value : {kNaN, kInf, -kInf, 3e38F, 1e-45F}) {  // no particular result, no harm
        for (const int n : {1, 3, 6}) {
            FMatrix bad = matrices.OfRank(n, n, n);
            bad[n / 2][0] = value;
            determinant(bad);
            try {
                inv(bad);
                inv(bad.set(value));
            } catch (const ZeroException&) {
            }
        }
    }
}

TEST(Pythag, RoundsToFloat) {
    EXPECT_EQ(pythag(3, -4), 5.0F);
    EXPECT_FLOAT_EQ(pythag(3e38F, 1e38F), static_cast<float>(std::sqrt(10.0) * 1e38F));
    EXPECT_EQ(pythag(-1e-44F, 0), 1e-44F);
    EXPECT_EQ(pythag(0, -0.0F), 0.0F);
    EXPECT_EQ(pythag(1, 1), std::numbers::sqrt2_v<float>);
    EXPECT_EQ(pythag(1, kInf), kInf);
    EXPECT_TRUE(std::isnan(pythag(kNaN, 0)) && std::isnan(pythag(0, kNaN)));
}

TEST(Rank, IsZero) {
    EXPECT_EQ(rank(FMatrix(3, 3).unity()), 0);
}

namespace {

struct Calls {
    int kind = 0;
    std::vector<float> x;
};

float Curve(float x, int* context) {
    auto& calls = *reinterpret_cast<Calls*>(context);
    calls.x.push_back(x);
    switch (calls.kind) {
    case 0: return x * x;
    case 1: return static_cast<float>(std::atan(x - 1000.0));
    case 2: return x * x * x * x * x * x * x;
    case 3: return x < 2.5F ? -1.0F : 1.0F;
    case 4: return x > 1e6F ? kNaN : 1.0F;
    default: return 1.0F;
    }
}

float Find(Calls& calls, int kind, float x0, float target) {
    calls.kind = kind;
    calls.x.clear();
    return findzero(Curve, x0, &calls.kind, target);
}

}  // namespace

TEST(FindZero, BracketsThenRefines) {
    static_assert(offsetof(Calls, kind) == 0);
    constexpr double kTolerance = 2.384185791015625e-07;
    Calls calls;
    EXPECT_NEAR(Find(calls, 0, 1, 2), std::numbers::sqrt2, 2 * kTolerance * std::numbers::sqrt2);
    // h = 0.05, 0.1, ... 0.8 on both sides of 1: the first to hold sqrt(2).
    ASSERT_GT(calls.x.size(), 8U);
    EXPECT_EQ(std::vector<float>(calls.x.begin(), calls.x.begin() + 4), (std::vector<float>{0.95F, 1.05F, 0.9F, 1.1F}));
    EXPECT_LT(calls.x.size(), 20U) << "interpolation, not bisection";
    EXPECT_NEAR(Find(calls, 1, 1, 0), 1000, 2 * kTolerance * 1000);
    EXPECT_NEAR(Find(calls, 1, -20, -1.5F), 1000 + std::tan(-1.5), 2 * kTolerance * 1000);
    EXPECT_NEAR(Find(calls, 2, 3, 0), 0, 0.05) << "seven roots in one";
    EXPECT_LE(calls.x.size(), 300U);
    EXPECT_NEAR(Find(calls, 3, 1, 0), 2.5, 2 * kTolerance * 2.5) << "a step";
    EXPECT_EQ(Find(calls, 0, 0, 2), 0.0F) << "h stays 0";
    for (const int kind : {4, 5}) {
        EXPECT_EQ(Find(calls, kind, 1, 0), 1.0F) << "no change of sign anywhere";
        EXPECT_LT(calls.x.size(), 300U);
    }
    EXPECT_EQ(Find(calls, 5, 1e-44F, 0), 1e-44F);
    EXPECT_LT(calls.x.size(), 1000U);
    EXPECT_EQ(Find(calls, 0, kInf, 2), kInf);
    EXPECT_TRUE(std::isnan(Find(calls, 0, kNaN, 2)));
    EXPECT_EQ(Find(calls, 0, 1, kNaN), 1.0F);
}
