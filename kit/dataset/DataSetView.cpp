#include "DataSet.h"

#include "../core/Error.h"
#include "DateText.h"
#include "DumpText.h"
#include "ElementText.h"
#include "LeftValues.h"

#include "base/Number.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace korvane {

struct DataSetView::Place {
    VR* element = nullptr;
    std::string characterSet;

    // The element with its value: one that was left in the file comes and stays.
    const VR* WithValue() const {
        if (element != nullptr) LeftValueReader().Load(*element);
        return element;
    }
};

namespace {

std::string CharacterSetOf(const DICOMObject& dataSet, const std::string& outer) {
    const VR* const own = FindElement(dataSet, tags::SpecificCharacterSet);
    return own != nullptr ? std::string(own->GetText()) : outer;
}

[[noreturn]] void Refuse(const ElementPath& path, const std::string& why) {
    throw Error(ErrorKind::Damaged, path.GetText() + ": " + why).AtElement(static_cast<std::uint32_t>(path.GetTag()));
}

std::vector<std::string> ValuesOf(const VR& element, const std::string& characterSet) {
    switch (GetValueKind(element.m_TypeCode)) {
    case ValueKind::Text: return TextParts(element, TextDecoder(characterSet), Undecoded::Replace);
    case ValueKind::Binary:
    case ValueKind::Sequence: return {};
    default: break;
    }
    std::vector<std::string> values;
    for (std::size_t i = 0; i < CountNumbers(element); ++i) values.push_back(NumberAt(element, i));
    return values;
}

bool HoldsNumbers(const VR& element) {
    const ValueKind kind = GetValueKind(element.m_TypeCode);
    return kind == ValueKind::Signed || kind == ValueKind::Unsigned || kind == ValueKind::Real ||
           element.m_TypeCode == TypeCode("DS") || element.m_TypeCode == TypeCode("IS");
}

template <class Number>
std::vector<Number> NumbersOf(const VR* element, const ElementPath& path) {
    std::vector<Number> numbers;
    if (element == nullptr || element->m_Length == 0) return numbers;
    if (!HoldsNumbers(*element)) Refuse(path, "values of type " + TypeLetters(*element) + " are no numbers");
    for (const std::string& value : ValuesOf(*element, {})) {
        std::string_view text = value;
        while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
        if (!text.empty() && text.front() == '+') text.remove_prefix(1);
        Number number{};
        const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
        if (result.ec != std::errc() || result.ptr != text.data() + text.size())
            Refuse(path, "\"" + value + "\" is no such number");
        numbers.push_back(number);
    }
    return numbers;
}

template <class Number>
std::optional<Number> Single(const std::vector<Number>& numbers, const ElementPath& path) {
    if (numbers.empty()) return std::nullopt;
    if (numbers.size() > 1) Refuse(path, std::to_string(numbers.size()) + " values where one was asked for");
    return numbers.front();
}

void WalkLevel(const DICOMObject& dataSet, int depth, const std::function<void(const ElementFacts&)>& visit) {
    for (const VR* const element : SortedElements(dataSet)) {
        visit({MakeTag(element->m_Group, element->m_Element), TypeLetters(*element), ElementName(dataSet, *element),
               element->m_Length, depth});
        if (!IsSequence(*element)) continue;
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) WalkLevel(*element->GetItem(i), depth + 1, visit);
    }
}

bool AreEqual(const DICOMObject& left, const DICOMObject& right) {
    const VR* a = left.GetFirst();
    const VR* b = right.GetFirst();
    LeftValueReader fromLeft;  // one for each side, so that neither opens its file again and again
    LeftValueReader fromRight;
    for (; a != nullptr && b != nullptr; a = left.GetNext(a), b = right.GetNext(b)) {
        const bool same = a->m_Group == b->m_Group && a->m_Element == b->m_Element && a->m_TypeCode == b->m_TypeCode &&
                          a->GetItemCount() == b->GetItemCount() &&
                          WithValue(*a, fromLeft)->GetText() == WithValue(*b, fromRight)->GetText();
        if (!same) return false;
        for (std::uint32_t i = 0; i < a->GetItemCount(); ++i) {
            if (!AreEqual(*a->GetItem(i), *b->GetItem(i))) return false;
        }
    }
    return a == nullptr && b == nullptr;
}

}  // namespace

