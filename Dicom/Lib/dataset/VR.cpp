#include "VR.h"

#include "DICOMObject.h"
#include "base/Layout.h"
#include "base/SmallBlocks.h"
#include "platform/memory/Memory.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// From here on values have whole pages, in huge ones where those are to be had: what one survivor of a batch leaves free
// around it is used again and goes back to the system, which the C heap does not do.
constexpr std::uint32_t kBufferBytes = 3 * 1024;

/// In 32 bits: the largest length, which stands for "undefined" in streams, becomes 0.
constexpr std::uint32_t RaisedToEven(std::uint32_t length) {
    return length + (length & 1u);
}

}  // namespace

VR::VR(std::uint16_t group, std::uint16_t element, std::uint32_t length, int allocate)
    : m_Group(group), m_Element(element) {
    if (allocate != 0) {
        if (AllocateValue(length) == nullptr && RaisedToEven(length) != 0) throw std::bad_alloc();
    }
    m_Length = RaisedToEven(length);
}

VR::VR(const VR& source, bool deep)
    : m_Group(source.m_Group), m_Element(source.m_Element), m_bValueMoved(1), m_TypeCode(source.m_TypeCode) {
    if (deep) {
        if (source.m_pData != nullptr && source.m_Length != 0) {
            if (AllocateValue(source.m_Length) == nullptr) throw std::bad_alloc();
            std::memcpy(m_pData, source.m_pData, source.m_Length);
        }
        m_pReference = source.m_pReference;
    } else {
        m_pData = source.m_pData;
        m_bOwnsData = 0;
    }
    m_Length = source.m_Length;
    for (std::uint32_t i = 0; i < source.GetItemCount(); ++i) {
        DICOMObject* const item = source.GetItem(i)->Clone(deep);
        if (AddItem(item) == 0) {
            delete item;
            throw std::bad_alloc();
        }
    }
}

VR::~VR() {
    static_assert(platform::LieInOrder({offsetof(VR, m_Group), offsetof(VR, m_Element), offsetof(VR, m_Length),
                                        offsetof(VR, m_pData), offsetof(VR, m_bOwnsData), offsetof(VR, m_bValueMoved),
                                        offsetof(VR, m_pSequence), offsetof(VR, m_pReference), offsetof(VR, m_TypeCode),
                                        offsetof(VR, m_StreamOffset)}));
    // Of most elements nothing is outside.
    if (m_pData != nullptr && m_pData != m_Inline) FreeValue();
    if (m_pSequence != nullptr) FreeSequence();
}

/// Whether `m_pData` is still what `AllocateOutside` made: a host may have put memory of its own there.
bool VR::IsOwnAllocation() const {
    return std::memcmp(m_Inline, &m_pData, sizeof m_pData) == 0;
}

void VR::FreeValue() {
    if (m_bOwnsData == 0 || m_pData == m_Inline) return;
    const bool isPooled = m_Storage == Storage::Small || m_Storage == Storage::Buffer;
    if (!isPooled || !IsOwnAllocation()) {
        std::free(m_pData);
    } else if (m_Storage == Storage::Small) {
        platform::FreeSmall(m_pData);
    } else {
        platform::FreeBuffer(m_pData);
    }
}

void VR::FreeSequence() {
    delete m_pSequence;
    m_pSequence = nullptr;
}

void VR::ClearValue() {
    if (m_pData != nullptr) FreeValue();
    FreeSequence();
    m_pData = nullptr;
    m_Length = 0;
    m_bOwnsData = 1;
    m_Storage = Storage::Heap;
}

/// Memory for a value that does not fit into the element itself; the toolkit throws nothing, a null tells.
void VR::AllocateOutside(std::uint32_t bytes) {
    try {
        if (bytes <= platform::kLargestSmallBlock) {
            m_pData = static_cast<unsigned char*>(platform::AllocateSmall(bytes));
            m_Storage = Storage::Small;
        } else if (bytes >= kBufferBytes) {
            m_pData = static_cast<unsigned char*>(platform::AllocateBuffer(bytes));
            m_Storage = Storage::Buffer;
        } else {
            m_pData = static_cast<unsigned char*>(std::malloc(bytes));
        }
    } catch (const std::bad_alloc&) {
        m_pData = nullptr;
    }
    static_assert(sizeof m_pData <= sizeof m_Inline);
    std::memcpy(m_Inline, &m_pData, sizeof m_pData);
}

unsigned char* VR::AllocateValue(std::uint32_t length) {
    if (m_pData != nullptr) FreeValue();
    m_pData = nullptr;
    m_bOwnsData = 1;
    m_Length = 0;
    m_Storage = Storage::Heap;
    const std::uint32_t even = RaisedToEven(length);
    if (even == 0) return nullptr;
    if (even <= kInlineBytes) {
        m_pData = m_Inline;
        m_Storage = Storage::Inline;
    } else {
        AllocateOutside(even);
        if (m_pData == nullptr) return nullptr;
    }
    m_Length = even;
    if (even != length) m_pData[even - 1] = 0;
    return m_pData;
}

int VR::TakeValueFrom(VR* other) {
    if (other == nullptr || other->m_Group != m_Group || other->m_Element != m_Element) return 0;
    if (other == this) return 1;
    ClearValue();
    m_Length = other->m_Length;
    m_TypeCode = other->m_TypeCode;
    m_pSequence = other->m_pSequence;
    m_bOwnsData = other->m_bOwnsData;
    m_Storage = other->m_Storage;
    if (other->m_Storage != Storage::Heap) std::memcpy(m_Inline, other->m_Inline, kInlineBytes);
    m_pData = other->m_pData == other->m_Inline ? m_Inline : other->m_pData;
    other->m_Length = 0;
    other->m_pData = nullptr;
    other->m_pSequence = nullptr;
    other->m_bOwnsData = 0;
    other->m_bValueMoved = 1;
    return 1;
}

int VR::AddItem(DICOMObject* item) {
    try {
        if (m_pSequence == nullptr) m_pSequence = new CursorList<DICOMObject>;
        m_pSequence->Append(item);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return 1;
}

DICOMObject* VR::GetItem(std::uint32_t index) const {
    return m_pSequence != nullptr ? m_pSequence->At(index) : nullptr;
}

DICOMObject* VR::PopItem() {
    return m_pSequence != nullptr ? m_pSequence->PopFirst() : nullptr;
}

VR* VR::Clone(bool deep) const {
    return new VR(*this, deep);
}
