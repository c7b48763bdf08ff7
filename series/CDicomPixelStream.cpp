#include "CDicomPixelStream.h"

#include "Dicom/Lib/dataset/DICOMObject.h"
#include "Dicom/Lib/dictionary/Tags.generated.h"
#include "PixelRows.h"
#include "ValueHelpers.h"
#include "base/Bytes.h"
#include "base/Integer.h"
#include "base/Layout.h"
#include "base/Number.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

using korvane_detail::PixelRange;
using korvane_detail::WordForm;
using platform::Low32;
using platform::TruncateToInt32;

namespace {

// 2^exponent in 32 bits; 0 outside them.
std::uint32_t PowerOfTwo(int exponent) {
    return exponent >= 0 && exponent < 32 ? std::uint32_t{1} << exponent : 0;
}

int ToInt(std::uint32_t bits) {
    return static_cast<int>(bits);
}

// The element, only when it has a value.
VR* WithValue(DICOMDataObject* ddo, tags::Tag tag) {
    VR* vr = ddo->GetVR(tag);
    return vr != nullptr && !vr->GetText().empty() ? vr : nullptr;
}

}  // namespace

CDicomPixelStream::CDicomPixelStream() = default;

CDicomPixelStream::CDicomPixelStream(DICOMDataObject* ddo) {
    SetDDO(ddo);
}

CDicomPixelStream::~CDicomPixelStream() {
    static_assert(platform::LieInOrder({offsetof(CDicomPixelStream, m_bValid),
                                        offsetof(CDicomPixelStream, m_bInvert),
                                        offsetof(CDicomPixelStream, m_pInterpret),
                                        offsetof(CDicomPixelStream, m_nMaxPossible),
                                        offsetof(CDicomPixelStream, m_nBitsAllocated),
                                        offsetof(CDicomPixelStream, m_nBitsStored),
                                        offsetof(CDicomPixelStream, m_nFrames),
                                        offsetof(CDicomPixelStream, m_nHighBit),
                                        offsetof(CDicomPixelStream, m_nSignOffset),
                                        offsetof(CDicomPixelStream, m_nXORMask),
                                        offsetof(CDicomPixelStream, m_nOverlayMask),
                                        offsetof(CDicomPixelStream, m_bOverlay),
                                        offsetof(CDicomPixelStream, m_nPixelShift),
                                        offsetof(CDicomPixelStream, m_nSamples),
                                        offsetof(CDicomPixelStream, m_bSigned),
                                        offsetof(CDicomPixelStream, m_nBytesPerPixel),
                                        offsetof(CDicomPixelStream, m_pData),
                                        offsetof(CDicomPixelStream, m_pCursor),
                                        offsetof(CDicomPixelStream, m_nPixelMask),
                                        offsetof(CDicomPixelStream, m_nMin),
                                        offsetof(CDicomPixelStream, m_nMax),
                                        offsetof(CDicomPixelStream, m_nRows),
                                        offsetof(CDicomPixelStream, m_nCols),
                                        offsetof(CDicomPixelStream, m_Photometric),
                                        offsetof(CDicomPixelStream, m_Inc),
                                        offsetof(CDicomPixelStream, m_nWinMin),
                                        offsetof(CDicomPixelStream, m_nWinMax),
                                        offsetof(CDicomPixelStream, m_dXSpacing),
                                        offsetof(CDicomPixelStream, m_dYSpacing),
                                        offsetof(CDicomPixelStream, m_fIntercept),
                                        offsetof(CDicomPixelStream, m_fRescale),
                                        offsetof(CDicomPixelStream, m_nImg)}));
}

// ---- Opening

bool CDicomPixelStream::SetDDO(DICOMDataObject* ddo) {
    if (!ReadLayout(ddo)) {
        return false;
    }
    PixelRange raw = ScanStart();
    if (IsMonochrome()) {
        raw.Widen(ScanRest());
    }
    ReadMapping(ddo, raw);
    return true;
}

// Where the scan for the range begins; four-byte data may lie wholly beyond it.
PixelRange CDicomPixelStream::ScanStart() {
    return {65535, -65535};
}

// Everything but what depends on the pixels' range.
bool CDicomPixelStream::ReadLayout(DICOMDataObject* ddo) {
    m_bValid = false;
    m_bOverlay = false;
    m_bInvert = false;
    m_Photometric = PI_MONO16;
    m_pData = m_pCursor = nullptr;
    m_nDataLength = 0;
    m_nImg = 0;
    if (ddo == nullptr || !ReadMatrix(ddo) || !ReadBits(ddo)) {
        return false;
    }
    DeriveMasks();
    if (!ReadPhotometric(ddo) || !ReadSamples(ddo)) {
        return false;
    }
    SetOverlay(false);
    const VR* pixels = ddo->GetVR(tags::PixelData);
    if (pixels == nullptr) {
        return false;
    }
    m_pData = m_pCursor = pixels->m_pData;
    m_nDataLength = pixels->m_pData != nullptr ? pixels->m_Length : 0;
    SetDefaultRange();
    return true;
}

