#include "../core/TextEncoding.h"
#include "Attributes.h"
#include "DumpText.h"
#include "ElementText.h"
#include "LeftValues.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>

namespace korvane {

namespace {

constexpr const char* kNamespace = "http://dicom.nema.org/PS3.19/models/NativeDICOM";

// Text of an element or an attribute. Control characters, which XML 1.0 cannot say, become U+FFFD.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '"': escaped += "&quot;"; break;
        case '\r': escaped += "&#13;"; break;  // a reader would make it a line feed
        case '\t': escaped += "&#9;"; break;
        case '\n': escaped += "&#10;"; break;
        default:
            if (static_cast<unsigned char>(c) < ' ') {
                escaped += "\xEF\xBF\xBD";
            } else {
                escaped += c;
            }
        }
    }
    return escaped;
}

class XmlDump {
public:
    XmlDump(bool meta, std::ostream& out, const Watch& watch)
        : m_bMeta(meta), m_Out(out), m_Watch(watch), m_Left(watch) {}

    void DataSet(const DICOMObject& dataSet, const TextDecoder& outer) {
        const VR* const set = FindElement(dataSet, tags::SpecificCharacterSet);
        const TextDecoder decoder = set != nullptr ? TextDecoder(set->GetText()) : outer;
        for (const VR* const element : SortedElements(dataSet)) {
            m_Watch.StopIfAsked();
            if (element->m_Element == 0 || (element->m_Group == 2 && !m_bMeta)) continue;
            Begin(dataSet, *element, decoder);
            Content(*element, decoder);
            m_Out << "</DicomAttribute>\n";
        }
    }

private:
    // Of a private element the block is not told, but the creator.
    void Begin(const DICOMObject& dataSet, const VR& element, const TextDecoder& decoder) {
        const bool isInBlock = element.m_Group % 2 == 1 && element.m_Element >= 0x1000;
        const unsigned shown = isInBlock ? element.m_Element & 0xFFU : element.m_Element;
        char tag[9];
        std::snprintf(tag, sizeof tag, "%04X%04X", unsigned{element.m_Group}, shown);
        m_Out << "<DicomAttribute tag=\"" << tag << "\" vr=\"" << TypeLetters(element) << '"';
        if (const AttributeRow* const row = FindAttribute(element.GetTag()); row != nullptr) {
            m_Out << " keyword=\"" << row->keyword << '"';
        }
        const VR* const creator = isInBlock ? dataSet.GetVR(element.m_Group, element.m_Element >> 8) : nullptr;
        if (creator != nullptr) {
            const std::string name =
                decoder.ToUtf8(WithoutPadding(creator->GetText()), TextForm::Plain, Undecoded::Replace);
            m_Out << " privateCreator=\"" << Escaped(name) << '"';
        }
        m_Out << ">\n";
    }

    void Content(const VR& element, const TextDecoder& decoder) {
        const ValueKind kind = GetValueKind(element.m_TypeCode);
        if (IsSequence(element)) {
            for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
                m_Out << "<Item number=\"" << i + 1 << "\">\n";
                DataSet(*element.GetItem(i), decoder);
                m_Out << "</Item>\n";
            }
        } else if (kind == ValueKind::Text) {
            Texts(element, decoder);
        } else if (kind != ValueKind::Binary && kind != ValueKind::Sequence) {
            const WithValue whole(element, m_Left);
            const std::size_t count = CountNumbers(*whole);
            for (std::size_t i = 0; i < count; ++i) Value(i, NumberAt(*whole, i));
        } else if (element.m_Length > 0 || IsEncapsulated(&element)) {
            m_Out << "<InlineBinary>";
            WriteBase64(element, m_Left, [this](std::string_view text) { m_Out << text; });
            m_Out << "</InlineBinary>\n";
        }
    }

    void Texts(const VR& element, const TextDecoder& decoder) {
        const bool isSet = element.GetTag() == tags::SpecificCharacterSet;
        if (isSet && element.m_Length > 0 && TextDecoder(element.GetText()).IsKnown()) {
            Value(0, "ISO_IR 192");  // what the texts here are in
            return;
        }
        std::size_t index = 0;
        for (const std::string& part : TextParts(element, decoder, Undecoded::Replace)) {
            element.m_TypeCode == TypeCode("PN") ? Name(index, part) : Value(index, part);
            ++index;
        }
    }

    void Value(std::size_t index, std::string_view text) {
        m_Out << "<Value number=\"" << index + 1 << "\">" << Escaped(text) << "</Value>\n";
    }

    // Groups are divided by '=', what is in them by '^' (PS3.5 6.2.1).
    void Name(std::size_t index, std::string_view name) {
        m_Out << "<PersonName number=\"" << index + 1 << "\">\n";
        for (const char* const group : {"Alphabetic", "Ideographic", "Phonetic"}) {
            const std::size_t end = std::min(name.find('='), name.size());
            if (end > 0) Group(group, name.substr(0, end));
            name.remove_prefix(std::min(end + 1, name.size()));
        }
        m_Out << "</PersonName>\n";
    }

    void Group(const char* group, std::string_view text) {
        static constexpr std::array kParts = {"FamilyName", "GivenName", "MiddleName", "NamePrefix", "NameSuffix"};
        m_Out << '<' << group << ">\n";
        for (std::size_t i = 0; i < kParts.size(); ++i) {
            // More parts than there may be stay together in the last.
            const std::size_t end = i + 1 < kParts.size() ? std::min(text.find('^'), text.size()) : text.size();
            if (end > 0) m_Out << '<' << kParts[i] << '>' << Escaped(text.substr(0, end)) << "</" << kParts[i] << ">\n";
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        m_Out << "</" << group << ">\n";
    }

    bool m_bMeta;
    std::ostream& m_Out;
    Watch m_Watch;
    LeftValueReader m_Left;
};

}  // namespace

void DumpAsXml(const DICOMObject& dataSet, bool meta, std::ostream& out, const Watch& watch) {
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<NativeDicomModel xmlns=\"" << kNamespace << "\" xml:space=\"preserve\">\n";
    XmlDump(meta, out, watch).DataSet(dataSet, TextDecoder());
    out << "</NativeDicomModel>\n";
}

}  // namespace korvane
