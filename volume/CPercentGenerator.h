// Progress of a long operation, told to any number of observers.
#pragma once

#include "../base/Export.h"
#include "CObserved.h"

/// Call `SetTotElab` and `StartProgress`, then `SetProgress` as the work goes on. The arithmetic is that of `CPercent`.
/// An observer that is a `CPercentConsumer` can ask for the work to stop; the request stands until `StartProgress`.
class KORVANE_API CPercentGenerator : public CObserved {
public:
    CPercentGenerator();
    CPercentGenerator(const CPercentGenerator& other);
    CPercentGenerator& operator=(const CPercentGenerator& other);
    ~CPercentGenerator() override;

    /// The units of work of the whole operation; 0 counts as 1.
    virtual void SetTotElab(long total);

    /// Begins a run: no work done, 0 percent, no request to stop. The total stays.
    void StartProgress();

    /// Adds `delta` units of work. When the percentage differs from the last one, tells every observer and returns
    /// whether anyone has asked to stop in this run. False when it has not changed, even after such a request.
    bool SetProgress(long delta);

protected:
    friend class CPercentConsumer;

    long m_lTotElab = 1;
    long m_lElab = 0;
    short m_nPercent = 0;
    bool m_bCancel = false;
};