bool CDicomPixelStream::ReadMatrix(DICOMDataObject* ddo) {
    if (ddo->GetVR(tags::Rows) == nullptr || ddo->GetVR(tags::Columns) == nullptr) {
        return false;
    }
    m_nRows = ddo->GetUINT16(tags::Rows);
    m_nCols = ddo->GetUINT16(tags::Columns);
    VR* frames = WithValue(ddo, tags::NumberOfFrames);
    m_nFrames = frames != nullptr ? static_cast<int>(VRAtoi(frames)) : 1;
    return true;
}

bool CDicomPixelStream::ReadBits(DICOMDataObject* ddo) {
    for (const tags::Tag tag : {tags::BitsStored, tags::BitsAllocated, tags::HighBit}) {
        if (ddo->GetVR(tag) == nullptr) {
            return false;
        }
    }
    m_nBitsStored = ddo->GetUINT16(tags::BitsStored);
    m_nBitsAllocated = ddo->GetUINT16(tags::BitsAllocated);
    m_nHighBit = ddo->GetUINT16(tags::HighBit);
    m_bSigned = ddo->GetUINT16(tags::PixelRepresentation) != 0;
    return true;
}

void CDicomPixelStream::DeriveMasks() {
    const std::uint32_t sign = m_bSigned ? PowerOfTwo(m_nBitsStored - 1) : 0;
    m_nSignOffset = ToInt(0U - sign);
    m_nXORMask = ToInt(sign & 0xFFFF);
    m_nBytesPerPixel = (m_nBitsAllocated + 7) / 8;
    m_nPixelMask = ToInt(PowerOfTwo(m_nBytesPerPixel == 4 ? m_nBitsStored / 2 : m_nBitsStored) - 1);
    m_nPixelShift = m_nHighBit - m_nBitsStored + 1;
    const std::uint32_t above = 0U - PowerOfTwo(m_nBitsStored);
    switch (m_nBytesPerPixel) {
    case 1: m_nOverlayMask = ToInt(above & 0xFF); break;
    case 4: m_nOverlayMask = ToInt(above); break;
    default: m_nOverlayMask = ToInt(above & 0xFFFF); break;
    }
}

// The comparison goes as far as the shorter of value and keyword, so that a value that begins a keyword matches it.
bool CDicomPixelStream::ReadPhotometric(DICOMDataObject* ddo) {
    const VR* vr = WithValue(ddo, tags::PhotometricInterpretation);
    if (vr == nullptr) {
        return false;
    }
    std::string_view value = vr->GetText();
    value = value.substr(0, value.find_last_not_of(std::string_view(" \0", 2)) + 1);
    if (value.empty()) {
        return false;
    }
    const auto matches = [value](std::string_view keyword) {
        const std::size_t length = std::min(value.size(), keyword.size());
        return value.substr(0, length) == keyword.substr(0, length);
    };
    m_bInvert = matches("MONOCHROME1");
    if (m_bInvert || matches("MONOCHROME2")) {
        m_Photometric = m_nBytesPerPixel == 1 ? PI_MONO8 : m_nBytesPerPixel == 4 ? PI_MONO32 : PI_MONO16;
    } else if (matches("RGB")) {
        m_Photometric = PI_RGB;
    } else if (matches("PALETTE COLOR")) {
        m_Photometric = PI_PALETTE;
    }
    return true;
}

bool CDicomPixelStream::ReadSamples(DICOMDataObject* ddo) {
    m_nSamples = m_nSamplesStored = ddo->GetUINT16(tags::SamplesPerPixel);
    if (m_nSamples == 0) {
        return false;
    }
    m_bPlanar = false;
    if (m_nSamples != 1) {
        m_nBytesPerPixel = m_nSamples;
        m_bPlanar = ddo->GetUINT16(tags::PlanarConfiguration) != 0;
    }
    const int rowBytes = platform::WrapMultiply(m_nBytesPerPixel, m_nCols);
    const int frameBytes = platform::WrapMultiply(rowBytes, m_nRows);
    if (m_bPlanar) {
        const std::array<int, 4> planar = {1, m_nCols, frameBytes, platform::WrapMultiply(m_nCols, m_nRows)};
        std::copy(planar.begin(), planar.end(), m_Inc);
    } else {
        const std::array<int, 4> interleaved = {m_nBytesPerPixel, rowBytes, frameBytes, 1};
        std::copy(interleaved.begin(), interleaved.end(), m_Inc);
    }
    if (m_Photometric == PI_PALETTE) {
        m_nSamples = 3;
    }
    return true;
}

