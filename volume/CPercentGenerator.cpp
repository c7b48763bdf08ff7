#include "CPercentGenerator.h"

#include "base/Layout.h"

#include "ProgressStep.h"

#include <cstddef>

CPercentGenerator::CPercentGenerator() = default;
CPercentGenerator::CPercentGenerator(const CPercentGenerator& other) = default;
CPercentGenerator& CPercentGenerator::operator=(const CPercentGenerator& other) = default;
CPercentGenerator::~CPercentGenerator() {
    static_assert(
        platform::LieInOrder({offsetof(CPercentGenerator, m_lTotElab), offsetof(CPercentGenerator, m_lElab),
                              offsetof(CPercentGenerator, m_nPercent), offsetof(CPercentGenerator, m_bCancel)}));
}

void CPercentGenerator::SetTotElab(long total) {
    m_lTotElab = platform::Low32(total);
}

void CPercentGenerator::StartProgress() {
    m_lElab = 0;
    m_nPercent = 0;
    m_bCancel = false;
}

bool CPercentGenerator::SetProgress(long delta) {
    if (!korvane_detail::AdvanceProgress(m_lElab, m_lTotElab, delta, m_nPercent)) {
        return false;
    }
    FireOnChanged();
    return m_bCancel;
}
