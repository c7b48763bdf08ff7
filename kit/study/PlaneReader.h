// One slice after the other, for its voxels alone.
#pragma once

#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "FramePixels.h"
#include "ImageHeader.h"
#include "Padding.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// Reads images that are files, or frames of one; where the module has their form too (`HasModuleForm`) the values are those
/// that it gives. For one thread at a time; its memory and its codec serve from one slice to the next.
class PlaneReader {
public:
    explicit PlaneReader(const Watch& watch);

    /// Stored values, signs and bits as the header says, or colours, which stay until the next call. `frames`: of this file, to
    /// read one of them, `frame`; null for a file of one image, or of tiles: of those it is one, and the file is read once for
    /// all that are asked for in a row. `header` must stay where it is. Throws `Error`.
    std::span<const std::byte> Read(const ImageHeader& header, const FramePixels* frames = nullptr, int frame = 0);
    /// Of the file that was read last: see `HasBitsAbove`.
    bool HadBitsAbove() const { return m_bBitsAbove; }

    /// Of the file that was read last.
    std::optional<Padding> GetPadding() const { return ReadPadding(*m_File.dataSet, m_Form); }
    bool HasModalityTable() const { return FindItem(*m_File.dataSet, tags::ModalityLUTSequence) != nullptr; }

    /// The text of its Slice Thickness; nothing where it is not there, or empty.
    std::optional<std::string> GetThickness() const;

    /// Whether decoding leaves the file's pixels in the form that its header says. Throws `Error`.
    bool KeepsForm(const ImageHeader& header, const FramePixels* frames = nullptr);

private:
    void ReadFile(const ImageHeader& header, const FramePixels* frames, int frame);
    void Put(const ImageHeader& header, int frame);

    Watch m_Watch;
    CodecManager m_Codecs;
    DataSetFile m_File;
    const ImageHeader* m_pTiled = nullptr;  // of that file, where its tiles lie one behind the other
    PixelForm m_Form;                       // of the file that was read last
    std::vector<std::byte> m_Voxels;
    bool m_bBitsAbove = false;
};

}  // namespace korvane
