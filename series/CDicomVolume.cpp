#include "CDicomVolume.h"

#include "CDicomPixelStream.h"
#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "GeometryElements.h"
#include "PixelRows.h"
#include "ValueHelpers.h"
#include "base/Integer.h"
#include "base/Layout.h"
#include "volume/CPercent.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <utility>

using korvane_detail::DecimalValues;
using korvane_detail::FindFrameOffsets;
using korvane_detail::PixelRange;
using korvane_detail::ReadReals;
using korvane_detail::ReadWhole;

// One slice before sorting: its place in the volume frame, where it comes from.
struct CDicomVolume::SliceRecord {
    double x;
    double y;
    double z;
    DICOMDataObject* m_pDDO;
    int m_nIndex;
};

// What the places of all slices are computed from.
struct CDicomVolume::Placement {
    float m_Reference[3] = {0, 0, 0};  // R
    bool m_bHasPosition = false;
    bool m_bHasOrientation = false;
    float m_Pitch = 1.0F;          // distance of slices that have no position of their own
    bool m_bDescending = false;    // order of the planes' z
    std::vector<float> m_Offsets;  // of each slice that takes part, for multi-frame objects with their own positions
};

namespace {

void Normalise(float (&v)[3]) {
    const double length = std::sqrt(double{v[0]} * v[0] + double{v[1]} * v[1] + double{v[2]} * v[2]);
    if (length > 0) {
        for (float& component : v) {
            component = static_cast<float>(component / length);
        }
    }
}

float CrossComponent(const float (&a)[3], const float (&b)[3], int i, int j) {
    return static_cast<float>(double{a[i]} * b[j] - double{a[j]} * b[i]);
}

// Reads raw values into voxels of another size than the stream's words and returns their range.
PixelRange ReadVoxels(CDicomPixelStream& stream, unsigned char* out, std::size_t count, std::size_t voxelSize) {
    PixelRange range;
    for (std::size_t i = 0; i < count; ++i, out += voxelSize) {
        const auto raw = static_cast<std::int32_t>(stream.GetNextPixel());
        std::memcpy(out, &raw, voxelSize);
        range.Widen({raw, raw});
    }
    return range;
}

}  // namespace

// ---- Life

CDicomVolume::Reference::Reference(const Reference& other) : m_pVolume(other.m_pVolume) {
    if (m_pVolume != nullptr) {
        m_pVolume->AddRef();
    }
}

CDicomVolume::Reference& CDicomVolume::Reference::operator=(const Reference& other) {
    Reference copy(other);
    std::swap(m_pVolume, copy.m_pVolume);
    return *this;
}

CDicomVolume::Reference::~Reference() {
    if (m_pVolume != nullptr) {
        m_pVolume->Delete();
    }
}

void CDicomVolume::Reference::Renew() {
    *this = Reference();
    m_pVolume = CVolume::New();
}

CDicomVolume::CDicomVolume() = default;
CDicomVolume::CDicomVolume(const CDicomVolume& other) = default;
CDicomVolume& CDicomVolume::operator=(const CDicomVolume& other) = default;
CDicomVolume::~CDicomVolume() {
    static_assert(platform::HasSize32<SliceRecord>(32));
    static_assert(platform::LieInOrder({offsetof(CDicomVolume, m_bUseSliceLocation), offsetof(CDicomVolume, m_bReverse),
                                        offsetof(CDicomVolume, m_SliceToIndex), offsetof(CDicomVolume, m_IndexToSlice),
                                        offsetof(CDicomVolume, m_pVolume), offsetof(CDicomVolume, m_DDOList),
                                        offsetof(CDicomVolume, m_pRefDDO), offsetof(CDicomVolume, m_pCallback),
                                        offsetof(CDicomVolume, m_bMultiframe), offsetof(CDicomVolume, m_nFrames),
                                        offsetof(CDicomVolume, m_Selected), offsetof(CDicomVolume, m_Row),
                                        offsetof(CDicomVolume, m_Col), offsetof(CDicomVolume, m_Normal)}));
}

void CDicomVolume::Restart() {
    m_pVolume.Renew();
    m_SliceToIndex.clear();
    m_IndexToSlice.clear();
    m_DDOList.clear();
    m_Selected.clear();
    m_pRefDDO = nullptr;
    m_bMultiframe = false;
    m_nFrames = 0;
}

// ---- Geometry

void CDicomVolume::SetIODList(std::vector<DICOMDataObject*>& list, std::vector<bool>* mask) {
    Restart();
    if (list.empty() || std::find(list.begin(), list.end(), nullptr) != list.end()) {
        return;
    }
    const std::size_t entries = Select(list, mask);
    m_nFrames = static_cast<int>(m_Selected.size());
    FindReference(list);
    if (m_nFrames != 0) {
        Arrange(list, nullptr, entries);
    }
}

