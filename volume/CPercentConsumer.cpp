#include "CPercentConsumer.h"

#include "CPercentGenerator.h"

CPercentConsumer::CPercentConsumer() = default;
CPercentConsumer::CPercentConsumer(const CPercentConsumer& other) = default;
CPercentConsumer& CPercentConsumer::operator=(const CPercentConsumer& other) = default;
CPercentConsumer::~CPercentConsumer() = default;

void CPercentConsumer::OnChanged(CObserved* source) {
    auto* const generator = dynamic_cast<CPercentGenerator*>(source);
    if (generator != nullptr && !OnProgress(generator->m_nPercent)) {
        generator->m_bCancel = true;
    }
}
