// The planes of a reformatted volume's z axis, each from one plane of the source or from two.
#pragma once

#include "../volume/CVolume.h"

#include <vector>

namespace korvane_detail {

/// One position along z and the planes that make it up.
struct ZSample {
    int m_Low;
    int m_High;
    double m_Weight;  ///< of the high plane, S(t); 0 where the low plane is taken as it is
    double m_X;       ///< sideways offset of the position in millimetres: a tilted stack
    double m_Y;
    double m_Z;  ///< as planes count it
};

/// Begins with one sample for each plane.
class ZSampler {
public:
    /// Null, or why the volume cannot be read: planes, pixels or finite positions missing, or planes out of order.
    const char* Read(CVolume& volume);

    /// Whether no plane is off an even grid by more than a hundredth of the gap: positions are told in rounded numbers.
    bool IsEven() const;

    /// Whether no sample lies sideways of another.
    bool IsUpright() const;

    /// Goes over to the samples of the volume's z-interpolation table, which is brought up to date. Only their z is
    /// taken; the planes around it are searched, since the table falls behind where planes are close together.
    /// Throws `std::length_error` for a table that would be too long.
    void UseTable(CVolume& volume);

    const std::vector<ZSample>& GetSamples() const { return m_Samples; }
    /// Mean distance in millimetres; above 0.
    double GetSpacing() const { return m_Spacing; }

private:
    struct Place {
        double m_X;
        double m_Y;
        double m_Z;
    };

    const char* ReadPlaces(CVolume& volume, int count);
    void ForgetRounding(double tolerance);
    ZSample MakeSample(double distance) const;
    void SetSpacing(double single);

    std::vector<Place> m_Places;
    std::vector<double> m_Distances;  // from plane 0, never falling
    double m_Direction = 1;           // of z from plane to plane
    std::vector<ZSample> m_Samples;
    double m_Spacing = 1;
};

}  // namespace korvane_detail
