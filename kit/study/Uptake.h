// From activity to standardized uptake values.
#pragma once

#include "../dataset/Toolkit.h"

#include <string>
#include <utility>
#include <vector>

namespace korvane {

/// The factor from activity to uptake normalised by body weight, in g/ml: weight in grams, by the dose that is left at the
/// time that values were decay-corrected to (PS3.3 C.8.9.1). Where that is the start of the scan (START) it is Series Date
/// and Time, which no image may have been taken before; where it is the injection (ADMIN), the dose as it was. A
/// time zone of the injection is that of the scan's own, Timezone Offset From UTC (0008,0201), brought to it. All files must
/// say the same. Throws `Error` of kind `Unsupported` that names the element which is missing, or is not as it must be.
/// `files`: with their paths.
double UptakeFactorOf(const std::vector<std::pair<std::string, const DICOMDataObject*>>& files);

}  // namespace korvane
