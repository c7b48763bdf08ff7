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
#include <functional>
#include <new>
#include <nlohmann/json.hpp>
#include <ostream>
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

// Writes while it goes, so that memory never holds the text of a data set.
class JsonDump {
public:
    JsonDump(bool meta, std::ostream& out, const Watch& watch)
        : m_bMeta(meta), m_Out(out), m_Watch(watch), m_Left(watch) {}

    void DataSet(const DICOMObject& dataSet, const TextDecoder& outer) {
        const VR* const set = FindElement(dataSet, tags::SpecificCharacterSet);
        const TextDecoder decoder = set != nullptr ? TextDecoder(set->GetText()) : outer;
        Open('{');
        for (const VR* const element : SortedElements(dataSet)) {
            m_Watch.StopIfAsked();
            const bool isLength = element->m_Element == 0x0000;
            if (isLength || (element->m_Group == 0x0002 && !m_bMeta)) continue;
            char key[9];
            std::snprintf(key, sizeof key, "%04X%04X", unsigned{element->m_Group}, unsigned{element->m_Element});
            Key(key);
            Element(*element, decoder);
        }
        Close('}');
    }

    void End() {
        Put("\n");
        Flush();
    }

private:
    static constexpr std::size_t kPiece = std::size_t{1} << 16;  // bytes, of what is read of a value or written

    void Put(std::string_view text) {
        m_Text += text;
        if (m_Text.size() >= kPiece) Flush();
    }

    void Flush() {
        m_Out.write(m_Text.data(), static_cast<std::streamsize>(m_Text.size()));
        m_Text.clear();
    }

    // Of an object or an array, whose members stand in lines of their own, a blank further in for each level.
    void Open(char bracket) {
        Put({&bracket, 1});
        ++m_nDepth;
        m_bFirst = true;
    }

    void Next() {
        Put(m_bFirst ? "\n" : ",\n");
        Put(std::string(m_nDepth, ' '));
        m_bFirst = false;
    }

    void Key(const char* key) {
        Next();
        Put("\"");
        Put(key);
        Put("\": ");
    }

    void Close(char bracket) {
        --m_nDepth;
        if (!m_bFirst) {
            Put("\n");
            Put(std::string(m_nDepth, ' '));
        }
        Put({&bracket, 1});
        m_bFirst = false;
    }

    void Value(const Json& value) {
        Next();
        Put(value.dump());
    }

    void Element(const VR& element, const TextDecoder& decoder) {
        Open('{');
        Key("vr");
        Put(Json(TypeLetters(element)).dump());
        if (IsBinary(element)) {
            if (element.m_Length > 0 || IsEncapsulated(&element)) {
                Key("InlineBinary");
                Put("\"");
                WriteBase64(element, m_Left, [this](std::string_view text) {
                    Put(text);
                    m_Watch.StopIfAsked();
                });
                Put("\"");
            }
        } else {
            Values(element, decoder);
        }
        Close('}');
    }

    static bool IsBinary(const VR& element) {
        const ValueKind kind = GetValueKind(element.m_TypeCode);
        return !IsSequence(element) && (kind == ValueKind::Binary || kind == ValueKind::Sequence);
    }

