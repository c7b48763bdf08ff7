// The transfer syntax in which a medium has what is written for it.
#pragma once

#include "../Dicom/Lib/syntax/TransferSyntaxRow.h"

#include <string_view>

/// Explicit VR little endian; of the RT classes implicit (PS3.5 10.1), required for the systems that the module's hosts write
/// media for.
constexpr std::string_view StoredSyntax(std::string_view sopClass) {
    constexpr std::string_view kRtClasses = "1.2.840.10008.5.1.4.1.1.481.";
    const bool isRt = sopClass.size() == kRtClasses.size() + 1 && sopClass.starts_with(kRtClasses) &&
                      sopClass.back() >= '1' && sopClass.back() <= '7';
    return isRt ? kImplicitLittleEndianUid : kExplicitLittleEndianUid;
}