DataSetView::Place DataSetView::Find(const ElementPath& path) const {
    Place place;
    place.characterSet = m_CharacterSet;
    const DICOMObject* holder = m_pDataSet;
    for (const ElementPath::Step& step : path.GetSteps()) {
        if (holder == nullptr) return {};
        place.characterSet = CharacterSetOf(*holder, place.characterSet);
        place.element = FindElement(*holder, step.tag);
        if (place.element == nullptr) return {};
        const bool isThere = IsSequence(*place.element) && step.item < place.element->GetItemCount();
        holder = isThere ? place.element->GetItem(static_cast<std::uint32_t>(step.item)) : nullptr;
    }
    return place;
}

bool DataSetView::Has(const ElementPath& path) const {
    return Find(path).element != nullptr;
}

std::string DataSetView::TypeOf(const ElementPath& path) const {
    const Place place = Find(path);
    return place.element != nullptr ? TypeLetters(*place.element) : std::string();
}

std::vector<std::string> DataSetView::Texts(const ElementPath& path) const {
    const Place place = Find(path);
    return place.element != nullptr ? ValuesOf(*place.WithValue(), place.characterSet) : std::vector<std::string>();
}

std::string DataSetView::Text(const ElementPath& path) const {
    std::string text;
    bool isFirst = true;
    for (const std::string& value : Texts(path)) {
        text += (isFirst ? "" : "\\") + value;
        isFirst = false;
    }
    return text;
}

std::vector<double> DataSetView::Reals(const ElementPath& path) const {
    return NumbersOf<double>(Find(path).WithValue(), path);
}

std::optional<double> DataSetView::Real(const ElementPath& path) const {
    return Single(Reals(path), path);
}

std::vector<std::int64_t> DataSetView::Integers(const ElementPath& path) const {
    return NumbersOf<std::int64_t>(Find(path).WithValue(), path);
}

std::optional<std::int64_t> DataSetView::Integer(const ElementPath& path) const {
    return Single(Integers(path), path);
}

std::optional<std::chrono::year_month_day> DataSetView::Date(const ElementPath& path) const {
    return ReadDate(Text(path));
}

std::optional<std::chrono::microseconds> DataSetView::Time(const ElementPath& path) const {
    return ReadClock(Text(path));
}

std::optional<DateTime> DataSetView::DateAndTime(const ElementPath& path) const {
    const std::string text = Text(path);
    const std::size_t sign = std::min(text.find_first_of("+-"), text.size());
    const std::string_view local = std::string_view(text).substr(0, sign);
    const auto date = ReadDate(local.substr(0, 8));
    const auto time = local.size() > 8 ? ReadClock(local.substr(8)) : std::chrono::microseconds(0);
    if (!date || !time) return std::nullopt;
    DateTime result{*date, *time, std::nullopt};
    if (sign == text.size()) return result;
    result.offset = ReadZone(std::string_view(text).substr(sign));
    if (!result.offset) return std::nullopt;
    return result;
}

std::span<const unsigned char> DataSetView::Bytes(const ElementPath& path) const {
    const Place place = Find(path);
    const VR* const element = place.WithValue();
    if (element == nullptr || element->m_pData == nullptr) return {};
    return {element->m_pData, element->m_Length};
}

std::vector<DataSetView> DataSetView::Items(const ElementPath& path) const {
    const Place place = Find(path);
    std::vector<DataSetView> items;
    if (place.element == nullptr || !IsSequence(*place.element)) return items;
    for (std::uint32_t i = 0; i < place.element->GetItemCount(); ++i) {
        items.push_back(DataSetView(place.element->GetItem(i), place.characterSet));
    }
    return items;
}

void DataSetView::Walk(const std::function<void(const ElementFacts&)>& visit) const {
    WalkLevel(*m_pDataSet, 0, visit);
}

std::string DataSetView::ToJson(bool meta, Watcher* watcher) const {
    const Watch watch(watcher);
    if (watcher != nullptr) {
        if (const std::optional<Finding> undecoded = FindUndecodedTexts(*m_pDataSet, m_CharacterSet))
            watch.Tell(*undecoded);
    }
    std::ostringstream out;
    DumpAsJson(*m_pDataSet, meta, out, watch, m_CharacterSet);
    return out.str();
}

bool operator==(const DataSetView& left, const DataSetView& right) {
    return AreEqual(*left.m_pDataSet, *right.m_pDataSet);
}

}  // namespace korvane
