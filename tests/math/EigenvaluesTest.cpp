#include "math/EigenMatrices.h"

#include <complex>
#include <gtest/gtest.h>
#include <vector>

namespace {

using Roots = std::vector<std::complex<double>>;

Roots TrueRoots(const MatrixXd& a) {
    const auto values = a.eigenvalues();
    return Roots(values.data(), values.data() + values.size());
}

// The largest distance of a root to the one of the others that is its own: each is used once.
double Distance(Roots found, Roots truth) {
    double largest = 0;
    for (const auto& root : found) {
        const auto nearest = std::min_element(truth.begin(), truth.end(), [&](const auto& a, const auto& b) {
            return std::abs(a - root) < std::abs(b - root);
        });
        largest = std::max(largest, std::abs(*nearest - root));
        truth.erase(nearest);
    }
    return largest;
}

MatrixXd UpperHessenberg(const FMatrix& m) {
    MatrixXd h = ToEigen(m);
    for (int j = 0; j < h.cols(); ++j) {
        for (int i = j + 2; i < h.rows(); ++i) h(i, j) = 0;
    }
    return h;
}

}  // namespace

// Normal matrices: an eigenvalue moves by no more than the error of the matrix. Multipliers are at most 1, and each
// element is rounded once for each of up to n eliminations that change it, on both sides.
TEST(Elmhes, KeepsEigenvalues) {
    Matrices matrices;
    double worst = 0;
    for (const int n : Matrices::kSizes) {
        const MatrixXd random = matrices.Random(n, n);
        for (const MatrixXd& a : {MatrixXd(random + random.transpose()), MatrixXd(matrices.Orthogonal(n))}) {
            FMatrix h = FromEigen(a);
            h.elmhes();
            const double allowed = 4 * n * kU * std::max(UpperHessenberg(h).norm(), a.norm());
            worst =
                std::max(worst, Distance(TrueRoots(UpperHessenberg(h)), TrueRoots(ToEigen(FromEigen(a)))) / allowed);
            EXPECT_LE(worst, 1) << n;
        }
    }
    RecordProperty("elmhes", std::to_string(worst));
}

TEST(Elmhes, LeavesMultipliers) {
    const float elements[][3] = {{1, 2, 3}, {2, 5, 6}, {-8, 7, 4}};
    const float* const rows[] = {elements[0], elements[1], elements[2]};
    FMatrix m(rows, 3, 3);
    m.elmhes();
    // Rows and columns 1 and 2 exchanged, then row 2 += 1/4 row 1, column 1 -= 1/4 column 2.
    const MatrixXd expected = (MatrixXd(3, 3) << 1, 2.5, 2, -8, 2.25, 7, -0.25, 5.3125, 6.75).finished();
    EXPECT_EQ(ToEigen(m), expected);
}

TEST(Balanc, ScalesByPowersOf2) {
    Matrices matrices;
    for (const int n : Matrices::kSizes) {
        MatrixXd a = matrices.Random(n, n);
        for (int i = 0; i < n; ++i) {
            const double factor = std::exp2((i * 7) % 30 - 15);
            a.row(i) *= factor;
            a.col(i) /= factor;
        }
        const FMatrix before = FromEigen(a);
        FMatrix after(before);
        after.balanc();
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) {
                // b[i][j] = a[i][j] d[j] / d[i], to the last bit.
                int exponent = 0;
                EXPECT_EQ(std::frexp(after[i][j] / before[i][j], &exponent), 0.5) << n;
                EXPECT_EQ(after[j][i] * static_cast<double>(after[i][j]),
                          before[j][i] * static_cast<double>(before[i][j]));
            }
            MatrixXd rest = ToEigen(after).cwiseAbs();
            rest(i, i) = 0;
            const double column = rest.col(i).sum(), row = rest.row(i).sum();
            EXPECT_LE(std::max(column, row), 4 * std::min(column, row)) << n;
        }
        EXPECT_LE(ToEigen(after).norm(), ToEigen(before).norm());
    }
    constexpr float kInf = std::numeric_limits<float>::infinity();
    for (const float value : {kInf, -kInf, std::numeric_limits<float>::quiet_NaN(), 3e38F, 1e-45F, 0.0F}) {
        FMatrix bad = FromEigen(matrices.Random(5, 5));
        bad[3][1] = value;
        bad[1][3] = 1e-30F;
        bad.balanc().elmhes();
        bad.set(value).balanc().elmhes();
    }
}

TEST(Hgr, BlocksBesideEigen) {
    Matrices matrices;
    double worst = 0;
    for (const int n : Matrices::kSizes) {
        // Blocks of 1 and 2 rows, with real and complex roots; little right of them, so that the truth is well defined.
        MatrixXd blocks = matrices.Random(n, n) * (0.1 / n);
        for (int i = 0, size = 1; i < n; i += size, size = 3 - size) {
            size = std::min(size, n - i);
            blocks.block(i, 0, size, i).setZero();
            blocks.block(i, i, size, size) = matrices.Random(size, size) + 3 * i * MatrixXd::Identity(size, size);
        }
        const FMatrix t = FromEigen(blocks);
        const FMatrix found = t.hgr();
        Roots roots;
        for (int i = 0; i < n; ++i) roots.emplace_back(found[i][0], found[i][1]);
        worst = std::max(worst, Distance(roots, TrueRoots(ToEigen(t))) / (kU * (blocks.norm() + 1)));
        EXPECT_LE(worst, 1) << n;
    }
    RecordProperty("hgr", std::to_string(worst));
}

TEST(Hgr, DeflatesAndThrowsWhereQrBegins) {
    FMatrix m(4, 4);
    m.diag(2);
    m[0][0] = -7;
    EXPECT_EQ(ToEigen(m.hgr()), (MatrixXd(4, 2) << -7, 0, 2, 0, 2, 0, 2, 0).finished());
    m[1][0] = -5;  // with m[0][1] = 1: roots of (x + 7)(x - 2) + 5
    m[0][1] = 1;
    m[3][0] = m[2][0] = 99;  // multipliers, not read
    const FMatrix roots = m.hgr();
    EXPECT_FLOAT_EQ(roots[0][0], static_cast<float>(-2.5 - std::sqrt(20.25 - 5)));
    EXPECT_FLOAT_EQ(roots[1][0], static_cast<float>(-2.5 + std::sqrt(20.25 - 5)));
    m[0][1] = 10;
    const FMatrix pair = m.hgr();
    EXPECT_EQ(pair[0][0], -2.5F);
    EXPECT_EQ(pair[1][1], -pair[0][1]);
    EXPECT_LT(pair[0][1], 0.0F);
    m[2][1] = 2e-7F;  // vanishes beside 2 + 2 in single precision
    EXPECT_EQ(m.hgr()[2][0], 2.0F);
    m[2][1] = 1e-6F;
    try {
        m.hgr();
        FAIL();
    } catch (const DimException&) {
        FAIL();
    } catch (const Exception&) {
    }
    EXPECT_THROW(m.set(std::numeric_limits<float>::quiet_NaN()).hgr(), Exception);
}
