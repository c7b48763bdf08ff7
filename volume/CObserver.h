// Who wants to be told when something changes.
#pragma once

#include "../base/Export.h"

class CObserved;

/// Registered with `CObserved::AddObserver`, which does not take ownership.
class KORVANE_API CObserver {
public:
    CObserver();
    CObserver(const CObserver& other);
    CObserver& operator=(const CObserver& other);
    virtual ~CObserver();

    /// `source` has changed.
    virtual void OnChanged(CObserved* source) = 0;
};
