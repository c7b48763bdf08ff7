#include "math/Exception.h"
#include "math/FMatrix.h"
#include "math/FMatrixBlock.h"
#include "math/LUDecomposition.h"

#include <algorithm>
#include <cmath>

using korvane_detail::CountElements;
using korvane_detail::GetBlock;

namespace {

template <typename Operation>
FMatrix Combine(const FMatrix& a, const FMatrix& b, Operation operation) {
    if (a.nrows() != b.nrows() || a.ncols() != b.ncols()) throw DimException("operator+(FMatrix, FMatrix)");
    FMatrix result(a.nrows(), a.ncols());
    const std::size_t count = CountElements(a);
    const float* const left = GetBlock(a);
    const float* const right = GetBlock(b);
    float* const to = GetBlock(result);
    for (std::size_t i = 0; i < count; ++i) to[i] = operation(left[i], right[i]);
    return result;
}

// out[j] = sum over k of row[k] * b[k][j], for `kCols` columns of b, rows of which are `stride` apart. The terms are
// added in the order of k, whatever kCols is.
template <int kCols>
void RowTimesColumns(const float* row, int n, const float* b, std::size_t stride, float* out) {
    double sums[kCols] = {};
    for (int k = 0; k < n; ++k, b += stride) {
        const double factor = row[k];
        for (int j = 0; j < kCols; ++j) sums[j] += factor * static_cast<double>(b[j]);
    }
    for (int j = 0; j < kCols; ++j) out[j] = static_cast<float>(sums[j]);
}

void RowTimesMatrix(const float* row, int n, const float* b, int cols, float* out) {
    const auto stride = static_cast<std::size_t>(cols);
    int j = 0;
    for (; cols - j >= 16; j += 16) RowTimesColumns<16>(row, n, b + j, stride, out + j);
    for (; cols - j >= 4; j += 4) RowTimesColumns<4>(row, n, b + j, stride, out + j);
    switch (cols - j) {
    case 3: RowTimesColumns<3>(row, n, b + j, stride, out + j); break;
    case 2: RowTimesColumns<2>(row, n, b + j, stride, out + j); break;
    case 1: RowTimesColumns<1>(row, n, b + j, stride, out + j); break;
    default: break;
    }
}

}  // namespace

FMatrix operator+(const FMatrix& a, const FMatrix& b) {
    return Combine(a, b, [](float left, float right) { return left + right; });
}

FMatrix operator-(const FMatrix& a, const FMatrix& b) {
    return Combine(a, b, [](float left, float right) { return left - right; });
}

FMatrix operator*(const FMatrix& a, const FMatrix& b) {
    if (a.ncols() != b.nrows()) throw DimException("operator*(FMatrix, FMatrix)");
    FMatrix result(a.nrows(), b.ncols());
    if (a.ncols() == 0) return result.zero();
    const float* const block = GetBlock(b);
    for (int i = 0; result.IsMatrixCreated() && i < a.nrows(); ++i) {
        RowTimesMatrix(a[i], a.ncols(), block, b.ncols(), result[i]);
    }
    return result;
}

FMatrix operator/(const FMatrix& a, const FMatrix& b) {
    if (b.nrows() != b.ncols() || a.ncols() != b.nrows()) throw DimException("operator/(FMatrix, FMatrix)");
    const korvane_detail::LUDecomposition lu(b, "operator/(FMatrix, FMatrix)");
    if (std::fabs(lu.GetDeterminant()) < 1e-7) throw ZeroException("operator/(FMatrix, FMatrix)");
    return a * lu.Invert();
}

FMatrix operator*(const FMatrix& a, double s) {
    FMatrix result(a);
    result *= s;
    return result;
}

FMatrix operator*(double s, const FMatrix& a) {
    return a * s;
}

FMatrix operator/(const FMatrix& a, double s) {
    FMatrix result(a);
    result /= s;
    return result;
}

FVector operator*(const FMatrix& m, const FVector& v) {
    if (m.ncols() != v.dim()) throw DimException("operator*(FMatrix, FVector)");
    FVector result(m.nrows());
    if (!m.IsMatrixCreated()) return result.zero();
    for (int i = 0; i < m.nrows(); ++i) RowTimesColumns<1>(m[i], m.ncols(), v.GetPointer(), 1, result.GetPointer() + i);
    return result;
}

FVector operator*(const FVector& v, const FMatrix& m) {
    if (v.dim() != m.nrows()) throw DimException("operator*(FVector, FMatrix)");
    FVector result(m.ncols());
    RowTimesMatrix(v.GetPointer(), v.dim(), GetBlock(m), m.ncols(), result.GetPointer());
    return result;
}
