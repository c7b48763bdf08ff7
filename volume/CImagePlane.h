// One z-plane of a volume.
#pragma once

#include "../base/Export.h"

class CVolume;

/// A plane's origin and a pointer to its pixels.
///
/// The pixels belong to the plane (`Alloc` with sizes), to the caller (`Alloc` with an address), or to the contiguous
/// block of the volume that the plane stands in.
///
/// A copy is a borrower: it names the same pixels and carries the same owner flag, but never frees them, so it must not
/// be used after its source has gone. Moving hands the pixels over and leaves an empty plane behind.
class KORVANE_API CImagePlane {
public:
    CImagePlane() noexcept;
    CImagePlane(const CImagePlane& other) noexcept;
    CImagePlane(CImagePlane&& other) noexcept;
    ~CImagePlane();

    /// Not supported, since two planes would free one buffer: always throws `std::logic_error`.
    CImagePlane& operator=(const CImagePlane& other);

    /// Gives the plane a buffer of its own of a * b * c * d bytes: the two in-plane dimensions, the components of a
    /// voxel, the bytes of a component. The memory is not cleared. What the plane owned before is freed.
    /// Throws `std::bad_alloc`, and then keeps what it had, when memory is short, a size is negative or the product
    /// does not fit.
    void Alloc(int a, int b, int c, int d);

    /// Adopts the caller's pixels; the plane will not free them. What it owned before is freed,
    /// unless `p` is that very buffer: then it becomes the caller's.
    void Alloc(void* p) noexcept;

    float m_Org[3];         ///< Origin in millimetres (x, y, z); z orders and spaces the planes of a volume.
    void* m_pData;          ///< Row after row; null without pixels.
    bool m_bOwner = false;  ///< Whether `m_pData` was allocated by a plane (this one, or the one it was copied from).

private:
    friend class CVolume;

    bool Owns() const noexcept { return m_bOwner && !m_bBorrowed; }
    void Release() noexcept;
    void Borrow(const CImagePlane& source) noexcept;
    void TakePixels(CImagePlane& source) noexcept;

    bool m_bBorrowed = false;  // the plane that this one was copied from frees m_pData
};