    // None where there is no value.
    void Values(const VR& element, const TextDecoder& decoder) {
        m_bInValues = false;
        if (IsSequence(element)) {
            for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
                BeginValues();
                Next();
                DataSet(*element.GetItem(i), decoder);
                m_bInValues = true;  // again: the item's elements had arrays of their own
            }
        } else if (GetValueKind(element.m_TypeCode) == ValueKind::Text) {
            Texts(element, decoder);
        } else {
            Numbers(element);
        }
        if (m_bInValues) Close(']');
        m_bInValues = false;
    }

    void BeginValues() {
        if (m_bInValues) return;
        m_bInValues = true;
        Key("Value");
        Open('[');
    }

    void Numbers(const VR& element) {
        if (!IsLeft(element)) return NumbersOf(element);
        VR piece(element.m_Group, element.m_Element, 0, 0);
        piece.m_TypeCode = element.m_TypeCode;
        if (piece.AllocateValue(kPiece) == nullptr) throw std::bad_alloc();
        for (std::uint32_t at = 0; at < element.m_Length; at += piece.m_Length) {
            piece.m_Length = std::min(static_cast<std::uint32_t>(kPiece), element.m_Length - at);
            m_Left.Read(element, at, {piece.m_pData, piece.m_Length});
            NumbersOf(piece);
            m_Watch.StopIfAsked();
        }
    }

    void NumbersOf(const VR& element) {
        const std::size_t count = CountNumbers(element);
        const ValueKind kind = GetValueKind(element.m_TypeCode);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string text = NumberAt(element, i);
            const bool safe = kind == ValueKind::Real || text.size() <= kSafeDigits;
            BeginValues();
            Value(kind != ValueKind::Tag && safe ? NumberOrText(text) : Json(text));
        }
    }

    // "nan" and "inf" stay texts, and so does what is a number in name only.
    static Json NumberOrText(const std::string& text) {
        Json number = ToNumber(text);
        return number.is_null() ? Json(text) : number;
    }

    void Texts(const VR& element, const TextDecoder& decoder) {
        const auto parts = TextParts(element, decoder, Undecoded::Replace);
        const bool isSet = element.m_Group == 0x0008 && element.m_Element == 0x0005;
        if (isSet && !parts.empty() && TextDecoder(element.GetText()).IsKnown()) {
            BeginValues();
            Value("ISO_IR 192");  // what the texts here are in
            return;
        }
        for (const std::string& part : parts) {
            BeginValues();
            element.m_TypeCode == TypeCode("PN") && !part.empty() ? Name(part) : Value(Text(element.m_TypeCode, part));
        }
    }

    static Json Text(std::uint16_t type, const std::string& part) {
        if (part.empty()) return nullptr;
        return type == TypeCode("IS") || type == TypeCode("DS") ? NumberOrText(part) : Json(part);
    }

    // The up to three groups of a person name (PS3.5 6.2.1).
    void Name(std::string_view name) {
        Next();
        Open('{');
        for (const char* const group : {"Alphabetic", "Ideographic", "Phonetic"}) {
            const std::size_t end = std::min(name.find('='), name.size());
            if (end > 0) {
                Key(group);
                Put(Json(name.substr(0, end)).dump());
            }
            name.remove_prefix(std::min(end + 1, name.size()));
        }
        Close('}');
    }

    bool m_bMeta;
    std::ostream& m_Out;
    Watch m_Watch;
    LeftValueReader m_Left;
    std::string m_Text;  // not yet written: streams may not be buffered
    std::size_t m_nDepth = 0;
    bool m_bFirst = false;     // nothing is in what was opened last
    bool m_bInValues = false;  // the array of the present element is open
};

}  // namespace

void WriteBase64(const VR& element, LeftValueReader& left, const std::function<void(std::string_view)>& take) {
    constexpr std::size_t kHeader = 8;
    constexpr std::size_t kPiece = std::size_t{1} << 18;
    Base64 text(kPiece);
    std::vector<unsigned char> piece;
    const auto append = [&](std::string_view bytes) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(kPiece, bytes.size()))) {
            text.Append(bytes.substr(0, kPiece));
            take(text.Take());
        }
    };
    const auto appendValue = [&](const VR& value) {
        if (!IsLeft(value)) return append(value.GetText());
        for (std::uint32_t at = 0; at < value.m_Length; at += static_cast<std::uint32_t>(piece.size())) {
            piece.resize(std::min<std::size_t>(kPiece, value.m_Length - at));
            left.Read(value, at, piece);
            append({reinterpret_cast<const char*>(piece.data()), piece.size()});
        }
    };
    const std::uint32_t fragments = IsEncapsulated(&element) ? element.GetItemCount() : 0;
    if (fragments == 0) appendValue(element);
    for (std::uint32_t i = 0; i < fragments; ++i) {
        const VR* const fragment = GetFragment(element, i);
        char header[kHeader] = {'\xFE', '\xFF', '\x00', '\xE0'};
        platform::StoreLittle(header + 4, fragment != nullptr ? fragment->m_Length : 0U);
        append({header, sizeof header});
        if (fragment != nullptr) appendValue(*fragment);
    }
    take(std::move(text).Finish());
}

std::string Base64Of(const VR& element, LeftValueReader& left) {
    std::string text;
    WriteBase64(element, left, [&](std::string_view part) { text += part; });
    return text;
}

void DumpAsJson(const DICOMObject& dataSet, bool meta, std::ostream& out, const Watch& watch, std::string_view outer) {
    JsonDump dump(meta, out, watch);
    dump.DataSet(dataSet, TextDecoder(outer));
    dump.End();
}

}  // namespace korvane
