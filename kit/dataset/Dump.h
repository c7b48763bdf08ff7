// A data set in lines for people, and as JSON.
#pragma once

#include "../core/KitExport.h"
#include "../core/Watcher.h"
#include "Leniency.h"

#include <iosfwd>
#include <string>

namespace korvane {

struct DumpOptions {
    bool json = false;   ///< the DICOM JSON model (PS3.18 F) in place of lines
    bool meta = false;   ///< with group 0002, which is no part of that model
    bool whole = false;  ///< lines have long values whole, not cut after some 100 characters
    Leniency leniency{};
    Watcher* watcher = nullptr;  ///< is told what was forgiven in reading
};

/// Writes all elements of a file: one line each with tag, type, length, name and value, items indented, what cannot be
/// printed escaped; or one JSON object. Of a file that ends early or is damaged what could be read is written before the
/// call fails. Throws `Error`: `NotFound`, `Disk`, `NotDicom`, `Damaged`, `Stopped`.
///
///     korvane::Dump("image.dcm", std::cout);
KORVANE_KIT void Dump(const std::string& path, std::ostream& out, const DumpOptions& options = {});
/// The same of a binary stream, whose bytes are all taken into memory first; messages call it standard input.
KORVANE_KIT void Dump(std::istream& input, std::ostream& out, const DumpOptions& options = {});

}  // namespace korvane
