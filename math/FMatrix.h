// Single-precision matrices.
#pragma once

#include "../base/Export.h"
#include "FVector.h"

#include <compare>
#include <iosfwd>

/// A matrix of `nrows()` x `ncols()` floats, row after row in one block, with a table of pointers to the rows. Sums and
/// products run in double; an element is rounded when it is stored.
///
/// Elements are read and written through the rows (`m[i][j]`), without a bounds check. Block and table lie inside the
/// object up to 4 rows and 16 elements and on the heap beyond, so a pointer into them does not outlive the object, a
/// change of shape or an assignment. New storage is not initialised. A matrix without rows or without columns has no
/// storage, but keeps both counts.
///
/// Failures are exceptions: `DimException` for shapes that do not match, `ZeroException` for a divisor or a determinant
/// whose absolute value is below 1e-7 (unlike the divisions of vectors, which refuse an exact 0 only), `MemException`
/// for a negative shape and for memory that cannot be had (the matrix is then empty).
class KORVANE_API FMatrix {
public:
    FMatrix();
    FMatrix(int rows, int cols);
    /// Copies `cols` elements of each row; a null table gives zeros.
    FMatrix(const float* const* elements, int rows, int cols);
    FMatrix(const FMatrix& other);
    FMatrix(FMatrix&& other) noexcept;
    ~FMatrix();

    FMatrix& operator=(const FMatrix& other);
    FMatrix& operator=(FMatrix&& other) noexcept;

    // ---- Storage

    int nrows() const { return m_nRows; }
    int ncols() const { return m_nCols; }
    /// True while the matrix has storage.
    bool IsMatrixCreated() const { return m_bCreated; }
    /// The row table; null without storage.
    float** GetPointer() { return m_pRows; }
    const float* const* GetPointer() const { return m_pRows; }
    operator float**() { return m_pRows; }
    operator const float* const*() const { return m_pRows; }
    float* operator[](int i) { return m_pRows[i]; }
    const float* operator[](int i) const { return m_pRows[i]; }

    /// This shape, contents lost; nothing happens when the shape is this already.
    void size(int rows, int cols);
    /// This shape; what both shapes have in common, counted from the top left, keeps its elements. New elements have no
    /// particular value.
    void resize(int rows, int cols);
    /// No storage, 0 x 0.
    void free();

    // ---- Elements

    FMatrix& set(double value);
    FMatrix& zero() { return set(0.0); }
    /// `value` on the main diagonal, 0 elsewhere.
    FMatrix& diag(double value);
    FMatrix& unity() { return diag(1.0); }
    /// Copies of a row and of a column; empty outside the matrix.
    FVector row(int i) const;
    FVector col(int j) const;
    /// The transposed copy; this matrix stays as it is.
    FMatrix transpose() const;

    /// Puts the columns of `b` to the right of this matrix' own. Without columns this matrix becomes a copy of `b`; a
    /// `b` without rows changes nothing.
    FMatrix& append(const FMatrix& b);
    /// Becomes the columns of `a`, then those of `b`.
    FMatrix& append(const FMatrix& a, const FMatrix& b);

    // ---- Arithmetic

    FMatrix& operator*=(double scalar);
    FMatrix& operator/=(double scalar);
    /// Takes the shape of `m`, keeping what it has in common with the old one, and adds scale * m. Elements that were
    /// not there count as 0.
    FMatrix& add(const FMatrix& m, double scale);

    // ---- Eigenvalues: `balanc`, `elmhes`, `hgr` in this order

    /// Scales rows and columns of a square matrix by powers of 2 until their norms match; eigenvalues stay. Rows and
    /// columns with elements that are not finite are left alone.
    FMatrix& balanc();
    /// Reduces a square matrix to upper Hessenberg form by elimination, largest element as pivot; eigenvalues stay. The
    /// elements below the subdiagonal hold the multipliers, not zeros.
    FMatrix& elmhes();
    /// Eigenvalues of an upper Hessenberg matrix whose diagonal blocks are 1 x 1 and 2 x 2: n x 2, real and imaginary
    /// parts. Of a complex pair the negative imaginary part comes first. What lies below the subdiagonal is not read. A
    /// larger block, without a subdiagonal element that is negligible in single precision, would need QR steps, which
    /// are not implemented: it throws a plain `Exception`.
    FMatrix hgr() const;

    /// Reads as `>>` does, behind comment lines that begin with '#'. At most 1024 characters of a line are skipped as a
    /// comment.
    std::istream& load(std::istream& in);

private:
    static constexpr int kInsideRows = 4;
    static constexpr int kInside = 16;

    void init(int rows, int cols);
    void assign(const float* const* elements, int rows, int cols);
    void allocate(int rows, int cols);
    void release();
    void take(FMatrix& other);
    void pointRows(float* block);
    bool isInside() const { return m_pRows == m_InsideRows; }

    int m_nReserved = 0;  // not used; the fields behind it have places in memory that hosts know
    int m_nRows = 0;
    int m_nCols = 0;
    float** m_pRows = nullptr;
    bool m_bCreated = false;
    float* m_InsideRows[kInsideRows] = {};
    float m_Inside[kInside] = {};
};

/// Not to be had: a matrix converts to its row table, so that without these lines `a == b` and `a < b` would compile
/// and compare addresses.
bool operator==(const FMatrix& a, const FMatrix& b) = delete;
std::partial_ordering operator<=>(const FMatrix& a, const FMatrix& b) = delete;

KORVANE_API FMatrix operator+(const FMatrix& a, const FMatrix& b);
KORVANE_API FMatrix operator-(const FMatrix& a, const FMatrix& b);
KORVANE_API FMatrix operator*(const FMatrix& a, const FMatrix& b);
/// a * inv(b), which refuses what `inv` refuses.
KORVANE_API FMatrix operator/(const FMatrix& a, const FMatrix& b);
KORVANE_API FMatrix operator*(const FMatrix& a, double s);
KORVANE_API FMatrix operator*(double s, const FMatrix& a);
KORVANE_API FMatrix operator/(const FMatrix& a, double s);
/// Matrix times column: nrows() elements.
KORVANE_API FVector operator*(const FMatrix& m, const FVector& v);
/// Row times matrix: ncols() elements.
KORVANE_API FVector operator*(const FVector& v, const FMatrix& m);

/// Text: one line for each row, elements separated by single blanks; the shape is not written. Numbers follow the
/// stream's format flags, but not its locale: the decimal separator is a point.
KORVANE_API std::ostream& operator<<(std::ostream& out, const FMatrix& m);
/// Reads the numbers of rows and of columns, then the elements: what `<<` wrote needs its shape in front of it. Where
/// the text is not a matrix the stream fails and `m` stays as it was. Memory grows with what is there, not with the
/// shape that the text claims.
KORVANE_API std::istream& operator>>(std::istream& in, FMatrix& m);
