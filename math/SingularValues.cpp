#include "SingularValues.h"

#include "Exception.h"
#include "FMatrixBlock.h"
#include "NumericalRoutines.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <utility>

namespace korvane_detail {

namespace {

constexpr int kMostIterations = 30;
constexpr double kSmallest = 1e-7;

// Rotations that are rounded to float change singular values by about this much, so that equal ones might never
// converge. From the tenth iteration on, an element that is smaller than this relative to its neighbours on the
// diagonal counts as 0.
constexpr int kStrictIterations = 10;
constexpr double kRoundoff = std::numeric_limits<float>::epsilon();

// Every hypotenuse goes through single precision, as the results that hosts depend on were computed.
double Hypotenuse(double a, double b) {
    return pythag(static_cast<float>(a), static_cast<float>(b));
}

// Four sums side by side: a fixed order that the compiler can vectorise.
double Dot(const double* a, const double* b, std::size_t n) {
    double sums[4] = {};
    std::size_t i = 0;
    for (; i + 4 <= n; i += 4) {
        for (std::size_t j = 0; j < 4; ++j) sums[j] += a[i + j] * b[i + j];
    }
    double rest = 0.0;
    for (; i < n; ++i) rest += a[i] * b[i];
    return (sums[0] + sums[2]) + (sums[1] + sums[3]) + rest;
}

// Part of a matrix, or of one of its columns: `rows` x `cols` elements, rows `stride` apart.
struct Part {
    double* first;
    std::size_t rows;
    std::size_t cols;
    std::size_t stride;
    double* operator[](std::size_t i) const { return first + i * stride; }
};

// sums[j] = sum over i of x[i] * y[i][j]
void Project(const Part& x, const Part& y, double* sums) {
    std::fill_n(sums, y.cols, 0.0);
    std::size_t i = 0;
    for (; i + 2 <= y.rows; i += 2) {
        const double x0 = *x[i];
        const double x1 = *x[i + 1];
        const double* const y0 = y[i];
        const double* const y1 = y[i + 1];
        for (std::size_t j = 0; j < y.cols; ++j) sums[j] = sums[j] + x0 * y0[j] + x1 * y1[j];
    }
    for (; i < y.rows; ++i) {
        for (std::size_t j = 0; j < y.cols; ++j) sums[j] += *x[i] * y[i][j];
    }
}

// y[i][j] += x[i] * factors[j]
void AddProduct(const Part& x, const double* factors, const Part& y) {
    for (std::size_t i = 0; i < y.rows; ++i) {
        const double factor = *x[i];
        double* const row = y[i];
        for (std::size_t j = 0; j < y.cols; ++j) row[j] += factor * factors[j];
    }
}

void Transpose(const double* from, std::size_t rows, std::size_t cols, double* to) {
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < cols; ++j) to[j * rows + i] = from[i * cols + j];
    }
}

void Rotate(double* a, double* b, std::size_t n, double c, double s) {
    for (std::size_t i = 0; i < n; ++i) {
        const double x = a[i];
        const double y = b[i];
        a[i] = x * c + y * s;
        b[i] = y * c - x * s;
    }
}

// Elements of all arrays together.
std::size_t CountMemory(std::uint64_t rows, std::uint64_t cols) {
    constexpr std::uint64_t kMost = PTRDIFF_MAX / sizeof(double) / 8;
    if (rows > UINT32_MAX || cols > UINT32_MAX || rows * cols > kMost || cols * cols > kMost) throw std::bad_alloc();
    return static_cast<std::size_t>(2 * rows * cols + 2 * cols * cols + 3 * cols);
}

}  // namespace

SingularValues::SingularValues(const FMatrix& a)
    : m_Rows(static_cast<std::size_t>(a.nrows())), m_Cols(static_cast<std::size_t>(a.ncols())),
      m_Memory(CountMemory(m_Rows, m_Cols)), m_a(m_Memory.data()), m_v(m_a + m_Rows * m_Cols),
      m_Ut(m_v + m_Cols * m_Cols), m_Vt(m_Ut + m_Rows * m_Cols), m_w(m_Vt + m_Cols * m_Cols), m_Above(m_w + m_Cols),
      m_Sums(m_Above + m_Cols) {
    std::copy_n(GetBlock(a), CountElements(a), m_a);
}

