#include "LUDecomposition.h"

#include "Exception.h"
#include "FMatrixBlock.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

namespace korvane_detail {

namespace {

// Stands for a pivot that is exactly 0, so that singular matrices can be decomposed.
constexpr float kTinyPivot = 1.0e-7F;

double Rounded(double value) {
    return static_cast<float>(value);
}

template <typename T>
T* Allocate(std::unique_ptr<T[]>& owner, std::uint64_t count, const char* operation) {
    if (count <= PTRDIFF_MAX / sizeof(T)) owner.reset(new (std::nothrow) T[static_cast<std::size_t>(count)]);
    if (owner == nullptr) throw MemException(operation);
    return owner.get();
}

// Calls with the number of rows as a constant where it is a usual one, so that the loops are unrolled.
template <typename Function>
auto WithSize(int n, Function function) {
    switch (n) {
    case 3: return function(std::integral_constant<std::size_t, 3>());
    case 4: return function(std::integral_constant<std::size_t, 4>());
    default: return function(static_cast<std::size_t>(n));
    }
}

}  // namespace

LUDecomposition::LUDecomposition(const FMatrix& a, const char* operation)
    : m_Operation(operation), m_n(a.nrows()), m_Factors(m_InsideFactors), m_Scales(m_InsideScales),
      m_Rows(m_InsideRows) {
    const std::size_t count = CountElements(a);
    if (m_n > kInside) {
        m_Factors = Allocate(m_HeapFactors, count, operation);
        m_Scales = Allocate(m_HeapScales, static_cast<std::uint64_t>(m_n), "ludcmp");
        m_Rows = Allocate(m_HeapRows, static_cast<std::uint64_t>(m_n), operation);
    }
    std::copy_n(GetBlock(a), count, m_Factors);
    for (int i = 0; i < m_n; ++i) m_Rows[i] = i;
    if (!WithSize(m_n, [this](auto n) { return Decompose(n); })) m_bSingular = true;
}

// Row by row instead of Crout's column by column: each element takes the same terms in the same order in double and is
// rounded once, when it is final, so the factors are the same to the last bit, and the inner loops run along rows.
// False when a row of zeros gives no scale: everything is then as it was.
template <typename Size>
bool LUDecomposition::Decompose(Size n) {
    double* const a = m_Factors;
    const double vanishing = static_cast<double>(n) * std::numeric_limits<float>::epsilon();
    for (std::size_t i = 0; i < n; ++i) {
        double largest = 0.0;
        for (std::size_t j = 0; j < n; ++j) largest = std::max(largest, std::fabs(a[i * n + j]));
        if (largest == 0.0) return false;
        m_Scales[i] = static_cast<float>(1.0 / largest);
    }
    for (std::size_t j = 0; j < n; ++j) {
        double largest = 0.0;
        std::size_t pivotRow = j;
        for (std::size_t i = j; i < n; ++i) {
            const double candidate = m_Scales[i] * std::fabs(a[i * n + j]);
            if (candidate >= largest) {  // of equal ones the later row
                largest = candidate;
                pivotRow = i;
            }
        }
        const double scale = m_Scales[pivotRow];
        if (pivotRow != j) {
            for (std::size_t k = 0; k < n; ++k) std::swap(a[pivotRow * n + k], a[j * n + k]);
            std::swap(m_Rows[pivotRow], m_Rows[j]);
            m_Scales[pivotRow] = m_Scales[j];
            m_Sign = -m_Sign;
        }
        for (std::size_t k = j; k < n; ++k) a[j * n + k] = Rounded(a[j * n + k]);
        if (std::fabs(a[j * n + j]) * scale < vanishing) m_bSingular = true;
        if (a[j * n + j] == 0.0) a[j * n + j] = kTinyPivot;
        const double reciprocal = 1.0 / a[j * n + j];
        for (std::size_t i = j + 1; i < n; ++i) {
            const double multiplier = Rounded(Rounded(a[i * n + j]) * reciprocal);
            a[i * n + j] = multiplier;
            for (std::size_t k = j + 1; k < n; ++k) a[i * n + k] -= multiplier * a[j * n + k];
        }
    }
    return true;
}

float LUDecomposition::GetDeterminant() const {
    double product = m_Sign;
    const auto n = static_cast<std::size_t>(m_n);
    for (std::size_t i = 0; i < n; ++i) product *= m_Factors[i * n + i];
    return static_cast<float>(product);
}

FMatrix LUDecomposition::Invert() const {
    double inside[kInside * kInside];
    std::unique_ptr<double[]> heap;
    double* solutions = inside;
    if (m_n > kInside) {
        solutions = Allocate(heap, static_cast<std::uint64_t>(m_n) * static_cast<std::uint64_t>(m_n), m_Operation);
    }
    return WithSize(m_n, [this, solutions](auto n) { return Solve(n, solutions); });
}

// All unit vectors at once, a row of `solutions` holding one component of each. The columns are ordered by the row that
// the exchanges moved their 1 to: column q is 0 above row q, and the terms of those zeros are left out, as if each
// column were solved alone.
template <typename Size>
FMatrix LUDecomposition::Solve(Size n, double* solutions) const {
    const double* const a = m_Factors;
    double* const x = solutions;
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t q = 0; q < n; ++q) x[i * n + q] = q == i ? 1.0 : 0.0;
        for (std::size_t k = 0; k < i; ++k) {
            for (std::size_t q = 0; q <= k; ++q) x[i * n + q] -= a[i * n + k] * x[k * n + q];
        }
        for (std::size_t q = 0; q < i; ++q) x[i * n + q] = Rounded(x[i * n + q]);
    }
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t k = i + 1; k < n; ++k) {
            for (std::size_t q = 0; q < n; ++q) x[i * n + q] -= a[i * n + k] * x[k * n + q];
        }
        for (std::size_t q = 0; q < n; ++q) x[i * n + q] = Rounded(x[i * n + q] / a[i * n + i]);
    }
    FMatrix inverse(m_n, m_n);
    float* const to = GetBlock(inverse);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t q = 0; q < n; ++q)
            to[i * n + static_cast<std::size_t>(m_Rows[q])] = static_cast<float>(x[i * n + q]);
    }
    return inverse;
}

}  // namespace korvane_detail
