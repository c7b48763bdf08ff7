// From activity to standardized uptake values.
#pragma once

#include "../dataset/Toolkit.h"

#include <optional>
#include <string>

namespace korvane {

/// The factor from activity to uptake normalised by body weight, in g/ml: weight in grams, by the dose that is left at the
/// time that values were decay-corrected to (PS3.3 C.8.9.1). Where that is the start of the scan (START) it is Series Date
/// and Time, which no image may have been taken before; where it is the injection (ADMIN), the dose as it was. A
/// time zone of the injection is that of the scan's own, Timezone Offset From UTC (0008,0201), brought to it. All files must
/// say the same.
class UptakeFactor {
public:
    /// Throws `Error` of kind `Unsupported` that names the element which is missing, or is not as it must be.
    void Add(const std::string& path, const DICOMDataObject& dataSet);
    /// Throws `Error` where there was no file.
    double Get() const;

private:
    std::optional<double> m_Factor;
    std::string m_First;  // path
};

}  // namespace korvane