bool SingularValues::Decompose() {
    // Hypotenuses of very small or large matrices would leave the range of floats; a power of 2 changes nothing else.
    double largest = 0.0;
    for (std::size_t i = 0; i < m_Rows * m_Cols; ++i) {
        if (!std::isfinite(m_a[i])) return false;
        largest = std::max(largest, std::fabs(m_a[i]));
    }
    int exponent = 0;
    std::frexp(largest, &exponent);
    const double scale = std::ldexp(1.0, exponent);
    for (std::size_t i = 0; i < m_Rows * m_Cols; ++i) m_a[i] /= scale;
    Bidiagonalise();
    AccumulateRight();
    AccumulateLeft();
    Transpose(m_a, m_Rows, m_Cols, m_Ut);
    Transpose(m_v, m_Cols, m_Cols, m_Vt);
    for (std::size_t k = m_Cols; k-- > 0;) {
        if (!Diagonalise(k)) return false;
    }
    for (std::size_t k = 0; k < m_Cols; ++k) m_w[k] *= scale;
    return true;
}

void SingularValues::Bidiagonalise() {
    double above = 0.0;
    for (std::size_t i = 0; i < m_Cols; ++i) {
        m_Above[i] = above;
        m_w[i] = 0.0;
        above = 0.0;
        if (i < m_Rows) {
            ReflectColumn(i, m_w[i]);
            above = ReflectRow(i);
        }
        m_Norm = std::max(m_Norm, std::fabs(m_w[i]) + std::fabs(m_Above[i]));
    }
}

// Column i becomes the vector of the reflection that clears it below the diagonal; the columns to its right are
// reflected. `diagonal` becomes what is left of the column; it stays for a column of zeros.
void SingularValues::ReflectColumn(std::size_t i, double& diagonal) {
    const std::size_t n = m_Cols;
    const std::size_t right = i + 1;
    const Part column{m_a + i * n + i, m_Rows - i, 1, n};
    const Part others{column.first + 1, m_Rows - i, n - right, n};
    double scale = 0.0;
    for (std::size_t k = 0; k < column.rows; ++k) scale += std::fabs(*column[k]);
    if (scale == 0.0) return;
    double sum = 0.0;
    for (std::size_t k = 0; k < column.rows; ++k) {
        *column[k] /= scale;
        sum += *column[k] * *column[k];
    }
    const double f = *column.first;
    const double g = -std::copysign(std::sqrt(sum), f);
    const double h = f * g - sum;
    *column.first = f - g;
    Project(column, others, m_Sums);
    for (std::size_t j = 0; j < others.cols; ++j) m_Sums[j] /= h;
    AddProduct(column, m_Sums, others);
    for (std::size_t k = 0; k < column.rows; ++k) *column[k] *= scale;
    diagonal = scale * g;
}

// The same for row i, right of the diagonal, and the rows below it. Returns the element of the superdiagonal.
double SingularValues::ReflectRow(std::size_t i) {
    const std::size_t count = m_Cols - i - 1;
    double* const row = m_a + i * m_Cols + i + 1;
    double scale = 0.0;
    for (std::size_t k = 0; k < count; ++k) scale += std::fabs(row[k]);
    if (scale == 0.0) return 0.0;
    for (std::size_t k = 0; k < count; ++k) row[k] /= scale;
    const double sum = Dot(row, row, count);
    const double f = row[0];
    const double g = -std::copysign(std::sqrt(sum), f);
    const double h = f * g - sum;
    row[0] = f - g;
    for (std::size_t k = 0; k < count; ++k) m_Sums[k] = row[k] / h;
    for (std::size_t j = i + 1; j < m_Rows; ++j) {
        double* const other = m_a + j * m_Cols + i + 1;
        const double factor = Dot(other, row, count);
        for (std::size_t k = 0; k < count; ++k) other[k] += factor * m_Sums[k];
    }
    for (std::size_t k = 0; k < count; ++k) row[k] *= scale;
    return scale * g;
}

// V is the product of the reflections of rows.
void SingularValues::AccumulateRight() {
    const std::size_t n = m_Cols;
    for (std::size_t i = n; i-- > 0;) {
        double* const corner = m_v + i * n + i;
        *corner = 1.0;
        if (i + 1 == n) continue;
        double* const row = m_a + i * n + i + 1;  // of the reflection
        const Part column{corner + n, n - i - 1, 1, n};
        const Part others{corner + n + 1, column.rows, column.rows, n};
        if (m_Above[i + 1] != 0.0) {
            // Two divisions, since the product of the divisors could underflow.
            for (std::size_t k = 0; k < column.rows; ++k) *column[k] = row[k] / row[0] / m_Above[i + 1];
            Project(Part{row, column.rows, 1, 1}, others, m_Sums);
            AddProduct(column, m_Sums, others);
        }
        for (std::size_t k = 0; k < column.rows; ++k) corner[k + 1] = *column[k] = 0.0;
    }
}

