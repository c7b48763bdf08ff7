#include "KnownTypes.h"

#include "Attributes.h"
#include "LeftValues.h"

#include <algorithm>
#include <memory>
#include <new>

namespace korvane {

namespace {

constexpr int kDeepest = 256;
constexpr int kDeepestOpened = 16;  // each level of bytes within bytes is copied once more

bool IsPlainText(std::string_view text) {
    text = WithoutPadding(text);
    return std::none_of(text.begin(), text.end(), [](unsigned char c) {
        const bool isAllowed = c == '\t' || c == '\n' || c == '\f' || c == '\r' || c == 0x1B;  // PS3.5 6.1.3
        return (c < ' ' && !isAllowed) || c == 0x7F;
    });
}

class Opening {
public:
    explicit Opening(bool isBig) : m_bBig(isBig) {}

    // `depth` counts levels of items, `opened` those of them that were bytes.
    void Open(DICOMObject& dataSet, bool outerSigned, int depth, int opened) {
        if (depth > kDeepest) return;
        const bool isSigned = HasSignedPixels(dataSet, outerSigned);
        // Creators first: what they reserve stands behind them, whatever its tag.
        for (VR* element = dataSet.GetFirst(); element != nullptr; element = dataSet.GetNext(element)) {
            const bool wasUnknown = IsUnknown(*element);
            const bool becameItems = wasUnknown && Complete(dataSet, *element, isSigned, opened);
            if (IsPixelData(*element)) continue;
            for (std::uint32_t i = 0; i < element->GetItemCount(); ++i) {
                Open(*element->GetItem(i), isSigned, depth + 1, opened + (becameItems ? 1 : 0));
            }
        }
    }

private:
    static bool IsUnknown(const VR& element) {
        return (element.m_TypeCode == 0 || element.m_TypeCode == TypeCode("UN")) && element.GetItemCount() == 0 &&
               !IsPixelData(element);
    }

    // True when the value has become items.
    bool Complete(const DICOMObject& dataSet, VR& element, bool isSigned, int opened) const {
        std::uint16_t type = FindType(element, &PublicDictionary(), isSigned);
        if (type == TypeCode("UN")) {
            const PrivateRow* const row = FindPrivate(dataSet, element);
            if (row == nullptr) return false;
            type = row->typeCode;
        }
        const bool mustBeSeen = type == TypeCode("SQ") || GetValueKind(type) == ValueKind::Text;
        if (mustBeSeen) LeftValueReader().Load(element);
        if (type == TypeCode("SQ")) return !m_bBig && opened < kDeepestOpened && MakeItems(element);
        if (Fits(element, type)) element.m_TypeCode = type;
        return false;
    }

    bool Fits(const VR& element, std::uint16_t type) const {
        if (GetValueKind(type) == ValueKind::Text) return IsPlainText(element.GetText());
        if (m_bBig && element.m_TypeCode != 0) return element.m_Length == 0;
        const unsigned unit = GetValueKind(type) == ValueKind::Tag ? 4 : GetSwapUnit(type);
        return element.m_Length % unit == 0;
    }

    // The value as the items that it is; nothing is changed unless all of it is read.
    static bool MakeItems(VR& element) {
        VR* const sequence = new VR(element.m_Group, element.m_Element, 0, 0);
        sequence->m_TypeCode = TypeCode("SQ");
        DICOMDataObject holder;
        if (holder.Push(sequence) == 0) return false;
        if (element.m_Length > 0) {
            DictionaryCodec codec;
            MemoryInputBuffer bytes(element.m_pData, element.m_Length);
            bytes.SetByteOrder(Buffer::kLittleEndian);
            const bool parsed = codec.Implicit_ParseRawVRIntoDCM(bytes, &holder, 1) != 0 && codec.WasWhole();
            if (codec.WasMemoryShort()) throw std::bad_alloc();
            const bool isAll = !bytes.HasData() && holder.GetFirst() == sequence && holder.GetNext(sequence) == nullptr;
            if (!parsed || !isAll || sequence->GetItemCount() == 0) return false;
        }
        element.TakeValueFrom(sequence);
        return element.GetItemCount() > 0;
    }

    bool m_bBig;
};

}  // namespace

void OpenKnownTypes(DICOMObject& dataSet, bool isBig) {
    Opening(isBig).Open(dataSet, false, 0, 0);
}

}  // namespace korvane
