// The road to the eigenvalues of a matrix that is not symmetric: balance, reduce, deflate.
#include "Exception.h"
#include "FMatrix.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr double kRadix = 2.0;
constexpr double kSquaredRadix = 4.0;

// Each scaling makes the norm smaller by at least a twentieth, so that balancing ends by itself. That holds for exact
// powers of 2 only: where elements underflow, passes could go on for ever.
constexpr int kMostBalancingPasses = 1000;

// True when row and column i have been scaled.
bool Balance(FMatrix& m, int i) {
    double column = 0.0;
    double row = 0.0;
    for (int j = 0; j < m.nrows(); ++j) {
        if (j == i) continue;
        column += std::fabs(m[j][i]);
        row += std::fabs(m[i][j]);
    }
    if (column == 0.0 || row == 0.0 || !std::isfinite(column) || !std::isfinite(row)) return false;
    const double before = column + row;
    double factor = 1.0;
    while (column < row / kRadix) {
        factor *= kRadix;
        column *= kSquaredRadix;
    }
    while (column > row * kRadix) {
        factor /= kRadix;
        column /= kSquaredRadix;
    }
    if (!((column + row) / factor < 0.95 * before)) return false;
    for (int j = 0; j < m.nrows(); ++j) m[i][j] = static_cast<float>(m[i][j] / factor);
    for (int j = 0; j < m.nrows(); ++j) m[j][i] = static_cast<float>(m[j][i] * factor);
    return true;
}

void RequireSquare(const FMatrix& m, const char* operation) {
    if (m.nrows() != m.ncols()) throw DimException(operation);
}

// Eliminates below the subdiagonal in column k - 1, with row k as the pivot row.
void Eliminate(FMatrix& m, int k) {
    const int n = m.nrows();
    const double pivot = m[k][k - 1];
    for (int i = k + 1; i < n; ++i) {
        if (m[i][k - 1] == 0.0F) continue;
        const double multiplier = m[i][k - 1] / pivot;
        m[i][k - 1] = static_cast<float>(multiplier);
        for (int j = k; j < n; ++j) m[i][j] = static_cast<float>(m[i][j] - multiplier * m[k][j]);
        for (int j = 0; j < n; ++j) m[j][k] = static_cast<float>(m[j][k] + multiplier * m[j][i]);
    }
}

// The row of the top left element of the undeflated block that ends in row `last`.
int FindBlock(const FMatrix& h, int last, double norm) {
    for (int l = last; l >= 1; --l) {
        double neighbours = std::fabs(static_cast<double>(h[l - 1][l - 1])) + std::fabs(static_cast<double>(h[l][l]));
        if (neighbours == 0.0) neighbours = norm;
        // The elements are floats: what vanishes beside its neighbours in single precision is negligible.
        const double sum = neighbours + std::fabs(static_cast<double>(h[l][l - 1]));
        if (static_cast<float>(sum) == static_cast<float>(neighbours)) return l;
    }
    return 0;
}

// The eigenvalues of the 2 x 2 block that ends in row `last`.
void SolveBlock(const FMatrix& h, int last, FMatrix& roots) {
    const double x = h[last][last];
    const double w = static_cast<double>(h[last][last - 1]) * h[last - 1][last];
    const double p = 0.5 * (h[last - 1][last - 1] - x);
    const double q = p * p + w;
    double z = std::sqrt(std::fabs(q));
    if (q >= 0.0) {
        z = p + std::copysign(z, p);
        roots[last - 1][0] = roots[last][0] = static_cast<float>(x + z);
        if (z != 0.0) roots[last][0] = static_cast<float>(x - w / z);
    } else {
        roots[last - 1][0] = roots[last][0] = static_cast<float>(x + p);
        roots[last - 1][1] = static_cast<float>(-z);
        roots[last][1] = static_cast<float>(z);
    }
}

}  // namespace

FMatrix& FMatrix::balanc() {
    RequireSquare(*this, "FMatrix::balanc()");
    bool changed = true;
    for (int pass = 0; changed && pass < kMostBalancingPasses; ++pass) {
        changed = false;
        for (int i = 0; i < m_nRows; ++i) changed = Balance(*this, i) || changed;
    }
    return *this;
}

FMatrix& FMatrix::elmhes() {
    RequireSquare(*this, "FMatrix::elmhes()");
    for (int k = 1; k < m_nRows - 1; ++k) {
        int pivotRow = k;
        for (int i = k + 1; i < m_nRows; ++i) {
            if (std::fabs(m_pRows[i][k - 1]) > std::fabs(m_pRows[pivotRow][k - 1])) pivotRow = i;
        }
        if (pivotRow != k) {
            for (int j = k - 1; j < m_nCols; ++j) std::swap(m_pRows[pivotRow][j], m_pRows[k][j]);
            for (int i = 0; i < m_nRows; ++i) std::swap(m_pRows[i][pivotRow], m_pRows[i][k]);
        }
        if (m_pRows[k][k - 1] != 0.0F) Eliminate(*this, k);
    }
    return *this;
}

FMatrix FMatrix::hgr() const {
    RequireSquare(*this, "FMatrix::elmhes()");
    FMatrix roots(m_nRows, 2);
    roots.zero();
    double norm = 0.0;
    for (int i = 0; i < m_nRows; ++i) {
        for (int j = std::max(i - 1, 0); j < m_nCols; ++j) norm += std::fabs(m_pRows[i][j]);
    }
    for (int last = m_nRows - 1; last >= 0;) {
        const int first = FindBlock(*this, last, norm);
        if (last - first > 1) throw Exception();
        if (first == last) {
            roots[last][0] = m_pRows[last][last];
        } else {
            SolveBlock(*this, last, roots);
        }
        last = first - 1;
    }
    return roots;
}
