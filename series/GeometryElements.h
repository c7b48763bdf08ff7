// The elements that place slices, as numbers.
#pragma once

#include "Dicom/Lib/dataset/Tag.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

class DICOMDataObject;
class VR;

namespace korvane_detail {

/// Reads the first numbers of a decimal string with several values. False when the element is absent; numbers that its
/// text lacks leave theirs as they are.
bool ReadReals(DICOMDataObject* ddo, tags::Tag tag, float* values, std::size_t count);

/// The same for one integer; a present element without one gives 0.
bool ReadWhole(DICOMDataObject* ddo, tags::Tag tag, std::int32_t* value);

/// The values of a decimal string one after another, however many, as the automation bridge converts them to floats: what
/// is no number is 0. Behind the last it is repeated: a reader of single values keeps its previous result there.
class DecimalValues {
public:
    explicit DecimalValues(const VR& vr);
    float Next();

private:
    std::string_view m_Rest;
    float m_Value = 0;
};

/// The element with the places of frames that Frame Increment Pointer (0028,0009) names: Grid Frame Offset Vector
/// (3004,000C), `relative` to the first frame, or Slice Location Vector (0018,2005). Null when neither is named and
/// there.
const VR* FindFrameOffsets(DICOMDataObject* ddo, bool* relative);

}  // namespace korvane_detail
