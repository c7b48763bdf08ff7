#include "PlaneReader.h"

#include "SliceFile.h"
#include "StoredPixels.h"

#include <bit>

namespace korvane {

PlaneReader::PlaneReader(const Watch& watch) : m_Watch(watch) {
    m_Codecs.SetStopQuestion(watch.GetStopQuestion());
}

/// Decoding may change the bits that pixels have.
PixelForm PlaneReader::ReadForm(const ImageHeader& header) const {
    PixelForm form = header.form;
    if (!header.encapsulated) return form;
    form.allocated = FindInteger(*m_File.dataSet, tags::BitsAllocated, form.allocated);
    form.stored = FindInteger(*m_File.dataSet, tags::BitsStored, form.stored);
    form.highBit = FindInteger(*m_File.dataSet, tags::HighBit, form.highBit);
    form.isSigned = FindInteger(*m_File.dataSet, tags::PixelRepresentation, form.isSigned ? 1 : 0) == 1;
    return form;
}

bool PlaneReader::KeepsForm(const ImageHeader& header) {
    if (!header.encapsulated) return true;
    m_File = ReadSliceFile(header, m_Codecs, m_Watch);
    return ReadForm(header) == header.form;
}

std::span<const std::byte> PlaneReader::Read(const ImageHeader& header) {
    m_File = {};  // its memory is wanted for the next one
    m_File = ReadSliceFile(header, m_Codecs, m_Watch);
    m_bBitsAbove = HasFileBitsAbove(header, *m_File.dataSet, m_Watch);
    const PixelForm form = ReadForm(header);
    m_Form = form;
    if (form != header.form) RefuseFile(header, ErrorKind::Irregular, "the slices do not make a volume");
    const auto bytes = static_cast<std::size_t>(form.FrameBytes());
    const VR& pixels = *FindElement(*m_File.dataSet, tags::PixelData);
    // Words with nothing but the value in them need no second copy.
    const bool isLow = form.highBit + 1 == form.stored && std::endian::native == std::endian::little;
    if (isLow && (form.stored == form.allocated || (!form.isSigned && !m_bBitsAbove)))
        return std::as_bytes(std::span(pixels.m_pData, bytes));
    m_Voxels.resize(bytes);
    StoredPixels(*m_File.dataSet, form).Read(0, m_Voxels);
    return m_Voxels;
}

}  // namespace korvane
