#include "CObserver.h"

CObserver::CObserver() = default;
CObserver::CObserver(const CObserver& other) = default;
CObserver& CObserver::operator=(const CObserver& other) = default;
CObserver::~CObserver() = default;
