#include "CObserved.h"

#include "CObserver.h"

CObserved::CObserved() = default;
CObserved::CObserved(const CObserved& other) = default;
CObserved& CObserved::operator=(const CObserved& other) = default;
CObserved::~CObserved() = default;

void CObserved::AddObserver(CObserver* observer) {
    m_Observers.push_back(observer);
}

void CObserved::Clear() {
    m_Observers.clear();
}

void CObserved::FireOnChanged() {
    for (CObserver* const observer : m_Observers) {
        observer->OnChanged(this);
    }
}
