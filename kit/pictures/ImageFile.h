// The images of one file, decoded, as they are stored.
#pragma once

#include "../core/Error.h"
#include "../core/Watch.h"
#include "../dataset/DataSet.h"
#include "../study/ImageHeader.h"
#include "../study/Padding.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

class ImageFile {
public:
    /// Reads and decodes all frames. Throws `Error`.
    explicit ImageFile(const NamedFile& from, const Watch& watch = {});
    /// One frame alone, as `FrameReader` gives it. Throws `Error`.
    ImageFile(const NamedFile& from, DataSet frame);

    const std::string& GetPath() const { return m_Header.path; }
    const ImageHeader& GetHeader() const { return m_Header; }  ///< of the decoded pixels
    const PixelForm& GetForm() const { return m_Header.form; }
    const DICOMDataObject& GetDataSet() const { return *m_File.dataSet; }
    int CountFrames() const { return m_Header.frames; }

    /// The stored values of a row, masked and with their sign: columns x samples, the samples of a pixel side by side.
    void ReadRow(int frame, int row, std::vector<double>& values) const;

    /// The same of grey images of up to 16 bits by a table: one entry for each pattern of the stored bits.
    void MapRow(int frame, int row, std::span<const std::uint8_t> table, std::uint8_t* greys) const;

    /// How many words of a frame have bits above the stored ones that are no copies of the sign.
    std::size_t CountBitsAbove(int frame) const;

private:
    void TakeHeader(const NamedFile& from);
    void Decode(const Watch& watch);
    void CheckForm() const;
    void FindPixels();
    std::uint64_t CountWords() const;
    std::size_t IndexOf(int frame, int row, int column, int sample) const;
    double ValueAt(std::size_t index) const;
    std::uint32_t WordAt(std::size_t index) const;
    void ReadSubsampledRow(int frame, int row, std::vector<double>& values) const;
    [[noreturn]] void Fail(ErrorKind kind, const std::string& why) const;

    DataSetFile m_File;
    ImageHeader m_Header;
    const unsigned char* m_pPixels = nullptr;
    bool m_bPlanar = false;
    bool m_bSubsampled = false;  ///< two pixels share their colour: Y Y Cb Cr
};

}  // namespace korvane
