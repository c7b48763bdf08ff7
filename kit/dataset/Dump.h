// Data sets in lines for people, as JSON, XML, or rows of a table.
#pragma once

#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "ElementPath.h"
#include "Leniency.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace korvane {

enum class DumpForm {
    Lines,  ///< one for each element: tag, type, length, name and value, items indented, what cannot be printed escaped
    Json,   ///< the DICOM JSON model (PS3.18 F), one object
    Xml,    ///< the Native DICOM Model (PS3.19 A.1); control characters in texts, which XML cannot hold, are U+FFFD
    Csv     ///< one row, with the values of `only` in their order
};

struct DumpOptions {
    DumpForm form = DumpForm::Lines;
    bool meta = false;   ///< with group 0002, which is no part of the models that JSON and XML are in
    bool whole = false;  ///< lines have long values whole, not cut after some 100 characters
    /// Only these elements, with all that is in them, and the sequences that they are in; none: all.
    std::vector<ElementPath> only{};
    Leniency leniency{};
    Watcher* watcher = nullptr;  ///< is told what was forgiven in reading
};

/// Writes the elements of a file. Of a file that ends early or is damaged what could be read is written before the call
/// fails. Throws `Error`: `NotFound`, `Disk`, `NotDicom`, `Damaged`, `Stopped`.
///
///     korvane::Dump("image.dcm", std::cout);
KORVANE_KIT void Dump(const std::string& path, std::ostream& out, const DumpOptions& options = {});

/// The same of a binary stream, whose bytes are all taken into memory first; messages call it standard input.
KORVANE_KIT void Dump(std::istream& input, std::ostream& out, const DumpOptions& options = {});

/// What became of the files.
struct DumpReport {
    std::size_t written = 0;
    std::size_t notDicom = 0;  ///< files in folders that are something else, left out
    std::size_t failed = 0;    ///< files and folders that could not be read, or not to their end; each was told
};

/// The same of several files and of all files below folders, by their names. Lines: each file has one with its name
/// ahead. JSON: an array. CSV (RFC 4180): a first row with "file" and `only` as they were given, and a row for each file; several
/// values of an element have backslashes between them, bytes are in base 64. XML takes a single file: `WrongArgument`.
/// A single file is dumped as by `Dump`.
///
///     korvane::DumpAll({"archive"}, out, {.form = korvane::DumpForm::Csv, .only = {"PatientID", "Modality"}});
KORVANE_KIT DumpReport DumpAll(const std::vector<std::string>& paths, std::ostream& out,
                               const DumpOptions& options = {});

}  // namespace korvane
