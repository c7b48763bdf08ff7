// A slice whose pixels are read when there is a place for them.
#pragma once

#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "ImageHeader.h"
#include "Padding.h"

#include <cstddef>
#include <memory>
#include <span>

namespace korvane {

/// A file of one image in a form that the module has too (`HasModuleForm`), its bits at the low end of their words. First its
/// data set is read, with pixels that are nobody's; the values go from the file to where they are wanted. Different ones may
/// be read at the same time.
class DelayedSlice {
public:
    /// Reads the data set. Its pixels are `zeros`, one frame, which must live as long as the data set is used so. `header`
    /// must outlive this object. Throws `Error`.
    DelayedSlice(const ImageHeader& header, std::span<unsigned char> zeros, const Watch& watch);

    DICOMDataObject& GetDataSet() { return *m_File.dataSet; }
    std::unique_ptr<DICOMDataObject> TakeDataSet() { return std::move(m_File.dataSet); }

    /// Reads the pixels to `voxels`, signs and bits as the header says. They are the pixels of the data set from now on, which
    /// does not own them. Once only. Throws `Error`.
    void ReadInto(std::span<std::byte> voxels, const Watch& watch);

    // Afterwards:
    /// Whether words had bits above the stored ones: see `HasBitsAbove`.
    bool HadBitsAbove() const { return m_bBitsAbove; }
    const MeasuredRange& GetRange() const { return m_Range; }

private:
    void ReadPacked(std::span<unsigned char> words, const Watch& watch);
    void Finish(std::span<unsigned char> words);
    [[noreturn]] void RefusePixels() const;

    const ImageHeader& m_Header;
    DataSetFile m_File;
    std::unique_ptr<VR> m_pPixels;  // as they are in the file
    MeasuredRange m_Range;
    bool m_bBitsAbove = false;
};

}  // namespace korvane
