#include "FMatrix.h"

#include "Exception.h"
#include "FMatrixBlock.h"
#include "base/Layout.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

using korvane_detail::CountElements;
using korvane_detail::GetBlock;

// ---- Storage

FMatrix::FMatrix() = default;

FMatrix::FMatrix(int rows, int cols) {
    init(rows, cols);
}

FMatrix::FMatrix(const float* const* elements, int rows, int cols) {
    assign(elements, rows, cols);
}

FMatrix::FMatrix(const FMatrix& other) {
    *this = other;
}

FMatrix::FMatrix(FMatrix&& other) noexcept {
    take(other);
}

FMatrix::~FMatrix() {
    static_assert(
        platform::LieInOrder({offsetof(FMatrix, m_nReserved), offsetof(FMatrix, m_nRows), offsetof(FMatrix, m_nCols),
                              offsetof(FMatrix, m_pRows), offsetof(FMatrix, m_bCreated)}));
    release();
}

FMatrix& FMatrix::operator=(const FMatrix& other) {
    if (this == &other) return *this;
    init(other.m_nRows, other.m_nCols);
    if (m_bCreated) std::copy_n(GetBlock(other), CountElements(other), m_pRows[0]);
    return *this;
}

FMatrix& FMatrix::operator=(FMatrix&& other) noexcept {
    if (this == &other) return *this;
    release();
    take(other);
    return *this;
}

void FMatrix::init(int rows, int cols) {
    if (rows == m_nRows && cols == m_nCols) return;
    release();
    if (rows < 0 || cols < 0) throw MemException("FMatrix::init");
    if (rows != 0 && cols != 0) allocate(rows, cols);
    m_nRows = rows;
    m_nCols = cols;
}

void FMatrix::assign(const float* const* elements, int rows, int cols) {
    FMatrix copy(rows, cols);
    if (elements == nullptr) copy.zero();
    for (int i = 0; elements != nullptr && copy.m_bCreated && i < rows; ++i) {
        std::copy_n(elements[i], cols, copy.m_pRows[i]);
    }
    *this = std::move(copy);
}

// For a matrix without storage; throws before anything has changed.
void FMatrix::allocate(int rows, int cols) {
    const std::uint64_t count = static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(cols);
    if (rows <= kInsideRows && count <= kInside) {
        m_pRows = m_InsideRows;
        m_nRows = rows;
        m_nCols = cols;
        pointRows(m_Inside);
        return;
    }
    if (count > PTRDIFF_MAX / sizeof(float) || static_cast<std::uint64_t>(rows) > PTRDIFF_MAX / sizeof(float*)) {
        throw MemException("FMatrix::init");
    }
    std::unique_ptr<float[]> block(new (std::nothrow) float[static_cast<std::size_t>(count)]);
    float** const table = block != nullptr ? new (std::nothrow) float*[static_cast<std::size_t>(rows)] : nullptr;
    if (table == nullptr) throw MemException("FMatrix::init");
    m_pRows = table;
    m_nRows = rows;
    m_nCols = cols;
    pointRows(block.release());
}

void FMatrix::pointRows(float* block) {
    for (int i = 0; i < m_nRows; ++i)
        m_pRows[i] = block + static_cast<std::size_t>(i) * static_cast<std::size_t>(m_nCols);
    m_bCreated = true;
}

void FMatrix::release() {
    if (m_bCreated && !isInside()) {
        delete[] m_pRows[0];
        delete[] m_pRows;
    }
    m_pRows = nullptr;
    m_nRows = 0;
    m_nCols = 0;
    m_bCreated = false;
}

// Moves the elements into this matrix, which has no storage; `other` is left empty.
void FMatrix::take(FMatrix& other) {
    m_nRows = other.m_nRows;
    m_nCols = other.m_nCols;
    m_bCreated = other.m_bCreated;
    m_pRows = other.m_pRows;
    if (other.isInside()) {
        std::copy_n(other.m_Inside, kInside, m_Inside);
        m_pRows = m_InsideRows;
        pointRows(m_Inside);
    }
    other.m_bCreated = false;
    other.m_pRows = nullptr;
    other.m_nRows = 0;
    other.m_nCols = 0;
}

