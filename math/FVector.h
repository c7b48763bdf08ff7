// Single-precision vectors.
#pragma once

#include "../base/Export.h"

#include <concepts>
#include <initializer_list>
#include <iosfwd>
#include <type_traits>

class FMatrix;

/// A vector of `dim()` floats. Sums and products run in double; an element is rounded when it is stored.
///
/// Elements are read and written through the conversion to `float*` (`v[i]`), without a bounds check. They lie inside
/// the object up to dimension 4 and in a heap block beyond, so a pointer to them does not outlive the object, a change
/// of dimension or an assignment. A new block is not initialised.
///
/// Failures are exceptions: `DimException` for dimensions that do not match, `ZeroException` for a divisor that is
/// exactly 0, `MemException` for a negative dimension and for memory that cannot be had (the vector is then empty,
/// after `resize` unchanged).
///
/// The reference count is for `PtFVector` alone; copies begin with 0. It is not atomic.
class KORVANE_API FVector {
public:
    FVector() {}
    explicit FVector(int n);
    /// Copies `n` elements; a null pointer gives zeros.
    FVector(const float* elements, int n);
    /// The elements, as in `FVector v{1.5, 2}` or `FVector v = {1, 2, 3}`. One or two integers in braces are no
    /// elements: they are a dimension, or a null pointer and a dimension.
    template <std::floating_point Real>
    FVector(std::initializer_list<Real> elements);
    template <typename... Numbers>
    requires(sizeof...(Numbers) > 1 && (std::is_arithmetic_v<Numbers> && ...) &&
             (sizeof...(Numbers) > 2 || (std::floating_point<Numbers> || ...))) FVector(Numbers... elements);
    FVector(const FVector& other);
    FVector(FVector&& other) noexcept;
    virtual ~FVector();

    /// Takes the dimension and the elements.
    FVector& operator=(const FVector& other);
    FVector& operator=(FVector&& other) noexcept;
    /// Sets every element.
    FVector& operator=(double value);

    /// Counts one reference and returns the address, so that a `PtFVector` can be made from a vector that is not its
    /// own: such a vector is never destroyed by the handle.
    FVector* operator&();

    // ---- Storage

    int dim() const { return m_nDim; }
    /// True while the vector has storage of its own.
    bool IsVectorCreated() const { return m_bOwner; }
    /// The elements; null after construction or `size` with dimension 0.
    float* GetPointer() { return m_pElements; }
    const float* GetPointer() const { return m_pElements; }
    operator float*() { return m_pElements; }
    operator const float*() const { return m_pElements; }

    /// Dimension n, contents lost; nothing happens when the dimension is n already.
    void size(int n);
    /// Dimension n. Shrinking, down to 0 too, only lowers the dimension: the storage stays. Growing keeps the old
    /// elements in front, what follows them is not initialised.
    void resize(int n);
    /// No storage, dimension 0.
    void free();
    /// Takes the dimension and copies; the source may lie inside this vector. A null pointer gives zeros.
    void assign(const float* elements, int n);

    // ---- Elements

    FVector& set(double value);
    FVector& zero() { return set(0.0); }
    /// Every element becomes 1: this is not a basis vector.
    FVector& unity() { return set(1.0); }
    /// Every element becomes its absolute value.
    FVector& abs();
    /// Largest and smallest element.
    float max() const;
    float min() const;

    // ---- Arithmetic

    FVector& operator+=(const FVector& other);
    FVector& operator-=(const FVector& other);
    FVector& operator+=(double scalar);
    FVector& operator-=(double scalar);
    FVector& operator*=(double scalar);
    FVector& operator/=(double scalar);
    /// Adds scale * other.
    FVector& add(const FVector& other, double scale);

    /// Euclidean length; 0 for an empty vector.
    float mod() const;
    /// Makes the length 1 and returns what it was. A vector not longer than 1e-10 stays as it is; the result is then 0.
    float normalize();
    /// The angle between this vector and `other` in radians, 0 to pi, for dimensions 2 and 3. `axis` becomes the
    /// normalised cross product; where that vanishes the angle is 0, for opposite vectors too.
    float GetAngle(const FVector& other, FVector& axis) const;
    /// `v` as a matrix of one column.
    static FMatrix transpose(const FVector& v);

