// The rigid pose between two sets of points of unequal worth.
#pragma once

#include "Haralick3d.h"

/// As `Haralick3d`, with a weight for each point: the weighted sum of the squared distances becomes smallest. The right
/// weight of a point is 1 / variance of its position; only the ratios of weights matter. A point whose weight is 0 takes
/// no part, though its error is given; so for weights that are negative or not finite. A `DimException` where fewer than
/// three weights are left.
///
/// `InitRobust` finds the weights too. It tells outliers, points that have nothing to do with their partners, from the
/// others by their errors, and leaves them out: with up to 30 % of them, wherever they lie and whatever they agree on, the
/// result is that of the other points alone (of up to nearly half, as a rule). It begins with the pose of three points for
/// which the median error is smallest, and then weighs by the errors and fits again until the weights stay: Tukey's
/// biweight, 0 beyond six standard deviations, and the standard deviation of a coordinate from the median absolute
/// deviation. The same points always give the same result.
class KORVANE_API Haralick3dWeighted : public Haralick3d {
public:
    Haralick3dWeighted();
    /// One weight for each of the n points; a null pointer gives equal ones.
    Haralick3dWeighted(const FPoint* from, const FPoint* to, const float* weights, int n);
    /// The points as the rows of two n x 3 matrices, and n weights.
    Haralick3dWeighted(const FMatrix& from, const FMatrix& to, const FVector& weights);
    Haralick3dWeighted(const Haralick3dWeighted& other);
    ~Haralick3dWeighted() override;

    Haralick3dWeighted& operator=(const Haralick3dWeighted& other);

    void Init(const FPoint* from, const FPoint* to, const float* weights, int n);
    void Init(const FMatrix& from, const FMatrix& to, const FVector& weights);

    /// Outliers and all. The weights are what is known of the points beforehand: they count towards the errors and are
    /// multiplied with the weights that are found.
    void InitRobust(const FPoint* from, const FPoint* to, int n, const float* weights = nullptr);
    void InitRobust(const FMatrix& from, const FMatrix& to);
    void InitRobust(const FMatrix& from, const FMatrix& to, const FVector& weights);

    /// The weights that the pose was found with. An outlier has 0.
    const FVector& GetWeights() const { return m_Weights; }
    /// The standard deviation of a coordinate of a point of weight 1, as `InitRobust` found it from the median; 0 after
    /// `Init`.
    double GetDeviation() const { return m_Deviation; }
    /// How often `InitRobust` fitted until the weights stayed; 0 after `Init`.
    int GetIterations() const { return m_nIterations; }

private:
    void robust(const FMatrix& from, const FMatrix& to, const FVector& given);

    FVector m_Weights;
    double m_Deviation = 0.0;
    int m_nIterations = 0;
};
