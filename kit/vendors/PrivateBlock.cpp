#include "PrivateBlock.h"

#include "base/Bytes.h"
#include "base/Number.h"

#include <algorithm>
#include <cmath>

namespace korvane {

namespace {

constexpr std::size_t kMostNumbers = 65536;
constexpr std::uint16_t kFirstBlock = 0x10;
constexpr std::uint16_t kLastBlock = 0xFF;

template <class T>
std::vector<double> Binary(const VR& element) {
    std::vector<double> numbers;
    if (element.m_pData == nullptr) return numbers;
    const std::size_t count = std::min<std::size_t>(element.m_Length / sizeof(T), kMostNumbers);
    for (std::size_t i = 0; i < count; ++i) {
        numbers.push_back(static_cast<double>(platform::LoadLittle<T>(element.m_pData + i * sizeof(T))));
    }
    return numbers;
}

std::vector<double> Textual(const VR& element) {
    const std::string text(element.GetText());
    const auto parts = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\\')) + 1;
    std::vector<double> numbers(std::min(parts, kMostNumbers));
    numbers.resize(platform::ScanReals(text, numbers.data(), numbers.size()));
    return numbers;
}

}  // namespace

PrivateBlock::PrivateBlock(const DICOMObject& dataSet, std::uint16_t group, std::string_view creator)
    : m_DataSet(dataSet), m_Group(group) {
    // Nearly all that are asked for are not there, so only what the file has is looked at.
    for (const VR* element = dataSet.GetFrom(group, kFirstBlock);
         element != nullptr && element->m_Group == group && element->m_Element <= kLastBlock;
         element = dataSet.GetNext(element)) {
        if (WithoutBlanks(TextOf(*element)) != creator) continue;
        m_Block = element->m_Element;
        return;
    }
}

const VR* PrivateBlock::Find(std::uint8_t element) const {
    if (!IsThere()) return nullptr;
    return FindElement(m_DataSet, MakeTag(m_Group, static_cast<std::uint16_t>(m_Block << 8 | element)));
}

std::string PrivateBlock::Text(std::uint8_t element) const {
    if (Find(element) == nullptr) return {};
    return FindText(m_DataSet, MakeTag(m_Group, static_cast<std::uint16_t>(m_Block << 8 | element)));
}

std::vector<double> PrivateBlock::Numbers(std::uint8_t element, int unknownAs) const {
    const VR* const found = Find(element);
    return found != nullptr ? ReadNumbers(*found, unknownAs) : std::vector<double>();
}

std::vector<double> ReadNumbers(const VR& element, int unknownAs) {
    const bool isUnknown = element.m_TypeCode == TypeCode("UN") || element.m_TypeCode == TypeCode("OB");
    const int type = isUnknown ? unknownAs : element.m_TypeCode;
    std::vector<double> numbers;
    if (type == TypeCode("US"))
        numbers = Binary<std::uint16_t>(element);
    else if (type == TypeCode("SS"))
        numbers = Binary<std::int16_t>(element);
    else if (type == TypeCode("UL"))
        numbers = Binary<std::uint32_t>(element);
    else if (type == TypeCode("SL"))
        numbers = Binary<std::int32_t>(element);
    else if (type == TypeCode("FL"))
        numbers = Binary<float>(element);
    else if (type == TypeCode("FD"))
        numbers = Binary<double>(element);
    else if (isUnknown || GetValueKind(element.m_TypeCode) == ValueKind::Text)
        numbers = Textual(element);
    const bool sound = std::all_of(numbers.begin(), numbers.end(), [](double one) { return std::isfinite(one); });
    return sound ? numbers : std::vector<double>();
}

}  // namespace korvane