// Four-byte data has half the range that its bits would allow, as its pixel mask has.
void CDicomPixelStream::SetDefaultRange() {
    const bool halved = m_nBytesPerPixel == 4;
    if (m_bSigned) {
        const std::uint32_t half = PowerOfTwo(halved ? (m_nBitsStored - 1) / 2 : m_nBitsStored - 1);
        m_nMaxPossible = ToInt(half - 1);
        m_nWinMin = ToInt(0U - half);
    } else {
        m_nMaxPossible = ToInt(PowerOfTwo(halved ? m_nBitsStored / 2 : m_nBitsStored) - 1);
        m_nWinMin = 0;
    }
    m_nWinMax = m_nMax = m_nMaxPossible;
    m_nMin = m_nWinMin;
}

// Completes the opening: rescale, window and range in modality units, spacing. `raw` counts for monochrome data only.
void CDicomPixelStream::ReadMapping(DICOMDataObject* ddo, const PixelRange& raw) {
    m_fIntercept = 0.0F;
    m_fRescale = 1.0F;
    if (IsMonochrome()) {
        VR* intercept = WithValue(ddo, tags::RescaleIntercept);
        VR* slope = WithValue(ddo, tags::RescaleSlope);
        if (intercept != nullptr && slope != nullptr) {
            m_fIntercept = static_cast<float>(VRAtof(intercept));
            m_fRescale = static_cast<float>(VRAtof(slope));
        }
        m_nMin = static_cast<int>(RawToModality(raw.m_Min));
        m_nMax = static_cast<int>(RawToModality(raw.m_Max));
        if (!ReadWindow(ddo)) {
            m_nWinMin = m_nMin;
            m_nWinMax = m_nMax;
        }
    }
    ReadSpacing(ddo);
    m_bValid = true;
}

bool CDicomPixelStream::ReadWindow(DICOMDataObject* ddo) {
    VR* center = WithValue(ddo, tags::WindowCenter);
    VR* width = WithValue(ddo, tags::WindowWidth);
    if (center == nullptr || width == nullptr) {
        return false;
    }
    const auto middle = static_cast<int>(VRAtoi(center));
    const auto extent = static_cast<int>(VRAtoi(width));
    const int half = extent / 2;
    m_nWinMin = Low32(std::int64_t{middle} - half + (extent % 2 == 0 ? 1 : 0));
    m_nWinMax = platform::WrapAdd(middle, half);
    if (!m_bSigned) {
        m_nWinMin = std::max(m_nWinMin, 0);
        m_nWinMax = std::max(m_nWinMax, 0);
    }
    return true;
}

void CDicomPixelStream::ReadSpacing(DICOMDataObject* ddo) {
    // Imager Pixel Spacing, twice (the second group is no mistake), Image Plane Pixel Spacing, Pixel Spacing, Nominal
    // Scanned Pixel Spacing.
    constexpr tags::Tag kSpacings[] = {tags::ImagerPixelSpacing, tags::MakeTag(0x3006, 0x1164),
                                       tags::ImagePlanePixelSpacing, tags::PixelSpacing,
                                       tags::NominalScannedPixelSpacing};
    double spacing[2] = {1.0, 1.0};
    for (const tags::Tag tag : kSpacings) {
        if (const VR* vr = ddo->GetVR(tag); vr != nullptr) {
            platform::ScanReals(vr->GetText(), spacing, 2);
            break;
        }
    }
    m_dXSpacing = spacing[0];
    m_dYSpacing = spacing[1];
}

// ---- Layout

bool CDicomPixelStream::IsMonochrome() const {
    return m_Photometric != PI_RGB && m_Photometric != PI_PALETTE;
}

// Three samples of a byte: said to be RGB, or stored so whatever it is called (a pixel packed in three bytes, YBR).
bool CDicomPixelStream::IsColour() const {
    return m_nBytesPerPixel == 3 || (m_Photometric == PI_RGB && m_nSamplesStored >= 3);
}

unsigned long long CDicomPixelStream::FrameBytes() const {
    return static_cast<unsigned long long>(m_nBytesPerPixel) * static_cast<unsigned>(m_nCols) *
           static_cast<unsigned>(m_nRows);
}