void CDicomVolume::SetAlikeSlices(DICOMDataObject& first, const std::vector<std::array<float, 3>>& positions) {
    Restart();
    if (positions.empty()) {
        return;
    }
    m_Selected.resize(positions.size());
    std::iota(m_Selected.begin(), m_Selected.end(), 0);
    m_nFrames = static_cast<int>(positions.size());
    m_pRefDDO = &first;
    Arrange({&first}, &positions, positions.size());
}

// `positions`: of slices that all have the first of the list for their data set; null: each has its own.
void CDicomVolume::Arrange(const std::vector<DICOMDataObject*>& list,
                           const std::vector<std::array<float, 3>>* positions, std::size_t entries) {
    const Placement placement = ReadPlacement(list.front());
    std::vector<SliceRecord> records = MakeRecords(list, positions, placement);

    // A z that is no number comes last, so that the order stays one.
    const bool descending = placement.m_bDescending;
    std::stable_sort(records.begin(), records.end(), [descending](const SliceRecord& a, const SliceRecord& b) {
        if (std::isnan(a.z) || std::isnan(b.z)) {
            return !std::isnan(a.z) && std::isnan(b.z);
        }
        return descending ? b.z < a.z : a.z < b.z;
    });
    SetSpacing(records);
    TakeOrder(records, entries);
    InitVolume(records);
}

// Finds who takes part; nobody when there are fewer frames than asked for. Returns the number of entries in the list,
// or of frames, that the caller may index.
std::size_t CDicomVolume::Select(const std::vector<DICOMDataObject*>& list, const std::vector<bool>* mask) {
    std::int32_t claimed = 0;
    m_bMultiframe = ReadWhole(list.front(), tags::NumberOfFrames, &claimed);
    std::size_t present = list.size();
    std::size_t entries = list.size();
    if (m_bMultiframe) {
        CDicomPixelStream stream;
        const bool readable = stream.ReadLayout(list.front()) && stream.FrameBytes() != 0;
        present = readable ? static_cast<std::size_t>(stream.m_nDataLength / stream.FrameBytes()) : 0;
        entries = mask != nullptr ? mask->size() : static_cast<std::size_t>(std::max(claimed, 0));
        if (mask == nullptr && entries > present) {
            return 0;
        }
    }
    const std::size_t candidates = mask != nullptr ? mask->size() : entries;
    for (std::size_t i = 0; i < candidates; ++i) {
        if (mask != nullptr && !(*mask)[i]) {
            continue;
        }
        if (i < present) {
            m_Selected.push_back(static_cast<int>(i));
        } else if (m_bMultiframe) {
            m_Selected.clear();
            return 0;
        }
    }
    return entries;
}

void CDicomVolume::FindReference(const std::vector<DICOMDataObject*>& list) {
    m_pRefDDO = list.front();
    if (m_bMultiframe) {
        return;
    }
    std::int32_t lowest = 1;
    for (const int index : m_Selected) {
        DICOMDataObject* slice = list[static_cast<std::size_t>(index)];
        std::int32_t number = index + 1;
        ReadWhole(slice, tags::InstanceNumber, &number);
        if (number < lowest) {
            lowest = number;
            m_pRefDDO = slice;
        }
    }
}

CDicomVolume::Placement CDicomVolume::ReadPlacement(DICOMDataObject* first) {
    Placement placement;
    placement.m_bDescending = m_bReverse;
    placement.m_bHasOrientation = ReadOrientation(first);
    placement.m_bHasPosition = ReadPosition(m_pRefDDO, placement.m_Reference);
    const float* r = placement.m_Reference;
    float origin[4] = {r[0], r[1], r[2], 0};
    m_pVolume.Get()->SetOrigin(origin);

    if (!placement.m_bHasPosition || !placement.m_bHasOrientation) {
        ReadPitch(placement);
    } else if (m_bMultiframe) {
        ReadOffsets(placement);
    }
    return placement;
}

