#include "Exception.h"
#include "FMatrix.h"
#include "FMatrixBlock.h"
#include "LUDecomposition.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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

using TwoFloats = float __attribute__((vector_size(2 * sizeof(float))));
using TwoDoubles = double __attribute__((vector_size(2 * sizeof(double))));

TwoDoubles LoadTwo(const float* from) {
    TwoFloats two;
    std::memcpy(&two, from, sizeof two);
    return __builtin_convertvector(two, TwoDoubles);
}

void StoreTwo(TwoDoubles sums, float* to) {
    const TwoFloats two = __builtin_convertvector(sums, TwoFloats);
    std::memcpy(to, &two, sizeof two);
}

// Rows of elements, `stride` apart.
template <typename Element>
struct Table {
    Element* first;
    std::size_t stride;
    Element* operator[](int i) const { return first + static_cast<std::size_t>(i) * stride; }
    Table At(int i, int j) const { return {(*this)[i] + j, stride}; }
};

// out[i][j] = sum over k < n of a[i][k] * b[k][j], for kRows rows and 2 * kPairs columns. The terms are added in the
// order of k, whatever the size, so that an element does not depend on where it lies.
template <int kRows, int kPairs>
void Multiply(Table<const float> a, Table<const float> b, int n, Table<float> out) {
    TwoDoubles sums[kRows][kPairs] = {};
    for (int k = 0; k < n; ++k) {
        TwoDoubles right[kPairs];
        for (int j = 0; j < kPairs; ++j) right[j] = LoadTwo(b[k] + 2 * j);
        for (int i = 0; i < kRows; ++i) {
            const double left = a[i][k];
            for (int j = 0; j < kPairs; ++j) sums[i][j] += TwoDoubles{left, left} * right[j];
        }
    }
    for (int i = 0; i < kRows; ++i) {
        for (int j = 0; j < kPairs; ++j) StoreTwo(sums[i][j], out[i] + 2 * j);
    }
}

// The same for one column.
template <int kRows>
void MultiplyColumn(Table<const float> a, Table<const float> b, int n, Table<float> out) {
    double sums[kRows] = {};
    for (int k = 0; k < n; ++k) {
        const double right = *b[k];
        for (int i = 0; i < kRows; ++i) sums[i] += static_cast<double>(a[i][k]) * right;
    }
    for (int i = 0; i < kRows; ++i) *out[i] = static_cast<float>(sums[i]);
}

template <int kRows>
void MultiplyRows(Table<const float> a, Table<const float> b, int n, Table<float> out, int cols) {
    int j = 0;
    for (; cols - j >= 4; j += 4) Multiply<kRows, 2>(a, b.At(0, j), n, out.At(0, j));
    if (cols - j >= 2) {
        Multiply<kRows, 1>(a, b.At(0, j), n, out.At(0, j));
        j += 2;
    }
    if (cols > j) MultiplyColumn<kRows>(a, b.At(0, j), n, out.At(0, j));
}

// rows x n times n x cols
void MultiplyAll(Table<const float> a, Table<const float> b, int n, Table<float> out, int rows, int cols) {
    int i = 0;
    for (; rows - i >= 4; i += 4) MultiplyRows<4>(a.At(i, 0), b, n, out.At(i, 0), cols);
    if (rows - i >= 2) {
        MultiplyRows<2>(a.At(i, 0), b, n, out.At(i, 0), cols);
        i += 2;
    }
    if (rows > i) MultiplyRows<1>(a.At(i, 0), b, n, out.At(i, 0), cols);
}

template <typename Element>
Table<Element> MakeTable(Element* first, int stride) {
    return {first, static_cast<std::size_t>(stride)};
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
    if (!result.IsMatrixCreated()) return result;
    MultiplyAll(MakeTable(GetBlock(a), a.ncols()), MakeTable(GetBlock(b), b.ncols()), a.ncols(),
                MakeTable(GetBlock(result), b.ncols()), a.nrows(), b.ncols());
    return result;
}

FMatrix operator/(const FMatrix& a, const FMatrix& b) {
    if (b.nrows() != b.ncols() || a.ncols() != b.nrows()) throw DimException("operator/(FMatrix, FMatrix)");
    const korvane_detail::LUDecomposition lu(b, "operator/(FMatrix, FMatrix)");
    if (lu.IsSingular() || std::fabs(lu.GetDeterminant()) < 1e-7) throw ZeroException("operator/(FMatrix, FMatrix)");
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
    MultiplyAll(MakeTable(GetBlock(m), m.ncols()), MakeTable(v.GetPointer(), 1), m.ncols(),
                MakeTable(result.GetPointer(), 1), m.nrows(), 1);
    return result;
}

FVector operator*(const FVector& v, const FMatrix& m) {
    if (v.dim() != m.nrows()) throw DimException("operator*(FVector, FMatrix)");
    FVector result(m.ncols());
    if (!m.IsMatrixCreated()) return result.zero();
    MultiplyAll(MakeTable(v.GetPointer(), m.nrows()), MakeTable(GetBlock(m), m.ncols()), m.nrows(),
                MakeTable(result.GetPointer(), m.ncols()), 1, m.ncols());
    return result;
}
