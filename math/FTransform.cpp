#include "FTransform.h"

#include "Exception.h"
#include "Matrix3.h"

#include <algorithm>
#include <cmath>
#include <istream>
#include <ostream>

using korvane_detail::Cross;
using korvane_detail::Decomposition3;
using korvane_detail::Determinant;
using korvane_detail::Dot;
using korvane_detail::Double3;
using korvane_detail::GetElement;
using korvane_detail::Length;
using korvane_detail::Matrix3;
using korvane_detail::ToDouble3;
using korvane_detail::ToPoint;
using korvane_detail::Transpose;

namespace {

constexpr double kNoLength = 1e-10;  // as FVector::normalize has it
constexpr double kExact = 1e-14;

Double3 GetUnit(const Double3& a, const char* operation) {
    const double length = Length(a);
    if (!(length > kNoLength) || !std::isfinite(length)) throw ZeroException(operation);
    return a * (1.0 / length);
}

double GetDeviation(const Matrix3& a) {
    const Matrix3 squares = Transpose(a) * a;
    double deviation = 0.0;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            const double here = std::fabs(squares.m[i][j] - (i == j ? 1.0 : 0.0));
            if (!(here <= deviation)) deviation = here;  // NaN stays
        }
    }
    return deviation;
}

bool IsRotation(const Matrix3& a, double tolerance) {
    return GetDeviation(a) <= tolerance && Determinant(a) > 0.0;
}

Matrix3 ReadLinear(const FMatrix& m, double scale) {
    Matrix3 linear;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) linear.m[i][j] = m[i][j] * scale;
    }
    return linear;
}

// Rodrigues' formula.
Matrix3 RotateAbout(const Double3& u, double angle) {
    const double cosine = std::cos(angle);
    const double sine = std::sin(angle);
    const double half = std::sin(angle / 2.0);
    const double versine = 2.0 * half * half;  // 1 - cosine, exact for small angles too
    Matrix3 r;
    r.SetColumn(0, u * (u.x * versine) + Double3{cosine, u.z * sine, -u.y * sine});
    r.SetColumn(1, u * (u.y * versine) + Double3{-u.z * sine, cosine, u.x * sine});
    r.SetColumn(2, u * (u.z * versine) + Double3{u.y * sine, -u.x * sine, cosine});
    return r;
}

Matrix3 Invert(const Matrix3& a, const char* operation) {
    const Double3 x = a.Column(0);
    const Double3 y = a.Column(1);
    const Double3 z = a.Column(2);
    const Double3 yz = Cross(y, z);
    const double determinant = Dot(x, yz);
    const double most = Length(x) * Length(y) * Length(z);
    if (!(std::fabs(determinant) > 1e-12 * most) || !std::isfinite(most)) throw ZeroException(operation);
    Matrix3 rows;
    rows.SetColumn(0, yz * (1.0 / determinant));
    rows.SetColumn(1, Cross(z, x) * (1.0 / determinant));
    rows.SetColumn(2, Cross(x, y) * (1.0 / determinant));
    return Transpose(rows);
}

FVector ToVector(const Double3& a) {
    return ToPoint(a);
}

}  // namespace

// ---- Construction

FTransform::FTransform() {
    Init();
}

FTransform::FTransform(const FMatrix& matrix) {
    Init(matrix);
}

FTransform::FTransform(const FMatrix& rotation, const FVector& translation) {
    Init(rotation, translation);
}

FTransform::FTransform(const FVector& axis, double angle) {
    Init(axis, angle);
}

FTransform::FTransform(const FVector& axis, double angle, const FPoint& center) {
    Init(axis, angle, center);
}

FTransform::FTransform(const FVector& angles, const FVector& translation) {
    Init(angles, translation);
}

FTransform::FTransform(const FVector& row, const FVector& column, const FPoint& origin, double columnSpacing,
                       double rowSpacing, double planeSpacing) {
    Init(row, column, origin, columnSpacing, rowSpacing, planeSpacing);
}