// Image Orientation (Patient): the volume gets the cosines as they are, the geometry their unit vectors.
bool CDicomVolume::ReadOrientation(DICOMDataObject* first) {
    float cosines[6] = {1, 0, 0, 0, 1, 0};
    const bool present = ReadReals(first, tags::ImageOrientationPatient, cosines, 6);
    float orientation[2][3];
    std::copy(cosines, cosines + 3, orientation[0]);
    std::copy(cosines + 3, cosines + 6, orientation[1]);
    m_pVolume.Get()->SetOrientation(orientation);

    std::copy(cosines, cosines + 3, m_Row);
    std::copy(cosines + 3, cosines + 6, m_Col);
    Normalise(m_Row);
    Normalise(m_Col);
    m_Normal[0] = CrossComponent(m_Row, m_Col, 1, 2);
    m_Normal[1] = CrossComponent(m_Row, m_Col, 2, 0);
    m_Normal[2] = CrossComponent(m_Row, m_Col, 0, 1);
    return present;
}

// Whether the slice has an Image Position (Patient). A Slice Location replaces z even where it has none.
bool CDicomVolume::ReadPosition(DICOMDataObject* slice, float (&position)[3]) const {
    const bool present = ReadReals(slice, tags::ImagePositionPatient, position, 3);
    if (m_bUseSliceLocation) {
        ReadReals(slice, tags::SliceLocation, &position[2], 1);
    }
    return present;
}

void CDicomVolume::ReadOffsets(Placement& placement) const {
    bool relative = false;
    const VR* vector = FindFrameOffsets(m_pRefDDO, &relative);
    if (vector == nullptr) {
        placement.m_Offsets.assign(m_Selected.begin(), m_Selected.end());
        return;
    }
    DecimalValues values(*vector);
    float value = 0;
    int read = 0;
    for (const int frame : m_Selected) {
        for (; read <= frame; ++read) {
            value = values.Next();
        }
        placement.m_Offsets.push_back(relative ? value : value - placement.m_Reference[2]);
    }
}

void CDicomVolume::ReadPitch(Placement& placement) const {
    // Spacing Between Slices, Slice Thickness, Pixel Spacing: the first that is there.
    if (!ReadReals(m_pRefDDO, tags::SpacingBetweenSlices, &placement.m_Pitch, 1) &&
        !ReadReals(m_pRefDDO, tags::SliceThickness, &placement.m_Pitch, 1)) {
        ReadReals(m_pRefDDO, tags::PixelSpacing, &placement.m_Pitch, 1);
    }
    if (placement.m_Pitch < 0) {
        placement.m_Pitch = -placement.m_Pitch;
        placement.m_bDescending = !placement.m_bDescending;
    }
}

std::vector<CDicomVolume::SliceRecord> CDicomVolume::MakeRecords(const std::vector<DICOMDataObject*>& list,
                                                                 const std::vector<std::array<float, 3>>* positions,
                                                                 const Placement& placement) const {
    static char noImagePlane[] = "Cannor find Image Plane";  // spelled so; thrown as char*
    const float* r = placement.m_Reference;
    std::vector<SliceRecord> records;
    records.reserve(m_Selected.size());
    for (std::size_t k = 0; k < m_Selected.size(); ++k) {
        const int index = m_Selected[k];
        const bool isOwn = !m_bMultiframe && positions == nullptr;
        DICOMDataObject* const slice = isOwn ? list[static_cast<std::size_t>(index)] : m_pRefDDO;
        double p[3] = {0, 0, 0};
        if (m_bMultiframe) {
            // The object is its own reference, so its frames differ in z only.
            p[2] =
                placement.m_Offsets.empty() ? double{placement.m_Pitch} * index - r[2] : double{placement.m_Offsets[k]};
        } else if (placement.m_bHasPosition) {
            float position[3] = {0, 0, 0};
            if (positions != nullptr) {
                std::copy((*positions)[k].begin(), (*positions)[k].end(), position);
            } else if (!ReadPosition(slice, position)) {
                throw static_cast<char*>(noImagePlane);
            }
            for (int axis = 0; axis < 3; ++axis) {
                p[axis] = double{position[axis]} - r[axis];
            }
        } else {
            p[2] = double{placement.m_Pitch} * static_cast<double>(k);
        }
        SliceRecord record = Place(p, placement);
        record.m_pDDO = slice;
        record.m_nIndex = index;
        records.push_back(record);
    }
    return records;
}

CDicomVolume::SliceRecord CDicomVolume::Place(const double (&p)[3], const Placement& placement) const {
    const float* r = placement.m_Reference;
    SliceRecord record{};
    record.x = p[0] * m_Row[0] + p[2] * m_Row[2] + p[1] * m_Row[1] + r[0];
    record.y = p[2] * m_Col[2] + p[1] * m_Col[1] + p[0] * m_Col[0] + r[1];
    record.z = -(p[2] * m_Normal[2] + p[0] * m_Normal[0] + p[1] * m_Normal[1] + r[2]);
    return record;
}

