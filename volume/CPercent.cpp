#include "volume/CPercent.h"

#include "volume/ProgressStep.h"

CPercent::CPercent() = default;
CPercent::CPercent(const CPercent& other) = default;
CPercent& CPercent::operator=(const CPercent& other) = default;
CPercent::~CPercent() = default;

bool CPercent::OnProgress(short) {
    return true;
}

void CPercent::SetTotElab(long total) {
    m_lTotElab = platform::Low32(total);
}

void CPercent::StartProgress() {
    m_lElab = 0;
    m_nPercent = 0;
}

bool CPercent::FireProgress(long delta) {
    return korvane_detail::AdvanceProgress(m_lElab, m_lTotElab, delta, m_nPercent) && OnProgress(m_nPercent);
}

short CPercent::GetPercent() {
    return m_nPercent;
}

long CPercent::GetElab() {
    return m_lElab;
}

long CPercent::GetTotElab() {
    return m_lTotElab;
}