// The address in bytes, or the length of the data where the word does not lie inside.
std::size_t CDicomPixelStream::OffsetOf(int row, int col, int frame, int sample) const {
    const auto columns = static_cast<unsigned long long>(m_nCols);
    const unsigned long long pixel = m_bPlanar ? 1 : static_cast<unsigned long long>(m_nBytesPerPixel);
    const unsigned long long steps[] = {pixel * columns, pixel, FrameBytes(),
                                        m_bPlanar ? columns * static_cast<unsigned>(m_nRows) : 1};
    const int indices[] = {row, col, frame, sample};
    unsigned long long room = m_nDataLength;
    for (int axis = 0; axis < 4; ++axis) {
        const int index = indices[axis];
        if (index == 0) {
            continue;
        }
        if (index < 0 || (steps[axis] != 0 && static_cast<unsigned>(index) > room / steps[axis])) {
            return m_nDataLength;
        }
        room -= static_cast<unsigned>(index) * steps[axis];
    }
    return room >= static_cast<unsigned>(GetWordSize()) ? static_cast<std::size_t>(m_nDataLength - room)
                                                        : m_nDataLength;
}

int CDicomPixelStream::GetWordSize() const {
    return m_nBytesPerPixel == 2 || m_nBytesPerPixel == 4 ? m_nBytesPerPixel : 1;
}

WordForm CDicomPixelStream::Form() const {
    return {GetWordSize(), m_nPixelShift, static_cast<std::uint32_t>(m_nPixelMask),
            static_cast<std::uint32_t>(m_nXORMask), m_nSignOffset};
}

unsigned CDicomPixelStream::WordAt(const void* p) const {
    switch (GetWordSize()) {
    case 1: return *static_cast<const unsigned char*>(p);
    case 2: return platform::LoadLittle<std::uint16_t>(p);
    default: return platform::LoadLittle<std::uint32_t>(p);
    }
}

long CDicomPixelStream::RawAt(const void* p) const {
    return DecodeWord(Form(), p != nullptr ? WordAt(p) : 0);
}

// ---- The cursor

void CDicomPixelStream::Reset() {
    m_pCursor = m_pData;
    m_nMin = 65536;
    m_nMax = -65536;
}

void CDicomPixelStream::SetImg(int frame, int sample) {
    m_nImg = frame;
    if (frame >= 0) {
        m_pCursor = m_pData + OffsetOf(0, 0, frame, sample);
    }
}

std::size_t CDicomPixelStream::BytesLeft() const {
    return m_nDataLength - static_cast<std::size_t>(m_pCursor - m_pData);
}

void CDicomPixelStream::Widen(const PixelRange& raw) {
    m_nMin = std::min(m_nMin, raw.m_Min);
    m_nMax = std::max(m_nMax, raw.m_Max);
}

long CDicomPixelStream::GetNextPixel() {
    const auto size = static_cast<std::size_t>(GetWordSize());
    const bool inside = BytesLeft() >= size;
    const auto raw = static_cast<std::int32_t>(RawAt(inside ? m_pCursor : nullptr));
    m_pCursor += inside ? size : 0;
    Widen({raw, raw});
    return raw;
}

void CDicomPixelStream::ReadPixels(void* out, std::size_t count) {
    Widen(ReadWords(out, count));
}

// The range of the words from the cursor to the end of the data.
PixelRange CDicomPixelStream::ScanRest() const {
    return ScanWords(Form(), m_pCursor, BytesLeft() / static_cast<std::size_t>(GetWordSize()));
}

// Reads as the cursor does and returns the range of what it read; words beyond the end of the data are 0.
PixelRange CDicomPixelStream::ReadWords(void* out, std::size_t count) {
    const auto size = static_cast<std::size_t>(GetWordSize());
    const std::size_t present = std::min(count, BytesLeft() / size);
    PixelRange range = DecodeWords(Form(), m_pCursor, out, present);
    m_pCursor += present * size;
    if (present < count) {
        const auto raw = static_cast<std::int32_t>(RawAt(nullptr));
        auto* rest = static_cast<unsigned char*>(out) + present * size;
        for (std::size_t i = present; i < count; ++i, rest += size) {
            std::memcpy(rest, &raw, size);
        }
        range.Widen({raw, raw});
    }
    return range;
}

// ---- Random access

void* CDicomPixelStream::GetPixelPt(int row, int col, int frame, int sample) const {
    const std::size_t offset = OffsetOf(row, col, frame, sample);
    return offset < m_nDataLength ? m_pData + offset : nullptr;
}

