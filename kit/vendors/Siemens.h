// Siemens: elements of "SIEMENS MR HEADER", the CSA headers, and "SIEMENS MR SDI 02" of the later software.
#pragma once

#include "VendorFacts.h"

namespace korvane::siemens {

TileFacts ReadTiles(const DICOMObject& dataSet);
DiffusionFacts ReadDiffusion(const DICOMObject& holder);
void AddAcquisition(const DICOMObject& dataSet, const DICOMObject* frame, AcquisitionFacts& facts);

}  // namespace korvane::siemens
