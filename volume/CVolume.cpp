#include "CVolume.h"

#include "BufferSize.h"
#include "VoxelRange.h"
#include "base/Integer.h"
#include "base/Layout.h"
#include "platform/memory/Memory.h"

#include <algorithm>
#include <cstddef>

namespace {

// A product of sizes as an `int` increment holds it.
int Increment(int a, int b, int c = 1, int d = 1) {
    using platform::WrapMultiply;
    return WrapMultiply(WrapMultiply(a, b), WrapMultiply(c, d));
}

void ReorderByPlane(VolumePlane plane, const int* xyz, int* const out) {
    static constexpr int kAxes[3][3] = {{0, 1, 2}, {1, 2, 0}, {1, 0, 2}};
    if (plane < VP_XY || plane > VP_XZ) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        out[i] = xyz[kAxes[plane][i]];
    }
}

}  // namespace

CVolume::CVolume() = default;

CVolume::CVolume(const CVolume& other) : CVolume() {
    *this = other;
}

CVolume& CVolume::operator=(const CVolume& other) {
    if (this == &other) {
        return *this;
    }
    m_ZInterp = other.m_ZInterp;
    m_Planes.resize(other.m_Planes.size());
    for (std::size_t k = 0; k < m_Planes.size(); ++k) {
        m_Planes[k].Borrow(other.m_Planes[k]);
    }
    // A copy that is assigned back to its source names the source's own block: that stays owned.
    if (m_bBorrowed || m_pVolume == nullptr || m_pVolume != other.m_pVolume) {
        ReleaseBlock();
        m_pVolume = other.m_pVolume;
        m_bBorrowed = true;
    }
    std::copy_n(other.m_Dim, 4, m_Dim);
    std::copy_n(other.m_Inc, 4, m_Inc);
    std::copy_n(other.m_Org, 4, m_Org);
    other.GetOrientation(m_Orient);
    std::copy_n(other.m_Space, 4, m_Space);
    m_Min = other.m_Min;
    m_Max = other.m_Max;
    m_Type = other.m_Type;
    m_bInit = other.m_bInit;
    m_VoxelSize = other.m_VoxelSize;
    m_nRefs = other.m_nRefs;
    m_AllocMode = other.m_AllocMode;
    return *this;
}

CVolume::~CVolume() {
    static_assert(platform::LieInOrder(
        {offsetof(CVolume, m_Dim), offsetof(CVolume, m_Inc), offsetof(CVolume, m_Org), offsetof(CVolume, m_Orient),
         offsetof(CVolume, m_Space), offsetof(CVolume, m_Min), offsetof(CVolume, m_Max), offsetof(CVolume, m_Type),
         offsetof(CVolume, m_bInit), offsetof(CVolume, m_pVolume), offsetof(CVolume, m_VoxelSize),
         offsetof(CVolume, m_ZInterp), offsetof(CVolume, m_Planes), offsetof(CVolume, m_nRefs),
         offsetof(CVolume, m_AllocMode)}));
    ReleaseBlock();
}

CVolume* CVolume::New() {
    return new CVolume;
}

void CVolume::AddRef() {
    ++m_nRefs;
}

void CVolume::Delete() {
    if (m_nRefs-- == 1) {
        delete this;
    }
}

int CVolume::GetNRefs() const {
    return m_nRefs;
}

void CVolume::Init(PixelType type, int nx, int ny, int nz, int nc) {
    Reset();
    m_Dim[0] = nx;
    m_Dim[1] = ny;
    m_Dim[2] = nz;
    m_Dim[3] = nc;
    m_Type = type;
    m_Min = 0;
    m_Max = 0;
    m_Planes.resize(static_cast<std::size_t>(std::max(nz, 0)));
    m_bInit = true;
}

void CVolume::Alloc(bool contig) {
    if (!m_bInit) {
        throw 1;
    }
    if (contig && m_AllocMode != 1) {
        AllocContiguous();
    } else if (!contig && m_AllocMode == 0) {
        AllocPlanes();
    }
}

// After `Free` there are no planes although the volume is initialised, hence the resizing here and below.
void CVolume::AllocPlanes() {
    const int size = GetTypeSize();
    m_Planes.resize(static_cast<std::size_t>(std::max(m_Dim[2], 0)));
    // All planes or none: the volume must not hold a part that its mode denies.
    std::vector<CImagePlane> fresh(m_Planes.size());
    for (CImagePlane& plane : fresh) {
        plane.Alloc(m_Dim[0], m_Dim[1], m_Dim[3], size);
    }
    for (std::size_t k = 0; k < m_Planes.size(); ++k) {
        m_Planes[k].TakePixels(fresh[k]);
    }
    m_Inc[0] = size;
    m_Inc[1] = Increment(m_Dim[0], size);
    m_Inc[2] = -1;
    m_Inc[3] = Increment(m_Dim[0], size, m_Dim[1]);
    m_AllocMode = 2;
}