void CDicomVolume::SetSpacing(const std::vector<SliceRecord>& records) {
    float space[4];
    m_pVolume.Get()->GetSpacing(space);
    float pixel[2] = {1, 1};
    ReadReals(m_pRefDDO, tags::PixelSpacing, pixel, 2);
    space[0] = pixel[0] > 0 ? pixel[0] : 1.0F;
    space[1] = pixel[1] > 0 ? pixel[1] : 1.0F;
    if (records.size() >= 2) {
        const double extent = std::fabs(records.back().z - records.front().z);
        space[2] = static_cast<float>(extent / static_cast<double>(records.size() - 1));
    } else if (!ReadReals(m_pRefDDO, tags::SliceThickness, &space[2], 1)) {
        space[2] = (space[0] + space[1]) / 2;
    }
    m_pVolume.Get()->SetSpacing(space);
}

void CDicomVolume::TakeOrder(const std::vector<SliceRecord>& records, std::size_t entries) {
    m_IndexToSlice.assign(entries, -1);
    for (const SliceRecord& record : records) {
        m_IndexToSlice[static_cast<std::size_t>(record.m_nIndex)] = static_cast<int>(m_DDOList.size());
        m_SliceToIndex.push_back(record.m_nIndex);
        m_DDOList.push_back(record.m_pDDO);
    }
}

void CDicomVolume::InitVolume(const std::vector<SliceRecord>& records) {
    CDicomPixelStream stream;
    if (!stream.ReadLayout(m_pRefDDO) || !SlicesFit(stream)) {
        return;
    }
    CVolume::PixelType type = CVolume::PT_BYTE;
    const int bytes = stream.GetBytesPerPixel();
    if (bytes != 1 && !stream.IsColour() && stream.GetPhotometricInterpretation() != CDicomPixelStream::PI_RGB) {
        if (bytes != 2 && bytes != 4) {
            return;
        }
        type = bytes == 2 ? (stream.IsSigned() ? CVolume::PT_SHORT : CVolume::PT_USHORT)
                          : (stream.IsSigned() ? CVolume::PT_LONG : CVolume::PT_ULONG);
    }
    CVolume& volume = *m_pVolume.Get();
    volume.Init(type, stream.GetNCols(), stream.GetNRows(), m_nFrames, 1);
    // Starting values that callers know. Alloc lowers the one and raises the other, which is high already.
    volume.SetMin(0xFFFFFFFFLL);
    volume.SetMax(0xEFFFFFFFLL);
    for (std::size_t i = 0; i < records.size(); ++i) {
        float* org = volume.GetPlane(static_cast<int>(i))->m_Org;
        org[0] = static_cast<float>(records[i].x);
        org[1] = static_cast<float>(records[i].y);
        org[2] = static_cast<float>(records[i].z);
    }
    volume.UpdateZInterpArray();
}

// Whether every slice has the reference's matrix and pixel form, and all its pixels.
bool CDicomVolume::SlicesFit(const CDicomPixelStream& reference) const {
    if (m_bMultiframe) {
        return true;  // counted when the frames were selected
    }
    const DICOMDataObject* last = nullptr;  // slices that are alike have one
    const auto fits = [&reference, &last](DICOMDataObject* slice) {
        if (std::exchange(last, slice) == slice) {
            return true;
        }
        CDicomPixelStream stream;
        return stream.ReadLayout(slice) && stream.m_nRows == reference.m_nRows && stream.m_nCols == reference.m_nCols &&
               stream.m_nBytesPerPixel == reference.m_nBytesPerPixel && stream.m_bSigned == reference.m_bSigned &&
               stream.IsColour() == reference.IsColour() && stream.FrameBytes() != 0 &&
               stream.FrameBytes() <= stream.m_nDataLength;
    };
    return std::all_of(m_DDOList.begin(), m_DDOList.end(), fits);
}

// ---- Pixels

void CDicomVolume::Alloc(bool contig) {
    CVolume* volume = m_pVolume.Get();
    int dim[4] = {0, 0, 0, 0};
    if (volume != nullptr) {
        volume->GetDimensions(dim);
    }
    if (dim[2] == 0) {
        return;
    }
    if (!volume->GetContig()) {
        volume->Alloc(contig);
    }
    CDicomPixelStream stream;
    if (m_bMultiframe && stream.ReadLayout(m_pRefDDO)) {
        stream.ReadMapping(m_pRefDDO, PixelRange{});  // each frame finds its own range
    }
    for (int plane = 0; plane < dim[2]; ++plane) {
        if (m_pCallback != nullptr && m_pCallback->FireProgress(1)) {
            return;
        }
        FillPlane(stream, plane);
    }
}

