// Progress of a long operation, told to one callback object.
#pragma once

#include "../base/Export.h"

/// The host derives from this class and hands an object to an operation (`SetCallback`); the object stays the host's
/// and must outlive the operation.
///
/// `OnProgress` returns TRUE TO STOP. The base handler returns true, so an object of this very class stops the work at
/// the first change: a host overrides it and returns false to let the work go on. (`CPercentConsumer` has the opposite
/// polarity.)
///
/// Counts are 32 bits wide whatever the width of a `long`, and wrap around; above 21,474,836 units of work the product
/// with 100 does too.
class KORVANE_API CPercent {
public:
    CPercent();
    CPercent(const CPercent& other);
    CPercent& operator=(const CPercent& other);
    virtual ~CPercent();

    /// Called with 0 to 100 whenever the percentage has changed. True asks the operation to stop.
    virtual bool OnProgress(short percent);

    /// The units of work of the whole operation; 0 counts as 1.
    virtual void SetTotElab(long total);

    /// Begins a run: no work done, 0 percent. The total stays.
    void StartProgress();

    /// Adds `delta` units of work. Calls `OnProgress` when the percentage differs from the last one reported, and
    /// returns its answer; else false. Above 100 percent the handler is called with 100 each time.
    bool FireProgress(long delta);

    short GetPercent();
    long GetElab();
    long GetTotElab();

protected:
    long m_lTotElab = 1;
    long m_lElab = 0;
    short m_nPercent = 0;
};
