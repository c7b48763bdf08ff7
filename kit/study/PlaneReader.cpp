#include "PlaneReader.h"

#include "SliceFile.h"
#include "StoredPixels.h"
#include "Tiles.h"

#include <bit>

namespace korvane {

PlaneReader::PlaneReader(const Watch& watch) : m_Watch(watch) {
    m_Codecs.SetStopQuestion(watch.GetStopQuestion());
}

void PlaneReader::ReadFile(const ImageHeader& header, const FramePixels* frames, int frame) {
    if (m_pTiled == &header) return;  // all of its tiles are there
    m_pTiled = nullptr;
    m_File = {};  // its memory is wanted for the next one
    m_File = frames != nullptr ? frames->Read(frame, m_Codecs) : ReadSliceFile(header, m_Codecs, m_Watch);
    m_bBitsAbove = HasFileBitsAbove(header, *m_File.dataSet, m_Watch);
    if (header.IsTiled()) {
        Untile(header, *m_File.dataSet);
        m_pTiled = &header;
    }
    m_Form = HasModuleForm(header.form) ? ReadPixelForm(m_File) : header.form;  // decoding may have changed it
}

bool PlaneReader::KeepsForm(const ImageHeader& header, const FramePixels* frames) {
    if (!header.encapsulated || !HasModuleForm(header.form)) return true;
    ReadFile(header, frames, 0);
    return m_Form == header.form;
}

std::optional<std::string> PlaneReader::GetThickness() const {
    if (FindText(*m_File.dataSet, tags::SliceThickness).empty()) return std::nullopt;
    return TextOf(*m_File.dataSet, tags::SliceThickness);
}

std::span<const std::byte> PlaneReader::Read(const ImageHeader& header, const FramePixels* frames, int frame) {
    ReadFile(header, frames, frame);
    const int inFile = header.IsTiled() ? frame : 0;  // others have been read alone
    if (!HasModuleForm(header.form)) {
        Put(header, inFile);
        return m_Voxels;
    }
    if (m_Form != header.form) RefuseFile(header, ErrorKind::Irregular, "the slices do not make a volume");
    const auto bytes = static_cast<std::size_t>(m_Form.FrameBytes());
    const std::size_t at = bytes * static_cast<std::size_t>(inFile);
    const VR& pixels = *FindElement(*m_File.dataSet, tags::PixelData);
    if (pixels.m_Length < at + bytes) RefuseFile(header, ErrorKind::Damaged, "the pixel data cannot be read");
    // Words with nothing but the value in them need no second copy.
    const bool isLow = m_Form.highBit + 1 == m_Form.stored && std::endian::native == std::endian::little;
    if (isLow && (m_Form.stored == m_Form.allocated || (!m_Form.isSigned && !m_bBitsAbove)))
        return std::as_bytes(std::span(pixels.m_pData + at, bytes));
    Put(header, inFile);
    return m_Voxels;
}

void PlaneReader::Put(const ImageHeader& header, int frame) {
    m_Voxels.resize(static_cast<std::size_t>(m_Form.rows) * static_cast<std::size_t>(m_Form.columns) *
                    SizeOf(VoxelTypeOf(m_Form).value()));
    try {
        StoredPixels(*m_File.dataSet, m_Form).Read(frame, m_Voxels);
    } catch (const Error& error) {
        RefuseFile(header, error.GetKind(), error.what());
    }
}

}  // namespace korvane
