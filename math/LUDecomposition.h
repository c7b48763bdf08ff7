// LU decomposition, for determinant, inverse and division.
#pragma once

#include "FMatrix.h"

#include <memory>

namespace korvane_detail {

/// Crout's method with implicit partial pivoting, of a copy of a square matrix. Elements of the factors are rounded to
/// float, sums run in double.
class LUDecomposition {
public:
    /// Memory that cannot be had is a `MemException` with the name of the operation that asks.
    LUDecomposition(const FMatrix& a, const char* operation);
    LUDecomposition(const LUDecomposition&) = delete;
    LUDecomposition& operator=(const LUDecomposition&) = delete;

    /// The product of the diagonal, with the sign of the row exchanges. Where a row of zeros stopped the decomposition it
    /// is the product of the diagonal as it stands.
    float GetDeterminant() const;

    /// Whether a pivot vanishes: it was exactly 0 and had to be replaced, it is below n * 2^-23 times the largest element
    /// of its row, and so may be nothing but rounding, or a row of zeros stopped the decomposition.
    bool IsSingular() const { return m_bSingular; }

    /// The inverse, column by column; nothing is tested.
    FMatrix Invert() const;

private:
    static constexpr int kInside = 4;

    template <typename Size>
    bool Decompose(Size n);
    template <typename Size>
    FMatrix Solve(Size n, double* solutions) const;

    const char* m_Operation;
    int m_n;
    double m_Sign = 1.0;
    bool m_bSingular = false;
    double* m_Factors;  ///< n x n: U on and above the diagonal, L below it
    float* m_Scales;    ///< of the rows
    int* m_Rows;        ///< which row of the matrix came where
    double m_InsideFactors[kInside * kInside];
    float m_InsideScales[kInside];
    int m_InsideRows[kInside];
    std::unique_ptr<double[]> m_HeapFactors;
    std::unique_ptr<float[]> m_HeapScales;
    std::unique_ptr<int[]> m_HeapRows;
};

}  // namespace korvane_detail
