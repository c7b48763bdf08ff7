#include "DcmDictionary.h"

#include "Dicom/Lib/dataset/ValueText.h"

#include <algorithm>

int DcmDictionary::Build(const DcmDictionaryRow* rows, std::size_t count) {
    Clear();
    m_Keys.reserve(count);
    m_Entries.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0 && rows[i].key <= rows[i - 1].key) {
            Clear();
            return 0;
        }
        m_Keys.push_back(rows[i].key);
        m_Entries.push_back({rows[i].flags, rows[i].typeCode, m_Names.size()});
        if (rows[i].name != nullptr) m_Names += rows[i].name;
        m_Names += '\0';
    }
    return 1;
}

std::ptrdiff_t DcmDictionary::Find(std::uint16_t group, std::uint16_t element) const {
    // Keys compare as unsigned numbers here, unlike in a data set's tree.
    const std::uint32_t target = (static_cast<std::uint32_t>(group) << 16) | element;
    const auto found = std::lower_bound(m_Keys.begin(), m_Keys.end(), target);
    return found != m_Keys.end() && *found == target ? found - m_Keys.begin() : -1;
}

std::uint16_t DcmDictionary::LookupTypeCode(std::uint16_t group, std::uint16_t element, std::string* name) const {
    const std::ptrdiff_t index = Find(group, element);
    if (index < 0) return 0;
    const Entry& entry = m_Entries[static_cast<std::size_t>(index)];
    if (name != nullptr) *name = m_Names.c_str() + entry.name;
    return static_cast<std::uint16_t>(entry.typeCode);
}

int DcmDictionary::SetTypeCode(VR* element) const {
    if (element->m_TypeCode != 0 && element->m_TypeCode != TypeCode("UN")) return 1;
    const std::uint16_t found = LookupTypeCode(element->m_Group, element->m_Element);
    if (found != 0) {
        element->m_TypeCode = found;
        return 1;
    }
    if (element->GetItemCount() > 0) element->m_TypeCode = TypeCode("SQ");
    return 0;
}

std::string DcmDictionary::GetString(const DICOMObject& dataSet, std::uint16_t group, std::uint16_t element,
                                     int option) const {
    VR* const found = dataSet.GetVR(group, element);
    if (found == nullptr) return {};
    SetTypeCode(found);
    return option > 0 ? ValueText(*found, static_cast<std::size_t>(option) - 1, 1) : ValueText(*found);
}

bool DcmDictionary::HasFlag(std::uint16_t group, std::uint16_t element, std::uint32_t flag) const {
    const std::ptrdiff_t index = Find(group, element);
    return index >= 0 && (m_Entries[static_cast<std::size_t>(index)].flags & flag) != 0;
}

int DcmDictionary::Clear() {
    m_Keys.clear();
    m_Entries.clear();
    m_Names.clear();
    return 1;
}
