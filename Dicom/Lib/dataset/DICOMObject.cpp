#include "DICOMObject.h"

#include "base/Bytes.h"

#include <memory>
#include <new>

DICOMObject::~DICOMObject() {
    m_Tree.DestroyAll();
}

int DICOMObject::Push(VR* element) {
    if (element->m_Length == 0xFFFFFFFFu) element->m_Length = 0;
    if (m_pPushTarget != nullptr) return m_pPushTarget->Push(element);
    if (!m_Tree.Insert(element) && !KeepAside(element)) return 0;
    m_pLastPushed = element;
    m_bIterating = 0;
    return 1;
}

bool DICOMObject::KeepAside(VR* element) {
    try {
        if (m_pRejected == nullptr) m_pRejected = std::make_unique<CursorList<VR>>();
        m_pRejected->Append(element);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

int DICOMObject::PushItemToLast(DICOMObject* item) {
    if (m_pLastPushed == nullptr) return 0;
    const bool begins = m_pLastPushed->m_pSequence == nullptr;
    if (m_pLastPushed->AddItem(item) == 0) return 0;
    m_NestedLength += (begins ? 32u : 16u) + item->m_NestedLength;
    return 1;
}

VR* DICOMObject::Pop() {
    if (m_bIterating == 0) {
        m_pWalk = m_Tree.GetFirst();
        m_bIterating = 1;
    }
    VR* const element = m_pWalk;
    if (element != nullptr) Remove(element);
    return element;
}

void DICOMObject::Remove(VR* element) {
    if (element == m_pWalk) m_pWalk = ElementTree::GetNext(element);
    if (element == m_pLastPushed) m_pLastPushed = nullptr;
    m_Tree.Remove(element);
}

std::unique_ptr<VR> DICOMObject::Take(std::uint16_t group, std::uint16_t element) {
    VR* const found = GetVR(group, element);
    if (found != nullptr) Remove(found);
    return std::unique_ptr<VR>(found);
}

int DICOMObject::Reset() {
    m_Tree.DestroyAll();
    m_pRejected.reset();
    m_pLastPushed = nullptr;
    m_pWalk = nullptr;
    m_bIterating = 0;
    return 1;
}

std::uint16_t DICOMObject::GetUINT16(std::uint16_t group, std::uint16_t element) const {
    const VR* const found = GetVR(group, element);
    if (found == nullptr || found->m_pData == nullptr || found->m_Length != 2) return 0;
    return platform::LoadLittle<std::uint16_t>(found->m_pData);
}

DICOMObject* DICOMObject::Clone(bool deep) const {
    auto copy = std::make_unique<DICOMDataObject>();
    for (const VR* element = GetFirst(); element != nullptr; element = GetNext(element)) {
        copy->Push(element->Clone(deep));
    }
    return copy.release();
}
