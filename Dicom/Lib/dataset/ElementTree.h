// The red-black tree that keeps a data set's elements in order, one for each tag.
#pragma once

#include "VR.h"

/// Its nodes are the elements themselves; an element is in one tree at most. The tree owns nothing.
///
/// The key is the signed 32-bit number (group << 16 | element): groups 0x8000 and up therefore come before group 0. The
/// encoders write in this order, and callers rely on it.
class ElementTree {
public:
    static std::int32_t Key(std::uint16_t group, std::uint16_t element) {
        return static_cast<std::int32_t>((static_cast<std::uint32_t>(group) << 16) | element);
    }

    /// False, with nothing changed, when an element of that tag is there already.
    bool Insert(VR* node);
    void Remove(VR* node);
    VR* Find(std::uint16_t group, std::uint16_t element) const;
    /// The first in order that does not stand before that tag.
    VR* FindFrom(std::uint16_t group, std::uint16_t element) const;

    VR* GetFirst() const;
    static VR* GetNext(const VR* node);
    bool IsEmpty() const { return m_pRoot == nullptr; }

    /// Destroys every element.
    void DestroyAll();

private:
    static std::int32_t KeyOf(const VR* node) { return Key(node->m_Group, node->m_Element); }
    static bool IsRed(const VR* node) { return node != nullptr && node->m_bRed; }
    void Attach(VR* node, VR* parent, VR** link);
    void Rotate(VR* node, VR* VR::*down, VR* VR::*up);
    void Replace(const VR* node, VR* by);
    void MendAfterInsert(VR* node);
    void MendAfterRemove(VR* node, VR* parent);

    VR* m_pRoot = nullptr;
    VR* m_pLast = nullptr;  // the largest key: streams come in order, so most insertions go right behind it
};
