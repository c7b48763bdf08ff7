// A DICOM data set: elements in tag order, at most one for each tag (PS3.5 7).
#pragma once

#include "../../../base/SmallBlocks.h"
#include "ElementTree.h"
#include "VR.h"

#include <memory>

/// A data set, or an item of a sequence. It owns the elements in it, and through them everything nested.
///
/// Order: ascending by the signed 32-bit tag, so groups 0x8000 to 0xFFFF come before group 0x0000 (see `ElementTree`).
/// Results are 1 and 0 or null; only `Clone` may throw `std::bad_alloc`.
class DICOMObject : public platform::SmallObject {
public:
    DICOMObject();
    DICOMObject(const DICOMObject&) = delete;
    DICOMObject& operator=(const DICOMObject&) = delete;

    // The order of the virtual operations is part of the interface: destructor, PushItemToLast, Push, Pop.
    virtual ~DICOMObject();

    /// Appends an item to the sequence of the element pushed last, which then owns it. 0, the item still the caller's,
    /// when nothing was pushed yet or memory runs out.
    virtual int PushItemToLast(DICOMObject* item);

    /// Takes the element over. With a push target set, hands it on to that. 1; 0 when memory runs out.
    ///
    /// An element of a tag that is there already does not replace it: the present one stays, and the new one, though
    /// taken over (and reachable for `PushItemToLast`), is kept aside until the set is reset or destroyed. Readers rely
    /// on that: a tag that a damaged stream repeats cannot replace what came first. To change a value in place use `VR::TakeValueFrom`.
    virtual int Push(VR* element);

    /// What `Push` does, without a virtual call, with an element of known length that comes behind all others; else false,
    /// and nothing was done.
    bool Append(VR* element) {
        if (m_pPushTarget != nullptr || !m_Tree.InsertLast(element)) return false;
        m_pLastPushed = element;
        m_bIterating = 0;
        return true;
    }

    /// Takes the elements out one by one in tag order; null when none is left. The caller owns what it gets. A `Push` in
    /// between starts over at the smallest tag.
    virtual VR* Pop();

    /// Takes one element out; null when absent. A walk by `Pop` goes on behind it.
    std::unique_ptr<VR> Take(std::uint16_t group, std::uint16_t element);
    std::unique_ptr<VR> Take(tags::Tag tag) { return Take(GroupOf(tag), ElementOf(tag)); }

    /// The element, which stays in the set and valid until it is popped or the set reset or destroyed; null when absent.
    VR* GetVR(std::uint16_t group, std::uint16_t element) const { return m_Tree.Find(group, element); }
    VR* GetVR(tags::Tag tag) const { return GetVR(GroupOf(tag), ElementOf(tag)); }

    /// The element that items go to; null when nothing was pushed, or it was popped since.
    const VR* GetLastPushed() const { return m_pLastPushed; }

    /// The value of a present element of exactly 2 bytes; 0 otherwise.
    std::uint16_t GetUINT16(std::uint16_t group, std::uint16_t element) const;
    std::uint16_t GetUINT16(tags::Tag tag) const { return GetUINT16(GroupOf(tag), ElementOf(tag)); }

    /// Destroys all elements. Returns 1.
    int Reset();

    /// A new data set with a copy of every element (see `VR::Clone`); the caller owns it.
    DICOMObject* Clone(bool deep) const;

    /// Elements pushed from now on go to another set instead (null: no longer). Not owned.
    void SetPushTarget(DICOMObject* target) { m_pPushTarget = target; }

    /// Sum over the items added with `PushItemToLast`: 16 and the nested length each, and 16 for each sequence begun so.
    std::uint32_t GetNestedLength() const { return m_NestedLength; }

    /// Walking without taking out: the first element, the first that does not stand before a tag, and the one behind
    /// another; null at the end.
    VR* GetFirst() const { return m_Tree.GetFirst(); }
    VR* GetFrom(std::uint16_t group, std::uint16_t element) const { return m_Tree.FindFrom(group, element); }
    VR* GetNext(const VR* element) const { return ElementTree::GetNext(element); }

private:
    void Remove(VR* element);
    [[gnu::noinline]] bool
    KeepAside(VR* element);  // rarely called: inlined, it would make each `Push` save more registers

    VR* m_pLastPushed = nullptr;
    std::uint32_t m_NestedLength = 0;
    std::int32_t m_bIterating = 0;
    std::unique_ptr<CursorList<VR>> m_pRejected;  // elements whose tag was there already; rarely any
    DICOMObject* m_pPushTarget = nullptr;
    ElementTree m_Tree;
    VR* m_pWalk = nullptr;
};

inline DICOMObject::DICOMObject() = default;  // see `VR`

/// A whole data set, or one item of a sequence.
class DICOMDataObject : public DICOMObject {};
