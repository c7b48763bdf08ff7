#include "ElementText.h"

#include "Attributes.h"

#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace korvane {

namespace {

using platform::LoadLittle;

bool IsSingleText(std::uint16_t type) {
    return type == TypeCode("LT") || type == TypeCode("ST") || type == TypeCode("UT") || type == TypeCode("UR");
}

std::size_t NumberSize(const VR& element) {
    return GetValueKind(element.m_TypeCode) == ValueKind::Tag ? 4 : GetSwapUnit(element.m_TypeCode);
}

std::string_view WithoutFill(std::string_view text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.remove_suffix(1);
    return text;
}

/// Bytes that are not what they are in ASCII, or an escape sequence: the others are the same in all sets.
bool MayBeUndecoded(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x80 || c == '\x1B' || c == '\x0E'; });
}

struct UndecodedTexts {
    std::size_t count = 0;
    std::string first;
};

void CountUndecoded(const DICOMObject& dataSet, const TextDecoder& outer, UndecodedTexts& found) {
    const VR* const set = FindElement(dataSet, tags::SpecificCharacterSet);
    const TextDecoder own = set != nullptr ? TextDecoder(set->GetText()) : outer;
    for (const VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        if (IsSequence(*element)) {
            for (std::uint32_t i = 0; i < element->GetItemCount(); ++i)
                CountUndecoded(*element->GetItem(i), own, found);
        } else if (GetValueKind(element->m_TypeCode) == ValueKind::Text && MayBeUndecoded(element->GetText()) &&
                   !own.Decodes(WithoutFill(element->GetText()), FormOf(*element))) {
            char tag[16];
            std::snprintf(tag, sizeof tag, "(%04X,%04X)", unsigned{element->m_Group}, unsigned{element->m_Element});
            if (found.count++ == 0) found.first = tag;
        }
    }
}

}  // namespace

std::optional<Finding> FindUndecodedTexts(const DICOMObject& dataSet, std::string_view outer) {
    UndecodedTexts found;
    CountUndecoded(dataSet, TextDecoder(outer), found);
    if (found.count == 0) return std::nullopt;
    const std::string what = found.count == 1
                                 ? "the text of " + found.first + " has"
                                 : std::to_string(found.count) + " texts, the first " + found.first + ", have";
    return Finding{.kind = FindingKind::UndecodedText,
                   .count = found.count,
                   .text = what + " bytes that are no characters of the set named by (0008,0005)"};
}

std::vector<const VR*> SortedElements(const DICOMObject& dataSet) {
    std::vector<const VR*> sorted;
    const auto take = [&](auto belongs) {
        for (const VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
            if (belongs(element->m_Group)) sorted.push_back(element);
        }
    };
    take([](unsigned group) { return group == 0x0002; });
    take([](unsigned group) { return group != 0x0002 && group < 0x8000; });
    take([](unsigned group) { return group >= 0x8000; });
    return sorted;
}

std::string ElementName(const DICOMObject& dataSet, const VR& element) {
    std::string name;
    const bool known = PublicDictionary().LookupTypeCode(element.m_Group, element.m_Element, &name) != 0;
    if (known || !name.empty()) return name;
    if (element.m_Element == 0) return "Group Length";
    if (element.m_Group % 2 == 0) return "Unknown";
    if (element.m_Element >= 0x10 && element.m_Element <= 0xFF) return "Private Creator";
    const PrivateRow* const row = FindPrivate(dataSet, element);
    return row != nullptr && row->name != std::string_view("Unknown") ? row->name : "Private";
}

bool IsSequence(const VR& element) {
    return element.m_TypeCode == TypeCode("SQ") || (element.GetItemCount() > 0 && !IsPixelData(element));
}

std::string TypeLetters(const VR& element) {
    if (IsSequence(element)) return "SQ";
    char letters[2];
    UnpackTypeCode(element.m_TypeCode, letters[0], letters[1]);
    for (const char letter : letters) {
        if (letter < 'A' || letter > 'Z') return "UN";
    }
    return std::string(letters, 2);
}

std::size_t CountNumbers(const VR& element) {
    return element.m_pData != nullptr ? element.m_Length / NumberSize(element) : 0;
}

std::string NumberAt(const VR& element, std::size_t index) {
    const unsigned char* const bytes = element.m_pData + index * NumberSize(element);
    switch (element.m_TypeCode) {
    case TypeCode("US"): return std::to_string(LoadLittle<std::uint16_t>(bytes));
    case TypeCode("SS"): return std::to_string(LoadLittle<std::int16_t>(bytes));
    case TypeCode("UL"): return std::to_string(LoadLittle<std::uint32_t>(bytes));
    case TypeCode("SL"): return std::to_string(LoadLittle<std::int32_t>(bytes));
    case TypeCode("UV"): return std::to_string(LoadLittle<std::uint64_t>(bytes));
    case TypeCode("SV"): return std::to_string(LoadLittle<std::int64_t>(bytes));
    case TypeCode("FL"): return platform::FormatReal(LoadLittle<float>(bytes));
    case TypeCode("FD"): return platform::FormatReal(LoadLittle<double>(bytes));
    default: break;
    }
    char tag[9];
    std::snprintf(tag, sizeof tag, "%04X%04X", unsigned{LoadLittle<std::uint16_t>(bytes)},
                  unsigned{LoadLittle<std::uint16_t>(bytes + 2)});
    return tag;
}

TextForm FormOf(const VR& element) {
    return element.m_TypeCode == TypeCode("PN") ? TextForm::Name : TextForm::Plain;
}

std::vector<std::string> TextParts(const VR& element, const TextDecoder& decoder, Undecoded undecoded) {
    const std::string whole = decoder.ToUtf8(WithoutFill(element.GetText()), FormOf(element), undecoded);
    std::string_view text = whole;
    if (text.empty()) return {};
    std::vector<std::string> parts;
    if (!IsSingleText(element.m_TypeCode)) {
        for (std::size_t at; (at = text.find('\\')) != std::string_view::npos; text.remove_prefix(at + 1)) {
            parts.emplace_back(WithoutFill(text.substr(0, at)));
        }
    }
    parts.emplace_back(WithoutFill(text));
    return parts;
}

}  // namespace korvane