void FMatrix::size(int rows, int cols) {
    init(rows, cols);
}

void FMatrix::resize(int rows, int cols) {
    if (rows == m_nRows && cols == m_nCols) return;
    FMatrix resized(rows, cols);
    resized.zero();
    for (int i = 0; resized.m_bCreated && m_bCreated && i < std::min(rows, m_nRows); ++i) {
        std::copy_n(m_pRows[i], std::min(cols, m_nCols), resized.m_pRows[i]);
    }
    *this = std::move(resized);
}

void FMatrix::free() {
    release();
}

// ---- Elements

FMatrix& FMatrix::set(double value) {
    if (m_bCreated) std::fill_n(m_pRows[0], CountElements(*this), static_cast<float>(value));
    return *this;
}

FMatrix& FMatrix::diag(double value) {
    zero();
    for (int i = 0; i < std::min(m_nRows, m_nCols); ++i) m_pRows[i][i] = static_cast<float>(value);
    return *this;
}

FVector FMatrix::row(int i) const {
    if (!m_bCreated || i < 0 || i >= m_nRows) return FVector();
    return FVector(m_pRows[i], m_nCols);
}

FVector FMatrix::col(int j) const {
    if (!m_bCreated || j < 0 || j >= m_nCols) return FVector();
    FVector column(m_nRows);
    for (int i = 0; i < m_nRows; ++i) column[i] = m_pRows[i][j];
    return column;
}

FMatrix FMatrix::transpose() const {
    FMatrix transposed(m_nCols, m_nRows);
    if (!m_bCreated) return transposed;
    for (int i = 0; i < m_nRows; ++i) {
        for (int j = 0; j < m_nCols; ++j) transposed.m_pRows[j][i] = m_pRows[i][j];
    }
    return transposed;
}

namespace {

FMatrix SideBySide(const FMatrix& a, const FMatrix& b, const char* operation) {
    if (a.nrows() != b.nrows()) throw DimException(operation);
    const std::int64_t cols = static_cast<std::int64_t>(a.ncols()) + b.ncols();
    if (cols > INT32_MAX) throw MemException("FMatrix::init");
    FMatrix both(a.nrows(), static_cast<int>(cols));
    for (int i = 0; both.IsMatrixCreated() && i < both.nrows(); ++i) {
        if (a.IsMatrixCreated()) std::copy_n(a[i], a.ncols(), both[i]);
        if (b.IsMatrixCreated()) std::copy_n(b[i], b.ncols(), both[i] + a.ncols());
    }
    return both;
}

}  // namespace

FMatrix& FMatrix::append(const FMatrix& b) {
    if (m_nCols == 0) return *this = b;
    if (b.m_nRows == 0) return *this;
    return *this = SideBySide(*this, b, "append( FMatrix, FMatrix ), the rows don't correspond");
}

FMatrix& FMatrix::append(const FMatrix& a, const FMatrix& b) {
    return *this = SideBySide(a, b, "append( FMatrix, FMatrix ) rows don't correspond");
}

// ---- Arithmetic

FMatrix& FMatrix::operator*=(double scalar) {
    float* const block = GetBlock(*this);
    const std::size_t count = CountElements(*this);
    for (std::size_t i = 0; i < count; ++i) block[i] = static_cast<float>(block[i] * scalar);
    return *this;
}

FMatrix& FMatrix::operator/=(double scalar) {
    if (std::fabs(scalar) < 1e-7) throw ZeroException("operator/(FMatrix, double)");
    float* const block = GetBlock(*this);
    const std::size_t count = CountElements(*this);
    for (std::size_t i = 0; i < count; ++i) block[i] = static_cast<float>(block[i] / scalar);
    return *this;
}

FMatrix& FMatrix::add(const FMatrix& m, double scale) {
    resize(m.m_nRows, m.m_nCols);
    float* const block = GetBlock(*this);
    const float* const other = GetBlock(m);
    const std::size_t count = CountElements(*this);
    for (std::size_t i = 0; i < count; ++i) block[i] = static_cast<float>(block[i] + scale * other[i]);
    return *this;
}
