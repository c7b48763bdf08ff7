// A doubly linked list of pointers that remembers the node visited last, so that walking it by index in order costs one
// step a call. It holds a sequence's items.
#pragma once

#include "../../../base/SmallBlocks.h"

#include <cstdint>

/// `T` needs a virtual destructor when objects of derived classes are held.
template <class T>
class CursorList : public platform::SmallObject {
public:
    CursorList() = default;
    ~CursorList() { Clear(); }
    CursorList(const CursorList&) = delete;
    CursorList& operator=(const CursorList&) = delete;

    std::uint32_t GetCount() const { return m_Count; }

    /// Appends at the tail. Throws `std::bad_alloc`, leaving the list as it was.
    void Append(T* object) {
        Node* const node = new Node(object, m_pTail);
        (m_pTail != nullptr ? m_pTail->m_pNext : m_pHead) = node;
        m_pTail = node;
        ++m_Count;
    }

    /// The element at an index, which is also where the cursor then stands: a walk from the cursor or from an end, whichever
    /// is nearest. Null at or beyond the count.
    T* At(std::uint32_t index) {
        if (index >= m_Count) return nullptr;
        const std::uint32_t fromEnd = m_Count - 1 - index;
        const std::uint32_t fromCursor = index > m_CursorIndex ? index - m_CursorIndex : m_CursorIndex - index;
        if (m_pCursor == nullptr || fromCursor > index || fromCursor > fromEnd) {
            m_pCursor = index < fromEnd ? m_pHead : m_pTail;
            m_CursorIndex = index < fromEnd ? 0 : m_Count - 1;
        }
        for (; m_CursorIndex < index; ++m_CursorIndex) m_pCursor = m_pCursor->m_pNext;
        for (; m_CursorIndex > index; --m_CursorIndex) m_pCursor = m_pCursor->m_pPrevious;
        return m_pCursor->m_pObject;
    }

    /// Takes the first element off; the caller owns it then. Null when the list is empty.
    T* PopFirst() {
        if (m_pHead == nullptr) return nullptr;
        Node* const node = m_pHead;
        T* const object = node->m_pObject;
        m_pHead = node->m_pNext;
        (m_pHead != nullptr ? m_pHead->m_pPrevious : m_pTail) = nullptr;
        m_pCursor = nullptr;
        --m_Count;
        delete node;
        return object;
    }

    /// Whether the list destroys what it holds (it does unless told otherwise).
    void SetOwnsItems(bool owns) { m_bOwnsItems = owns ? 1 : 0; }

    void Clear() {
        while (m_pHead != nullptr) {
            T* const object = PopFirst();
            if (m_bOwnsItems != 0) delete object;
        }
    }

private:
    struct Node : platform::SmallObject {
        Node(T* object, Node* previous) : m_pObject(object), m_pPrevious(previous) {}

        T* m_pObject;
        Node* m_pPrevious;
        Node* m_pNext = nullptr;
    };

    Node* m_pHead = nullptr;
    Node* m_pTail = nullptr;
    Node* m_pCursor = nullptr;  // null: no node visited yet
    std::uint32_t m_CursorIndex = 0;
    std::uint32_t m_Count = 0;
    std::int32_t m_bOwnsItems = 1;
};
