// What can go onto a medium, judged by the header of a file.
#pragma once

#include "../core/Watch.h"
#include "../dataset/Toolkit.h"

#include <memory>
#include <string>

namespace korvane {

/// A file's data set up to its pixel data, or why the file stays off the medium.
struct MediaHeader {
    std::unique_ptr<DICOMDataObject> dataSet;  ///< null: left out
    std::string why;
    bool notDicom = false;
    bool isDirectory = false;  ///< a DICOMDIR

    /// Its own fault; nobody wants the other two on the medium.
    bool IsFault() const { return dataSet == nullptr && !notDicom && !isDirectory; }
};

/// Reads the header, in one go where it is short. Without `transcode` files need meta information, as media ask for it.
/// Throws `Error` of kind `Stopped`.
MediaHeader ReadMediaHeader(const std::string& path, bool transcode, const Watch& watch);

}  // namespace korvane
