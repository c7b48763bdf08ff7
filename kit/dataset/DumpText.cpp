#include "DumpText.h"

#include "../core/HostError.h"
#include "../core/TextEncoding.h"
#include "ElementText.h"

#include <algorithm>
#include <string>

namespace korvane {

namespace {

constexpr std::size_t kCutText = 100;
constexpr std::size_t kCutBytes = 32;
constexpr std::size_t kNoCut = static_cast<std::size_t>(-1);

class TextDump {
public:
    TextDump(bool whole, std::FILE* out) : m_bWhole(whole), m_pOut(out) {}

    void DataSet(const DICOMObject& dataSet, const TextDecoder& outer, int depth) {
        const VR* const set = FindElement(dataSet, MakeTag(0x0008, 0x0005));
        const TextDecoder decoder = set != nullptr ? TextDecoder(set->GetText()) : outer;
        for (const VR* const element : SortedElements(dataSet)) {
            StopIfInterrupted();
            Element(*element, decoder, depth);
        }
    }

private:
    void Element(const VR& element, const TextDecoder& decoder, int depth) {
        const std::string type = TypeLetters(element);
        std::string value;
        if (IsSequence(element)) {
            value = Items(element.GetItemCount(), "item");
        } else if (IsEncapsulated(&element)) {
            value = Items(element.GetItemCount(), "fragment") + ", the offset table included";
        } else {
            value = Value(element, decoder);
        }
        std::fprintf(m_pOut, "%*s(%04X,%04X) %s %8u  ", 2 * depth, "", unsigned{element.m_Group},
                     unsigned{element.m_Element}, type.c_str(), element.m_Length);
        std::fprintf(m_pOut, value.empty() ? "%s\n" : "%-36s  %s\n", ElementName(element).c_str(), value.c_str());
        for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
            if (IsSequence(element)) {
                std::fprintf(m_pOut, "%*sitem %u\n", 2 * depth + 2, "", i + 1);
                DataSet(*element.GetItem(i), decoder, depth + 2);
            } else {
                Fragment(element, i, depth + 1);
            }
        }
    }

    void Fragment(const VR& pixelData, std::uint32_t index, int depth) {
        const VR* const fragment = GetFragment(pixelData, index);
        std::fprintf(m_pOut, "%*sfragment %u %8u  %s\n", 2 * depth, "", index + 1,
                     fragment != nullptr ? fragment->m_Length : 0U,
                     fragment != nullptr ? Bytes(fragment->GetText()).c_str() : "");
    }

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
        for (const std::string_view part : TextParts(element)) {
            text += (text.empty() && part.data() == element.GetText().data() ? "" : "\\");
            text += Visible(decoder.ToUtf8(part));
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

    /// Not within a UTF-8 sequence.
    std::string Cut(std::string text) const {
        std::size_t at = std::min(text.size(), Limit(kCutText));
        while (at > 0 && at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U) --at;
        text.resize(at);
        return text + " ...";
    }

    static std::string Items(std::uint32_t count, const char* what) {
        return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
    }

    std::size_t Limit(std::size_t cut) const { return m_bWhole ? kNoCut : cut; }

    bool m_bWhole;
    std::FILE* m_pOut;
};

}  // namespace

void DumpAsText(const DICOMObject& dataSet, bool whole, std::FILE* out) {
    TextDump(whole, out).DataSet(dataSet, TextDecoder(), 0);
}

}  // namespace korvane