FTransform::FTransform(const Matrix3& linear, const Double3& translation, bool isRotation) : m_bRotation(isRotation) {
    for (int i = 0; i < 3; ++i) std::copy_n(linear.m[i], 3, m_Rows[i]);
    m_Rows[0][3] = translation.x;
    m_Rows[1][3] = translation.y;
    m_Rows[2][3] = translation.z;
}

FTransform::FTransform(const FTransform& other) = default;

FTransform& FTransform::operator=(const FTransform& other) = default;

void FTransform::Init() {
    *this = FTransform(Matrix3(), Double3(), true);
}

void FTransform::Init(const FMatrix& matrix) {
    constexpr double kAffine = 1e-6;  // what inverting or multiplying matrices leaves there
    const int n = matrix.nrows();
    if (n != matrix.ncols() || (n != 3 && n != 4)) throw DimException("FTransform::Init(FMatrix)");
    double scale = 1.0;
    Double3 translation;
    if (n == 4) {
        const double w = matrix[3][3];
        if (w == 0.0) throw ZeroException("FTransform::Init(FMatrix)");
        scale = 1.0 / w;
        if (!(Length(ToDouble3(matrix[3])) <= kAffine * std::fabs(w))) throw DimException("FTransform::Init(FMatrix)");
        translation = Double3{matrix[0][3], matrix[1][3], matrix[2][3]} * scale;
    }
    const Matrix3 linear = ReadLinear(matrix, scale);
    *this = FTransform(linear, translation, IsRotation(linear, kExact));
}

void FTransform::Init(const FMatrix& rotation, const FVector& translation) {
    if (rotation.nrows() != 3 || rotation.ncols() != 3 || translation.dim() != 3) {
        throw DimException("FTransform::Init(FMatrix, FVector)");
    }
    const Matrix3 linear = ReadLinear(rotation, 1.0);
    *this = FTransform(linear, ToDouble3(translation), IsRotation(linear, kExact));
}

void FTransform::Init(const FVector& axis, double angle) {
    Init(axis, angle, FPoint());
}

void FTransform::Init(const FVector& axis, double angle, const FPoint& center) {
    constexpr const char* kOperation = "FTransform::Init(FVector, double)";
    if (axis.dim() != 3) throw DimException(kOperation);
    const Matrix3 linear = RotateAbout(GetUnit(ToDouble3(axis), kOperation), angle);
    const Double3 fixed = ToDouble3(center);
    *this = FTransform(linear, fixed - linear * fixed, true);
}

void FTransform::Init(const FVector& angles, const FVector& translation) {
    if (angles.dim() != 3 || translation.dim() != 3) throw DimException("FTransform::Init(FVector, FVector)");
    const Double3 a = ToDouble3(angles);
    const Matrix3 linear = RotateAbout({0, 0, 1}, a.z) * RotateAbout({0, 1, 0}, a.y) * RotateAbout({1, 0, 0}, a.x);
    *this = FTransform(linear, ToDouble3(translation), true);
}

void FTransform::Init(const FVector& row, const FVector& column, const FPoint& origin, double columnSpacing,
                      double rowSpacing, double planeSpacing) {
    constexpr const char* kOperation = "FTransform::Init(row, column)";
    if (row.dim() != 3 || column.dim() != 3) throw DimException(kOperation);
    const Double3 x = GetUnit(ToDouble3(row), kOperation);
    const Double3 y = GetUnit(ToDouble3(column), kOperation);
    const Double3 normal = Cross(x, y);
    if (!(Length(normal) > 1e-3)) throw ZeroException(kOperation);
    Matrix3 linear;
    linear.SetColumn(0, x * columnSpacing);
    linear.SetColumn(1, y * rowSpacing);
    linear.SetColumn(2, GetUnit(normal, kOperation) * planeSpacing);
    *this = FTransform(linear, ToDouble3(origin), IsRotation(linear, kExact));
}

// ---- Queries

Matrix3 FTransform::linear() const {
    Matrix3 linear;
    for (int i = 0; i < 3; ++i) std::copy_n(m_Rows[i], 3, linear.m[i]);
    return linear;
}

Double3 FTransform::translation() const {
    return {m_Rows[0][3], m_Rows[1][3], m_Rows[2][3]};
}

