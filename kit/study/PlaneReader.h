// One slice after the other, for its voxels alone.
#pragma once

#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "ImageHeader.h"
#include "Padding.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// Reads files of one image each, in a form that the module has too (`HasModuleForm`); the values are those that it gives.
/// For one thread at a time; its memory and its codec serve from one slice to the next.
class PlaneReader {
public:
    explicit PlaneReader(const Watch& watch);

    /// Stored values, signs and bits as the header says, which stay until the next call. Throws `Error`.
    std::span<const std::byte> Read(const ImageHeader& header);
    /// Of the file that was read last: see `HasBitsAbove`.
    bool HadBitsAbove() const { return m_bBitsAbove; }

    /// Of the file that was read last.
    std::optional<Padding> GetPadding() const { return ReadPadding(*m_File.dataSet, m_Form); }
    bool HasModalityTable() const { return FindItem(*m_File.dataSet, tags::ModalityLUTSequence) != nullptr; }

    /// The text of its Slice Thickness; nothing where it is not there, or empty.
    std::optional<std::string> GetThickness() const;

    /// Whether decoding leaves the file's pixels in the form that its header says. Throws `Error`.
    bool KeepsForm(const ImageHeader& header);

private:
    Watch m_Watch;
    CodecManager m_Codecs;
    DataSetFile m_File;
    PixelForm m_Form;  // of the file that was read last
    std::vector<std::byte> m_Voxels;
    bool m_bBitsAbove = false;
};

}  // namespace korvane
