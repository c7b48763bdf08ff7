// Single frames of one file, for their voxels.
#pragma once

#include "../core/Watch.h"
#include "../dataset/DataSetFile.h"
#include "../dataset/Frames.h"
#include "ImageHeader.h"

#include <memory>
#include <mutex>

namespace korvane {

/// Holds neither the pixels of a file nor its functional groups. May be asked by several threads at the same time.
class FramePixels {
public:
    /// Whether frames of such files can be read alone.
    static bool CanRead(const ImageHeader& header);

    /// `header`, what the file said when it was found, must outlive this object. Throws `Error`.
    FramePixels(const ImageHeader& header, const Watch& watch);

    /// A data set with the attributes of the image and the decoded pixels of one frame, from 0. `codecs`: the thread's own.
    /// Throws `Error`.
    DataSetFile Read(int frame, CodecManager& codecs) const;

private:
    template <class Work>
    void WithName(const Work& work) const;
    void PushPixels(int frame, DICOMDataObject& dataSet) const;

    const ImageHeader& m_Header;
    Watch m_Watch;
    DataSetFile m_Image;  // without pixels, groups and other sequences
    std::unique_ptr<FrameReader> m_pFrames;
    mutable std::mutex m_Mutex;  // of the reader
};

}  // namespace korvane
