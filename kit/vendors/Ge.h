// GE: elements of "GEMS_PARM_01" and "GEMS_ACQU_01".
#pragma once

#include "VendorFacts.h"

namespace korvane::ge {

DiffusionFacts ReadDiffusion(const DICOMObject& holder);
void AddAcquisition(const DICOMObject& dataSet, AcquisitionFacts& facts);

}  // namespace korvane::ge
