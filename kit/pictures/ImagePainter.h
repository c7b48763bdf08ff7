// One stored image as a picture.
#pragma once

#include "GreyScale.h"
#include "ImageFile.h"
#include "Picture.h"
#include "Slice.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace korvane {

/// What pictures do not show, by its sentence; told at the end of a job, once for all its images.
class PictureNotes {
public:
    void Add(FindingKind kind, const std::string& sentence, const std::string& path, std::size_t count = 0);
    void Tell(const Watch& watch) const;

private:
    std::map<std::string, Finding> m_Notes;
};

/// Adds what a data set asks of its pictures, and they do not show.
void NoteWhatIsLeftOut(const DICOMDataObject& dataSet, const std::string& path, PictureNotes& notes);

class ImagePainter {
public:
    ImagePainter(const ImageFile& file, int frame, const SliceOptions& options, PictureNotes& notes);

    /// Pixel for pixel, then with square pixels, at the size that was asked for, annotated.
    SlicePicture Paint();
    /// Stored values in 16 bits, signed ones + 32768. Throws `Error` where they do not fit.
    std::vector<std::uint16_t> TakeStored() const;
    /// Modality values.
    std::vector<float> TakeValues() const;
    /// Between rows and between columns; none where it is not known.
    std::optional<std::array<double, 2>> GetSpacing() const;

private:
    Picture PaintGrey();
    std::vector<std::uint8_t> MakeTable(const GreyScale& scale) const;
    Picture PaintColour();
    GreyScale FindScale();
    std::array<double, 2> GetAspect() const;
    void Annotate(Picture& picture, SliceReport& report) const;
    FramePlace GetPlace() const;
    void CheckGrey() const;
    template <class Take>
    void ForRows(Take take) const;

    const ImageFile& m_File;
    const int m_Frame;
    const SliceOptions& m_Options;
    PictureNotes& m_Notes;
    std::string m_Values;
};

}  // namespace korvane
