#include "ElementTree.h"

#include "DICOMObject.h"

/// One that does not come behind all others, or where the tree was not only appended to.
bool ElementTree::InsertElsewhere(VR* node) {
    const std::int32_t key = KeyOf(node);
    const bool isLast = m_pLast == nullptr || key > KeyOf(m_pLast);
    if (!isLast && Find(node->m_Group, node->m_Element) != nullptr) return false;
    if (m_Shape != Shape::RedBlack) Colour();
    if (isLast) {
        AttachLast(node);
        return true;
    }
    VR* parent = nullptr;
    VR** link = &m_pRoot;
    while (*link != nullptr) {
        parent = *link;
        link = key < KeyOf(parent) ? &parent->m_pLeft : &parent->m_pRight;
    }
    Attach(node, parent, link);
    return true;
}

void ElementTree::BeginAnew() {
    m_pRoot = nullptr;
    m_pLast = nullptr;
    m_nAppended = 0;
    m_Shape = Shape::InOrder;
}

void ElementTree::Colour() {
    VR* const root = m_pRoot;
    BeginAnew();
    m_Shape = Shape::RedBlack;
    TakeApart(root, [this](VR* node) { AttachLast(node); });
}

void ElementTree::AttachLast(VR* node) {
    Attach(node, m_pLast, m_pLast != nullptr ? &m_pLast->m_pRight : &m_pRoot);
    m_pLast = node;
}

void ElementTree::Attach(VR* node, VR* parent, VR** link) {
    node->m_pLeft = nullptr;
    node->m_pRight = nullptr;
    node->m_pParent = parent;
    node->m_bRed = true;
    *link = node;
    MendAfterInsert(node);
}

VR* ElementTree::Find(std::uint16_t group, std::uint16_t element) const {
    const std::int32_t key = Key(group, element);
    VR* node = m_pRoot;
    while (node != nullptr) {
        const std::int32_t nodeKey = KeyOf(node);
        if (key == nodeKey) break;
        node = key < nodeKey ? node->m_pLeft : node->m_pRight;
    }
    return node;
}

VR* ElementTree::FindFrom(std::uint16_t group, std::uint16_t element) const {
    const std::int32_t key = Key(group, element);
    VR* from = nullptr;
    for (VR* node = m_pRoot; node != nullptr;) {
        const bool isBefore = KeyOf(node) < key;
        if (!isBefore) from = node;
        node = isBefore ? node->m_pRight : node->m_pLeft;
    }
    return from;
}

VR* ElementTree::GetFirst() const {
    VR* node = m_pRoot;
    while (node != nullptr && node->m_pLeft != nullptr) node = node->m_pLeft;
    return node;
}

VR* ElementTree::GetNext(const VR* node) {
    if (node->m_pRight != nullptr) {
        VR* next = node->m_pRight;
        while (next->m_pLeft != nullptr) next = next->m_pLeft;
        return next;
    }
    VR* parent = node->m_pParent;
    while (parent != nullptr && node == parent->m_pRight) {
        node = parent;
        parent = parent->m_pParent;
    }
    return parent;
}

/// Puts another subtree (or none) into the place that `node` has under its parent.
void ElementTree::Replace(const VR* node, VR* by) {
    VR* const parent = node->m_pParent;
    if (parent == nullptr) {
        m_pRoot = by;
    } else if (node == parent->m_pLeft) {
        parent->m_pLeft = by;
    } else {
        parent->m_pRight = by;
    }
    if (by != nullptr) by->m_pParent = parent;
}

// The analyzer cannot know what a red-black tree promises: that a node has the child about which it is turned.
// NOLINTBEGIN(clang-analyzer-core.NullDereference)

/// A rotation toward `down`: the child on the side `up` takes the node's place. (Left rotation: down = left, up = right.)
void ElementTree::Rotate(VR* node, VR* VR::*down, VR* VR::*up) {
    VR* const child = node->*up;
    Replace(node, child);
    node->*up = child->*down;
    if (child->*down != nullptr) (child->*down)->m_pParent = node;
    child->*down = node;
    node->m_pParent = child;
}

