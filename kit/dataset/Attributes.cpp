#include "Attributes.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <vector>

namespace korvane {

namespace {

constexpr AttributeRow kAttributes[] = {
#include "KeywordTable.generated.inc"
};

constexpr PrivateRow kPrivate[] = {
#include "PrivateTable.generated.inc"
};

// By ascending tag.
const std::vector<const AttributeRow*>& AttributesByTag() {
    static const std::vector<const AttributeRow*> rows = [] {
        std::vector<const AttributeRow*> sorted;
        for (const AttributeRow& row : kAttributes) sorted.push_back(&row);
        std::sort(sorted.begin(), sorted.end(), [](const auto* a, const auto* b) { return a->tag < b->tag; });
        return sorted;
    }();
    return rows;
}

}  // namespace

const AttributeRow* FindKeyword(std::string_view keyword) {
    const auto* const row =
        std::lower_bound(std::begin(kAttributes), std::end(kAttributes), keyword,
                         [](const AttributeRow& left, std::string_view right) { return left.keyword < right; });
    return row != std::end(kAttributes) && row->keyword == keyword ? row : nullptr;
}

std::vector<std::string> GetKeywords() {
    std::vector<std::string> keywords;
    for (const AttributeRow& row : kAttributes) keywords.emplace_back(row.keyword);
    return keywords;
}

const AttributeRow* FindAttribute(Tag tag) {
    const auto& rows = AttributesByTag();
    const auto key = static_cast<std::uint32_t>(tag);
    const auto row = std::lower_bound(rows.begin(), rows.end(), key,
                                      [](const AttributeRow* left, std::uint32_t right) { return left->tag < right; });
    return row != rows.end() && (*row)->tag == key ? *row : nullptr;
}

const PrivateRow* FindPrivate(const DICOMObject& dataSet, const VR& element) {
    if (element.m_Group % 2 == 0 || element.m_Element < 0x1000) return nullptr;
    const VR* const creator = dataSet.GetVR(element.m_Group, element.m_Element >> 8);
    if (creator == nullptr) return nullptr;
    const std::string_view name = WithoutPadding(creator->GetText());
    const auto key = std::make_tuple(name, element.m_Group, static_cast<std::uint16_t>(element.m_Element & 0xFF));
    const auto* const row =
        std::lower_bound(std::begin(kPrivate), std::end(kPrivate), key, [](const PrivateRow& left, const auto& right) {
            return std::tie(left.creator, left.group, left.element) < right;
        });
    const bool found = row != std::end(kPrivate) && std::tie(row->creator, row->group, row->element) == key;
    return found ? row : nullptr;
}

}  // namespace korvane
