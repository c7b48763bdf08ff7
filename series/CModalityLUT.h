// The rescale of stored values to modality units.
#pragma once

#include "../base/Export.h"

class DICOMDataObject;

/// The linear modality rescale of a data set (PS3.3 C.11.1): modality value = stored value * slope + intercept.
///
/// Results are truncated toward zero and lie in the range of 32 bits; of a `long` argument the low 32 bits count. A
/// slope of 0 is not guarded against: MapInvValue then saturates.
class KORVANE_API CModalityLUT {
public:
    /// Identity: slope 1, intercept 0.
    CModalityLUT();

    /// Reads the rescale of `ddo` (may be null). Sets no defaults: when `ddo` lacks either element both values are
    /// indeterminate. That is kept for callers' sake; where the elements may be missing, construct the identity and call
    /// SetDDO.
    explicit CModalityLUT(DICOMDataObject* ddo);

    CModalityLUT(const CModalityLUT&) = default;
    CModalityLUT& operator=(const CModalityLUT&) = default;
    virtual ~CModalityLUT();

    /// Takes Rescale Intercept (0028,1052) and Rescale Slope (0028,1053), only when both are there with a value;
    /// otherwise nothing changes.
    void SetDDO(DICOMDataObject* ddo);

    void SetRescale(float slope);
    void SetIntercept(float intercept);
    float GetRescale() const;
    float GetIntercept() const;

    /// v * slope + intercept, and (v - intercept) / slope.
    long MapValue(long v) const;
    long MapInvValue(long v) const;

private:
    float m_fRescale;
    float m_fIntercept;
};
