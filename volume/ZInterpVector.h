// One sample of a volume's z-interpolation table.
#pragma once

#include "../base/Layout.h"

class CImagePlane;

/// The two planes around one evenly spaced z sample of a volume, and how much each of them counts.
///
/// Table of records: `CVolume::UpdateZInterpArray`. "low" is the plane met first going from plane 0 to the last one,
/// whichever way z runs.
struct ZInterpVector {
    int m_nLow = 0;                  ///< Index of the plane at or before the sample.
    int m_nHigh = 0;                 ///< Index of the plane after it; `m_nLow` where the two coincide.
    CImagePlane* m_pLow = nullptr;   ///< Plane `m_nLow`: the volume's, and valid until its planes change.
    CImagePlane* m_pHigh = nullptr;  ///< Plane `m_nHigh`.
    float m_wHigh = 0;               ///< Weight of the high plane, S(t): see `CVolume::UpdateZInterpArray`.
    float m_wLow = 0;                ///< Weight of the low plane, S(1 - t).
    float m_t = 0;                   ///< Linear position between the planes: 0 at the low one, 1 at the high one.
    float m_z = 0;                   ///< z of the sample in millimetres, measured from plane 0; has z's direction.
    float m_zLowVox = 0;             ///< |z(low) - z(plane 0)| in voxel sizes.
    float m_zHighVox = 0;            ///< |z(high) - z(plane 0)| in voxel sizes.
};

static_assert(platform::HasSize32<ZInterpVector>(40), "ten 32-bit fields");
