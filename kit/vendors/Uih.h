// UIH: elements of "Image Private Header", a volume's tiles in one image among them.
#pragma once

#include "VendorFacts.h"

namespace korvane::uih {

TileFacts ReadTiles(const DICOMObject& dataSet);
DiffusionFacts ReadDiffusion(const DICOMObject& holder);
void AddAcquisition(const DICOMObject& dataSet, AcquisitionFacts& facts);

}  // namespace korvane::uih
