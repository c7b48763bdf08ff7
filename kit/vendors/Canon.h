// Canon and Toshiba: directions that some software writes into a comment alone.
#pragma once

#include "VendorFacts.h"

namespace korvane::canon {

DiffusionFacts ReadDiffusion(const DICOMObject& holder);

}  // namespace korvane::canon
