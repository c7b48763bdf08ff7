#include "CAnalyzeVolume.h"

#include "AnalyzeStream.h"
#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "base/Bytes.h"
#include "base/Integer.h"
#include "series/CDicomVolume.h"
#include "series/ValueHelpers.h"
#include "volume/CImagePlane.h"
#include "volume/CVolume.h"

#include <cerrno>
#include <cstring>
#include <new>

using korvane_detail::AnalyzeStream;

namespace {

constexpr std::int32_t kUnsignedChar = 2;
constexpr std::int32_t kSignedShort = 4;
constexpr std::int32_t kFloat = 16;

bool IsXRayAngiography(DICOMDataObject* dataSet) {
    char modality[64];
    if (dataSet == nullptr ||
        !ReadDCMStringTag(dataSet, GroupOf(tags::Modality), ElementOf(tags::Modality), modality, sizeof modality)) {
        return false;
    }
    return (modality[0] == 'X' || modality[0] == 'x') && (modality[1] == 'A' || modality[1] == 'a') &&
           modality[2] == '\0';
}

// One row of 16-bit samples as the file holds them: sample * scale, truncated, and `offset` added. A scale of
// 1 / Divisor is exact on 16 bits, so the integer division, which truncates too, gives the same.
template <int Divisor, class Sample>
void ConvertRow(const Sample* source, std::vector<std::uint16_t>& row, int offset) {
    const auto added = static_cast<std::uint16_t>(offset);
    std::uint16_t* const out = row.data();
    for (std::size_t i = 0; i < row.size(); ++i) {
        const auto scaled = static_cast<Sample>(source[i] / Divisor);
        out[i] = platform::SwapBytes(static_cast<std::uint16_t>(scaled + added));
    }
}

template <class Sample>
void ConvertRow(const void* source, std::vector<std::uint16_t>& row, const ExportMapping& mapping) {
    const auto* const samples = static_cast<const Sample*>(source);
    mapping.scale == 0.5 ? ConvertRow<2>(samples, row, mapping.offset) : ConvertRow<1>(samples, row, mapping.offset);
}

[[noreturn]] void RefuseDatatype(std::int32_t datatype) {
    static char bit[] = "BIT data type not supported";
    static char i32[] = "I32 data type not supported";
    static char complex[] = "COMPLEX data type not supported";
    static char real[] = "DOUBLE data type not supported";
    static char unknown[] = "0 Unknown data type not supported";  // always "0", whatever the type's number
    char* text = unknown;
    switch (datatype) {
    case 0: text = bit; break;
    case 8: text = i32; break;
    case 32: text = complex; break;
    case 64: text = real; break;
    default: break;
    }
    throw text;
}

CVolume::PixelType PixelTypeOf(std::int32_t datatype) {
    switch (datatype) {
    case kUnsignedChar: return CVolume::PT_BYTE;
    case kSignedShort: return CVolume::PT_SHORT;
    case kFloat: return CVolume::PT_FLOAT;
    default: RefuseDatatype(datatype);
    }
}

// The bytes of a slice. Throws, before memory is allocated, unless the data file is long enough for all slices.
std::size_t CheckedSliceSize(const AnalyzeHeader& header, std::size_t voxelSize, std::uint64_t fileSize) {
    if (header.dim[1] < 0 || header.dim[2] < 0 || header.dim[3] < 0) {
        throw EINVAL;
    }
    const std::uint64_t slice = static_cast<std::uint64_t>(header.dim[1]) * header.dim[2] * voxelSize;
    if (slice * header.dim[3] > fileSize) {
        throw EIO;
    }
    return static_cast<std::size_t>(slice);
}

}  // namespace

CAnalyzeVolume::CAnalyzeVolume() : m_Header{}, m_bBigEndian(false), m_bHalve(false), m_nOffset(0) {}

// NOLINTNEXTLINE(misc-unconventional-assign-operator)
CVolumeExport& CAnalyzeVolume::operator=(CDicomVolume& series) {
    TakeReference(series.GetVolume());
    m_Header = AnalyzeHeader{};
    m_bBigEndian = false;
    if (m_pVolume == nullptr) {
        return *this;
    }
    DICOMDataObject* const first = series.GetDDOList().empty() ? nullptr : series.GetDDOList().front();
    int dimensions[4];
    float spacing[4];
    m_pVolume->GetDimensions(dimensions);
    m_pVolume->GetSpacing(spacing);

    m_Header.sizeof_hdr = 348;
    m_Header.regular = 'r';
    m_Header.dim[0] = 4;
    m_Header.dim[4] = 1;
    for (int axis = 0; axis < 3; ++axis) {
        m_Header.dim[axis + 1] = static_cast<std::int16_t>(dimensions[axis]);
        m_Header.pixdim[axis + 1] = spacing[axis];
        m_Header.originator[axis] = static_cast<std::int16_t>(m_Header.dim[axis + 1] / 2);
    }
    std::strcpy(m_Header.vox_units, "mm");
    std::strcpy(m_Header.descrip, "Converted from dicom");
    ChooseVoxelMapping(first);
    m_Header.bitpix =
        first == nullptr ? std::int16_t{0} : static_cast<std::int16_t>(first->GetUINT16(tags::BitsStored));
    m_Header.funused1 = 1.0f;
    m_Header.glmax = platform::Low32(m_pVolume->GetMax());
    m_bBigEndian = true;
    return *this;
}

