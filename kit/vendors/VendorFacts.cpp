#include "VendorFacts.h"

#include "Canon.h"
#include "Ge.h"
#include "Philips.h"
#include "Siemens.h"
#include "Uih.h"

#include <cmath>

namespace korvane {

namespace {

/// Directions as written are unit vectors but for rounding; zeros stand for none.
void Normalise(DiffusionFacts& facts) {
    if (!facts.direction) return;
    Vector3& v = *facts.direction;
    const double length = std::hypot(v[0], v[1], v[2]);
    if (!(length > 1e-6) || !std::isfinite(length)) {
        facts.direction.reset();
        return;
    }
    for (double& value : v) value /= length;
}

}  // namespace

TileFacts ReadTiles(const DICOMObject& dataSet) {
    TileFacts tiles = siemens::ReadTiles(dataSet);
    return tiles.count != 0 ? tiles : uih::ReadTiles(dataSet);
}

DiffusionFacts ReadPrivateDiffusion(const DICOMObject& holder) {
    for (const auto read : {siemens::ReadDiffusion, ge::ReadDiffusion, philips::ReadDiffusion, canon::ReadDiffusion,
                            uih::ReadDiffusion}) {
        DiffusionFacts facts = read(holder);
        if (std::isnan(facts.bValue)) continue;
        Normalise(facts);
        return facts;
    }
    return {};
}

AcquisitionFacts ReadPrivateAcquisition(const DICOMObject& dataSet, const DICOMObject* frame) {
    AcquisitionFacts facts;
    siemens::AddAcquisition(dataSet, frame, facts);
    ge::AddAcquisition(dataSet, facts);
    philips::AddAcquisition(dataSet, facts);
    uih::AddAcquisition(dataSet, facts);
    return facts;
}

}  // namespace korvane
