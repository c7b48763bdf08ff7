// Transforms between coordinate systems.
#pragma once

#include "FLine.h"
#include "FMatrix.h"
#include "FPlane.h"
#include "FPoint.h"
#include "FSegment.h"

#include <iosfwd>

namespace korvane_detail {
struct Matrix3;
struct Double3;
}  // namespace korvane_detail

/// An affine transform of space, as between voxel indices and patient millimetres: a homogeneous 4 x 4 matrix, applied
/// from the left, with the last row (0, 0, 0, 1).
///
///     point = voxelToPatient * FPoint(i, j, k);
///     FTransform voxelToCamera = patientToCamera * voxelToPatient;   // the right one first
///
/// Elements are doubles, so that chains of transforms lose nothing; what they are applied to is rounded to float once,
/// when it is stored. A transform made from an `FMatrix` is as exact as its floats are.
///
/// Angles are in radians. They turn counter-clockwise for somebody towards whom the axis points.
///
/// Failures: `DimException` for matrices and vectors of other shapes, `ZeroException` for axes without length and for
/// transforms that have no inverse.
class KORVANE_API FTransform {
public:
    /// The identity.
    FTransform();
    /// From a 4 x 4 matrix whose last row is (0, 0, 0, w), w not 0, or from the 3 x 3 linear part alone.
    explicit FTransform(const FMatrix& matrix);
    /// From the 3 x 3 linear part and the translation, which is added to its product with a point.
    FTransform(const FMatrix& rotation, const FVector& translation);
    /// A rotation about an axis through the origin, or through `center`.
    FTransform(const FVector& axis, double angle);
    FTransform(const FVector& axis, double angle, const FPoint& center);
    /// A rotation about x by angles[0], then about the fixed y by angles[1], then about the fixed z by angles[2]; then
    /// the translation.
    FTransform(const FVector& angles, const FVector& translation);
    /// An image plane (PS3.3 C.7.6.2.1.1): voxel indices (i, j, k) = (column, row, plane) to patient millimetres. `row`
    /// and `column` are the direction cosines of Image Orientation (Patient), made to have length 1; `origin` is Image
    /// Position (Patient), the centre of voxel (0, 0, 0). `columnSpacing` is the way from one column to the next, the
    /// second value of Pixel Spacing, `rowSpacing` that from row to row, the first value, `planeSpacing` the way along
    /// row ^ column from plane to plane, negative where they are stacked the other way.
    FTransform(const FVector& row, const FVector& column, const FPoint& origin, double columnSpacing, double rowSpacing,
               double planeSpacing = 1.0);
    FTransform(const FTransform& other);

    FTransform& operator=(const FTransform& other);

    /// As the constructors. After an exception the transform is what it was.
    void Init();
    void Init(const FMatrix& matrix);
    void Init(const FMatrix& rotation, const FVector& translation);
    void Init(const FVector& axis, double angle);
    void Init(const FVector& axis, double angle, const FPoint& center);
    void Init(const FVector& angles, const FVector& translation);
    void Init(const FVector& row, const FVector& column, const FPoint& origin, double columnSpacing, double rowSpacing,
              double planeSpacing = 1.0);

    /// The 4 x 4 matrix, rounded to float.
    FMatrix GetMatrix() const;
    /// Its 3 x 3 linear part, rounded to float: the rotation of a rigid transform.
    FMatrix GetRotation() const;
    /// Where the origin goes.
    FVector GetTranslation() const;
    /// One element in full precision, both indices 0 to 3.
    double operator()(int i, int j) const;

    /// The three angles and the translation of which the constructor from angles makes this transform again; angles[1]
    /// lies between -pi/2 and pi/2, the others between -pi and pi. At +-pi/2 the first and third turn about the same
    /// axis: the third is then 0. Of a transform that scales or shears the angles are those of the nearest rotation.
    /// One that mirrors or is singular has none: `ZeroException`.
    void Decompose(FVector& angles, FVector& translation) const;

    /// Whether lengths and handedness stay: the columns of the linear part have length 1 and are perpendicular, both to
    /// `tolerance`, and it does not mirror.
    bool IsRigid(double tolerance = 1e-5) const;

    /// This transform becomes *this * other.
    FTransform& operator*=(const FTransform& other);

    /// Reads as `>>` does, behind comment lines that begin with '#'.
    std::istream& load(std::istream& in);

private:
    KORVANE_API friend FTransform operator*(const FTransform& a, const FTransform& b);
    KORVANE_API friend FTransform inv(const FTransform& t);
    KORVANE_API friend FPoint operator*(const FTransform& t, const FPoint& p);
    KORVANE_API friend FVector operator*(const FTransform& t, const FVector& v);
    KORVANE_API friend FPlane operator*(const FTransform& t, const FPlane& p);
    friend class Haralick3d;

    FTransform(const korvane_detail::Matrix3& linear, const korvane_detail::Double3& translation, bool isRotation);
    korvane_detail::Matrix3 linear() const;
    korvane_detail::Double3 translation() const;

    double m_Rows[3][4];
    bool m_bRotation;  // the linear part is a rotation to double precision: its transpose is its inverse
};

/// The transform that applies `b` first, then `a`.
KORVANE_API FTransform operator*(const FTransform& a, const FTransform& b);
/// The inverse; that of a rigid transform is as cheap as applying the transform. However small the spacings are, a
/// `ZeroException` is thrown only where the columns of the linear part lie in one plane to 12 digits.
KORVANE_API FTransform inv(const FTransform& t);

/// Moves a point.
KORVANE_API FPoint operator*(const FTransform& t, const FPoint& p);
/// Turns and scales a vector of dimension 3, but does not move it.
KORVANE_API FVector operator*(const FTransform& t, const FVector& v);
/// Moves the base point and turns the direction, whose length goes with the scale.
KORVANE_API FLine operator*(const FTransform& t, const FLine& l);
/// Moves `GetP0()` and turns the direction, and so moves `GetP1()`.
KORVANE_API FSegment operator*(const FTransform& t, const FSegment& s);
/// The plane of the moved points. a x + b y + c z + d has the same value for a moved point as the old plane had for the
/// point, so the normal keeps its length where the transform is rigid. Singular transforms are a `ZeroException`.
KORVANE_API FPlane operator*(const FTransform& t, const FPlane& p);

/// As the 4 x 4 matrix: four lines, the shape not written; and back, with "4 4" in front. Where the text is not an
/// affine transform the stream fails and `t` stays as it was.
KORVANE_API std::ostream& operator<<(std::ostream& out, const FTransform& t);
KORVANE_API std::istream& operator>>(std::istream& in, FTransform& t);
