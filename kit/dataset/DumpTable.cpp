#include "DumpTable.h"

#include "../core/TextEncoding.h"
#include "DumpText.h"
#include "ElementText.h"
#include "LeftValues.h"

#include <ostream>
#include <string_view>

namespace korvane {

namespace {

std::string Quoted(std::string_view text) {
    const bool isEdged = !text.empty() && (text.front() == ' ' || text.back() == ' ');
    if (!isEdged && text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + '"';
}

std::string Joined(const std::vector<std::string>& values) {
    std::string text;
    for (std::size_t i = 0; i < values.size(); ++i) text += (i == 0 ? "" : "\\") + values[i];
    return text;
}

std::string ValueOf(const VR& element, const TextDecoder& decoder) {
    LeftValueReader left;
    if (IsSequence(element)) {
        const std::uint32_t count = element.GetItemCount();
        return std::to_string(count) + (count == 1 ? " item" : " items");
    }
    const ValueKind kind = GetValueKind(element.m_TypeCode);
    if (kind == ValueKind::Text) return Joined(TextParts(element, decoder, Undecoded::Replace));
    if (kind == ValueKind::Binary || kind == ValueKind::Sequence) return Base64Of(element, left);
    std::vector<std::string> numbers;
    const WithValue whole(element, left);
    for (std::size_t i = 0; i < CountNumbers(*whole); ++i) numbers.push_back(NumberAt(*whole, i));
    return Joined(numbers);
}

std::string ValueAt(const DICOMObject& dataSet, const ElementPath& path) {
    const DICOMObject* holder = &dataSet;
    TextDecoder decoder;
    const VR* element = nullptr;
    for (const ElementPath::Step& step : path.GetSteps()) {
        if (holder == nullptr) return {};
        if (const VR* const set = FindElement(*holder, tags::SpecificCharacterSet))
            decoder = TextDecoder(set->GetText());
        element = FindElement(*holder, step.tag);
        if (element == nullptr) return {};
        const bool isThere = IsSequence(*element) && step.item < element->GetItemCount();
        holder = isThere ? element->GetItem(static_cast<std::uint32_t>(step.item)) : nullptr;
    }
    return ValueOf(*element, decoder);
}

}  // namespace

void WriteTableHead(const std::vector<ElementPath>& columns, std::ostream& out) {
    out << "file";
    for (const ElementPath& path : columns) out << ',' << Quoted(path.GetText());
    out << '\n';
}

void WriteTableRow(const DICOMObject& dataSet, const std::string& file, const std::vector<ElementPath>& columns,
                   std::ostream& out) {
    out << Quoted(file);
    for (const ElementPath& path : columns) out << ',' << Quoted(ValueAt(dataSet, path));
    out << '\n';
}

}  // namespace korvane
