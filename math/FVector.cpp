#include "FVector.h"

#include "Exception.h"
#include "FMatrix.h"
#include "base/Layout.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

// ---- Storage

FVector::FVector(int n) {
    init(n);
}

FVector::FVector(const float* elements, int n) {
    init(n);
    copyElements(elements);
}

FVector::FVector(const FVector& other) {
    init(other.m_nDim);
    std::copy_n(other.m_pElements, m_nDim, m_pElements);
}

FVector::FVector(FVector&& other) noexcept {
    take(other);
}

FVector::~FVector() {
    static_assert(platform::LieInOrder({offsetof(FVector, m_nRef), offsetof(FVector, m_nDim),
                                        offsetof(FVector, m_pElements), offsetof(FVector, m_bOwner)}));
    release();
}

FVector& FVector::operator=(const FVector& other) {
    if (this == std::addressof(other)) return *this;
    init(other.m_nDim);
    std::copy_n(other.m_pElements, m_nDim, m_pElements);
    return *this;
}

FVector& FVector::operator=(FVector&& other) noexcept {
    if (this == std::addressof(other)) return *this;
    release();
    take(other);
    return *this;
}

FVector& FVector::operator=(double value) {
    return set(value);
}

FVector* FVector::operator&() {
    ++m_nRef;
    return this;
}

void FVector::init(int n) {
    if (n == m_nDim) return;
    release();
    if (n != 0) allocate(n, "FVector::init");
}

// For a vector without storage; throws before anything has changed.
void FVector::allocate(int n, const char* operation) {
    if (n > kInside) {
        constexpr std::size_t kMost = PTRDIFF_MAX / sizeof(float);
        const auto count = static_cast<std::size_t>(n);
        m_pElements = count <= kMost ? new (std::nothrow) float[count] : nullptr;
        if (m_pElements == nullptr) throw MemException(operation);
    } else if (n > 0) {
        m_pElements = m_Inside;
    } else {
        throw MemException(operation);
    }
    m_nDim = n;
    m_bOwner = true;
}

void FVector::release() {
    if (m_bOwner && !isInside()) delete[] m_pElements;
    m_pElements = nullptr;
    m_nDim = 0;
    m_bOwner = false;
}

// Moves the elements into this vector, which has no storage; `other` is left empty.
void FVector::take(FVector& other) {
    m_nDim = other.m_nDim;
    m_bOwner = other.m_bOwner;
    if (other.isInside()) {
        std::copy_n(other.m_Inside, kInside, m_Inside);
        m_pElements = m_Inside;
    } else {
        m_pElements = other.m_pElements;
    }
    other.m_pElements = nullptr;
    other.m_nDim = 0;
    other.m_bOwner = false;
}

void FVector::size(int n) {
    init(n);
}

void FVector::resize(int n) {
    const bool insideStays = isInside() && n <= kInside;
    if (n >= 0 && (n <= m_nDim || insideStays)) {
        m_nDim = n;
        return;
    }
    FVector grown;
    grown.allocate(n, "FVector::resize(int)");
    std::copy_n(m_pElements, m_nDim, grown.m_pElements);
    *this = std::move(grown);
}

void FVector::free() {
    release();
}

void FVector::assign(const float* elements, int n) {
    if (n == m_nDim) {
        copyElements(elements);
    } else {
        *this = FVector(elements, n);
    }
}

void FVector::copyElements(const float* elements) {
    if (elements == nullptr) {
        zero();
    } else if (m_nDim > 0) {
        std::memmove(m_pElements, elements, static_cast<std::size_t>(m_nDim) * sizeof(float));
    }
}

// ---- Elements

FVector& FVector::set(double value) {
    std::fill_n(m_pElements, m_nDim, static_cast<float>(value));
    return *this;
}

FVector& FVector::abs() {
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] = std::fabs(m_pElements[i]);
    return *this;
}

float FVector::max() const {
    if (m_nDim == 0) throw DimException("FVector::max()");
    return *std::max_element(m_pElements, m_pElements + m_nDim);
}

float FVector::min() const {
    if (m_nDim == 0) throw DimException("FVector::min()");
    return *std::min_element(m_pElements, m_pElements + m_nDim);
}

// ---- Arithmetic

FVector& FVector::operator+=(const FVector& other) {
    if (m_nDim != other.m_nDim) throw DimException("FVector::operator+(FVector)");
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] += other.m_pElements[i];
    return *this;
}

FVector& FVector::operator-=(const FVector& other) {
    if (m_nDim != other.m_nDim) throw DimException("FVector::operator+=(FVector)");
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] -= other.m_pElements[i];
    return *this;
}

FVector& FVector::operator+=(double scalar) {
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] = static_cast<float>(m_pElements[i] + scalar);
    return *this;
}

FVector& FVector::operator-=(double scalar) {
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] = static_cast<float>(m_pElements[i] - scalar);
    return *this;
}

FVector& FVector::operator*=(double scalar) {
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] = static_cast<float>(m_pElements[i] * scalar);
    return *this;
}

FVector& FVector::operator/=(double scalar) {
    if (scalar == 0.0) throw ZeroException("FVector::operator/(FVector) ");
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] = static_cast<float>(m_pElements[i] / scalar);
    return *this;
}

FVector& FVector::add(const FVector& other, double scale) {
    if (m_nDim != other.m_nDim) throw DimException("FVector::Add(FVector, scale)");
    for (int i = 0; i < m_nDim; ++i) {
        m_pElements[i] = static_cast<float>(m_pElements[i] + scale * other.m_pElements[i]);
    }
    return *this;
}

namespace {

double Length(const float* elements, int n) {
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += static_cast<double>(elements[i]) * elements[i];
    return std::sqrt(sum);
}

}  // namespace

float FVector::mod() const {
    return static_cast<float>(Length(m_pElements, m_nDim));
}

float FVector::normalize() {
    const double length = Length(m_pElements, m_nDim);
    if (!(length > 1e-10)) return 0.0F;
    for (int i = 0; i < m_nDim; ++i) m_pElements[i] = static_cast<float>(m_pElements[i] / length);
    return static_cast<float>(length);
}

float FVector::GetAngle(const FVector& other, FVector& axis) const {
    constexpr double kPi = 3.141592653589793;
    const double a = mod();
    const double b = other.mod();
    const double c = (other - *this).mod();
    axis = *this ^ other;
    const double s = axis.normalize();
    if (s == 0.0) return 0.0F;
    double angle = std::asin(std::min(s / (b * a), 1.0));
    if (c * c > a * a + b * b) angle = kPi - angle;
    return static_cast<float>(angle);
}

FMatrix FVector::transpose(const FVector& v) {
    FMatrix column(v.dim(), 1);
    for (int i = 0; i < v.dim(); ++i) column[i][0] = v[i];
    return column;
}
