// The transfer syntax in which a medium has what is written for it.
#pragma once

#include "../Dicom/Lib/syntax/TransferSyntaxRow.h"

#include <string_view>

/// Explicit VR little endian, but for the RT classes implicit: systems that plan treatments read those as they are first
/// defined (PS3.5 10.1).
constexpr std::string_view StoredSyntax(std::string_view sopClass) {
    constexpr std::string_view kRtClasses = "1.2.840.10008.5.1.4.1.1.481.";
    const bool isRt = sopClass.size() == kRtClasses.size() + 1 && sopClass.starts_with(kRtClasses) &&
                      sopClass.back() >= '1' && sopClass.back() <= '7';
    return isRt ? kImplicitLittleEndianUid : kExplicitLittleEndianUid;
}
