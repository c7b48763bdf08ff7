// Texts of a data set as the directory keeps them.
#pragma once

#include "../Dicom/Lib/dataset/DICOMObject.h"
#include "../Dicom/Lib/syntax/TransferSyntaxTable.h"

#include <string>

namespace korvane_detail {

/// The value without blanks and zero bytes at its end; empty where the element is absent.
inline std::string TextOf(const DICOMObject& dataSet, unsigned short group, unsigned short element) {
    const VR* const found = dataSet.GetVR(group, element);
    return found != nullptr ? TrimmedUid(found->GetText()) : std::string();
}

}  // namespace korvane_detail