void CDicomVolume::FillPlane(CDicomPixelStream& stream, int plane) {
    DICOMDataObject* slice = m_DDOList[static_cast<std::size_t>(plane)];
    if (m_bMultiframe) {
        stream.Reset();
        stream.SetImg(m_SliceToIndex[static_cast<std::size_t>(plane)], 0);
    } else {
        stream.ReadLayout(slice);
    }
    CVolume& volume = *m_pVolume.Get();
    if (stream.IsColour() && volume.GetType() == CVolume::PT_BYTE) {
        FillColourPlane(stream, plane);
        return;
    }
    int dim[4];
    volume.GetDimensions(dim);
    const std::size_t count = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]);
    auto* out = static_cast<unsigned char*>(volume.GetPlane(plane)->m_pData);
    const int voxelSize = volume.GetTypeSize();
    const PixelRange image = stream.GetWordSize() == voxelSize
                                 ? stream.ReadWords(out, count)
                                 : ReadVoxels(stream, out, count, static_cast<std::size_t>(voxelSize));
    if (!m_bMultiframe) {
        // The stream's range is that of the whole value, which may be longer than the image: known only now, since
        // scanning first and reading then would go through memory twice.
        PixelRange whole = CDicomPixelStream::ScanStart();
        whole.Widen(image);
        whole.Widen(stream.ScanRest());
        stream.ReadMapping(slice, whole);
    }
    stream.Widen(image);
    TakeRange(stream);
}

void CDicomVolume::TakeRange(const CDicomPixelStream& stream) {
    CVolume& volume = *m_pVolume.Get();
    volume.SetMin(std::min<long long>(volume.GetMin(), stream.ModalityToRaw(stream.GetMin())));
    volume.SetMax(std::max<long long>(volume.GetMax(), stream.ModalityToRaw(stream.GetMax())));
}

// The hue of three samples, which lie side by side or in three planes. Black where the data ends early.
void CDicomVolume::FillColourPlane(const CDicomPixelStream& stream, int plane) {
    CVolume& volume = *m_pVolume.Get();
    int dim[4];
    volume.GetDimensions(dim);
    const std::size_t count = static_cast<std::size_t>(dim[0]) * static_cast<std::size_t>(dim[1]);
    auto* out = static_cast<unsigned char*>(volume.GetPlane(plane)->m_pData);
    volume.SetMin(0);
    volume.SetMax(255);

    const std::size_t pixelStep = stream.m_bPlanar ? 1 : static_cast<std::size_t>(stream.m_nBytesPerPixel);
    const std::size_t sampleStep = stream.m_bPlanar ? count : 1;
    const unsigned long long needed = static_cast<unsigned long long>(stream.m_bPlanar ? 3 : pixelStep) * count;
    if (needed > stream.BytesLeft()) {
        std::memset(out, 0, count);
        return;
    }
    const unsigned char* sample = stream.m_pCursor;
    for (std::size_t i = 0; i < count; ++i, sample += pixelStep) {
        unsigned char rgb[3] = {sample[0], sample[sampleStep], sample[2 * sampleStep]};
        double hlv[3];
        RGBToHLV(rgb, hlv);
        out[i] = static_cast<unsigned char>(platform::TruncateToInt32(255 * hlv[0]));
    }
}

void CDicomVolume::VolToDicom(float* const vol, float* const patient) const {
    float origin[4] = {0, 0, 0, 0};
    double firstZ = 0;
    if (CVolume* volume = m_pVolume.Get(); volume != nullptr) {
        int dim[4];
        volume->GetDimensions(dim);
        volume->GetOrigin(origin);
        firstZ = dim[2] > 0 ? volume->GetPlane(0)->m_Org[2] : 0;
    }
    const double along = -(vol[2] + firstZ) - origin[2];
    const double x = vol[0];
    const double y = vol[1];
    for (int axis = 0; axis < 3; ++axis) {
        patient[axis] = static_cast<float>(x * m_Row[axis] + y * m_Col[axis] + along * m_Normal[axis] + origin[axis]);
    }
}

CVolume* CDicomVolume::GetVolume() const {
    return m_pVolume.Get();
}

DICOMDataObject* CDicomVolume::GetRefDDO() const {
    return m_pRefDDO;
}

bool CDicomVolume::IsMultiframe() const {
    return m_bMultiframe;
}

int CDicomVolume::GetNumFrames() const {
    return m_nFrames;
}

std::vector<DICOMDataObject*>& CDicomVolume::GetDDOList() {
    return m_DDOList;
}

void CDicomVolume::SetCallback(CPercent* callback) {
    m_pCallback = callback;
}
