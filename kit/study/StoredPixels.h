// The native pixels of one image as voxels.
#pragma once

#include "../dataset/Toolkit.h"
#include "PixelForm.h"
#include "Volume.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// What the voxels of such images are: stored values, colours where there are three samples or a palette. Nothing where no
/// type holds them.
std::optional<VoxelType> VoxelTypeOf(const PixelForm& form);

/// Whether assembly by the module gives what `VoxelTypeOf` says. It knows no signs of 8 bits, moves signed values of 32
/// bits by half their range, takes colours for their hue, and reads integers alone.
bool HasModuleForm(const PixelForm& form);

/// Whether words have bits above the stored ones (PS3.5 8.1.1) that are neither zeros nor repeat the sign: an overlay, or
/// dirt. No value has them.
bool HasBitsAbove(std::span<const unsigned char> words, const PixelForm& form);

/// Puts stored values at the low end of their words, with zeros or the sign above them.
void FillWords(std::span<unsigned char> words, const PixelForm& form);

/// Reads the frames of one data set, which must outlive it. Values have the signs and bits that the header says; colours are
/// red, green and blue of 8 bits, whatever stands in the file (PS3.3 C.7.6.3.1.2).
class StoredPixels {
public:
    /// `form`: of the header; what decoding changed is read of `dataSet`. Throws `Error`, which names no file: a colour space
    /// or a palette that is none.
    StoredPixels(const DICOMDataObject& dataSet, const PixelForm& form);

    /// `voxels`: a plane of `VoxelTypeOf`. Throws `Error` when the frame is not there.
    void Read(int frame, std::span<std::byte> voxels) const;

private:
    enum class Colour { None, Rgb, Ybr, Palette };

    struct Palette {
        int first = 0;                                     ///< value of the first entry
        std::array<std::vector<std::uint8_t>, 3> entries;  ///< red, green, blue
    };

    void ReadPalette(const DICOMDataObject& dataSet);
    void ReadBits(std::uint64_t firstBit, std::span<std::byte> voxels) const;
    void ReadSamples(const unsigned char* frame, std::span<std::byte> voxels) const;
    void ReadPaletteColours(const unsigned char* frame, std::span<std::byte> voxels) const;

    PixelForm m_Form;
    VoxelType m_Type;
    std::span<const unsigned char> m_Bytes;
    Colour m_Colour = Colour::None;
    bool m_bPlanar = false;
    Palette m_Palette;
};

}  // namespace korvane
