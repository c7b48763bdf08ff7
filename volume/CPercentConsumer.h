// Turns a generator's notification into a call with the percentage.
#pragma once

#include "../base/Export.h"
#include "CObserved.h"

/// A base for hosts that follow a `CPercentGenerator`. It is no `CObserver` itself: a host class derives from both and
/// passes the notification on.
///
///     class Bar : public CObserver, public CPercentConsumer {
///         void OnChanged(CObserved* source) override { CPercentConsumer::OnChanged(source); }
///         bool OnProgress(short percent) override { return Draw(percent); }
///     };
class KORVANE_API CPercentConsumer : public CObserved {
public:
    CPercentConsumer();
    CPercentConsumer(const CPercentConsumer& other);
    CPercentConsumer& operator=(const CPercentConsumer& other);

protected:
    ~CPercentConsumer() override;

    /// Called with 0 to 100. TRUE TO GO ON, false to stop: the opposite of `CPercent::OnProgress`.
    virtual bool OnProgress(short percent) = 0;

    /// To be called with a `CPercentGenerator` (anything else is ignored). Calls `OnProgress` with its percentage and
    /// sets its request to stop when the answer is false; never takes one back.
    void OnChanged(CObserved* source);
};
