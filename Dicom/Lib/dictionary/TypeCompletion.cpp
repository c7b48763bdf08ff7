#include "TypeCompletion.h"

#include "Dicom/Lib/dataset/Encapsulation.h"
#include "PublicDictionary.h"
#include "Tags.generated.h"

namespace {

bool ReservesPrivateBlock(const VR& element) {
    return element.m_Group % 2 == 1 && element.m_Element >= 0x0010 && element.m_Element <= 0x00FF;
}

void Complete(DICOMObject& dataSet, const DcmDictionary* dictionary, bool outerSigned) {
    const bool isSigned = HasSignedPixels(dataSet, outerSigned);
    for (VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        if (element->m_TypeCode == 0) element->m_TypeCode = FindType(*element, dictionary, isSigned);
        if (IsPixelData(*element)) continue;
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) {
            Complete(*element->GetItem(i), dictionary, isSigned);
        }
    }
}

}  // namespace

bool HasSignedPixels(const DICOMObject& dataSet, bool otherwise) {
    const VR* const said = dataSet.GetVR(tags::PixelRepresentation);
    return said != nullptr && said->m_Length == 2 ? dataSet.GetUINT16(tags::PixelRepresentation) != 0 : otherwise;
}

std::uint16_t FindType(const VR& element, const DcmDictionary* dictionary, bool isSigned) {
    if (element.GetItemCount() > 0 && !IsPixelData(element)) return TypeCode("SQ");
    const std::uint16_t found =
        dictionary != nullptr ? dictionary->LookupTypeCode(element.m_Group, element.m_Element) : 0;
    if (found == TypeCode("US") && isSigned && IsUsOrSs(*dictionary, element)) return TypeCode("SS");
    if (found != 0) return found;
    if (ReservesPrivateBlock(element)) return TypeCode("LO");
    return element.m_Element == 0 ? TypeCode("UL") : TypeCode("UN");
}

bool IsUsOrSs(const DcmDictionary& dictionary, const VR& element) {
    return dictionary.HasFlag(element.m_Group, element.m_Element, kAmbiguousUsSs);
}

void DecideUsOrSs(DICOMObject& dataSet, const DcmDictionary& dictionary, bool isSigned) {
    isSigned = HasSignedPixels(dataSet, isSigned);
    for (VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        std::uint16_t& type = element->m_TypeCode;
        if ((type == TypeCode("US") || type == TypeCode("SS")) && IsUsOrSs(dictionary, *element)) {
            type = isSigned ? TypeCode("SS") : TypeCode("US");
        }
        if (IsPixelData(*element)) continue;
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) {
            DecideUsOrSs(*element->GetItem(i), dictionary, isSigned);
        }
    }
}

void CompleteTypes(DICOMObject& dataSet, const DcmDictionary* dictionary) {
    Complete(dataSet, dictionary, false);
}