// U is the product of the reflections of columns, made in their place.
void SingularValues::AccumulateLeft() {
    const std::size_t n = m_Cols;
    for (std::size_t i = std::min(m_Rows, n); i-- > 0;) {
        const Part column{m_a + i * n + i, m_Rows - i, 1, n};
        const Part others{column.first + 1, m_Rows - i, n - i - 1, n};
        std::fill_n(others.first, others.cols, 0.0);
        if (m_w[i] != 0.0) {
            const double reciprocal = 1.0 / m_w[i];
            Project(column, others, m_Sums);  // the first row is 0
            for (std::size_t j = 0; j < others.cols; ++j) m_Sums[j] = m_Sums[j] / *column.first * reciprocal;
            AddProduct(column, m_Sums, others);
            for (std::size_t k = 0; k < column.rows; ++k) *column[k] *= reciprocal;
        } else {
            for (std::size_t k = 0; k < column.rows; ++k) *column[k] = 0.0;
        }
        *column.first += 1.0;
    }
}

bool SingularValues::IsNegligible(double value) const {
    return std::fabs(value) + m_Norm == m_Norm;
}

// QR steps until singular value k stands alone.
bool SingularValues::Diagonalise(std::size_t k) {
    for (int iteration = 1; iteration <= kMostIterations; ++iteration) {
        const std::size_t first = FindBlock(k, iteration < kStrictIterations ? 0.0 : kRoundoff);
        if (first == k) {
            if (m_w[k] < 0.0) {
                m_w[k] = -m_w[k];
                for (std::size_t i = 0; i < m_Cols; ++i) m_Vt[k * m_Cols + i] = -m_Vt[k * m_Cols + i];
            }
            return true;
        }
        if (iteration < kMostIterations) Step(first, k);
    }
    return false;
}

// The first row of the block that ends in row k: the superdiagonal element above it is negligible, or has been made so
// because the diagonal element above it is.
std::size_t SingularValues::FindBlock(std::size_t k, double roundoff) {
    for (std::size_t first = k; first > 0; --first) {
        const double neighbours = std::fabs(m_w[first - 1]) + std::fabs(m_w[first]);
        if (IsNegligible(m_Above[first]) || std::fabs(m_Above[first]) < roundoff * neighbours) return first;
        if (IsNegligible(m_w[first - 1])) {
            CancelAbove(first, k);
            return first;
        }
    }
    return 0;
}

// Rotates the superdiagonal element above row `first` away.
void SingularValues::CancelAbove(std::size_t first, std::size_t last) {
    double c = 0.0;
    double s = 1.0;
    for (std::size_t i = first; i <= last; ++i) {
        const double f = s * m_Above[i];
        m_Above[i] *= c;
        if (IsNegligible(f)) return;
        const double g = m_w[i];
        const double h = Hypotenuse(f, g);
        m_w[i] = h;
        if (h != 0.0) {
            c = g * (1.0 / h);
            s = -f * (1.0 / h);
        }
        Rotate(m_Ut + (first - 1) * m_Rows, m_Ut + i * m_Rows, m_Rows, c, s);
    }
}

// One QR step on the block, shifted by the lower of its last two singular values.
void SingularValues::Step(std::size_t first, std::size_t last) {
    const double w = m_w[last];
    const double above = m_Above[last];
    double x = m_w[first];
    double y = m_w[last - 1];
    double g = m_Above[last - 1];
    double f = ((y - w) * (y + w) + (g - above) * (g + above)) / (2.0 * above * y);
    g = Hypotenuse(f, 1.0);
    f = ((x - w) * (x + w) + above * (y / (f + std::copysign(g, f)) - above)) / x;
    double c = 1.0;
    double s = 1.0;
    for (std::size_t j = first; j < last; ++j) {
        double h = s * m_Above[j + 1];
        g = c * m_Above[j + 1];
        double z = Hypotenuse(f, h);
        m_Above[j] = z;
        c = z != 0.0 ? f / z : 1.0;
        s = z != 0.0 ? h / z : 0.0;
        f = x * c + g * s;
        g = g * c - x * s;
        h = m_w[j + 1] * s;
        y = m_w[j + 1] * c;
        Rotate(m_Vt + j * m_Cols, m_Vt + (j + 1) * m_Cols, m_Cols, c, s);
        z = Hypotenuse(f, h);
        m_w[j] = z;
        if (z != 0.0) {
            c = f * (1.0 / z);
            s = h * (1.0 / z);
        }
        f = c * g + s * y;
        x = c * y - s * g;
        Rotate(m_Ut + j * m_Rows, m_Ut + (j + 1) * m_Rows, m_Rows, c, s);
    }
    m_Above[first] = 0.0;
    m_Above[last] = f;
    m_w[last] = x;
}