double FTransform::operator()(int i, int j) const {
    if (i == 3) return j == 3 ? 1.0 : 0.0;
    return m_Rows[i][j];
}

FMatrix FTransform::GetMatrix() const {
    FMatrix matrix(4, 4);
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) matrix[i][j] = static_cast<float>((*this)(i, j));
    }
    return matrix;
}

FMatrix FTransform::GetRotation() const {
    FMatrix matrix = GetMatrix();
    matrix.resize(3, 3);
    return matrix;
}

FVector FTransform::GetTranslation() const {
    return ToVector(translation());
}

void FTransform::Decompose(FVector& angles, FVector& translation) const {
    Matrix3 r = linear();
    if (!m_bRotation) {
        Invert(r, "FTransform::Decompose");
        if (Determinant(r) < 0.0) throw ZeroException("FTransform::Decompose");
        r = Decomposition3(r).GetRotation();
    }
    const double cosine = std::hypot(r.m[0][0], r.m[1][0]);
    Double3 a;
    a.y = std::atan2(-r.m[2][0], cosine);
    if (cosine > 1e-7) {
        a.x = std::atan2(r.m[2][1], r.m[2][2]);
        a.z = std::atan2(r.m[1][0], r.m[0][0]);
    } else {
        a.x = std::atan2(-r.m[1][2], r.m[1][1]);
    }
    angles = ToVector(a);
    translation = GetTranslation();
}

bool FTransform::IsRigid(double tolerance) const {
    return IsRotation(linear(), tolerance);
}

// ---- Products

FTransform& FTransform::operator*=(const FTransform& other) {
    *this = *this * other;
    return *this;
}

FTransform operator*(const FTransform& a, const FTransform& b) {
    const Matrix3 left = a.linear();
    return FTransform(left * b.linear(), left * b.translation() + a.translation(), a.m_bRotation && b.m_bRotation);
}

FTransform inv(const FTransform& t) {
    const Matrix3 linear = t.linear();
    const Matrix3 inverse = t.m_bRotation ? Transpose(linear) : Invert(linear, "inv(FTransform)");
    return FTransform(inverse, inverse * t.translation() * -1.0, t.m_bRotation);
}

FPoint operator*(const FTransform& t, const FPoint& p) {
    return ToPoint(t.linear() * ToDouble3(p) + t.translation());
}

FVector operator*(const FTransform& t, const FVector& v) {
    if (v.dim() != 3) throw DimException("operator*(FTransform, FVector)");
    return ToVector(t.linear() * ToDouble3(v));
}

FLine operator*(const FTransform& t, const FLine& l) {
    return FLine(t * l.GetP0(), t * l.GetDirection());
}

FSegment operator*(const FTransform& t, const FSegment& s) {
    return FSegment(t * s.GetP0(), t * s.GetDirection());
}

FPlane operator*(const FTransform& t, const FPlane& p) {
    const Matrix3 inverse = inv(t).linear();
    const FPoint normal = ToPoint(Transpose(inverse) * ToDouble3(p));
    // d goes with the normal as it is stored, or rounding would shift planes that are far from the origin.
    const double d = GetElement(p, 3) - Dot(ToDouble3(normal), t.translation());
    return {normal[0], normal[1], normal[2], static_cast<float>(d)};
}

// ---- Text

std::ostream& operator<<(std::ostream& out, const FTransform& t) {
    return out << t.GetMatrix();
}

namespace {

// The stream fails where what it gave is not an affine transform.
std::istream& Take(std::istream& in, const FMatrix& matrix, FTransform& t) {
    if (in.fail()) return in;
    try {
        t.Init(matrix);
    } catch (const Exception&) {
        in.setstate(std::ios_base::failbit);
    }
    return in;
}

}  // namespace

std::istream& operator>>(std::istream& in, FTransform& t) {
    FMatrix matrix;
    in >> matrix;
    return Take(in, matrix, t);
}

std::istream& FTransform::load(std::istream& in) {
    FMatrix matrix;
    matrix.load(in);
    return Take(in, matrix, *this);
}
