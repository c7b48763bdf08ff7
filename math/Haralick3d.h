// The rigid pose between two sets of corresponding points.
#pragma once

#include "FMatrix.h"
#include "FPoint.h"
#include "FTransform.h"
#include "FVector.h"

/// The rotation and translation that bring one set of points as near as possible to another, point by point: the sum of the
/// squared distances becomes smallest. From the singular values of the sets' correlation, in double throughout; the result
/// is exact to what the points' single precision allows.
///
///     Haralick3d pose(markersInImage, markersOnPatient, 6);
///     FPoint onPatient = pose.GetTransform() * inImage;
///
/// The result is always a rotation. Where a mirroring would fit better, as for points whose axes are swapped in one set,
/// `IsMirrored` is true and the errors are large.
///
/// At least three points that do not lie on a line are needed. Fewer, or sets of different size, are a `DimException`.
/// Points on a line (off it by less than 1e-5 of their extent, or by what single precision cannot tell), points that are
/// not finite and sets that do not determine a rotation together are a `ZeroException`. After an exception the pose is
/// what it was.
class KORVANE_API Haralick3d {
public:
    /// The identity, found from no points.
    Haralick3d();
    /// Point i of `from` belongs to point i of `to`; there are n of each.
    Haralick3d(const FPoint* from, const FPoint* to, int n);
    /// The points as the rows of two n x 3 matrices.
    Haralick3d(const FMatrix& from, const FMatrix& to);
    Haralick3d(const Haralick3d& other);
    virtual ~Haralick3d();

    Haralick3d& operator=(const Haralick3d& other);

    void Init(const FPoint* from, const FPoint* to, int n);
    void Init(const FMatrix& from, const FMatrix& to);

    /// The pose. Its elements are doubles; it is rigid to double precision.
    const FTransform& GetTransform() const { return m_Transform; }
    /// The pose in parts, rounded to float: 3 x 3 and 3 elements.
    FMatrix GetRotation() const;
    FVector GetTranslation() const;

    /// How many points there were.
    int GetCount() const { return m_Errors.dim(); }
    /// The distance that is left between each transformed point and its partner.
    const FVector& GetErrors() const { return m_Errors; }
    /// Their root mean square (weighted, where there are weights).
    double GetResidual() const { return m_Residual; }
    bool IsMirrored() const { return m_bMirrored; }

protected:
    /// n rows of three coordinates; a null pointer or a negative n is a `DimException`.
    static FMatrix toMatrix(const FPoint* points, int n);
    /// Throws where they are not two n x 3 matrices.
    static void requirePairs(const FMatrix& from, const FMatrix& to);
    /// As `Init`, with a weight for each point, not negative; null for equal weights.
    void fit(const FMatrix& from, const FMatrix& to, const float* weights);

private:
    FTransform m_Transform;
    FVector m_Errors;
    double m_Residual = 0.0;
    bool m_bMirrored = false;
};
