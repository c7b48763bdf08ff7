// Least squares behind the pose estimators.
#pragma once

#include "FMatrix.h"
#include "Matrix3.h"

namespace korvane_detail {

/// A rotation, and the translation that follows it.
struct Pose {
    Matrix3 m_Rotation;
    Double3 m_Translation;

    Double3 Apply(const Double3& p) const { return m_Rotation * p + m_Translation; }
};

/// Corresponding points, as the rows of two n x 3 matrices; a view.
class PointPairs {
public:
    PointPairs(const FMatrix& from, const FMatrix& to) : m_From(from), m_To(to) {}

    int Count() const { return m_From.nrows(); }
    Double3 From(int i) const { return ToDouble3(m_From[i]); }
    Double3 To(int i) const { return ToDouble3(m_To[i]); }
    double Error(const Pose& pose, int i) const { return Length(pose.Apply(From(i)) - To(i)); }

private:
    const FMatrix& m_From;
    const FMatrix& m_To;
};

/// The rigid pose with the smallest weighted sum of squared errors.
class PoseFit {
public:
    explicit PoseFit(const PointPairs& pairs);

    /// `index` chooses n of the pairs (null: the first n), `weights` belongs to all pairs (null: 1 each). False where
    /// the points do not determine a pose: they lie on a line, or together.
    bool Solve(const float* weights, const int* index, int n);
    const Pose& GetPose() const { return m_Pose; }
    /// Whether a mirroring would have fitted better.
    bool IsMirrored() const { return m_bMirrored; }
    /// The distance between neighbouring floats at the largest coordinate of either set.
    double GetRounding() const { return m_Rounding; }

private:
    double GetSpread(const Matrix3& scatter, double weight) const;

    const PointPairs& m_Pairs;
    double m_Rounding = 0.0;
    Pose m_Pose;
    bool m_bMirrored = false;
};

}  // namespace korvane_detail