void CAnalyzeVolume::ChooseVoxelMapping(DICOMDataObject* first) {
    m_Header.datatype = HasSamples() ? kSignedShort : kUnsignedChar;
    if (m_pVolume->GetType() != CVolume::PT_USHORT) {
        return;
    }
    // Neither is reset for the next volume: see operator= in the header.
    if (IsXRayAngiography(first)) {
        m_bHalve = true;
    } else {
        m_nOffset = 32767;
    }
}

bool CAnalyzeVolume::HasSamples() const {
    const CVolume::PixelType type = m_pVolume->GetType();
    return type == CVolume::PT_SHORT || type == CVolume::PT_USHORT;
}

bool CAnalyzeVolume::HeaderIsOfVolume() {
    int dimensions[4];
    m_pVolume->GetDimensions(dimensions);
    return m_Header.dim[1] == dimensions[0] && m_Header.dim[2] == dimensions[1] && m_Header.dim[3] == dimensions[2];
}

bool CAnalyzeVolume::Save(const char* dir, const char* name) {
    if (m_pVolume == nullptr || !HeaderIsOfVolume()) {
        return false;
    }
    const std::string path = std::string(dir) + "/" + name;
    try {
        AnalyzeStream stream(m_pWriter);
        stream.Open(path + ".hdr");
        stream.Header(m_Header);
        stream.Close();
        stream.Open(path + ".img");
        WriteVoxels(stream);
        stream.Close();
    } catch (int) {
        return false;
    }
    return true;
}

ExportMapping CAnalyzeVolume::GetMapping() const {
    ExportMapping mapping;
    if (m_pVolume == nullptr) {
        return mapping;
    }
    if (!HasSamples()) {
        mapping.bits = m_pVolume->GetType() == CVolume::PT_BYTE ? 8 : 0;
        return mapping;
    }
    mapping.bits = 16;
    mapping.isSigned = true;
    if (!m_bBigEndian) {
        mapping.scale = 0;
        mapping.reasons = ExportMapping::Cleared;
        return mapping;
    }
    if (m_bHalve) {
        mapping.scale = 0.5;
        mapping.reasons |= ExportMapping::Halved;
    }
    if (m_nOffset != 0) {
        mapping.offset = -m_nOffset;
        mapping.reasons |= ExportMapping::MovedToSigned;
    }
    return mapping;
}

void CAnalyzeVolume::WriteVoxels(AnalyzeStream& stream) {
    const bool samples = HasSamples();
    const ExportMapping mapping = GetMapping();
    if (mapping.bits == 0) {
        return;
    }
    std::vector<std::uint16_t> row(samples ? m_Header.dim[1] : 0);
    const std::size_t sliceSize = static_cast<std::size_t>(m_Header.dim[1]) * m_Header.dim[2];
    for (int slice = m_Header.dim[3] - 1; slice >= 0; --slice) {
        if (AdvanceProgress()) {
            return;
        }
        if (samples) {
            WriteSlice16(stream, slice, mapping, row);
        } else {
            stream.Bytes(PlanePixels(slice), sliceSize);
        }
    }
}

void CAnalyzeVolume::WriteSlice16(AnalyzeStream& stream, int slice, const ExportMapping& mapping,
                                  std::vector<std::uint16_t>& row) {
    const bool isSigned = m_pVolume->GetType() == CVolume::PT_SHORT;
    const auto* const pixels = static_cast<const std::uint16_t*>(PlanePixels(slice));
    const std::size_t width = row.size();
    for (int y = 0; y < m_Header.dim[2]; ++y) {
        const std::uint16_t* const source = pixels + y * width;
        if (mapping.scale != 0) {  // a scale of 0 means that zeros are written
            isSigned ? ConvertRow<std::int16_t>(source, row, mapping) : ConvertRow<std::uint16_t>(source, row, mapping);
        }
        stream.Bytes(row.data(), 2 * width);  // one call of the host's writer for each row
    }
}

bool CAnalyzeVolume::ReadHeader(const char* path) {
    AnalyzeHeader header{};
    AnalyzeStream stream;
    stream.Open(path);
    m_bBigEndian = stream.Header(header);
    m_Header = header;
    return true;
}

bool CAnalyzeVolume::Load(const char* base) {
    AdoptReference(CVolume::New());
    int failure = ENOMEM;
    try {
        LoadPair(base);
        return true;
    } catch (int error) {
        failure = error;
    } catch (const std::bad_alloc&) {
    }
    AdoptReference(nullptr);
    throw std::strerror(failure);
}

void CAnalyzeVolume::LoadPair(const std::string& base) {
    ReadHeader((base + ".hdr").c_str());
    const CVolume::PixelType type = PixelTypeOf(m_Header.datatype);
    AnalyzeStream stream;
    stream.Open(base + ".img");
    m_pVolume->SetType(type);
    const std::size_t sliceSize =
        CheckedSliceSize(m_Header, static_cast<std::size_t>(m_pVolume->GetTypeSize()), stream.GetSize());

    m_pVolume->Init(type, m_Header.dim[1], m_Header.dim[2], m_Header.dim[3], 1);
    m_pVolume->Alloc(false);
    for (int slice = 0; slice < m_Header.dim[3]; ++slice) {
        void* const pixels = PlanePixels(slice);
        stream.Bytes(pixels, sliceSize);
        if (m_bBigEndian && type != CVolume::PT_BYTE) {
            platform::SwapUnits(pixels, sliceSize, 2);  // deliberate, though wrong for floats: see `Load` in the header
        }
        AdvanceProgress();
    }
    stream.Close();
    m_pVolume->Update();
    float spacing[4] = {m_Header.pixdim[1], m_Header.pixdim[2], m_Header.pixdim[3], 1.0f};
    m_pVolume->SetSpacing(spacing);
}
