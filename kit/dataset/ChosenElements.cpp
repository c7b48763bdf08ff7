#include "ChosenElements.h"

#include <algorithm>
#include <span>

namespace korvane {

namespace {

using Way = std::span<const ElementPath::Step>;

bool IsCreatorOf(const VR& element, Tag tag) {
    return element.m_Group % 2 == 1 && element.m_Group == GroupOf(tag) && element.m_Element >= 0x10 &&
           element.m_Element == ElementOf(tag) >> 8;
}

void Keep(DICOMObject& dataSet, const std::vector<Way>& ways, bool isItem);

// Of an element at which a way ends all stays.
void KeepWithin(VR& element, const std::vector<Way>& ways) {
    std::vector<Way> further;
    for (const Way& way : ways) {
        if (way.front().tag != element.GetTag()) continue;
        if (way.size() == 1) return;
        further.push_back(way);
    }
    if (IsPixelData(element)) return;
    for (std::uint32_t i = 0; i < element.GetItemCount(); ++i) {
        std::vector<Way> inItem;
        for (const Way& way : further) {
            if (way.front().item == i) inItem.push_back(way.subspan(1));
        }
        Keep(*element.GetItem(i), inItem, true);
    }
}

void Keep(DICOMObject& dataSet, const std::vector<Way>& ways, bool isItem) {
    for (VR* element = dataSet.GetFirst(); element != nullptr;) {
        VR* const next = dataSet.GetNext(element);
        const Tag tag = element->GetTag();
        const bool isOnWay = std::any_of(ways.begin(), ways.end(), [&](const Way& way) {
            return way.front().tag == tag || IsCreatorOf(*element, way.front().tag);
        });
        if (isOnWay) {
            KeepWithin(*element, ways);
        } else if (!isItem || tag != tags::SpecificCharacterSet || ways.empty()) {
            dataSet.Take(tag);
        }
        element = next;
    }
}

}  // namespace

void KeepChosen(DICOMObject& dataSet, const std::vector<ElementPath>& paths) {
    std::vector<Way> ways;
    for (const ElementPath& path : paths) ways.emplace_back(path.GetSteps());
    Keep(dataSet, ways, false);
}

}  // namespace korvane
