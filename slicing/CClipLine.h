// Clips a parametric line to a box.
#pragma once

#include "../base/Export.h"

/// An axis-parallel box, and the part of a line that lies in it. Borders belong to the box. Lengths are whatever the
/// caller counts in; the slicer clips each row of its picture once, in voxels, and then samples without bounds tests.
///
///     CClipLine box(low, high);
///     double from, to;
///     if (box.Clip(start, direction, from, to)) ...   // start + t * direction is inside for from <= t <= to
///
/// Nothing here fails: a line that misses the box, a box without inside (some low above its high) and starts and
/// directions that are not finite give false.
class KORVANE_API CClipLine {
public:
    /// The box that holds the origin alone.
    CClipLine();
    CClipLine(const double (&low)[3], const double (&high)[3]);
    CClipLine(const CClipLine& other);
    CClipLine& operator=(const CClipLine& other);
    virtual ~CClipLine();

    void SetBox(const double (&low)[3], const double (&high)[3]);

    /// The parameters at which the line enters and leaves, from <= to, infinite for a direction of zeros inside the
    /// box. False, and `from` and `to` stay, when no point of the line is inside.
    bool Clip(const double (&start)[3], const double (&direction)[3], double& from, double& to) const;

    /// The samples start + i * step, 0 <= i < count, that are in the box: first <= i <= last. A border is met exactly
    /// where the sample, computed in double as written here, is on it. False, and `first` and `last` stay, when there is
    /// none.
    bool ClipSamples(const double (&start)[3], const double (&step)[3], int count, int& first, int& last) const;

private:
    double m_Low[3] = {0, 0, 0};
    double m_High[3] = {0, 0, 0};
};
