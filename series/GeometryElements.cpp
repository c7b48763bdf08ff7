#include "GeometryElements.h"

#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/dataset/TypeCode.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "ValueHelpers.h"
#include "automation/CVariant.h"
#include "automation/CVariantVR.h"
#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>

namespace korvane_detail {

namespace {

// Longer than any text that is read here: six decimal strings and their separators (PS3.5 6.2) take 101 bytes.
struct Text {
    char m_Chars[256];
};

bool ReadText(DICOMDataObject* ddo, tags::Tag tag, Text& text) {
    return ReadDCMStringTag(ddo, GroupOf(tag), ElementOf(tag), text.m_Chars, sizeof text.m_Chars);
}

}  // namespace

bool ReadReals(DICOMDataObject* ddo, tags::Tag tag, float* values, std::size_t count) {
    Text text;
    if (!ReadText(ddo, tag, text)) {
        return false;
    }
    platform::ScanReals(text.m_Chars, values, count);
    return true;
}

bool ReadWhole(DICOMDataObject* ddo, tags::Tag tag, std::int32_t* value) {
    Text text;
    if (!ReadText(ddo, tag, text)) {
        return false;
    }
    *value = platform::ParseInteger(text.m_Chars);
    return true;
}

DecimalValues::DecimalValues(const VR& vr) : m_Rest(vr.GetText()) {}

float DecimalValues::Next() {
    if (m_Rest.empty()) {
        return m_Value;
    }
    // The value as an element of its own, with borrowed bytes: by its index in the whole text each would be looked for
    // from the beginning.
    const std::size_t end = std::min(m_Rest.find('\\'), m_Rest.size());
    VR single(tags::GridFrameOffsetVector, 0, 0);
    single.m_pData = reinterpret_cast<unsigned char*>(const_cast<char*>(m_Rest.data()));
    single.m_Length = static_cast<std::uint32_t>(end);
    single.m_bOwnsData = 0;
    CVariantVR value(&single, TypeCode("DS"));
    m_Value = CVariant::GetFloat(&value.GetVal(0));
    m_Rest.remove_prefix(std::min(end + 1, m_Rest.size()));
    return m_Value;
}

const VR* FindFrameOffsets(DICOMDataObject* ddo, bool* relative) {
    const VR* pointer = ddo->GetVR(tags::FrameIncrementPointer);
    if (pointer == nullptr) {
        return nullptr;
    }
    const std::string_view tags = pointer->GetText();
    for (std::size_t at = 0; at + 4 <= tags.size(); at += 4) {
        const auto group = platform::LoadLittle<std::uint16_t>(tags.data() + at);
        const auto element = platform::LoadLittle<std::uint16_t>(tags.data() + at + 2);
        *relative = group == 0x3004 && element == 0x000C;
        if (*relative || (group == 0x0018 && element == 0x2005)) {
            if (const VR* offsets = ddo->GetVR(group, element); offsets != nullptr) {
                return offsets;
            }
        }
    }
    return nullptr;
}

}  // namespace korvane_detail
