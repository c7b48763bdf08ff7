#include "DumpText.h"

#include "../core/TextEncoding.h"
#include "ElementText.h"
#include "LeftValues.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <string>

namespace korvane {

namespace {

constexpr std::size_t kCutText = 100;
constexpr std::size_t kCutBytes = 32;
constexpr std::uint32_t kSeenOfLong = 4096;  // more than is shown of any value
constexpr std::size_t kNameWidth = 36;
constexpr std::size_t kNoCut = static_cast<std::size_t>(-1);

class TextDump {
public:
    TextDump(bool whole, std::ostream& out, const Watch& watch)
        : m_bWhole(whole), m_Out(out), m_Watch(watch), m_Left(watch) {}

    void DataSet(const DICOMObject& dataSet, const TextDecoder& outer, int depth) {
        const VR* const set = FindElement(dataSet, tags::SpecificCharacterSet);
        const TextDecoder decoder = set != nullptr ? TextDecoder(set->GetText()) : outer;
        for (const VR* const element : SortedElements(dataSet)) {
            m_Watch.StopIfAsked();
            Element(dataSet, *element, decoder, depth);
        }
    }

private:
    void Element(const DICOMObject& dataSet, const VR& element, const TextDecoder& decoder, int depth) {
        const std::string type = TypeLetters(element);
        std::string value;
        if (IsSequence(element)) {
            value = Items(element.GetItemCount(), "item");
        } else if (IsEncapsulated(&element)) {
            value = Items(element.GetItemCount(), "fragment") + ", the offset table included";
        } else {
            value = Value(*WithValue(element, m_Left, Seen()), decoder);
        }
        Indent(depth);
        char head[32];
        std::snprintf(head, sizeof head, "(%04X,%04X) %s %8u  ", unsigned{element.m_Group}, unsigned{element.m_Element},
                      type.c_str(), unsigned{element.m_Length});
        std::string name = ElementName(dataSet, element);
        if (!value.empty() && name.size() < kNameWidth) name.resize(kNameWidth, ' ');
        m_Out << head << name << (value.empty() ? "" : "  ") << value << '\n';
        for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
            if (IsSequence(element)) {
                Indent(depth + 1);
                m_Out << "item " << i + 1 << '\n';
                DataSet(*element.GetItem(i), decoder, depth + 2);
            } else {
                Fragment(element, i, depth + 1);
            }
        }
    }

    void Fragment(const VR& pixelData, std::uint32_t index, int depth) {
        const VR* const fragment = GetFragment(pixelData, index);
        char head[48];
        std::snprintf(head, sizeof head, "fragment %u %8u  ", index + 1, fragment != nullptr ? fragment->m_Length : 0U);
        Indent(depth);
        m_Out << head;
        if (fragment != nullptr) m_Out << Bytes(WithValue(*fragment, m_Left, Seen())->GetText());
        m_Out << '\n';
    }

    void Indent(int depth) { m_Out << std::string(static_cast<std::size_t>(2 * depth), ' '); }

    std::string Value(const VR& element, const TextDecoder& decoder) const {
        switch (GetValueKind(element.m_TypeCode)) {
        case ValueKind::Text: return Text(element, decoder);
        case ValueKind::Binary:
        case ValueKind::Sequence: return Bytes(element.GetText());
        default: return Numbers(element);
        }
    }

    std::string Text(const VR& element, const TextDecoder& decoder) const {
        std::string text;
        bool isFirst = true;
        for (const std::string& part : TextParts(element, decoder, Undecoded::Escape)) {
            text += isFirst ? "" : "\\";
            isFirst = false;
            text += Visible(part);
            if (text.size() > Limit(kCutText)) return Cut(std::move(text));
        }
        return text;
    }

    std::string Numbers(const VR& element) const {
        std::string text;
        const std::size_t count = CountNumbers(element);
        for (std::size_t i = 0; i < count; ++i) {
            text += (i == 0 ? "" : "\\") + NumberAt(element, i);
            if (text.size() > Limit(kCutText)) return Cut(std::move(text));
        }
        return text;
    }

    std::string Bytes(std::string_view bytes) const {
        constexpr char kDigits[] = "0123456789ABCDEF";
        const std::size_t shown = std::min(bytes.size(), Limit(kCutBytes));
        std::string text;
        for (const char byte : bytes.substr(0, shown)) {
            if (!text.empty()) text += ' ';
            text += kDigits[static_cast<unsigned char>(byte) >> 4];
            text += kDigits[static_cast<unsigned char>(byte) & 15];
        }
        return shown < bytes.size() ? text + " ..." : text;
    }

    // Not within a UTF-8 sequence.
    std::string Cut(std::string text) const {
        std::size_t at = std::min(text.size(), Limit(kCutText));
        while (at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U) --at;
        text.resize(at);
        return text + " ...";
    }

    static std::string Items(std::uint32_t count, const char* what) {
        return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
    }

    std::uint32_t Seen() const { return m_bWhole ? UINT32_MAX : kSeenOfLong; }
    std::size_t Limit(std::size_t cut) const { return m_bWhole ? kNoCut : cut; }

    bool m_bWhole;
    std::ostream& m_Out;
    Watch m_Watch;
    LeftValueReader m_Left;
};

}  // namespace

void DumpAsText(const DICOMObject& dataSet, bool whole, std::ostream& out, const Watch& watch) {
    TextDump(whole, out, watch).DataSet(dataSet, TextDecoder(), 0);
}

}  // namespace korvane