    /// Reads as `>>` does, behind comment lines that begin with '#'. At most 1024 characters of a line are skipped as a
    /// comment.
    std::istream& load(std::istream& in);

private:
    friend class PtFVector;
    static constexpr int kInside = 4;

    void init(int n);
    void allocate(int n, const char* operation);
    void release();
    void copyElements(const float* elements);
    void take(FVector& other);
    bool isInside() const { return m_pElements == m_Inside; }

    int m_nRef = 0;
    int m_nDim = 0;
    float* m_pElements = nullptr;
    bool m_bOwner = false;
    float m_Inside[kInside] = {};
};

template <std::floating_point Real>
FVector::FVector(std::initializer_list<Real> elements) : FVector(static_cast<int>(elements.size())) {
    float* to = m_pElements;
    for (const Real element : elements) *to++ = static_cast<float>(element);
}

template <typename... Numbers>
requires(sizeof...(Numbers) > 1 && (std::is_arithmetic_v<Numbers> && ...) &&
         (sizeof...(Numbers) > 2 || (std::floating_point<Numbers> || ...))) FVector::FVector(Numbers... elements)
    : FVector{static_cast<float>(elements)...} {}

// ---- Element by element; the result has the dimension of the (first) vector.

/// Not checked: where `b` is shorter, its missing elements count as 0.
KORVANE_API FVector operator+(const FVector& a, const FVector& b);
KORVANE_API FVector operator-(const FVector& a, const FVector& b);
KORVANE_API FVector operator/(const FVector& a, const FVector& b);
KORVANE_API FVector operator+(const FVector& a, double s);
KORVANE_API FVector operator+(double s, const FVector& a);
KORVANE_API FVector operator-(const FVector& a, double s);
KORVANE_API FVector operator-(double s, const FVector& a);
KORVANE_API FVector operator*(const FVector& a, double s);
KORVANE_API FVector operator*(double s, const FVector& a);
KORVANE_API FVector operator/(const FVector& a, double s);
/// An element that is exactly 0 is a `DimException` here.
KORVANE_API FVector operator/(double s, const FVector& a);
inline FVector operator-(const FVector& a) {
    return a * -1.0;
}

/// With integer scalars. Without these, `v + 1` would be ambiguous: a vector also converts to a pointer, which takes an
/// integer.
template <std::integral Integer>
FVector operator+(const FVector& a, Integer s) {
    return a + static_cast<double>(s);
}
template <std::integral Integer>
FVector operator+(Integer s, const FVector& a) {
    return a + static_cast<double>(s);
}
template <std::integral Integer>
FVector operator-(const FVector& a, Integer s) {
    return a - static_cast<double>(s);
}

// ---- Products

/// Dot product.
KORVANE_API float operator*(const FVector& a, const FVector& b);
/// Cross product of two vectors of dimension 3, or of dimension 2 (z taken as 0): always of dimension 3.
KORVANE_API FVector operator^(const FVector& a, const FVector& b);

// ---- Comparison

/// Same dimension, and every element exactly equal.
KORVANE_API bool operator==(const FVector& a, const FVector& b);
KORVANE_API bool operator!=(const FVector& a, const FVector& b);
/// The order is that of the lengths.
KORVANE_API bool operator<(const FVector& a, const FVector& b);
KORVANE_API bool operator>(const FVector& a, const FVector& b);
/// Not greater, not less: both hold where a length is NaN.
KORVANE_API bool operator<=(const FVector& a, const FVector& b);
KORVANE_API bool operator>=(const FVector& a, const FVector& b);

// ---- Text: the dimension, then the elements, with single blanks between and no line end. Numbers follow the stream's
//      format flags, but not its locale: the decimal separator is a point.

KORVANE_API std::ostream& operator<<(std::ostream& out, const FVector& v);
/// Where the text is not a vector the stream fails and `v` stays as it was. Memory grows with what is there, not with
/// the dimension that the text claims.
KORVANE_API std::istream& operator>>(std::istream& in, FVector& v);
