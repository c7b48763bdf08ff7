// The tests' vocabulary for byte streams and data sets.
#pragma once

#include <Korvane/Dicom.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

/// Streams written by hand, field by field.
class DataSetBytes {
public:
    explicit DataSetBytes(bool big = false) : m_bBig(big) {}

    DataSetBytes& U16(unsigned value) { return Number(value, 2); }
    DataSetBytes& U32(unsigned value) { return Number(value, 4); }
    DataSetBytes& Tag(unsigned group, unsigned element) { return U16(group).U16(element); }
    DataSetBytes& Text(const std::string& text) {
        m_Bytes.insert(m_Bytes.end(), text.begin(), text.end());
        return *this;
    }
    DataSetBytes& Append(const Bytes& bytes) {
        m_Bytes.insert(m_Bytes.end(), bytes.begin(), bytes.end());
        return *this;
    }
    DataSetBytes& Item(unsigned length) { return Tag(0xFFFE, 0xE000).U32(length); }
    DataSetBytes& ItemEnds() { return Tag(0xFFFE, 0xE00D).U32(0); }
    DataSetBytes& SequenceEnds() { return Tag(0xFFFE, 0xE0DD).U32(0); }
    /// An explicit element with a 2-byte length, and one with a 4-byte length.
    DataSetBytes& Short(unsigned group, unsigned element, const char* type, const std::string& value) {
        return Tag(group, element).Text(type).U16(static_cast<unsigned>(value.size())).Text(value);
    }
    DataSetBytes& Long(unsigned group, unsigned element, const char* type, unsigned length) {
        return Tag(group, element).Text(type).U16(0).U32(length);
    }
    DataSetBytes& Implicit(unsigned group, unsigned element, const std::string& value) {
        return Tag(group, element).U32(static_cast<unsigned>(value.size())).Text(value);
    }
    const Bytes& Get() const { return m_Bytes; }

private:
    DataSetBytes& Number(unsigned value, int size) {
        for (int i = 0; i < size; ++i) {
            m_Bytes.push_back(static_cast<unsigned char>(value >> (8 * (m_bBig ? size - 1 - i : i))));
        }
        return *this;
    }

    Bytes m_Bytes;
    bool m_bBig;
};

inline VR* MakeText(std::uint16_t group, std::uint16_t element, const char (&type)[3], const std::string& text) {
    auto* const made = new VR(group, element, static_cast<std::uint32_t>(text.size()), 1);
    made->m_TypeCode = TypeCode(type);
    std::copy(text.begin(), text.end(), made->m_pData);
    return made;
}

inline VR* MakeU16(std::uint16_t group, std::uint16_t element, std::uint16_t value) {
    auto* const made = new VR(group, element, 2, 1);
    made->m_TypeCode = TypeCode("US");
    made->m_pData[0] = static_cast<unsigned char>(value);
    made->m_pData[1] = static_cast<unsigned char>(value >> 8);
    return made;
}

inline DcmDictionary& PublicDictionary() {
    static DcmDictionary dictionary;
    static const int built = [] {
        std::size_t count;
        const DcmDictionaryRow* const rows = PublicDictionaryRows(count);
        return dictionary.Build(rows, count);
    }();
    if (built == 0) dictionary.Clear();
    return dictionary;
}

/// A small file with everything that has a length: short and long forms, both sequence forms, fragments.
inline Bytes SmallFile(bool isExplicit) {
    DataSetBytes file;
    file.Text(std::string(128, '\0')).Text("DICM");
    const std::string uid =
        isExplicit ? std::string("1.2.840.10008.1.2.1\0", 20) : std::string("1.2.840.10008.1.2\0", 18);
    file.Short(0x0002, 0x0010, "UI", uid);
    if (isExplicit) {
        file.Short(0x0008, 0x0060, "CS", "CT")
            .Long(0x0040, 0xA730, "SQ", 18)
            .Item(10)
            .Short(0x0008, 0x0060, "CS", "MR");
        file.Long(0x0040, 0xA043, "SQ", 0xFFFFFFFF).Item(0xFFFFFFFF).ItemEnds().SequenceEnds();
        file.Long(0x7FE0, 0x0010, "OB", 0xFFFFFFFF).Item(0).Item(4).Text("abcd").SequenceEnds();
    } else {
        file.Implicit(0x0008, 0x0060, "CT").Tag(0x0040, 0xA730).U32(18).Item(10).Implicit(0x0008, 0x0060, "MR");
        file.Tag(0x0040, 0xA043).U32(0xFFFFFFFF).Item(0xFFFFFFFF).ItemEnds().SequenceEnds();
        file.Implicit(0x7FE0, 0x0010, "abcd");
    }
    return file.Get();
}

/// Every element with its items, one line each: two data sets are equal when these texts are.
inline std::string Listing(const DICOMObject& dataSet, const std::string& indent = "") {
    std::string text;
    for (VR* vr = dataSet.GetFirst(); vr != nullptr; vr = dataSet.GetNext(vr)) {
        char head[64];
        std::snprintf(head, sizeof head, "%04X,%04X %04X %u ", vr->m_Group, vr->m_Element, vr->m_TypeCode,
                      vr->m_Length);
        text += indent + head + std::string(vr->GetText()) + "\n";
        for (std::uint32_t i = 0; i < vr->GetItemCount(); ++i) {
            text += indent + " item\n" + Listing(*vr->GetItem(i), indent + "  ");
        }
    }
    return text;
}

inline std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}
