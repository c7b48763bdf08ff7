#include "CImagePlane.h"

#include "BufferSize.h"
#include "base/Layout.h"
#include "platform/memory/Memory.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>

CImagePlane::CImagePlane() noexcept : m_Org{0, 0, 0}, m_pData(nullptr) {}

CImagePlane::CImagePlane(const CImagePlane& other) noexcept : CImagePlane() {
    Borrow(other);
}

CImagePlane::CImagePlane(CImagePlane&& other) noexcept : CImagePlane() {
    std::copy_n(other.m_Org, 3, m_Org);
    TakePixels(other);
}

CImagePlane::~CImagePlane() {
    static_assert(platform::LieInOrder(
        {offsetof(CImagePlane, m_Org), offsetof(CImagePlane, m_pData), offsetof(CImagePlane, m_bOwner)}));
    Release();
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): no assignment is handled.
CImagePlane& CImagePlane::operator=(const CImagePlane&) {
    throw std::logic_error("CImagePlane cannot be assigned");
}

void CImagePlane::Alloc(int a, int b, int c, int d) {
    void* const data = platform::AllocateBuffer(korvane_detail::BufferSize({a, b, c, d}));
    Release();
    m_pData = data;
    m_bOwner = true;
    m_bBorrowed = false;
}

void CImagePlane::Alloc(void* p) noexcept {
    if (p != m_pData) {
        Release();
    }
    m_pData = p;
    m_bOwner = false;
    m_bBorrowed = false;
}

void CImagePlane::Borrow(const CImagePlane& source) noexcept {
    std::copy_n(source.m_Org, 3, m_Org);
    if (Owns() && m_pData == source.m_pData) {
        return;  // the source is a copy of this plane
    }
    Release();
    m_pData = source.m_pData;
    m_bOwner = source.m_bOwner;
    m_bBorrowed = true;
}

void CImagePlane::TakePixels(CImagePlane& source) noexcept {
    Release();
    m_pData = std::exchange(source.m_pData, nullptr);
    m_bOwner = std::exchange(source.m_bOwner, false);
    m_bBorrowed = std::exchange(source.m_bBorrowed, false);
}

void CImagePlane::Release() noexcept {
    if (Owns()) {
        platform::FreeBuffer(m_pData);
    }
}
