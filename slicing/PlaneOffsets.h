// How far the planes of a stack lie sideways of each other: a tilted gantry, a patient who moved.
#pragma once

#include "../volume/CVolume.h"

#include <vector>

namespace korvane_detail {

/// Planes closer than this coincide, as in the volume's own table; millimetres.
constexpr double kSamePlane = 1e-7;

/// Sideways offsets below this part of a pixel are rounding of the positions.
constexpr double kStraight = 1e-3;

/// Millimetres along the volume's rows and columns, measured from its origin.
struct PlaneOffset {
    double m_X = 0;
    double m_Y = 0;
};

/// Samples, `spacing` apart, that reach over all offsets from `low` to `high` and have one of them at `plane0`, the offset
/// of plane 0: a straight picture or volume then has that plane's voxels as they are.
struct StraightExtent {
    double m_First;  ///< at or below `low`
    int m_More;      ///< samples that are needed beside those of one plane
};
StraightExtent FindStraightExtent(double plane0, double low, double high, double spacing);

/// The offset at every z: that of a plane where one lies, in proportion between two planes, and carried on beyond the
/// first and the last. z counts from plane 0.
///
/// Offsets that are the same for all planes are no offsets: a stack whose host sets z alone has zeros there.
class PlaneOffsets {
public:
    struct Knot {
        double m_Z;
        PlaneOffset m_Offset;
    };

    /// What two offsets may differ by and still be the same, in millimetres.
    static double GetTolerance(CVolume& volume);

    /// False, and then upright, where a position is not finite.
    bool Read(CVolume& volume);

    /// All planes above each other.
    bool IsUpright() const { return m_Knots.empty(); }
    /// Upright, or sheared evenly from the first plane to the last: two knots.
    bool IsEven() const { return m_Knots.size() < 3; }
    PlaneOffset At(double z) const;

    /// In ascending z, at different z; none for an upright stack, the two ends for an even shear, else every plane.
    const std::vector<Knot>& GetKnots() const { return m_Knots; }

private:
    void DropLine(double tolerance);

    std::vector<Knot> m_Knots;
};

}  // namespace korvane_detail
