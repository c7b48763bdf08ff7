// How large the pixels of a file are, from whichever attribute says it.
#pragma once

#include "../dataset/Toolkit.h"
#include "FramePlace.h"

namespace korvane {

/// Fills a place's spacing and where it comes from. Pixel Spacing as a functional group or the top level has it is given
/// (empty texts are none); without it these count: ultrasound regions that are all of one size (PS3.3 C.8.5.5), Imager Pixel
/// Spacing, which is that of the detector and not of the patient (PS3.3 10.7), then Pixel Aspect Ratio, which gives the
/// shape alone.
void ReadPixelSize(const DICOMDataObject& dataSet, const DICOMObject* pixelMeasures, FramePlace& place);

}  // namespace korvane
