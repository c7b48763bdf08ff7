#include "ReplaceValue.h"

#include "ValueText.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>

int ReplaceValue(DICOMObject& dataSet, tags::Tag tag, std::uint16_t typeCode, const void* bytes, std::uint32_t length) {
    try {
        auto made = std::make_unique<VR>(tag, length, 1);
        made->m_TypeCode = typeCode;
        if (length > 0) std::memcpy(made->m_pData, bytes, length);
        VR* const present = dataSet.GetVR(tag);
        if (present != nullptr) return present->TakeValueFrom(made.get());
        if (dataSet.Push(made.get()) == 0) return 0;
        made.release();
        return 1;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int ReplaceText(DICOMObject& dataSet, tags::Tag tag, std::uint16_t typeCode, std::string_view text) {
    std::string padded(WithoutPadding(text));
    if (padded.size() % 2 != 0) padded += typeCode == TypeCode("UI") ? '\0' : ' ';
    return ReplaceValue(dataSet, tag, typeCode, padded.data(), static_cast<std::uint32_t>(padded.size()));
}
