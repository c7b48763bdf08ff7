// Philips: elements of "Philips Imaging DD 001" and "Philips MR Imaging DD 001".
#pragma once

#include "VendorFacts.h"

namespace korvane::philips {

DiffusionFacts ReadDiffusion(const DICOMObject& holder);
void AddAcquisition(const DICOMObject& dataSet, AcquisitionFacts& facts);

}  // namespace korvane::philips
