#include "DumpText.h"

#include "ElementText.h"
#include "HostError.h"
#include "JsonWriter.h"
#include "TextEncoding.h"

#include <Korvane/platform/Bytes.h>
#include <Korvane/platform/Number.h>

#include <cmath>
#include <cstdlib>
#include <string>

namespace {

/// Larger whole numbers than a double holds exactly are strings (PS3.18 F.2.3).
constexpr std::size_t kSafeDigits = 15;

/// A decimal or integer string of a data set as a JSON number; "" when it is none. The digits stay as written.
std::string JsonNumber(std::string_view text) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    std::string number;
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') {
        number = "-";
        text.remove_prefix(1);
    }
    const auto digits = [&] {
        std::string run;
        while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
            run += text.front();
            text.remove_prefix(1);
        }
        return run;
    };
    std::string whole = digits();
    std::string fraction;
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        fraction = digits();
    }
    if (whole.empty() && fraction.empty()) return {};
    whole.erase(0, std::min(whole.find_first_not_of('0'), whole.size()));
    number += whole.empty() ? "0" : whole;
    if (!fraction.empty()) number += "." + fraction;
    if (!text.empty() && (text.front() == 'e' || text.front() == 'E')) {
        text.remove_prefix(1);
        std::string exponent = "e";
        if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
            exponent += text.front();
            text.remove_prefix(1);
        }
        const std::string power = digits();
        if (power.empty()) return {};
        number += exponent + power;
    }
    return text.empty() ? number : std::string();
}

class JsonDump {
public:
    JsonDump(bool meta, std::FILE* out) : m_bMeta(meta), m_Json(out) {}

    void DataSet(const DICOMObject& dataSet, const TextDecoder& outer) {
        const VR* const set = FindElement(dataSet, MakeTag(0x0008, 0x0005));
        const TextDecoder decoder = set != nullptr ? TextDecoder(set->GetText()) : outer;
        m_Json.BeginObject();
        for (const VR* const element : SortedElements(dataSet)) {
            StopIfInterrupted();
            const bool isLength = element->m_Element == 0x0000;
            if (isLength || (element->m_Group == 0x0002 && !m_bMeta)) continue;
            Element(*element, decoder);
        }
        m_Json.EndObject();
    }

private:
    void Element(const VR& element, const TextDecoder& decoder) {
        char key[9];
        std::snprintf(key, sizeof key, "%04X%04X", unsigned{element.m_Group}, unsigned{element.m_Element});
        m_Json.Key(key).BeginObject();
        m_Json.Key("vr").String(TypeLetters(element));
        if (IsSequence(element)) {
            Items(element, decoder);
        } else {
            Value(element, decoder);
        }
        m_Json.EndObject();
    }

    void Items(const VR& element, const TextDecoder& decoder) {
        if (element.GetItemCount() == 0) return;
        m_Json.Key("Value").BeginArray(true);
        for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) DataSet(*element.GetItem(i), decoder);
        m_Json.EndArray();
    }

    void Value(const VR& element, const TextDecoder& decoder) {
        switch (GetValueKind(element.m_TypeCode)) {
        case ValueKind::Text: Texts(element, decoder); break;
        case ValueKind::Binary:
        case ValueKind::Sequence: Binary(element); break;
        default: Numbers(element);
        }
    }

    void Binary(const VR& element) {
        if (element.m_Length == 0 && !IsEncapsulated(&element)) return;
        m_Json.Key("InlineBinary").BeginBase64();
        m_Json.Base64(element.GetText());
        for (std::uint32_t i = 0; IsEncapsulated(&element) && i < element.GetItemCount(); ++i) {
            const VR* const fragment = GetFragment(element, i);
            const std::string_view bytes = fragment != nullptr ? fragment->GetText() : std::string_view();
            char header[8] = {'\xFE', '\xFF', '\x00', '\xE0'};
            platform::StoreLittle(header + 4, static_cast<std::uint32_t>(bytes.size()));
            m_Json.Base64({header, sizeof header});
            m_Json.Base64(bytes);
        }
        m_Json.EndBase64();
    }

    void Numbers(const VR& element) {
        const std::size_t count = CountNumbers(element);
        if (count == 0) return;
        const bool isReal = GetValueKind(element.m_TypeCode) == ValueKind::Real;
        m_Json.Key("Value").BeginArray();
        for (std::size_t i = 0; i < count; ++i) {
            const std::string text = NumberAt(element, i);
            const bool finite = !isReal || (text.find('n') == std::string::npos);  // neither "nan" nor "inf"
            const bool safe = isReal || text.size() <= kSafeDigits;
            if (GetValueKind(element.m_TypeCode) != ValueKind::Tag && finite && safe) {
                m_Json.Literal(text);
            } else {
                m_Json.String(text);
            }
        }
        m_Json.EndArray();
    }

    void Texts(const VR& element, const TextDecoder& decoder) {
        const auto parts = TextParts(element);
        if (parts.empty()) return;
        m_Json.Key("Value").BeginArray();
        if (element.m_Group == 0x0008 && element.m_Element == 0x0005 && TextDecoder(element.GetText()).IsKnown()) {
            m_Json.String("ISO_IR 192");  // what the texts here are in
        } else {
            for (const std::string_view part : parts) Text(element.m_TypeCode, part, decoder);
        }
        m_Json.EndArray();
    }

    void Text(std::uint16_t type, std::string_view part, const TextDecoder& decoder) {
        const bool isNumber = type == TypeCode("IS") || type == TypeCode("DS");
        if (part.empty()) {
            m_Json.Null();
        } else if (const std::string number = isNumber ? JsonNumber(part) : std::string(); !number.empty()) {
            m_Json.Literal(number);
        } else if (type == TypeCode("PN")) {
            Name(part, decoder);
        } else {
            m_Json.String(decoder.ToUtf8(part));
        }
    }

    /// The up to three groups of a person name (PS3.5 6.2.1).
    void Name(std::string_view name, const TextDecoder& decoder) {
        m_Json.BeginObject();
        for (const char* const group : {"Alphabetic", "Ideographic", "Phonetic"}) {
            const std::size_t end = std::min(name.find('='), name.size());
            if (end > 0) m_Json.Key(group).String(decoder.ToUtf8(name.substr(0, end)));
            name.remove_prefix(std::min(end + 1, name.size()));
        }
        m_Json.EndObject();
    }

    bool m_bMeta;
    JsonWriter m_Json;
};

}  // namespace

void DumpAsJson(const DICOMObject& dataSet, bool meta, std::FILE* out) {
    JsonDump(meta, out).DataSet(dataSet, TextDecoder());
}
