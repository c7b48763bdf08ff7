// The stored images of one call.
#pragma once

#include "../core/ExportFiles.h"
#include "../core/Watch.h"
#include "../dataset/Frames.h"
#include "../study/Series.h"
#include "ImagePainter.h"
#include "Slice.h"

#include <memory>
#include <string>
#include <vector>

namespace korvane {

class ImageJob {
public:
    /// Of all images of a series, or of one volume of it where `volume` is not 0. Throws `Error`.
    ImageJob(const Series& series, int volume, const SliceOptions& options, const std::string& output);
    /// Of the frames of one file.
    ImageJob(const std::string& path, const SliceOptions& options);

    /// Writes all pictures or none. Throws `Error`.
    SliceReport Run();
    /// The one picture, or the sheet, without a file. Throws `Error`.
    SlicePicture Draw();

private:
    /// Frames of one file that follow each other.
    struct Images {
        NamedFile file;
        int firstFrame;
        std::size_t count;
        bool isTooLarge = false;  ///< for all its frames to be decoded at once
    };

    std::size_t CountImages() const;
    std::size_t ChooseIndex() const;
    ImagePainter PainterOf(std::size_t index);
    ImagePainter PainterOfFrame(const NamedFile& file, int frame);
    SliceReport WriteOne(std::size_t index, const std::string& path);
    SliceReport WriteFolder();
    SlicePicture DrawSheet();
    void Finish(SliceReport& report);

    const SliceOptions& m_Options;
    const std::string m_Output;
    Watch m_Watch;
    std::vector<Images> m_Images;
    std::unique_ptr<ImageFile> m_pFile;      // the last one read: frames of a file follow each other
    std::unique_ptr<FrameReader> m_pFrames;  // of one that is too large
    std::string m_FramesOf;                  // path
    PictureNotes m_Notes;
    ExportFiles m_Files;
};

}  // namespace korvane
