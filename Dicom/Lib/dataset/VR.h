// One DICOM data element (PS3.5 7.1): tag, value representation, value.
#pragma once

#include "../../../base/SmallBlocks.h"
#include "CursorList.h"
#include "Tag.h"
#include "TypeCode.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

class DICOMObject;

/// A data element. Its value lies in memory as little-endian bytes, `m_Length` of them, not terminated; texts are padded
/// to even length by whoever wrote them. A sequence has items instead.
///
/// Elements belong to the data set that they are pushed into. Nothing is thrown but `std::bad_alloc`.
class VR : public platform::SmallObject {
public:
    VR();

    /// An odd length is raised by one, in 32 bits: 0xFFFFFFFF gives 0. With `allocate` non-zero the value memory is made, uninitialised but for the byte
    /// that an odd length adds, which is 0.
    VR(std::uint16_t group, std::uint16_t element, std::uint32_t length, int allocate);
    VR(tags::Tag tag, std::uint32_t length, int allocate) : VR(GroupOf(tag), ElementOf(tag), length, allocate) {}

    /// Copies tag, length, type code and, item by item, the sequence. `deep`: a value memory of its own. Otherwise the
    /// copy shares the source's bytes and must not outlive them.
    VR(const VR& source, bool deep);

    virtual ~VR();
    VR(const VR&) = delete;
    VR& operator=(const VR&) = delete;

    /// Takes value, length, type code and items out of an element of the same tag, which is left empty; what stood here
    /// is destroyed. 0, with nothing changed, for null or for another tag; else 1.
    int TakeValueFrom(VR* other);

    /// Appends an item, which the element then owns. 1, or 0 when memory runs out.
    int AddItem(DICOMObject* item);

    /// Number of items, 0 without a sequence.
    std::uint32_t GetItemCount() const { return m_pSequence != nullptr ? m_pSequence->GetCount() : 0; }

    /// An item by index, null beyond the last. Walking in order is cheap.
    DICOMObject* GetItem(std::uint32_t index) const;

    /// Takes the first item off; the caller owns it. Null without one.
    DICOMObject* PopItem();

    /// A new element by the copying constructor; the caller owns it.
    VR* Clone(bool deep) const;

    /// Gives the element value memory for `length` bytes (an odd one raised by one, the last byte then 0) in place of
    /// what it had. Returns it; null when memory runs out, the element then being empty.
    unsigned char* AllocateValue(std::uint32_t length);

    /// The same with a copy of those bytes, of which there is one at least; false when memory runs out.
    bool CopyValue(const unsigned char* bytes, std::uint32_t length);

    /// The longest value that `TakeShortValue` takes, and how many bytes must be there whatever its length.
    static constexpr std::uint32_t kShortValue = 22;

    /// The same for a new element and a value of no more than `kShortValue` bytes, of which there may be none, with as many
    /// bytes to be read there: faster.
    void TakeShortValue(const unsigned char* bytes, std::uint32_t length);

    /// Destroys value and items: length 0, no data.
    void ClearValue();

    tags::Tag GetTag() const { return tags::MakeTag(m_Group, m_Element); }

    /// The value as characters, padding included; empty without data.
    std::string_view GetText() const {
        return m_pData != nullptr ? std::string_view(reinterpret_cast<const char*>(m_pData), m_Length)
                                  : std::string_view();
    }

    std::uint16_t m_Group = 0;
    std::uint16_t m_Element = 0;
    std::uint32_t m_Length = 0;
    unsigned char* m_pData = nullptr;  ///< memory that a host puts here together with m_bOwnsData must come from malloc
    std::int32_t m_bOwnsData = 1;
    std::int32_t m_bValueMoved = 0;  ///< set in a copy, and in an element whose value was taken
    CursorList<DICOMObject>* m_pSequence = nullptr;
    void* m_pReference = nullptr;  ///< carried along by deep copies only
    std::uint16_t m_TypeCode = 0;
    std::uint32_t m_StreamOffset = 0;  ///< where in its stream the element began; 0 when it was not read from one

private:
    friend class ElementTree;

    /// Where the value memory comes from, so that it goes back there.
    enum class Storage : std::uint8_t { Heap, Inline, Small, Buffer };

    void AllocateOutside(std::uint32_t bytes);
    bool IsOwnAllocation() const;
    void FreeValue();
    void FreeSequence();

    // Most values are shorter than this; they need no allocation of their own. For a longer one the address of its memory
    // is kept here.
    static constexpr std::uint32_t kInlineBytes = kShortValue;
    alignas(8) unsigned char m_Inline[kInlineBytes];
    Storage m_Storage = Storage::Heap;

    // The node of the data set's tree, which therefore needs no allocation either.
    bool m_bRed = false;
    VR* m_pParent = nullptr;
    VR* m_pLeft = nullptr;
    VR* m_pRight = nullptr;
};

// Not in the class: `new VR()` would clear all of the element first, which takes longer than the rest.
inline VR::VR() = default;

// Inlined for those that fit into the element, which most of a stream's do. Pieces of a fixed size overlap: a call to copy a
// few bytes costs more than they do.
inline bool VR::CopyValue(const unsigned char* bytes, std::uint32_t length) {
    if (length > kInlineBytes || m_pData != nullptr) {
        if (AllocateValue(length) == nullptr) return false;
        std::memcpy(m_pData, bytes, length);
        return true;
    }
    static_assert(kInlineBytes <= 3 * 8);
    if (length >= 8) {
        if (length > 2 * 8) std::memcpy(m_Inline + 8, bytes + 8, 8);
        std::memcpy(m_Inline, bytes, 8);
        std::memcpy(m_Inline + length - 8, bytes + length - 8, 8);
    } else if (length >= 4) {
        std::memcpy(m_Inline, bytes, 4);
        std::memcpy(m_Inline + length - 4, bytes + length - 4, 4);
    } else {
        m_Inline[0] = bytes[0];
        m_Inline[length / 2] = bytes[length / 2];
        m_Inline[length - 1] = bytes[length - 1];
    }
    if ((length & 1U) != 0) m_Inline[length] = 0;
    m_pData = m_Inline;
    m_bOwnsData = 1;
    m_Storage = Storage::Inline;
    m_Length = length + (length & 1U);
    return true;
}

// Without asking for the length, but for the byte that an odd one adds: what is copied beyond it is never looked at.
inline void VR::TakeShortValue(const unsigned char* bytes, std::uint32_t length) {
    static_assert(kInlineBytes >= 2 * 8 && kInlineBytes <= 3 * 8);
    if (length == 0) return;
    std::memcpy(m_Inline, bytes, 2 * 8);
    std::memcpy(m_Inline + kInlineBytes - 8, bytes + kInlineBytes - 8, 8);
    if ((length & 1U) != 0) m_Inline[length] = 0;
    m_pData = m_Inline;
    m_Storage = Storage::Inline;
    m_Length = length + (length & 1U);
}
