#include "CPercent.h"

#include "base/Layout.h"

#include "ProgressStep.h"

#include <cstddef>

CPercent::CPercent() = default;
CPercent::CPercent(const CPercent& other) = default;
CPercent& CPercent::operator=(const CPercent& other) = default;
CPercent::~CPercent() {
    static_assert(platform::LieInOrder(
        {offsetof(CPercent, m_lTotElab), offsetof(CPercent, m_lElab), offsetof(CPercent, m_nPercent)}));
}

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
