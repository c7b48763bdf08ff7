// Files into another transfer syntax.
//
//     korvane::Convert("in.dcm", "out.dcm", {.syntax = "rle"});
//     const auto report = korvane::Convert("archive", "copy");  // explicit VR little endian
#pragma once

#include "../core/Finding.h"
#include "../core/KitExport.h"
#include "../core/Outcome.h"
#include "../core/Watcher.h"
#include "ElementPath.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <utility>
#include <vector>

namespace korvane {

struct ConvertOptions {
    /// A transfer syntax UID (PS3.6 A), or one of the words of `GetSyntaxWords`.
    std::string syntax = "explicit";
    /// How messages name streams, which have no path.
    std::string inputName = "standard input";
    std::string outputName = "standard output";
    /// Values to set on the way, as `DataSet::Set` takes them, and then elements to take out. What a file does not have need
    /// not be taken out.
    std::vector<std::pair<ElementPath, std::string>> set{};
    std::vector<ElementPath> remove{};
    unsigned jobs = 0;  ///< threads for the files of a folder; 0: one for each core
    Watcher* watcher = nullptr;
};

/// What became of the files.
struct ConvertReport {
    std::string input;  ///< the folders, as they were given
    std::string output;
    std::string syntax;        ///< the name of the target and its UID
    bool isFolder = false;     ///< whether a folder was converted, or one file
    std::size_t written = 0;   ///< files
    std::size_t notDicom = 0;  ///< files that are something else, left out
    std::size_t failed = 0;    ///< files and folders that could not be read, converted or written; see `findings`
    std::vector<Finding> findings{};  ///< each was told to the watcher too
};

/// Lines for folders alone. The faults have been told to the watcher.
KORVANE_KIT Outcome OutcomeOf(const ConvertReport& report);

/// "implicit", "explicit", "big": uncompressed; "rle", "jpegll": compressed without loss.
KORVANE_KIT std::vector<std::string> GetSyntaxWords();

/// Rewrites one file, or all files below a folder. What is compressed is decoded first; nothing else of a data set is
/// lost: elements without a known type are written as UN.
///
/// A file: an existing folder as `output` takes it under its own name. The result gets its name when it is whole; devices
/// and pipes are written as they are. Throws `Error` (and for a file that is not DICOM: `NotDicom`).
///
/// A folder: the same names below `output`, which is made; the two must not contain each other. Failures of single files
/// are counted and told, in the order of the files. Each thread has one file in memory.
KORVANE_KIT ConvertReport Convert(const std::string& input, const std::string& output,
                                  const ConvertOptions& options = {});

/// The same for binary streams, which get nothing until all is decoded. `input` may not be a folder here.
KORVANE_KIT ConvertReport Convert(std::istream& input, const std::string& output, const ConvertOptions& options = {});
KORVANE_KIT ConvertReport Convert(const std::string& input, std::ostream& output, const ConvertOptions& options = {});
KORVANE_KIT ConvertReport Convert(std::istream& input, std::ostream& output, const ConvertOptions& options = {});

}  // namespace korvane
