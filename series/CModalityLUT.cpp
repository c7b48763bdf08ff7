#include "CModalityLUT.h"

#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "base/Integer.h"
#include "base/Layout.h"
#include "base/Number.h"

#include <cstddef>

CModalityLUT::CModalityLUT() : m_fRescale(1.0F), m_fIntercept(0.0F) {}

CModalityLUT::CModalityLUT(DICOMDataObject* ddo) {
    if (ddo != nullptr) {
        SetDDO(ddo);
    }
}

CModalityLUT::~CModalityLUT() {
    static_assert(platform::LieInOrder({offsetof(CModalityLUT, m_fRescale), offsetof(CModalityLUT, m_fIntercept)}));
}

void CModalityLUT::SetDDO(DICOMDataObject* ddo) {
    const VR* intercept = ddo->GetVR(tags::RescaleIntercept);
    const VR* slope = ddo->GetVR(tags::RescaleSlope);
    if (intercept == nullptr || slope == nullptr || intercept->GetText().empty() || slope->GetText().empty()) {
        return;
    }
    m_fIntercept = static_cast<float>(platform::ParseReal(intercept->GetText()));
    m_fRescale = static_cast<float>(platform::ParseReal(slope->GetText()));
}

void CModalityLUT::SetRescale(float slope) {
    m_fRescale = slope;
}

void CModalityLUT::SetIntercept(float intercept) {
    m_fIntercept = intercept;
}

float CModalityLUT::GetRescale() const {
    return m_fRescale;
}

float CModalityLUT::GetIntercept() const {
    return m_fIntercept;
}

long CModalityLUT::MapValue(long v) const {
    return platform::TruncateToInt32(static_cast<double>(platform::Low32(v)) * m_fRescale + m_fIntercept);
}

long CModalityLUT::MapInvValue(long v) const {
    return platform::TruncateToInt32((platform::Low32(v) - double{m_fIntercept}) / m_fRescale);
}
