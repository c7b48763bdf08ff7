// Helpers to write byte streams by hand, and to compare data sets.
#pragma once

#include <Korvane/Dicom.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline Bytes Text(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

inline Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// Makes elements and items as bytes, in one byte order.
struct Writer {
    bool big;

    Bytes Number(unsigned value, int size) const {
        Bytes bytes;
        for (int i = 0; i < size; ++i) {
            bytes.push_back(static_cast<unsigned char>(value >> (8 * (big ? size - 1 - i : i))));
        }
        return bytes;
    }
    Bytes U32(unsigned value) const { return Number(value, 4); }
    Bytes Tag(unsigned group, unsigned element) const { return Join({Number(group, 2), Number(element, 2)}); }
    Bytes Item(unsigned length) const { return Join({Tag(0xFFFE, 0xE000), U32(length)}); }
    Bytes ItemEnds() const { return Join({Tag(0xFFFE, 0xE00D), U32(0)}); }
    Bytes SequenceEnds() const { return Join({Tag(0xFFFE, 0xE0DD), U32(0)}); }
    /// An explicit element with a 2-byte length; the header of one with a 4-byte length; an implicit element.
    Bytes Short(unsigned group, unsigned element, const char* type, const std::string& value) const {
        return Join({Tag(group, element), ::Text(type), Number(static_cast<unsigned>(value.size()), 2), ::Text(value)});
    }
    Bytes Long(unsigned group, unsigned element, const char* type, unsigned length) const {
        return Join({Tag(group, element), ::Text(type), Number(0, 2), U32(length)});
    }
    Bytes Implicit(unsigned group, unsigned element, const std::string& value) const {
        return Join({Tag(group, element), U32(static_cast<unsigned>(value.size())), ::Text(value)});
    }
};

inline constexpr Writer le{false};
inline constexpr Writer be{true};

inline VR* MakeText(std::uint16_t group, std::uint16_t element, const char (&type)[3], const std::string& text) {
    auto* const made = new VR(group, element, static_cast<std::uint32_t>(text.size()), 1);
    made->m_TypeCode = TypeCode(type);
    std::copy(text.begin(), text.end(), made->m_pData);
    return made;
}

inline VR* MakeU16(std::uint16_t group, std::uint16_t element, std::uint16_t value) {
    return MakeText(group, element, "US", {static_cast<char>(value), static_cast<char>(value >> 8)});
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

/// The value of a UID element: with a zero byte where its length is odd (PS3.5 9.1).
inline std::string PaddedUid(std::string_view uid) {
    return std::string(uid) + std::string(uid.size() % 2, '\0');
}

/// A small file with everything that has a length: short and long forms, both sequence forms, fragments.
inline Bytes SmallFile(bool isExplicit) {
    const Bytes start = Join({Text(std::string(128, '\0')), Text("DICM")});
    const Bytes sequence = Join({le.Item(0xFFFFFFFF), le.ItemEnds(), le.SequenceEnds()});
    if (isExplicit) {
        return Join({start, le.Short(0x0002, 0x0010, "UI", PaddedUid(kExplicitLittleEndianUid)),
                     le.Short(0x0008, 0x0060, "CS", "CT"), le.Long(0x0040, 0xA730, "SQ", 18), le.Item(10),
                     le.Short(0x0008, 0x0060, "CS", "MR"), le.Long(0x0040, 0xA043, "SQ", 0xFFFFFFFF), sequence,
                     le.Long(0x7FE0, 0x0010, "OB", 0xFFFFFFFF), le.Item(0), le.Item(4), Text("abcd"),
                     le.SequenceEnds()});
    }
    return Join({start, le.Short(0x0002, 0x0010, "UI", PaddedUid(kImplicitLittleEndianUid)),
                 le.Implicit(0x0008, 0x0060, "CT"), le.Tag(0x0040, 0xA730), le.U32(18), le.Item(10),
                 le.Implicit(0x0008, 0x0060, "MR"), le.Tag(0x0040, 0xA043), le.U32(0xFFFFFFFF), sequence,
                 le.Implicit(0x7FE0, 0x0010, "abcd")});
}

/// A text of all elements and items, one line each, which is the same for equal data sets.
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

inline void WriteBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/// A file that was written as text: its line ends are the system's.
inline std::string ReadText(const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}
