// Whether a file can go onto a medium, judged by its header.
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
    bool isDirectory = false;      ///< a DICOMDIR
    bool isPartTen = false;        ///< it has a preamble and meta information
    std::string transferSyntax{};  ///< UID; that of the encoding where the file names none

    /// Whether the file is left out because something is wrong with it; the other two kinds do not belong onto a
    /// medium.
    bool IsFault() const { return dataSet == nullptr && !notDicom && !isDirectory; }
};

/// What is done with files that cannot lie on a medium as they are.
struct MediaRules {
    bool rewrite = false;  ///< they are written anew
    bool inventPatientId = false;
};

/// Reads a file up to its pixel data, in one call of the system where that is short. A file without meta information is left
/// out unless the rules have it written, since files of a medium must have it (PS3.10 7). Throws `Error` of kind `Stopped`.
MediaHeader ReadMediaHeader(const std::string& path, const MediaRules& rules, const Watch& watch);

}  // namespace korvane