// Pixels of separate planes go first, so that both are never held at once. The planes themselves stay where they are:
// their origins are the geometry of the series, and the z-interpolation table knows them by address.
void CVolume::AllocContiguous() {
    using korvane_detail::BufferSize;
    const int size = GetTypeSize();
    const std::size_t planeBytes = BufferSize({m_Dim[3], m_Dim[1], m_Dim[0], size});
    const std::size_t bytes = BufferSize({m_Dim[2], m_Dim[3], m_Dim[1], m_Dim[0], size});
    for (CImagePlane& plane : m_Planes) {
        plane.Alloc(nullptr);
    }
    m_AllocMode = 0;
    m_Planes.resize(static_cast<std::size_t>(m_Dim[2]));
    ReleaseBlock();
    m_pVolume = platform::AllocateBuffer(bytes);
    for (std::size_t k = 0; k < m_Planes.size(); ++k) {
        m_Planes[k].Alloc(static_cast<unsigned char*>(m_pVolume) + k * planeBytes);
    }
    m_Inc[0] = size;
    m_Inc[1] = Increment(m_Dim[0], size);
    m_Inc[2] = Increment(m_Dim[1], m_Dim[0], size);
    m_Inc[3] = Increment(m_Dim[2], m_Dim[1], m_Dim[0], size);
    m_AllocMode = 1;
}

void CVolume::ReleaseBlock() noexcept {
    if (!m_bBorrowed) {
        platform::FreeBuffer(m_pVolume);
    }
    m_pVolume = nullptr;
    m_bBorrowed = false;
}

void CVolume::Free() {
    if (m_AllocMode == 0) {
        return;
    }
    m_Planes.clear();
    ReleaseBlock();
    m_AllocMode = 0;
}

void CVolume::Reset() {
    Free();
    std::fill_n(m_Dim, 4, 0);
    m_bInit = false;
    m_ZInterp.clear();
}

bool CVolume::GetContig() const {
    return m_pVolume != nullptr;
}

void* CVolume::GetVolumePt() {
    return m_pVolume;
}

CImagePlane* CVolume::GetPlane(int k) {
    return m_Planes.data() + k;
}

int CVolume::GetPlaneCount() const {
    return static_cast<int>(m_Planes.size());
}

int CVolume::GetTypeSize() {
    switch (m_Type) {
    case PT_BYTE: return 1;
    case PT_SHORT:
    case PT_USHORT: return 2;
    case PT_FLOAT:
    case PT_LONG:
    case PT_ULONG: return 4;
    }
    return -1;
}

void CVolume::SetType(PixelType type) {
    m_Type = type;
}

CVolume::PixelType CVolume::GetType() {
    return m_Type;
}

void CVolume::SetDimensions(int* const d) {
    Reset();
    std::copy_n(d, 4, m_Dim);
}

void CVolume::GetDimensions(int* const d) const {
    std::copy_n(m_Dim, 4, d);
}

void CVolume::GetIncrements(int* const inc) const {
    std::copy_n(m_Inc, 4, inc);
}

void CVolume::SetOrigin(float* const org) {
    std::copy_n(org, 4, m_Org);
}

void CVolume::GetOrigin(float* const org) const {
    std::copy_n(m_Org, 4, org);
}

void CVolume::SetSpacing(float* const space) {
    std::copy_n(space, 4, m_Space);
}

void CVolume::GetSpacing(float* const space) const {
    std::copy_n(m_Space, 4, space);
}

void CVolume::SetOrientation(float (*const orient)[3]) {
    std::copy_n(orient[0], 3, m_Orient[0]);
    std::copy_n(orient[1], 3, m_Orient[1]);
}

void CVolume::GetOrientation(float (*const orient)[3]) const {
    std::copy_n(m_Orient[0], 3, orient[0]);
    std::copy_n(m_Orient[1], 3, orient[1]);
}

void CVolume::SetMin(long long value) {
    m_Min = value;
}

void CVolume::SetMax(long long value) {
    m_Max = value;
}

long long CVolume::GetMin() const {
    return m_Min;
}

long long CVolume::GetMax() const {
    return m_Max;
}

// Comparing the extremes alone gives what comparing voxel by voxel gives: the stored values move one way only, and
// truncation keeps the order.
void CVolume::Update() {
    if (m_Dim[0] < 1 || m_Dim[1] < 1 || m_Dim[2] < 1) {
        return;
    }
    const std::size_t voxels = static_cast<std::size_t>(m_Dim[0]) * static_cast<std::size_t>(m_Dim[1]);
    const std::size_t planes = std::min(m_Planes.size(), static_cast<std::size_t>(m_Dim[2]));
    for (std::size_t k = 0; k < planes; ++k) {
        if (m_Planes[k].m_pData == nullptr) {
            continue;
        }
        const auto range = korvane_detail::FindVoxelRange(m_Planes[k].m_pData, voxels, m_Type);
        if (range.m_Low < static_cast<double>(m_Min)) {
            m_Min = platform::TruncateToInt64(range.m_Low);
        }
        if (range.m_High > static_cast<double>(m_Max)) {
            m_Max = platform::TruncateToInt64(range.m_High);
        }
    }
}

void CVolume::GetPlaneDimensions(VolumePlane plane, int* const d) {
    ReorderByPlane(plane, m_Dim, d);
}

void CVolume::GetPlaneIncrements(VolumePlane plane, int* const inc) {
    ReorderByPlane(plane, m_Inc, inc);
}
