#include "Encapsulation.h"

#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr std::uint16_t kItemGroup = 0xFFFE;
constexpr std::uint16_t kItemElement = 0xE000;

}  // namespace

bool IsEncapsulated(const VR* pixelData) {
    return pixelData != nullptr && pixelData->GetItemCount() > 0;
}

bool HasEncapsulatedPixels(const DICOMObject& dataSet) {
    for (const VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
        if (IsPixelData(*element)) {
            if (IsEncapsulated(element)) return true;
            continue;
        }
        for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) {
            if (HasEncapsulatedPixels(*element->GetItem(i))) return true;
        }
    }
    return false;
}

int AppendFragment(VR& pixelData, const void* bytes, std::uint32_t length) {
    try {
        auto item = std::make_unique<DICOMDataObject>();
        if (length > 0) {
            auto fragment = std::make_unique<VR>(kItemGroup, kItemElement, length, 1);
            fragment->m_TypeCode = TypeCode("OB");
            std::memcpy(fragment->m_pData, bytes, length);
            if (item->Push(fragment.get()) == 0) return 0;
            fragment.release();
        }
        if (pixelData.AddItem(item.get()) == 0) return 0;
        item.release();
        return 1;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

VR* GetFragment(const VR& pixelData, std::uint32_t index) {
    const DICOMObject* const item = pixelData.GetItem(index);
    return item != nullptr ? item->GetVR(kItemGroup, kItemElement) : nullptr;
}