void SingularValues::Sort() {
    for (std::size_t i = 0; i + 1 < m_Cols; ++i) {
        const auto largest = static_cast<std::size_t>(std::max_element(m_w + i, m_w + m_Cols) - m_w);
        if (largest == i) continue;
        std::swap(m_w[i], m_w[largest]);
        std::swap_ranges(m_Ut + i * m_Rows, m_Ut + (i + 1) * m_Rows, m_Ut + largest * m_Rows);
        std::swap_ranges(m_Vt + i * m_Cols, m_Vt + (i + 1) * m_Cols, m_Vt + largest * m_Cols);
    }
}

void SingularValues::DropSmall() {
    for (std::size_t k = 0; k < m_Cols; ++k) {
        if (!(std::fabs(m_w[k]) < kSmallest)) continue;
        m_w[k] = 0.0;
        std::fill_n(m_Ut + k * m_Rows, m_Rows, 0.0);
    }
}

}  // namespace korvane_detail

namespace {

using korvane_detail::SingularValues;

struct RowDeleter {
    int rows;
    void operator()(double** table) const {
        for (int i = 0; i < rows; ++i) delete[] table[i];
        delete[] table;
    }
};
using RowTable = std::unique_ptr<double*[], RowDeleter>;

// Rows are blocks of their own, so that a caller can release them one by one.
RowTable MakeRows(std::size_t rows, std::size_t cols) {
    RowTable table(
        new double* [rows](), RowDeleter { static_cast<int>(rows) });
    for (std::size_t i = 0; i < rows; ++i) table[i] = new double[cols];
    return table;
}

void SetColumn(const RowTable& table, std::size_t j, const double* column, std::size_t rows) {
    for (std::size_t i = 0; i < rows; ++i) table[i][j] = column[i];
}

}  // namespace

double** d_SVD(const FMatrix& a, double*& w, double**& v, bool sort) try {
    w = nullptr;
    v = nullptr;
    SingularValues svd(a);
    if (!svd.Decompose()) return nullptr;
    if (sort) {
        svd.Sort();
    } else {
        svd.DropSmall();
    }
    const std::size_t m = svd.CountRows();
    const std::size_t n = svd.CountColumns();
    RowTable left = MakeRows(m, n);
    RowTable right = MakeRows(n, n);
    for (std::size_t k = 0; k < n; ++k) {
        SetColumn(left, k, svd.GetU(k), m);
        SetColumn(right, k, svd.GetV(k), n);
    }
    w = new double[n];
    std::copy_n(svd.GetValues(), n, w);
    v = right.release();
    return left.release();
} catch (const std::exception&) {  // no memory, or more than a vector can hold
    throw MemException("d_SVD(FMatrix)");
}

void d_FreeSVD(double** u, int rows, double* w, double** v, int cols) {
    const RowTable left(u, RowDeleter{rows});
    const RowTable right(v, RowDeleter{cols});
    delete[] w;
}

FMatrix d_PseudoInv(const FMatrix& a) {
    return d_PseudoInv(a, 0.0);
}

FMatrix d_PseudoInv(const FMatrix& a, double tolerance) try {
    SingularValues svd(a);
    if (!svd.Decompose()) throw MemException("d_PseudoInv(FMatrix)");
    svd.Sort();
    const std::size_t m = svd.CountRows();
    const std::size_t n = svd.CountColumns();
    const double* const w = svd.GetValues();
    const double negligible = n > 0 && tolerance > 0 ? tolerance * w[0] : 0.0;
    FMatrix result(a.ncols(), a.nrows());
    std::vector<double> sums(m);
    for (std::size_t i = 0; result.IsMatrixCreated() && i < n; ++i) {
        std::fill(sums.begin(), sums.end(), 0.0);
        for (std::size_t k = 0; k < n && w[k] != 0.0 && !(w[k] <= negligible); ++k) {
            const double factor = svd.GetV(k)[i] / w[k];
            for (std::size_t j = 0; j < m; ++j) sums[j] += factor * svd.GetU(k)[j];
        }
        for (std::size_t j = 0; j < m; ++j) result.GetPointer()[i][j] = static_cast<float>(sums[j]);
    }
    return result;
} catch (const std::exception&) {
    throw MemException("d_PseudoInv(FMatrix)");
}
