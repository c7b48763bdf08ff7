// Singular value decomposition.
#pragma once

#include "FMatrix.h"

#include <cstddef>
#include <vector>

namespace korvane_detail {

/// a = U * diag(w) * V' by Golub and Reinsch: Householder reflections to bidiagonal form, then implicitly shifted QR steps.
/// All in double but for the hypotenuses of the rotations.
class SingularValues {
public:
    /// Throws `std::bad_alloc` or `std::length_error`.
    explicit SingularValues(const FMatrix& a);

    /// False where a singular value takes more than 30 iterations.
    bool Decompose();

    /// Descending, the columns of U and V going with them.
    void Sort();
    /// Singular values below 1e-7 become 0, and so do their columns of U.
    void DropSmall();

    std::size_t CountRows() const { return m_Rows; }
    std::size_t CountColumns() const { return m_Cols; }
    const double* GetValues() const { return m_w; }
    /// Column k of U (as many elements as the matrix has rows) and of V (as many as it has columns).
    const double* GetU(std::size_t k) const { return m_Ut + k * m_Rows; }
    const double* GetV(std::size_t k) const { return m_Vt + k * m_Cols; }

private:
    void Bidiagonalise();
    void ReflectColumn(std::size_t i, double& diagonal);
    double ReflectRow(std::size_t i);
    void AccumulateRight();
    void AccumulateLeft();
    bool IsNegligible(double value) const;
    bool Diagonalise(std::size_t k);
    std::size_t FindBlock(std::size_t k, double roundoff);
    void CancelAbove(std::size_t first, std::size_t last);
    void Step(std::size_t first, std::size_t last);

    std::size_t m_Rows;
    std::size_t m_Cols;
    std::vector<double> m_Memory;  ///< of everything below
    double* m_a;                   ///< rows x cols: reflections, then U
    double* m_v;                   ///< cols x cols: V
    double* m_Ut;                  ///< U and V transposed, for rotations along rows
    double* m_Vt;
    double* m_w;      ///< diagonal, in the end the singular values
    double* m_Above;  ///< superdiagonal: element i is left of diagonal element i
    double* m_Sums;
    double m_Norm = 0.0;  ///< what vanishes beside it is negligible
};

}  // namespace korvane_detail
