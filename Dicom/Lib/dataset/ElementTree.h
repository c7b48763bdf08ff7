// The balanced tree that keeps a data set's elements in order, one for each tag.
#pragma once

#include "VR.h"

#include <bit>
#include <cstdint>

/// Its nodes are the elements themselves; an element is in one tree at most. The tree owns nothing.
///
/// Streams bring elements in order. As long as each comes behind all others, the shape follows from their number alone, and
/// nothing is coloured or turned. It becomes a red-black tree with the first element that belongs elsewhere.
///
/// The key is the signed 32-bit number (group << 16 | element): groups 0x8000 and up therefore come before group 0. The
/// encoders write in this order, and callers rely on it.
class ElementTree {
public:
    static std::int32_t Key(std::uint16_t group, std::uint16_t element) {
        return static_cast<std::int32_t>((static_cast<std::uint32_t>(group) << 16) | element);
    }

    /// False, with nothing changed, when an element of that tag is there already.
    bool Insert(VR* node) { return InsertLast(node) || InsertElsewhere(node); }
    /// True when it came behind all others, as a stream's do; else nothing was done.
    bool InsertLast(VR* node) {
        if (m_Shape != Shape::InOrder || (m_pLast != nullptr && KeyOf(node) <= KeyOf(m_pLast))) return false;
        Append(node);
        return true;
    }
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
    enum class Shape : std::uint8_t {
        InOrder,  ///< only appended to
        Loose,    ///< and then removed from: no deeper than it was
        RedBlack
    };

    static std::int32_t KeyOf(const VR* node) { return Key(node->m_Group, node->m_Element); }
    static bool IsRed(const VR* node) { return node != nullptr && node->m_bRed; }
    bool InsertElsewhere(VR* node);
    void Append(VR* node);
    void AttachLast(VR* node);
    void BeginAnew();
    void Colour();
    template <class Take>
    static void TakeApart(VR* node, const Take& take);
    void Attach(VR* node, VR* parent, VR** link);
    void Rotate(VR* node, VR* VR::*down, VR* VR::*up);
    void Replace(const VR* node, VR* by);
    void MendAfterInsert(VR* node);
    void MendAfterRemove(VR* node, VR* parent);

    VR* m_pRoot = nullptr;
    VR* m_pLast = nullptr;          // the largest key: streams come in order, so most insertions go right behind it
    std::uint32_t m_nAppended = 0;  // nodes, while the shape follows from it
    Shape m_Shape = Shape::InOrder;
};

// The n-th element stands as many levels high as n has zeros at its binary end, and takes what is lower, back to the last that
// is higher, as its left subtree: 2 takes 1, and 4 takes 2 with 1 and 3. No way down is longer than the binary digits of their
// number.
inline void ElementTree::Append(VR* node) {
    VR* below = nullptr;
    VR* above = m_pLast;
    for (int height = std::countr_zero(++m_nAppended); height > 0; --height) {
        below = above;
        above = above->m_pParent;  // NOLINT(clang-analyzer-core.NullDereference): so many stand above the last
    }
    node->m_pLeft = below;
    node->m_pRight = nullptr;
    node->m_pParent = above;
    if (below != nullptr) below->m_pParent = node;
    (above != nullptr ? above->m_pRight : m_pRoot) = node;
    m_pLast = node;
}
