// Something that tells its observers of its changes.
#pragma once

#include "../base/Export.h"

#include <list>

class CObserver;

/// Keeps its observers in the order they were added. They are not owned: an observer must live until it is cleared from
/// the list or the list's owner has gone. Copies name the same observers in the same order.
class KORVANE_API CObserved {
public:
    CObserved();
    CObserved(const CObserved& other);
    CObserved& operator=(const CObserved& other);
    virtual ~CObserved();

    /// Appends an observer. Neither duplicates nor null are caught: the one is called twice, the other crashes.
    void AddObserver(CObserver* observer);

    /// Forgets every observer. Not to be called by an observer while it is being told of a change.
    void Clear();

protected:
    /// Calls `OnChanged(this)` on every observer in order.
    void FireOnChanged();

private:
    std::list<CObserver*> m_Observers;
};