void ElementTree::MendAfterInsert(VR* node) {
    while (IsRed(node->m_pParent)) {
        VR* const parent = node->m_pParent;
        VR* const grandparent = parent->m_pParent;
        const bool onLeft = parent == grandparent->m_pLeft;
        VR* VR::*const near = onLeft ? &VR::m_pLeft : &VR::m_pRight;
        VR* VR::*const far = onLeft ? &VR::m_pRight : &VR::m_pLeft;
        VR* const uncle = grandparent->*far;
        if (IsRed(uncle)) {
            parent->m_bRed = false;
            uncle->m_bRed = false;
            grandparent->m_bRed = true;
            node = grandparent;
            continue;
        }
        if (node == parent->*far) {
            node = parent;
            Rotate(node, near, far);
        }
        node->m_pParent->m_bRed = false;
        grandparent->m_bRed = true;
        Rotate(grandparent, far, near);
    }
    m_pRoot->m_bRed = false;
}

void ElementTree::Remove(VR* node) {
    if (m_Shape == Shape::InOrder) m_Shape = Shape::Loose;
    if (node == m_pLast) {
        m_pLast = node->m_pLeft;  // without a left subtree the parent is the next smaller one
        if (m_pLast == nullptr) m_pLast = node->m_pParent;
        while (m_pLast != nullptr && m_pLast != node->m_pParent && m_pLast->m_pRight != nullptr) {
            m_pLast = m_pLast->m_pRight;
        }
    }
    VR* child;
    VR* childParent;
    bool removedRed = node->m_bRed;
    if (node->m_pLeft == nullptr || node->m_pRight == nullptr) {
        child = node->m_pLeft != nullptr ? node->m_pLeft : node->m_pRight;
        childParent = node->m_pParent;
        Replace(node, child);
    } else {
        VR* const next = GetNext(node);
        removedRed = next->m_bRed;
        child = next->m_pRight;
        childParent = next;
        if (next->m_pParent != node) {
            childParent = next->m_pParent;
            Replace(next, child);
            next->m_pRight = node->m_pRight;
            next->m_pRight->m_pParent = next;
        }
        Replace(node, next);
        next->m_pLeft = node->m_pLeft;
        next->m_pLeft->m_pParent = next;
        next->m_bRed = node->m_bRed;
    }
    if (m_Shape == Shape::RedBlack && !removedRed) MendAfterRemove(child, childParent);
    if (m_pRoot == nullptr) BeginAnew();
    node->m_pParent = nullptr;
    node->m_pLeft = nullptr;
    node->m_pRight = nullptr;
}

void ElementTree::MendAfterRemove(VR* node, VR* parent) {
    while (node != m_pRoot && !IsRed(node)) {
        const bool onLeft = node == parent->m_pLeft;
        VR* VR::*const near = onLeft ? &VR::m_pLeft : &VR::m_pRight;
        VR* VR::*const far = onLeft ? &VR::m_pRight : &VR::m_pLeft;
        VR* sibling = parent->*far;
        if (IsRed(sibling)) {
            sibling->m_bRed = false;
            parent->m_bRed = true;
            Rotate(parent, near, far);
            sibling = parent->*far;
        }
        if (!IsRed(sibling->m_pLeft) && !IsRed(sibling->m_pRight)) {
            sibling->m_bRed = true;
            node = parent;
            parent = node->m_pParent;
            continue;
        }
        if (!IsRed(sibling->*far)) {
            (sibling->*near)->m_bRed = false;
            sibling->m_bRed = true;
            Rotate(sibling, far, near);
            sibling = parent->*far;
        }
        sibling->m_bRed = parent->m_bRed;
        parent->m_bRed = false;
        (sibling->*far)->m_bRed = false;
        Rotate(parent, near, far);
        node = m_pRoot;
    }
    if (node != nullptr) node->m_bRed = false;
}

// NOLINTEND(clang-analyzer-core.NullDereference)

/// Calls `take` with each node in order, and does not look at the node again. Trees of either shape are balanced, so that the calls
/// nest as deep as their number has binary digits, or twice that.
template <class Take>
void ElementTree::TakeApart(VR* node, const Take& take) {
    while (node != nullptr) {
        if (node->m_pLeft != nullptr) TakeApart(node->m_pLeft, take);
        VR* const right = node->m_pRight;
        take(node);
        node = right;
    }
}

void ElementTree::DestroyAll() {
    VR* const root = m_pRoot;
    BeginAnew();
    TakeApart(root, [](VR* node) { delete node; });
}
