#include "math/EigenMatrices.h"

#include <complex>
#include <gtest/gtest.h>

namespace {

using Roots = Eigen::VectorXcd;

// The largest distance of a root to the one of the others that is its own: each is used once.
double Distance(const Roots& found, Roots truth) {
    double largest = 0;
    for (const auto& root : found) {
        Eigen::Index nearest = 0;
        largest = std::max(largest, (truth.array() - root).abs().minCoeff(&nearest));
        truth(nearest) = HUGE_VAL;
    }
    return largest;
}

}  // namespace

// Normal matrices: an eigenvalue moves by no more than the error of the matrix. Multipliers are at most 1, and each
// element is rounded once for each of up to n eliminations that change it, on both sides.
TEST(Eigenvalues, ElmhesKeepsThemAndLeavesMultipliers) {
    Matrices matrices;
    for (const int n : Matrices::kSizes) {
        const MatrixXd random = matrices.Random(n, n);
        for (const MatrixXd& a : {MatrixXd(random + random.transpose()), MatrixXd(matrices.Orthogonal(n))}) {
            MatrixXd h = ToEigen(FromEigen(a).elmhes());
            for (int j = 0; j + 2 < n; ++j) h.col(j).tail(n - j - 2).setZero();
            const double allowed = 4 * n * kU * std::max(h.norm(), a.norm());
            EXPECT_LE(Distance(reference::Eigenvalues(h), reference::Eigenvalues(ToEigen(FromEigen(a)))), allowed) << n;
        }
    }
    // Rows and columns 1 and 2 exchanged, then row 2 += 1/4 row 1, column 1 -= 1/4 column 2.
    FMatrix m = FromEigen((MatrixXd(3, 3) << 1, 2, 3, 2, 5, 6, -8, 7, 4).finished());
    EXPECT_EQ(Show(m.elmhes()), "1 2.5 2\n-8 2.25 7\n-0.25 5.3125 6.75\n;");
}

TEST(Eigenvalues, BalancScalesByPowersOf2) {
    Matrices matrices;
    for (const int n : Matrices::kSizes) {
        const auto powers = Eigen::VectorXd::NullaryExpr(n, [](auto i) { return std::exp2((i * 7) % 30 - 15); });
        const MatrixXd random = powers.asDiagonal() * matrices.Random(n, n) * powers.cwiseInverse().asDiagonal();
        const MatrixXd before = ToEigen(FromEigen(random)), after = ToEigen(FromEigen(random).balanc());
        EXPECT_LE(after.norm(), before.norm());
        // b[i][j] = a[i][j] d[j] / d[i], to the last bit.
        EXPECT_EQ(after.cwiseProduct(after.transpose()), before.cwiseProduct(before.transpose())) << n;
        for (int i = 0, exponent = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) EXPECT_EQ(std::frexp(after(i, j) / before(i, j), &exponent), 0.5) << n;
            const double itself = std::fabs(after(i, i));
            const double column = after.col(i).lpNorm<1>() - itself, row = after.row(i).lpNorm<1>() - itself;
            EXPECT_LE(std::max(column, row), 4 * std::min(column, row) + 1e-12) << n;
        }
    }
}

TEST(Eigenvalues, HgrSolvesBlocksBesideEigen) {
    Matrices matrices;
    for (const int n : Matrices::kSizes) {
        // Blocks of 1 and 2 rows, with real and complex roots; little right of them, so that the truth is well defined.
        MatrixXd blocks = matrices.Random(n, n) * (0.1 / n);
        for (int i = 0, size = 1; i < n; i += size, size = 3 - size) {
            size = std::min(size, n - i);
            blocks.block(i, 0, size, i).setZero();
            blocks.block(i, i, size, size) = matrices.Random(size, size) + 3 * i * MatrixXd::Identity(size, size);
        }
        const FMatrix t = FromEigen(blocks);
        const MatrixXd found = ToEigen(t.hgr());
        const Roots roots = found.col(0) + std::complex<double>(0, 1) * found.col(1);
        EXPECT_LE(Distance(roots, reference::Eigenvalues(ToEigen(t))), kU * (blocks.norm() + 1)) << n;
    }
}

TEST(Eigenvalues, HgrDeflatesAndThrowsWhereQrBegins) {
    FMatrix m(4, 4);
    m.diag(2);
    m[0][0] = -7;
    m[1][0] = -5;
    m[0][1] = 10;            // roots of (x + 7)(x - 2) + 50
    m[3][0] = m[2][0] = 99;  // multipliers, not read
    m[2][1] = 2e-7F;         // vanishes beside 2 + 2 in single precision
    EXPECT_EQ(Show(m.hgr()), "-2.5 -5.45436\n-2.5 5.45436\n2 0\n2 0\n;");
    m[2][1] = 1e-6F;
    try {
        m.hgr();
        FAIL();
    } catch (const Exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(Exception));
    }
    EXPECT_THROW(m.set(kNaN).hgr(), Exception);
}
