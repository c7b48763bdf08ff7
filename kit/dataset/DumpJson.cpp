#include "../core/TextEncoding.h"
#include "Base64.h"
#include "DumpText.h"
#include "ElementText.h"
#include "LeftValues.h"

#include "base/Bytes.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace korvane {

namespace {

using Json = nlohmann::ordered_json;

// Larger whole numbers than a double holds exactly are strings (PS3.18 F.2.3).
constexpr std::size_t kSafeDigits = 15;

template <class Number>
bool IsAll(std::string_view text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

// The number that a text is; null when it is none, or none that JSON has.
Json ToNumber(std::string_view text) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    std::int64_t whole = 0;
    if (IsAll(text, whole) && (whole != 0 || text.front() != '-')) return whole;  // -0 is a real: its sign stays
    double real = 0.0;
    if (IsAll(text, real) && std::isfinite(real)) return real;
    return nullptr;
}

class JsonDump {
public:
    JsonDump(bool meta, const Watch& watch) : m_bMeta(meta), m_Watch(watch), m_Left(watch) {}

    Json DataSet(const DICOMObject& dataSet, const TextDecoder& outer) {
        const VR* const set = FindElement(dataSet, tags::SpecificCharacterSet);
        const TextDecoder decoder = set != nullptr ? TextDecoder(set->GetText()) : outer;
        const std::vector<const VR*> elements = SortedElements(dataSet);
        // Not by operator[], which looks for the key first: each tag is there once, and there may be very many. Growing
        // would copy the values.
        Json::object_t members;
        members.reserve(elements.size());
        for (const VR* const element : elements) {
            m_Watch.StopIfAsked();
            const bool isLength = element->m_Element == 0x0000;
            if (isLength || (element->m_Group == 0x0002 && !m_bMeta)) continue;
            char key[9];
            std::snprintf(key, sizeof key, "%04X%04X", unsigned{element->m_Group}, unsigned{element->m_Element});
            members.emplace_back(key, Element(*element, decoder));
        }
        return Json(std::move(members));
    }

private:
    static Json NewArray(std::size_t count) {
        Json array = Json::array();
        array.get_ref<Json::array_t&>().reserve(count);
        return array;
    }

    Json Element(const VR& element, const TextDecoder& decoder) {
        Json member;
        member["vr"] = TypeLetters(element);
        if (IsBinary(element)) {
            if (element.m_Length > 0 || IsEncapsulated(&element)) member["InlineBinary"] = Base64Of(element, m_Left);
        } else if (Json values = Values(element, decoder); !values.empty()) {
            member["Value"] = std::move(values);
        }
        return member;
    }

    static bool IsBinary(const VR& element) {
        const ValueKind kind = GetValueKind(element.m_TypeCode);
        return !IsSequence(element) && (kind == ValueKind::Binary || kind == ValueKind::Sequence);
    }

    Json Values(const VR& element, const TextDecoder& decoder) {
        if (IsSequence(element)) return Items(element, decoder);
        return GetValueKind(element.m_TypeCode) == ValueKind::Text ? Texts(element, decoder)
                                                                   : Numbers(*WithValue(element, m_Left));
    }

    Json Items(const VR& element, const TextDecoder& decoder) {
        Json items = NewArray(element.GetItemCount());
        for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
            items.push_back(DataSet(*element.GetItem(i), decoder));
        }
        return items;
    }

    static Json Numbers(const VR& element) {
        const std::size_t count = CountNumbers(element);
        const ValueKind kind = GetValueKind(element.m_TypeCode);
        Json numbers = NewArray(count);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string text = NumberAt(element, i);
            const bool safe = kind == ValueKind::Real || text.size() <= kSafeDigits;
            numbers.push_back(kind != ValueKind::Tag && safe ? NumberOrText(text) : Json(text));
        }
        return numbers;
    }

    // "nan" and "inf" stay texts, and so does what is a number in name only.
    static Json NumberOrText(const std::string& text) {
        Json number = ToNumber(text);
        return number.is_null() ? Json(text) : number;
    }

    static Json Texts(const VR& element, const TextDecoder& decoder) {
        const auto parts = TextParts(element, decoder, Undecoded::Replace);
        const bool isSet = element.m_Group == 0x0008 && element.m_Element == 0x0005;
        if (isSet && !parts.empty() && TextDecoder(element.GetText()).IsKnown()) {
            return Json::array({"ISO_IR 192"});  // what the texts here are in
        }
        Json texts = NewArray(parts.size());
        for (const std::string& part : parts) texts.push_back(Text(element.m_TypeCode, part));
        return texts;
    }

    static Json Text(std::uint16_t type, const std::string& part) {
        if (part.empty()) return nullptr;
        if (type == TypeCode("PN")) return Name(part);
        return type == TypeCode("IS") || type == TypeCode("DS") ? NumberOrText(part) : Json(part);
    }

    // The up to three groups of a person name (PS3.5 6.2.1).
    static Json Name(std::string_view name) {
        Json groups = Json::object();
        for (const char* const group : {"Alphabetic", "Ideographic", "Phonetic"}) {
            const std::size_t end = std::min(name.find('='), name.size());
            if (end > 0) groups[group] = name.substr(0, end);
            name.remove_prefix(std::min(end + 1, name.size()));
        }
        return groups;
    }

    bool m_bMeta;
    Watch m_Watch;
    LeftValueReader m_Left;
};

}  // namespace

std::string Base64Of(const VR& element, LeftValueReader& left) {
    constexpr std::size_t kHeader = 8;
    const std::uint32_t fragments = IsEncapsulated(&element) ? element.GetItemCount() : 0;
    std::size_t length = element.m_Length;
    for (std::uint32_t i = 0; i < fragments; ++i) {
        const VR* const fragment = GetFragment(element, i);
        length += kHeader + (fragment != nullptr ? fragment->m_Length : 0);
    }
    Base64 text(length);
    if (fragments == 0) text.Append(WithValue(element, left)->GetText());
    for (std::uint32_t i = 0; i < fragments; ++i) {
        const VR* const fragment = GetFragment(element, i);
        char header[kHeader] = {'\xFE', '\xFF', '\x00', '\xE0'};
        platform::StoreLittle(header + 4, fragment != nullptr ? fragment->m_Length : 0U);
        text.Append({header, sizeof header});
        if (fragment != nullptr) text.Append(WithValue(*fragment, left)->GetText());
    }
    return std::move(text).Finish();
}

void DumpAsJson(const DICOMObject& dataSet, bool meta, std::ostream& out, const Watch& watch, std::string_view outer) {
    out << std::setw(1) << JsonDump(meta, watch).DataSet(dataSet, TextDecoder(outer)) << '\n';
}

}  // namespace korvane