long CDicomPixelStream::GetRawValue(int row, int col, int frame, int sample) const {
    const bool outside = row < 0 || col < 0 || row >= m_nRows || col >= m_nCols;
    return outside ? 0 : RawAt(GetPixelPt(row, col, frame, sample));
}

long CDicomPixelStream::GetModalityValue(int row, int col, int frame, int sample) const {
    const bool outside = row < 0 || col < 0 || row >= m_nRows || col >= m_nCols;
    return outside ? 0 : RawToModality(GetRawValue(row, col, frame, sample));
}

long CDicomPixelStream::GetPixelValue(int row, int col, int frame, int sample) const {
    if (row < 0 || col < 0 || frame < 0 || sample < 0 || row >= m_nRows || col >= m_nCols || frame >= m_nFrames ||
        sample >= m_nSamples) {
        return -1;
    }
    const void* p = GetPixelPt(row, col, frame, sample);
    return InterpretValue(p != nullptr ? static_cast<std::int32_t>(WordAt(p)) : 0);
}

long CDicomPixelStream::InterpretValue(long word) const {
    return (this->*m_pInterpret)(Low32(word));
}

long CDicomPixelStream::InterpretRawValue(void* p) const {
    return RawAt(p);
}

// ---- Domains

long CDicomPixelStream::RawToModality(long v) const {
    return TruncateToInt32(static_cast<double>(Low32(v)) * m_fRescale + m_fIntercept);
}

long CDicomPixelStream::ModalityToRaw(long v) const {
    return TruncateToInt32(static_cast<double>(Low32(v)) / m_fRescale - m_fIntercept);
}

long CDicomPixelStream::PixelToRaw(long v) const {
    return platform::WrapAdd(Low32(v), m_nSignOffset);
}

long CDicomPixelStream::RawToPixel(long v) const {
    return Low32(std::int64_t{Low32(v)} - m_nSignOffset);
}

long CDicomPixelStream::GetMaxPossibleValue() const {
    return RawToModality(m_nMaxPossible);
}

void CDicomPixelStream::GetIncrements(int* const inc) const {
    std::copy(m_Inc, m_Inc + 4, inc);
}

// ---- Interpretation

void CDicomPixelStream::SetOverlay(bool on) {
    using Stream = CDicomPixelStream;
    // By overlay, inversion and size: 1 byte, 4 bytes, any other. Four-byte words not inverted are read as two-byte
    // ones.
    static constexpr Interpreter kInterpreters[2][2][3] = {
        {{&Stream::Interpret8, &Stream::Interpret16, &Stream::Interpret16},
         {&Stream::Interpret8Inv, &Stream::Interpret32Inv, &Stream::Interpret16Inv}},
        {{&Stream::InterpretOverlay<&Stream::Interpret8>, &Stream::InterpretOverlay<&Stream::Interpret16>,
          &Stream::InterpretOverlay<&Stream::Interpret16>},
         {&Stream::InterpretOverlay<&Stream::Interpret8Inv>, &Stream::InterpretOverlay<&Stream::Interpret32Inv>,
          &Stream::InterpretOverlay<&Stream::Interpret16Inv>}}};
    m_bOverlay = on;
    const int size = m_nBytesPerPixel == 1 ? 0 : m_nBytesPerPixel == 4 ? 1 : 2;
    m_pInterpret = kInterpreters[on ? 1 : 0][m_bInvert ? 1 : 0][size];
}

long CDicomPixelStream::Interpret8(long word) const {
    return word;
}

long CDicomPixelStream::Interpret8Inv(long word) const {
    return Low32(std::int64_t{255} - word);
}

long CDicomPixelStream::Interpret16(long word) const {
    const auto bits = static_cast<std::uint32_t>(word);
    const std::uint32_t shifted = m_nPixelShift >= 0 && m_nPixelShift < 32 ? bits >> m_nPixelShift : 0;
    return ToInt((shifted & static_cast<std::uint32_t>(m_nPixelMask)) ^ static_cast<std::uint32_t>(m_nXORMask));
}

long CDicomPixelStream::Interpret16Inv(long word) const {
    return Low32(std::int64_t{m_nMaxPossible} - Interpret16(word));
}

long CDicomPixelStream::Interpret32Inv(long word) const {
    return Low32(std::int64_t{m_nMaxPossible} - (m_bSigned ? Interpret16(word) : word));
}

template <CDicomPixelStream::Interpreter kForm>
long CDicomPixelStream::InterpretOverlay(long word) const {
    return (word & m_nOverlayMask) != 0 ? -1 : (this->*kForm)(word);
}
